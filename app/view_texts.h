#ifndef QUILLMERE_APP_VIEW_TEXTS_H_
#define QUILLMERE_APP_VIEW_TEXTS_H_

#include <QCoreApplication>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "app/import_state.h"
#include "app/symbols.h"
#include "core/repair/repair_summary.h"
#include "core/scan/export_kind.h"
#include "core/scan/scan_summary.h"
#include "core/scan/work_progress.h"

namespace quillmere {

// One big number with its label and an optional detail line under it.
struct StatText {
  std::int64_t value = 0;
  QString label;
  QString detail;  // empty: no detail line
  bool operator==(const StatText&) const = default;
};

// One thing the repair will fix, as a row of the scan summary.
struct FindingText {
  Symbol symbol = Symbol::calendar;
  Tint tint = Tint::secondary;
  QString text;
  QString fix;  // empty: no fix line
  bool operator==(const FindingText&) const = default;
};

// Every number and sentence the main window shows, made from the summaries alone so the views
// stay simple and the wording can be checked without a window.
class ViewTexts {
  Q_DECLARE_TR_FUNCTIONS(ViewTexts)

 public:
  // 1234 as "1,234" in the user's locale (a comma every three digits where the locale has no
  // grouping of its own).
  static QString count(std::int64_t value);
  // "Phase — 1,204 of 3,890".
  static QString progress(const WorkProgress& progress);

  static QString scanHeading(ExportKind kind);
  // The input's name, or "N selections", then " · N zip parts" when zip parts were read.
  static QString sourceLine(const std::vector<std::filesystem::path>& inputs,
                            const ScanSummary& summary);
  static std::vector<StatText> scanStats(const ScanSummary& summary, ExportKind kind);
  static std::vector<FindingText> findings(const ScanSummary& summary, ExportKind kind);

  static QString doneTitle(const RepairSummary& summary);
  static std::vector<StatText> doneFirstRow(const RepairSummary& summary);
  static std::vector<StatText> doneSecondRow(const RepairSummary& summary);

  static QString importConfirmTitle(std::int64_t items);
  static QString importConfirmMessage();
  // The headline of a finished import, then one line per counter that is at least 1.
  static QString importDoneHeadline(const ImportSummary& summary);
  static QStringList importDoneLines(const ImportSummary& summary);
  static QString importFailedHint();
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_VIEW_TEXTS_H_
