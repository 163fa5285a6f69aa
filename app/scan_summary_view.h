#ifndef QUILLMERE_APP_SCAN_SUMMARY_VIEW_H_
#define QUILLMERE_APP_SCAN_SUMMARY_VIEW_H_

#include <QLabel>
#include <QPushButton>
#include <QScrollArea>

#include "core/scan/scan_result.h"

namespace quillmere {

class RepairModel;

// What the scan found and what the repair will fix, with the choice of output folder and the
// button that starts the repair.
class ScanSummaryView : public QScrollArea {
  Q_OBJECT

 public:
  ScanSummaryView(RepairModel& model, const ScanResult& scan, QWidget* parent = nullptr);
  // Shows the model's current destination and enables the repair when there is one.
  void refreshDestination();

 private:
  RepairModel& model_;
  QLabel* destinationPath_;
  QWidget* destinationRow_;
  QPushButton* chooseDestination_;
  QPushButton* repair_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_SCAN_SUMMARY_VIEW_H_
