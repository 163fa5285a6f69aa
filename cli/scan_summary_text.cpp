#include "cli/scan_summary_text.h"

#include "cli/number_format.h"

namespace quillmere::cli {
namespace {

using std::string;

string count(std::int64_t value, std::string_view singular, std::string_view pluralForm) {
  return groupedCount(value) + " " + string(plural(value, singular, pluralForm));
}

string sourceLine(const ScanResult& result) {
  string line = result.inputs.size() == 1 ? result.inputs.front().filename().string()
                                          : std::to_string(result.inputs.size()) + " selections";
  if (line.empty() && result.inputs.size() == 1) {
    line = result.inputs.front().parent_path().filename().string();  // a path ending in "/"
  }
  const std::int64_t parts = result.summary.zipParts;
  if (parts >= 1)
    line += " \u00B7 " + std::to_string(parts) + (parts == 1 ? " zip part" : " zip parts");
  return line;
}

// One stat: the number and label, then its detail after a dash.
string stat(std::int64_t value, std::string_view singular, std::string_view pluralForm,
            const string& detail) {
  string line = "  " + count(value, singular, pluralForm);
  if (!detail.empty()) line += " \u2014 " + detail;
  return line + "\n";
}

string finding(const string& text, const string& fix) {
  string lines = "  \u2022 " + text + "\n";
  if (!fix.empty()) lines += "      " + fix + "\n";
  return lines;
}

string stats(const ScanSummary& s, bool snapchat) {
  string out = stat(s.items, "item", "items",
                    groupedCount(s.mediaFiles) + " files: " + groupedCount(s.photos) + " photos, " +
                        groupedCount(s.videos) + " videos");
  if (snapchat) {
    out += stat(s.overlays, "overlay", "overlays", "captions, stickers, drawings");
  } else {
    out += stat(s.albums, "album", "albums",
                s.duplicateCopies >= 1
                    ? count(s.duplicateCopies, "album copy", "album copies") + " merged"
                    : "");
  }
  out += "  " + groupedCount(s.withSidecar) +
         (snapchat ? " found in Snapchat's history" : " with Google's metadata") + " \u2014 " +
         (s.withoutSidecar >= 1 ? groupedCount(s.withoutSidecar) + " without" : "all matched") +
         "\n";
  return out;
}

string findings(const ScanSummary& s, bool snapchat) {
  const string service = snapchat ? "Snapchat's history" : "Google's metadata";
  string out =
      finding(count(s.photosMissingDate, "photo", "photos") + " " +
                  string(plural(s.photosMissingDate, "has", "have")) + " no date in the file",
              s.datesRecoverable >= 1
                  ? groupedCount(s.datesRecoverable) + " can be restored from " + service
                  : "none can be restored");
  if (s.overlays >= 1) {
    out +=
        finding(count(s.overlays, "Memory", "Memories") + " " +
                    string(plural(s.overlays, "has its", "have their")) +
                    " captions or stickers in a separate file",
                "merged back onto photos (originals kept); video overlays saved alongside for now");
  }
  if (const std::int64_t vague = s.matchedByOrder + s.dayOnly; vague >= 1) {
    out += finding(count(vague, "item", "items") + " can only be dated to the day",
                   "the exact time isn't recoverable; these are marked in the change log");
  }
  out += finding(
      count(s.photosMissingLocation, "photo", "photos") + " " +
          string(plural(s.photosMissingLocation, "has", "have")) + " no place in the file",
      s.locationsRecoverable >= 1 ? groupedCount(s.locationsRecoverable) + " can be restored" : "");
  if (s.captionsInTakeout >= 1 && !snapchat) {
    out +=
        finding(count(s.captionsInTakeout, "caption", "captions") + " " +
                    string(plural(s.captionsInTakeout, "is", "are")) + " only in Google's metadata",
                "written into the files");
  }
  if (s.albums >= 1)
    out += finding(count(s.albums, "album", "albums"), "saved as keywords and album lists");
  return out;
}

}  // namespace

std::string scanSummaryText(const ScanResult& result) {
  const bool snapchat = result.kind == ExportKind::snapchat;
  return "Here's what's in your " + string(snapchat ? "Snapchat" : "Google Photos") + " export\n" +
         sourceLine(result) + "\n\n" + stats(result.summary, snapchat) +
         "\nWhat Quillmere will fix\n" + findings(result.summary, snapchat) +
         "Videos are checked during the repair.\n";
}

}  // namespace quillmere::cli
