#include "app/drop_zone.h"

#include <QDragEnterEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/path_text.h"
#include "app/repair_model.h"
#include "app/widgets.h"

namespace quillmere {

DropZone::DropZone(RepairModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setAcceptDrops(true);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(40, 40, 40, 40);
  column->setSpacing(14);
  column->addStretch();
  column->addWidget(makeSymbol(Symbol::photoStack, Tint::accent, 52, this), 0, Qt::AlignHCenter);
  QLabel* title = makeLabel(tr("Fix a broken photo export"), TextStyle::title, 0, this);
  title->setAlignment(Qt::AlignHCenter);
  column->addWidget(title);
  QLabel* line = makeLabel(tr("Drop a Google Takeout or Snapchat export here (zip files or "
                              "folder). Quillmere puts\nthe dates, places, captions and albums "
                              "back into copies. Your export is never changed."),
                           TextStyle::body, 1, this);
  line->setAlignment(Qt::AlignHCenter);
  column->addWidget(line);
  auto* choose = new QPushButton(tr("Choose Export…"), this);
  choose->setObjectName(QStringLiteral("chooseExport"));
  choose->setDefault(true);
  connect(choose, &QPushButton::clicked, this, [this] { model_.chooseExport(window()); });
  column->addWidget(choose, 0, Qt::AlignHCenter);
  QLabel* tip = makeLabel(tr("Tip: select all the zip parts at once (takeout-…-001.zip, "
                             "-002.zip, … or mydata~….zip)."),
                          TextStyle::callout, 0, this);
  tip->setAlignment(Qt::AlignHCenter);
  column->addWidget(tip);
  column->addStretch();
}

void DropZone::setTargeted(bool targeted) {
  if (targeted_ == targeted) return;
  targeted_ = targeted;
  update();
}

void DropZone::showEvent(QShowEvent* event) {
  targeted_ = false;
  QWidget::showEvent(event);
}

void DropZone::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  QColor colour = targeted_ ? tintColor(Tint::accent, palette()) : secondaryTextColor(palette());
  if (!targeted_) colour.setAlphaF(0.35);
  QPen pen(colour, 2, Qt::CustomDashLine);
  pen.setDashPattern({4, 3});
  painter.setPen(pen);
  painter.drawRoundedRect(QRectF(rect()).adjusted(16, 16, -16, -16), 18, 18);
}

void DropZone::dragEnterEvent(QDragEnterEvent* event) {
  if (!event->mimeData()->hasUrls()) return;
  event->acceptProposedAction();
  setTargeted(true);
}

void DropZone::dragLeaveEvent(QDragLeaveEvent*) { setTargeted(false); }

void DropZone::dropEvent(QDropEvent* event) {
  setTargeted(false);
  event->acceptProposedAction();
  drop(event->mimeData()->urls());
}

void DropZone::drop(const QList<QUrl>& dropped) {
  std::vector<std::filesystem::path> urls;
  for (const QUrl& url : dropped) {
    if (url.isLocalFile()) urls.push_back(toPath(url.toLocalFile()));
  }
  if (!urls.empty()) model_.scan(urls);
}

}  // namespace quillmere
