#include "app/done_view.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "app/file_manager.h"
#include "app/immich_server_dialog.h"
#include "app/path_text.h"
#include "app/repair_model.h"

namespace quillmere {
namespace {

// A symbol and a line of text beside it.
QWidget* makeSymbolLine(Symbol symbol, Tint tint, const QString& text, QWidget* parent,
                        TextStyle style = TextStyle::body) {
  auto* row = new QWidget(parent);
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(makeSymbol(symbol, tint, style == TextStyle::title2 ? 26 : 18, row), 0,
                    Qt::AlignTop);
  QLabel* label = makeLabel(text, style, 0, row);
  label->setObjectName(QStringLiteral("symbolLine"));
  layout->addWidget(label, 1);
  return row;
}

}  // namespace

ImportStatus::ImportStatus(RepairModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
}

void ImportStatus::refresh(const ImportState& state) {
  if (content_ != nullptr) {
    content_->hide();
    content_->deleteLater();
  }
  content_ = new QWidget(this);
  layout()->addWidget(content_);
  auto* column = new QVBoxLayout(content_);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(4);
  if (const auto* running = std::get_if<ImportCase::Running>(&state)) {
    auto* progress = new ProgressDisplay(content_);
    progress->setObjectName(QStringLiteral("importProgress"));
    progress->setProgress(running->progress);
    auto* stop = new QPushButton(tr("Stop"), content_);
    stop->setObjectName(QStringLiteral("stopImport"));
    connect(stop, &QPushButton::clicked, this, [this] { model_.cancel(); });
    // "Stop" beside the bar it stops.
    auto* row = new QHBoxLayout;
    row->addWidget(progress, 0, Qt::AlignTop);
    row->addWidget(stop, 0, Qt::AlignTop);
    row->addStretch();
    column->addLayout(row);
  } else if (const auto* done = std::get_if<ImportCase::Done>(&state)) {
    column->addWidget(makeSymbolLine(Symbol::checkmarkCircleFill, Tint::green,
                                     ViewTexts::importDoneHeadline(done->summary), content_));
    for (const QString& line : ViewTexts::importDoneLines(done->summary)) {
      QLabel* label = makeLabel(line, TextStyle::body, 1, content_);
      label->setObjectName(QStringLiteral("importLine"));
      label->setIndent(26);
      column->addWidget(label);
    }
  } else if (const auto* failed = std::get_if<ImportCase::Failed>(&state)) {
    column->addWidget(makeSymbolLine(Symbol::exclamationTriangleFill, Tint::orange,
                                     QString::fromStdString(failed->message), content_));
    QLabel* hint = makeLabel(ViewTexts::importFailedHint(), TextStyle::callout, 0, content_);
    hint->setObjectName(QStringLiteral("importHint"));
    hint->setIndent(26);
    column->addWidget(hint);
  }
  // Idle shows nothing and takes no room, so the buttons above keep their place.
  setVisible(!std::holds_alternative<ImportCase::Idle>(state));
}

DoneView::DoneView(RepairModel& model, RepairResultPtr result, QWidget* parent)
    : QScrollArea(parent), model_(model), result_(std::move(result)) {
  QVBoxLayout* column = makeScrollColumn(this);
  QWidget* content = widget();
  const RepairSummary& summary = result_->summary;
  const bool problems = summary.failed != 0;
  QWidget* title =
      makeSymbolLine(problems ? Symbol::exclamationTriangleFill : Symbol::checkmarkCircleFill,
                     problems ? Tint::orange : Tint::green, ViewTexts::doneTitle(summary), content,
                     TextStyle::title2);
  title->setObjectName(QStringLiteral("doneTitle"));
  column->addWidget(title);
  QLabel* output = makeLabel(displayPath(result_->outputFolder()), TextStyle::body, 1, content);
  output->setToolTip(toQString(result_->outputFolder()));
  output->setObjectName(QStringLiteral("outputFolder"));
  output->setTextInteractionFlags(Qt::TextSelectableByMouse);
  column->addWidget(output);
  column->addSpacing(12);
  column->addWidget(makeStatRow(ViewTexts::doneFirstRow(summary), content));
  column->addSpacing(8);
  column->addWidget(makeStatRow(ViewTexts::doneSecondRow(summary), content));
  column->addSpacing(16);

  auto* buttons = new QHBoxLayout;
  add_ = new QPushButton(tr("Add to Immich…"), content);
  add_->setObjectName(QStringLiteral("addToImmich"));
  add_->setDefault(true);
  connect(add_, &QPushButton::clicked, this, &DoneView::addToImmich);
  buttons->addWidget(add_);
  auto* show = new QPushButton(tr("Show in File Manager"), content);
  show->setObjectName(QStringLiteral("showInFileManager"));
  connect(show, &QPushButton::clicked, this,
          [this] { FileManager::showItem(result_->outputFolder()); });
  buttons->addWidget(show);
  auto* log = new QPushButton(tr("Open Change Log"), content);
  log->setObjectName(QStringLiteral("openChangeLog"));
  connect(log, &QPushButton::clicked, this,
          [this] { FileManager::openFile(result_->reportFolder() / "changes.csv"); });
  buttons->addWidget(log);
  buttons->addStretch();
  column->addLayout(buttons);
  status_ = new ImportStatus(model_, content);
  status_->setObjectName(QStringLiteral("importStatus"));
  column->addWidget(status_);
  column->addSpacing(12);
  another_ = new QPushButton(tr("Repair Another Export"), content);
  another_->setObjectName(QStringLiteral("repairAnother"));
  connect(another_, &QPushButton::clicked, this, [this] { model_.startOver(); });
  column->addWidget(another_, 0, Qt::AlignLeft);
  column->addStretch();
  refreshImport();
}

void DoneView::refreshImport() {
  const ImportState& state = model_.importState();
  const bool running = std::holds_alternative<ImportCase::Running>(state);
  const ImportBackend& importer = model_.backend().import;
  add_->setEnabled(!running && importer.run && importer.itemCount);
  another_->setEnabled(!running);
  status_->refresh(state);
}

void DoneView::addToImmich() {
  const ImportBackend& importer = model_.backend().import;
  if (!importer.run || !importer.itemCount) return;
  const bool known = model_.importCredentials().has_value() ||
                     (importer.hasKnownCredentials && importer.hasKnownCredentials());
  if (!known) {
    auto* dialog = new ImmichServerDialog(importer.checkCredentials, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
      model_.setImportCredentials(dialog->credentials());
      confirm();
    });
    dialog->open();
    return;
  }
  confirm();
}

void DoneView::confirm() {
  auto* box = new QMessageBox(this);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setWindowModality(Qt::WindowModal);
  box->setIcon(QMessageBox::Question);
  const QString title = ViewTexts::importConfirmTitle(model_.backend().import.itemCount(*result_));
  box->setWindowTitle(title);
  box->setText(title);
  box->setInformativeText(ViewTexts::importConfirmMessage());
  QPushButton* add = box->addButton(tr("Add to Immich"), QMessageBox::AcceptRole);
  box->addButton(tr("Cancel"), QMessageBox::RejectRole);
  box->setDefaultButton(add);
  connect(box, &QMessageBox::buttonClicked, this, [this, add](QAbstractButton* clicked) {
    if (clicked == add) model_.importIntoPhotos();
  });
  confirmation_ = box;
  box->open();
}

}  // namespace quillmere
