#ifndef QUILLMERE_CORE_REPAIR_REPAIR_ROW_H_
#define QUILLMERE_CORE_REPAIR_REPAIR_ROW_H_

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/dates/date_decision.h"
#include "core/dates/geo_point.h"
#include "core/scan/media_unit.h"

namespace quillmere {

// What the repair did with one media file. A plain value, one per file the run touched.
struct RepairRow {
  // The outcome. Written by its label (also in CSV files and on screen).
  enum class Status {
    fixed,       // "fixed": a date was known and something was to be written
    unchanged,   // "unchanged": a date was known and nothing needed writing
    couldntFix,  // "couldn't fix": no capture date anywhere; copied and filed as undated
    failed,      // "failed": copying, compositing, writing, verifying or the extras failed
  };

  std::int64_t item = 0;  // 1-based number of the item (the unit's id + 1)
  MediaUnit::Kind itemKind = MediaUnit::Kind::single;
  std::string source;  // SourceFile::displayLocation
  std::string output;  // relative to the run folder; empty when no copy was made
  Status status = Status::unchanged;
  std::string dateBefore;  // the file's own capture date as text; empty when none
  std::string dateAfter;   // decided local time "yyyy:MM:dd HH:mm:ss"; empty when unknown
  DateSource dateSource = DateSource::none;
  std::string timeZone;  // "UTC+02:00"; empty when no offset is known
  OffsetSource timeZoneSource = OffsetSource::unknown;
  bool locationWritten = false;
  bool captionWritten = false;
  std::vector<std::string> albums;  // every album the file belonged to, in export order
  std::string method;               // a WriteMethod label, or empty
  std::vector<std::string> notes;   // in the order they were added
  bool overlayMerged = false;
  std::optional<double> captureUTC;  // seconds since the Unix epoch
  std::optional<GeoPoint> location;  // best known position, written or not

  bool operator==(const RepairRow&) const = default;
};

// "fixed", "unchanged", "couldn't fix" (ASCII apostrophe), "failed".
std::string_view label(RepairRow::Status status);
std::optional<RepairRow::Status> repairStatusFromLabel(std::string_view text);

// JSON forms. A row is an object with the field names as keys in declaration order (an
// ordered json keeps that order), "captureUTC" and "location" left out when absent, the
// enumerations by their text forms. from_json throws nlohmann::json exceptions on anything
// else, like every nlohmann conversion.
void to_json(nlohmann::json& json, RepairRow::Status status);
void from_json(const nlohmann::json& json, RepairRow::Status& status);
void to_json(nlohmann::ordered_json& json, const RepairRow& row);
void from_json(const nlohmann::ordered_json& json, RepairRow& row);
void to_json(nlohmann::json& json, const RepairRow& row);
void from_json(const nlohmann::json& json, RepairRow& row);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_REPAIR_ROW_H_
