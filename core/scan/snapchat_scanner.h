#ifndef QUILLMERE_CORE_SCAN_SNAPCHAT_SCANNER_H_
#define QUILLMERE_CORE_SCAN_SNAPCHAT_SCANNER_H_

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/scan/scan_result.h"
#include "core/scan/snapchat_history.h"
#include "core/scan/work_progress.h"
#include "core/sources/source_file.h"

namespace quillmere::SnapchatScanner {

inline constexpr std::string_view historyFileName = "memories_history.json";

// One saved memory as found among the files.
struct Item {
  std::string stem;                // name without extension and role suffix
  std::optional<std::string> day;  // YYYY-MM-DD from the start of the stem, when a real date
  SourceFilePtr main;
  SourceFilePtr overlay;  // null when none
  MediaKind kind = MediaKind::photo;
};

// What a media file name says: its stem, its role ("main" or "overlay") and its day.
struct ParsedName {
  std::string stem;
  std::string role;
  std::optional<std::string> day;
  bool operator==(const ParsedName&) const = default;
};

// Accepts names with a main or overlay suffix ("-main", "_overlay", " main", …), or without
// one when they start with "20" or "19"; nullopt for any other name.
std::optional<ParsedName> parseName(std::string_view fileName);

// Counters that matching fills.
struct MatchCounts {
  std::int64_t exact = 0, byDate = 0, byOrder = 0, dayOnly = 0;
};

// Gives each media file (files[i] belongs to items[i]) a history entry: by identifier, then by
// day and kind (shifted 0, -1, +1 days), else a midday date from the file name. Marks the
// entries used and sets each file's sidecar and match note.
MatchCounts match(const std::vector<Item>& items, const std::vector<MediaFilePtr>& files,
                  std::vector<Entry>& entries);

// Scans a Snapchat memories export. Never fails: unreadable files are skipped.
ScanResultPtr scan(const std::vector<SourceFilePtr>& files,
                   const std::vector<std::filesystem::path>& inputs,
                   const ProgressCallback& progress = nullptr);

}  // namespace quillmere::SnapchatScanner

#endif  // QUILLMERE_CORE_SCAN_SNAPCHAT_SCANNER_H_
