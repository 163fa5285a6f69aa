#include "app/repair_view.h"

#include "app/done_view.h"
#include "app/drop_zone.h"
#include "app/repair_model.h"
#include "app/scan_summary_view.h"
#include "app/simple_views.h"
#include "app/working_view.h"

namespace quillmere {
namespace {

// Takes a page out of the stack. Deleted later, because the click that ended it may still be
// running inside one of its buttons.
void retire(QWidget* page) {
  if (page == nullptr) return;
  page->hide();
  if (auto* stack = qobject_cast<QStackedWidget*>(page->parentWidget())) stack->removeWidget(page);
  page->deleteLater();
}

}  // namespace

RepairView::RepairView(RepairModel& model, QWidget* parent)
    : QStackedWidget(parent),
      model_(model),
      dropZone_(new DropZone(model, this)),
      working_(new WorkingView(this)),
      failed_(new FailedView([&model] { model.startOver(); }, this)) {
  addWidget(dropZone_);
  addWidget(working_);
  addWidget(failed_);
  connect(&model_, &RepairModel::stageChanged, this, &RepairView::sync);
  connect(&model_, &RepairModel::inputsChanged, this, &RepairView::sync);
  connect(&model_, &RepairModel::destinationChanged, this, [this] {
    if (summary_ != nullptr) summary_->refreshDestination();
  });
  connect(&model_, &RepairModel::importStateChanged, this, [this] {
    if (done_ != nullptr) done_->refreshImport();
  });
  sync();
}

void RepairView::sync() {
  const Stage& stage = model_.stage();
  // Pages that show one scan or one result are made anew for each.
  const auto* scanned = std::get_if<StageCase::Scanned>(&stage);
  if (scanned == nullptr || scanned->scan != summaryScan_) {
    retire(summary_);
    summary_ = nullptr;
    summaryScan_ = nullptr;
  }
  const auto* done = std::get_if<StageCase::Done>(&stage);
  if (done == nullptr || done->result != doneResult_) {
    retire(done_);
    done_ = nullptr;
    doneResult_ = nullptr;
  }
  if (std::holds_alternative<StageCase::Empty>(stage)) {
    setCurrentWidget(dropZone_);
  } else if (const auto* scanning = std::get_if<StageCase::Scanning>(&stage)) {
    working_->show(tr("Scanning your export"), scanning->progress, {});
    setCurrentWidget(working_);
  } else if (const auto* repairing = std::get_if<StageCase::Repairing>(&stage)) {
    working_->show(tr("Repairing copies"), repairing->progress, [this] { model_.cancel(); });
    setCurrentWidget(working_);
  } else if (scanned != nullptr) {
    if (summary_ == nullptr) {
      summaryScan_ = scanned->scan;
      summary_ = new ScanSummaryView(model_, *summaryScan_, this);
      addWidget(summary_);
    }
    setCurrentWidget(summary_);
  } else if (done != nullptr) {
    if (done_ == nullptr) {
      doneResult_ = done->result;
      done_ = new DoneView(model_, doneResult_, this);
      addWidget(done_);
    }
    setCurrentWidget(done_);
  } else if (const auto* failed = std::get_if<StageCase::Failed>(&stage)) {
    failed_->setMessage(QString::fromStdString(failed->message));
    setCurrentWidget(failed_);
  }
}

}  // namespace quillmere
