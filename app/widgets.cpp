#include "app/widgets.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>
#include <algorithm>
#include <limits>

namespace quillmere {
namespace {

void applyStyle(QLabel* label, TextStyle style) {
  QFont font = label->font();
  const qreal base = font.pointSizeF() > 0 ? font.pointSizeF() : 10.0;
  qreal factor = 1.0;
  QFont::Weight weight = QFont::Normal;
  switch (style) {
    case TextStyle::title:
      factor = 1.6;
      weight = QFont::DemiBold;
      break;
    case TextStyle::title2:
      factor = 1.35;
      weight = QFont::DemiBold;
      break;
    case TextStyle::headline:
      weight = QFont::DemiBold;
      break;
    case TextStyle::body:
      break;
    case TextStyle::subheadline:
      factor = 0.95;
      break;
    case TextStyle::callout:
      factor = 0.93;
      break;
    case TextStyle::caption:
      factor = 0.85;
      break;
  }
  font.setPointSizeF(base * factor);
  font.setWeight(weight);
  label->setFont(font);
}

void applyColour(QLabel* label, int level) {
  if (level == 0) return;
  QPalette palette = label->palette();
  palette.setColor(QPalette::WindowText, secondaryTextColor(palette, level));
  label->setPalette(palette);
}

}  // namespace

QVBoxLayout* makeScrollColumn(QScrollArea* area) {
  area->setWidgetResizable(true);
  area->setFrameShape(QFrame::NoFrame);
  // On a wide window the page keeps a readable width and stays in the middle.
  area->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  auto* content = new QWidget(area);
  content->setMaximumWidth(kPageWidth);
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(32, 24, 32, 24);
  column->setSpacing(8);
  area->setWidget(content);
  return column;
}

QLabel* makeLabel(const QString& text, TextStyle style, int colourLevel, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  applyStyle(label, style);
  applyColour(label, colourLevel);
  return label;
}

QLabel* makeSymbol(Symbol symbol, Tint tint, int size, QWidget* parent) {
  auto* label = new QLabel(parent);
  const QPalette palette = parent != nullptr ? parent->palette() : QApplication::palette();
  label->setPixmap(symbolPixmap(symbol, tintColor(tint, palette), size, qApp->devicePixelRatio()));
  label->setFixedSize(size, size);
  return label;
}

QWidget* makeStat(const StatText& stat, QWidget* parent) {
  auto* widget = new QWidget(parent);
  widget->setObjectName(QStringLiteral("stat"));
  auto* column = new QVBoxLayout(widget);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(2);
  QLabel* value = makeLabel(ViewTexts::count(stat.value), TextStyle::body, 0, widget);
  value->setObjectName(QStringLiteral("statValue"));
  QFont big = value->font();
  big.setPointSizeF(28);
  big.setWeight(QFont::DemiBold);
  big.setStyleHint(QFont::SansSerif);
  value->setFont(big);
  column->addWidget(value);
  QLabel* label = makeLabel(stat.label, TextStyle::subheadline, 0, widget);
  label->setObjectName(QStringLiteral("statLabel"));
  column->addWidget(label);
  if (!stat.detail.isEmpty()) {
    QLabel* detail = makeLabel(stat.detail, TextStyle::caption, 1, widget);
    detail->setObjectName(QStringLiteral("statDetail"));
    column->addWidget(detail);
  }
  return widget;
}

QWidget* makeStatRow(const std::vector<StatText>& stats, QWidget* parent) {
  auto* row = new QWidget(parent);
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(24);
  // Top-aligned, so a stat without a detail line keeps its number level with the others and
  // the row is only as tall as its tallest stat.
  for (const StatText& stat : stats) layout->addWidget(makeStat(stat, row), 1, Qt::AlignTop);
  return row;
}

QWidget* makeFinding(const FindingText& finding, QWidget* parent) {
  auto* row = new QWidget(parent);
  row->setObjectName(QStringLiteral("finding"));
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(10);
  layout->addWidget(makeSymbol(finding.symbol, finding.tint, 20, row), 0, Qt::AlignTop);
  auto* textColumn = new QVBoxLayout;
  textColumn->setSpacing(0);
  QLabel* text = makeLabel(finding.text, TextStyle::body, 0, row);
  text->setObjectName(QStringLiteral("findingText"));
  textColumn->addWidget(text);
  if (!finding.fix.isEmpty()) {
    QLabel* fix = makeLabel(finding.fix, TextStyle::callout, 1, row);
    fix->setObjectName(QStringLiteral("findingFix"));
    textColumn->addWidget(fix);
  }
  layout->addLayout(textColumn, 1);
  return row;
}

void MiddleElidedLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setPen(palette().color(QPalette::WindowText));
  const QRect area = contentsRect();
  painter.drawText(area, Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(text(), Qt::ElideMiddle, area.width()));
}

ProgressDisplay::ProgressDisplay(QWidget* parent)
    : QWidget(parent), bar_(new QProgressBar(this)), text_(new QLabel(this)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  bar_->setFixedWidth(360);
  bar_->setTextVisible(false);
  column->addWidget(bar_, 0, Qt::AlignHCenter);
  text_->setAlignment(Qt::AlignHCenter);
  text_->setObjectName(QStringLiteral("progressText"));
  column->addWidget(text_, 0, Qt::AlignHCenter);
}

void ProgressDisplay::setProgress(const WorkProgress& progress) {
  if (progress.total < 1) {
    bar_->setRange(0, 0);  // busy indicator
    text_->setText(QString::fromStdString(progress.phase));
    return;
  }
  // QProgressBar counts in int; scale huge totals down so the bar still moves.
  const std::int64_t scale = std::max<std::int64_t>(1, progress.total / 1'000'000);
  bar_->setRange(0, static_cast<int>(progress.total / scale));
  bar_->setValue(
      static_cast<int>(std::clamp<std::int64_t>(progress.done, 0, progress.total) / scale));
  text_->setText(ViewTexts::progress(progress));
}

}  // namespace quillmere
