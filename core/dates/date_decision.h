#ifndef QUILLMERE_CORE_DATES_DATE_DECISION_H_
#define QUILLMERE_CORE_DATES_DATE_DECISION_H_

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "core/sources/raw_value.h"

namespace quillmere {

// Where the capture date written into a copy came from. Raw values: "file", "export",
// "export-edited", "none".
enum class DateSource {
  file,             // the file's own date is kept (or, with no instant, left untouched)
  takeout,          // the file had no usable date; the export's instant is written
  takeoutOverride,  // the file's date differed from the export's; the export's is written
  none,             // no date anywhere
};

// Where a date's UTC offset came from. Raw values: the case names.
enum class OffsetSource {
  file,      // stated by the file
  derived,   // the file's wall clock measured against the export's instant
  location,  // the zone at the photo's position, at that instant
  neighbor,  // the offset of the photo nearest in time that had one
  guessed,   // the machine's own zone at that instant
  unknown,   // none
};

std::string_view rawValue(DateSource source);
template <>
std::optional<DateSource> fromRawValue<DateSource>(std::string_view raw);
std::string_view rawValue(OffsetSource source);
template <>
std::optional<OffsetSource> fromRawValue<OffsetSource>(std::string_view raw);

// JSON form: the raw value as a string; from_json throws nlohmann::json::type_error otherwise.
void to_json(nlohmann::json& json, DateSource source);
void from_json(const nlohmann::json& json, DateSource& source);
void to_json(nlohmann::json& json, OffsetSource source);
void from_json(const nlohmann::json& json, OffsetSource& source);

// The report's sentence for a zone that had to be found rather than read: present for
// location, neighbor and guessed; absent for the others.
std::optional<std::string_view> zoneNote(OffsetSource source);

// An offset found for an instant, and how it was found.
struct InferredOffset {
  int seconds = 0;  // east of UTC
  OffsetSource source = OffsetSource::unknown;

  bool operator==(const InferredOffset&) const = default;
};

// What the repair writes as a file's capture date, and why.
struct DateDecision {
  std::optional<double> utc;  // seconds since the Unix epoch
  std::optional<int> offsetSeconds;
  DateSource dateSource = DateSource::none;
  OffsetSource offsetSource = OffsetSource::unknown;
  bool write = false;  // false: the file's own date is left as it is
  std::optional<std::string> note;

  // The local wall clock "yyyy:MM:dd HH:mm:ss" at `utc` with `offsetSeconds`; absent unless
  // both are present.
  std::optional<std::string> localString() const;

  bool operator==(const DateDecision&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_DATE_DECISION_H_
