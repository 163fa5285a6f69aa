#ifndef QUILLMERE_CORE_SCAN_SCAN_SUMMARY_H_
#define QUILLMERE_CORE_SCAN_SCAN_SUMMARY_H_

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>
#include <utility>

namespace quillmere {

// The counters of a scan, shown in the summary and written to the report. The Takeout scanner
// fills the first 17; the last six are the Snapchat scanner's.
struct ScanSummary {
  std::int64_t sourceFiles = 0;            // files collected, of every kind, before skipping
  std::int64_t zipParts = 0;               // zip archives that contributed a collected file
  std::int64_t mediaFiles = 0;             // distinct media files after merging copies
  std::int64_t photos = 0;                 // media files of kind photo
  std::int64_t videos = 0;                 // media files of any other kind
  std::int64_t items = 0;                  // units
  std::int64_t duplicateCopies = 0;        // sum of the lengths of all duplicate lists
  std::int64_t withSidecar = 0;            // media files with Google's metadata
  std::int64_t withoutSidecar = 0;         // media files without it
  std::int64_t photosMissingDate = 0;      // photos that carry no capture date
  std::int64_t datesRecoverable = 0;       // ... of which the sidecar has a photo-taken time
  std::int64_t photosMissingLocation = 0;  // photos that carry no location
  std::int64_t locationsRecoverable = 0;   // ... of which the sidecar has a usable place
  std::int64_t captionsInTakeout = 0;      // media files whose sidecar has a description
  std::int64_t albums = 0;                 // distinct album names
  std::int64_t orphanSidecars = 0;         // metadata that no media file used
  std::int64_t unreadableJSON = 0;         // JSON files too large, unreadable or of no use
  std::int64_t overlays = 0;               // Snapchat: media files given an overlay
  std::int64_t historyEntries = 0;         // Snapchat: entries of the history file
  std::int64_t matchedExact = 0;           // Snapchat: matched to an entry exactly
  std::int64_t matchedByDate = 0;          // Snapchat: matched to an entry by date
  std::int64_t matchedByOrder = 0;         // Snapchat: matched by order within a day
  std::int64_t dayOnly = 0;                // Snapchat: dated only to the day

  bool operator==(const ScanSummary&) const = default;

  // Every counter with its name (the JSON key), in declaration order.
  using Field = std::pair<std::string_view, std::int64_t ScanSummary::*>;
  static const std::array<Field, 23> fields;

  // Reads the object written by to_json: every counter must be present as an integer that
  // fits; other keys are ignored. nullopt otherwise; never throws.
  static std::optional<ScanSummary> fromJSON(const nlohmann::json& json);
};

// An object with the 23 field names as keys and the counters as integers.
void to_json(nlohmann::json& json, const ScanSummary& summary);
// Like ScanSummary::fromJSON, but throws nlohmann::json::type_error where that gives nullopt.
void from_json(const nlohmann::json& json, ScanSummary& summary);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_SCAN_SUMMARY_H_
