#include "cli/repair_result_text.h"

#include "cli/number_format.h"

namespace quillmere::cli {
namespace {

using std::string;

// One stat: the number and its label, then its detail after a dash.
string stat(std::int64_t value, std::string_view label, const string& detail = "") {
  string line = "  " + groupedCount(value) + " " + string(label);
  if (!detail.empty()) line += " \u2014 " + detail;
  return line + "\n";
}

}  // namespace

std::string repairResultText(const RepairResult& result) {
  const RepairSummary& s = result.summary;
  string out = "Repaired copies are in " + result.outputFolder().string() + "\n\n";
  out += s.failed == 0 ? "Repair finished\n" : "Repair finished with problems\n";
  out += stat(s.fixed, plural(s.fixed, "file fixed", "files fixed"));
  out += stat(s.unchanged, "already correct", "copied as-is");
  out += stat(s.couldntFix + s.failed, "need a look", "listed in couldnt-fix.csv");
  out += stat(s.datesWritten, plural(s.datesWritten, "date restored", "dates restored"),
              s.zonesGuessed >= 1 ? std::to_string(s.zonesGuessed) + " time zones guessed" : "");
  out += stat(s.locationsWritten, plural(s.locationsWritten, "place restored", "places restored"));
  if (s.overlaysMerged >= 1) {
    out += stat(s.overlaysMerged, plural(s.overlaysMerged, "overlay merged", "overlays merged"),
                "originals in Extras");
  } else {
    out +=
        stat(s.captionsWritten, plural(s.captionsWritten, "caption restored", "captions restored"));
  }
  return out;
}

}  // namespace quillmere::cli
