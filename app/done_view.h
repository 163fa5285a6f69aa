#ifndef QUILLMERE_APP_DONE_VIEW_H_
#define QUILLMERE_APP_DONE_VIEW_H_

#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>

#include "app/import_state.h"
#include "app/widgets.h"
#include "core/repair/repair_result.h"

namespace quillmere {

class RepairModel;

// The state of adding to Immich, under the result's buttons.
class ImportStatus : public QWidget {
  Q_OBJECT

 public:
  ImportStatus(RepairModel& model, QWidget* parent = nullptr);
  void refresh(const ImportState& state);

 private:
  RepairModel& model_;
  QWidget* content_ = nullptr;
};

// The result of a finished repair, the ways out of it, and adding the copies to Immich.
class DoneView : public QScrollArea {
  Q_OBJECT

 public:
  DoneView(RepairModel& model, RepairResultPtr result, QWidget* parent = nullptr);
  // Follows the model's import state: the status, and which buttons may be used.
  void refreshImport();
  bool confirming() const { return confirmation_ != nullptr; }
  // The open confirmation dialog, if any.
  QMessageBox* confirmation() const { return confirmation_; }
  // "Add to Immich…": asks for the server when none is known, then for confirmation.
  void addToImmich();

 private:
  void confirm();

  RepairModel& model_;
  RepairResultPtr result_;
  QPushButton* add_;
  QPushButton* another_;
  ImportStatus* status_;
  QPointer<QMessageBox> confirmation_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_DONE_VIEW_H_
