#ifndef QUILLMERE_APP_WORKING_VIEW_H_
#define QUILLMERE_APP_WORKING_VIEW_H_

#include <QPushButton>
#include <QWidget>
#include <functional>

#include "app/widgets.h"

namespace quillmere {

// A long operation in progress: its title, its progress, and "Stop" when it can be stopped.
class WorkingView : public QWidget {
  Q_OBJECT

 public:
  explicit WorkingView(QWidget* parent = nullptr);
  // `cancel` empty: no "Stop" button.
  void show(const QString& title, const WorkProgress& progress, std::function<void()> cancel);
  void setProgress(const WorkProgress& progress) { progress_->setProgress(progress); }
  QString title() const { return title_->text(); }
  const ProgressDisplay& progress() const { return *progress_; }
  bool canStop() const { return !stop_->isHidden(); }

 private:
  QLabel* title_;
  ProgressDisplay* progress_;
  QPushButton* stop_;
  std::function<void()> cancel_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_WORKING_VIEW_H_
