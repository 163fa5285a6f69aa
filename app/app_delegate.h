#ifndef QUILLMERE_APP_APP_DELEGATE_H_
#define QUILLMERE_APP_APP_DELEGATE_H_

#include <QObject>
#include <QStringList>
#include <memory>

#include "app/repair_model.h"

namespace quillmere {

class MainWindow;

// The application's owner of the model and the window. It hands the model what the app was
// started with and the files the desktop opens with it later.
class AppDelegate : public QObject {
  Q_OBJECT

 public:
  explicit AppDelegate(RepairBackend backend = RepairBackend::core(), QObject* parent = nullptr);
  ~AppDelegate() override;

  RepairModel& repair() { return repair_; }
  MainWindow& window() { return *window_; }

  // Shows the window, then reads `arguments` (program at index 0): "--scan PATHS…" starts a
  // scan, "--out FOLDER" sets the destination; plain paths are opened like files given later.
  void applicationDidFinishLaunching(const QStringList& arguments);
  // Files the desktop asks the app to open while it runs: a new scan unless one is running.
  void open(const std::vector<std::filesystem::path>& files);

 private:
  RepairModel repair_;
  std::unique_ptr<MainWindow> window_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_APP_DELEGATE_H_
