#ifndef QUILLMERE_APP_REPAIR_VIEW_H_
#define QUILLMERE_APP_REPAIR_VIEW_H_

#include <QStackedWidget>

#include "core/repair/repair_result.h"
#include "core/scan/scan_result.h"

namespace quillmere {

class RepairModel;
class DropZone;
class WorkingView;
class ScanSummaryView;
class DoneView;
class FailedView;

// One screen per stage of the model, redrawn whenever the model changes.
class RepairView : public QStackedWidget {
  Q_OBJECT

 public:
  explicit RepairView(RepairModel& model, QWidget* parent = nullptr);

  DropZone* dropZone() const { return dropZone_; }
  WorkingView* workingView() const { return working_; }
  ScanSummaryView* scanSummary() const { return summary_; }
  DoneView* doneView() const { return done_; }
  FailedView* failedView() const { return failed_; }

 private:
  void sync();

  RepairModel& model_;
  DropZone* dropZone_;
  WorkingView* working_;
  FailedView* failed_;
  ScanSummaryView* summary_ = nullptr;
  ScanResultPtr summaryScan_;
  DoneView* done_ = nullptr;
  RepairResultPtr doneResult_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_REPAIR_VIEW_H_
