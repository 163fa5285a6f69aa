#ifndef QUILLMERE_APP_MAIN_WINDOW_H_
#define QUILLMERE_APP_MAIN_WINDOW_H_

#include <QButtonGroup>
#include <QMainWindow>
#include <QStackedWidget>

namespace quillmere {

class RepairModel;
class RepairView;

// The one window: the "Mode" switch in the toolbar over the repair view and the modes to come.
// Return starts the repair once a destination is chosen; Esc stops a repair or an import.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  // The three modes, in the order of the switch.
  enum class Mode { repair, verify, backup };

  explicit MainWindow(RepairModel& model, QWidget* parent = nullptr);
  RepairView* repairView() const { return repairView_; }
  void setMode(Mode mode);
  Mode mode() const { return static_cast<Mode>(pages_->currentIndex()); }

 private:
  RepairModel& model_;
  RepairView* repairView_;
  QStackedWidget* pages_;
  QButtonGroup* modes_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_MAIN_WINDOW_H_
