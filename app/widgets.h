#ifndef QUILLMERE_APP_WIDGETS_H_
#define QUILLMERE_APP_WIDGETS_H_

#include <QLabel>
#include <QProgressBar>
#include <QScrollArea>
#include <QVBoxLayout>
#include <QWidget>

#include "app/symbols.h"
#include "app/view_texts.h"
#include "core/scan/work_progress.h"

namespace quillmere {

// Text sizes relative to the system font, after the usual desktop type ramp.
enum class TextStyle { title, title2, headline, body, subheadline, callout, caption };

// The widest a page's column grows, in pixels.
inline constexpr int kPageWidth = 860;

// Makes `area` a borderless page that scrolls one column, top-aligned so nothing moves when a
// status line appears; returns the column to fill, which the caller ends with a stretch.
QVBoxLayout* makeScrollColumn(QScrollArea* area);

// A label in `style`; `colourLevel` 0 is the normal text colour, 1 secondary, 2 tertiary.
QLabel* makeLabel(const QString& text, TextStyle style, int colourLevel = 0,
                  QWidget* parent = nullptr);

// A label showing `symbol` in `tint`, `size` pixels square.
QLabel* makeSymbol(Symbol symbol, Tint tint, int size, QWidget* parent = nullptr);

// A big number over its label, and the detail under that when there is one.
QWidget* makeStat(const StatText& stat, QWidget* parent = nullptr);

// A row of stats, evenly spread.
QWidget* makeStatRow(const std::vector<StatText>& stats, QWidget* parent = nullptr);

// One finding: its symbol in its tint, the text, and the fix under it.
QWidget* makeFinding(const FindingText& finding, QWidget* parent = nullptr);

// A one-line label that shortens its text in the middle when it doesn't fit; text() stays
// whole.
class MiddleElidedLabel : public QLabel {
  Q_OBJECT

 public:
  using QLabel::QLabel;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

// The progress of a long operation: a busy indicator and the phase while the total is unknown,
// else a bar and "phase — done of total".
class ProgressDisplay : public QWidget {
  Q_OBJECT

 public:
  explicit ProgressDisplay(QWidget* parent = nullptr);
  void setProgress(const WorkProgress& progress);
  QString text() const { return text_->text(); }
  bool determinate() const { return bar_->maximum() > 0; }

 private:
  QProgressBar* bar_;
  QLabel* text_;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_WIDGETS_H_
