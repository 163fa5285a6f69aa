#include "app/scan_summary_view.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "app/path_text.h"
#include "app/repair_model.h"
#include "app/widgets.h"

namespace quillmere {

ScanSummaryView::ScanSummaryView(RepairModel& model, const ScanResult& scan, QWidget* parent)
    : QScrollArea(parent), model_(model) {
  QVBoxLayout* column = makeScrollColumn(this);
  QWidget* content = widget();

  QLabel* heading = makeLabel(ViewTexts::scanHeading(scan.kind), TextStyle::title2, 0, content);
  heading->setObjectName(QStringLiteral("heading"));
  column->addWidget(heading);
  QLabel* source =
      makeLabel(ViewTexts::sourceLine(model.inputs(), scan.summary), TextStyle::body, 1, content);
  source->setObjectName(QStringLiteral("sourceLine"));
  column->addWidget(source);
  column->addSpacing(12);
  column->addWidget(makeStatRow(ViewTexts::scanStats(scan.summary, scan.kind), content));
  column->addSpacing(16);

  QLabel* fixHeading = makeLabel(tr("What Quillmere will fix"), TextStyle::headline, 0, content);
  column->addWidget(fixHeading);
  for (const FindingText& finding : ViewTexts::findings(scan.summary, scan.kind)) {
    column->addWidget(makeFinding(finding, content));
  }
  column->addWidget(
      makeLabel(tr("Videos are checked during the repair."), TextStyle::callout, 2, content));
  column->addSpacing(16);

  destinationRow_ = new QWidget(content);
  auto* destination = new QHBoxLayout(destinationRow_);
  destination->setContentsMargins(0, 0, 0, 0);
  destination->addWidget(makeSymbol(Symbol::folder, Tint::secondary, 16, destinationRow_));
  destinationPath_ = new MiddleElidedLabel(destinationRow_);
  destinationPath_->setObjectName(QStringLiteral("destinationPath"));
  QPalette secondary = destinationPath_->palette();
  secondary.setColor(QPalette::WindowText, secondaryTextColor(secondary));
  destinationPath_->setPalette(secondary);
  destinationPath_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  destination->addWidget(destinationPath_, 1);
  auto* change = new QPushButton(tr("Change…"), destinationRow_);
  change->setObjectName(QStringLiteral("changeDestination"));
  destination->addWidget(change);
  column->addWidget(destinationRow_);
  chooseDestination_ = new QPushButton(tr("Choose Where to Save…"), content);
  chooseDestination_->setObjectName(QStringLiteral("chooseDestination"));
  column->addWidget(chooseDestination_, 0, Qt::AlignLeft);
  connect(change, &QPushButton::clicked, this, [this] { model_.chooseDestination(window()); });
  connect(chooseDestination_, &QPushButton::clicked, this,
          [this] { model_.chooseDestination(window()); });

  auto* buttons = new QHBoxLayout;
  auto* startOver = new QPushButton(tr("Start Over"), content);
  startOver->setObjectName(QStringLiteral("startOver"));
  connect(startOver, &QPushButton::clicked, this, [this] { model_.startOver(); });
  buttons->addWidget(startOver);
  buttons->addStretch();
  repair_ = new QPushButton(tr("Repair Copies"), content);
  repair_->setObjectName(QStringLiteral("repair"));
  repair_->setDefault(true);
  connect(repair_, &QPushButton::clicked, this, [this] { model_.repair(); });
  buttons->addWidget(repair_);
  column->addLayout(buttons);
  column->addWidget(makeLabel(
      tr("Repaired copies go into a new folder. Nothing in your export is changed or deleted."),
      TextStyle::callout, 1, content));
  column->addStretch();
  refreshDestination();
}

void ScanSummaryView::refreshDestination() {
  const auto& destination = model_.destination();
  destinationRow_->setVisible(destination.has_value());
  chooseDestination_->setVisible(!destination.has_value());
  repair_->setEnabled(destination.has_value());
  if (destination) {
    destinationPath_->setToolTip(toQString(*destination));
    destinationPath_->setText(displayPath(*destination));
  }
}

}  // namespace quillmere
