#include "core/dates/date_decision.h"

#include <nlohmann/json.hpp>

#include "core/dates/exif_date.h"

namespace quillmere {

std::string_view rawValue(DateSource source) {
  switch (source) {
    case DateSource::file:
      return "file";
    case DateSource::takeout:
      return "export";
    case DateSource::takeoutOverride:
      return "export-edited";
    case DateSource::none:
      break;
  }
  return "none";
}

std::string_view rawValue(OffsetSource source) {
  switch (source) {
    case OffsetSource::file:
      return "file";
    case OffsetSource::derived:
      return "derived";
    case OffsetSource::location:
      return "location";
    case OffsetSource::neighbor:
      return "neighbor";
    case OffsetSource::guessed:
      return "guessed";
    case OffsetSource::unknown:
      break;
  }
  return "unknown";
}

template <>
std::optional<DateSource> fromRawValue<DateSource>(std::string_view raw) {
  return findRawValue(
      {DateSource::file, DateSource::takeout, DateSource::takeoutOverride, DateSource::none}, raw);
}

template <>
std::optional<OffsetSource> fromRawValue<OffsetSource>(std::string_view raw) {
  return findRawValue({OffsetSource::file, OffsetSource::derived, OffsetSource::location,
                       OffsetSource::neighbor, OffsetSource::guessed, OffsetSource::unknown},
                      raw);
}

void to_json(nlohmann::json& json, DateSource source) { json = rawValue(source); }
void to_json(nlohmann::json& json, OffsetSource source) { json = rawValue(source); }
void from_json(const nlohmann::json& json, DateSource& source) {
  readRawValue(json, source, "not a date source");
}
void from_json(const nlohmann::json& json, OffsetSource& source) {
  readRawValue(json, source, "not an offset source");
}

std::optional<std::string_view> zoneNote(OffsetSource source) {
  switch (source) {
    case OffsetSource::location:
      return "Time zone from the photo's location";
    case OffsetSource::neighbor:
      return "Time zone inferred from nearby photos";
    case OffsetSource::guessed:
      return "Time zone is a guess (this computer's zone); no nearby photo had one";
    case OffsetSource::file:
    case OffsetSource::derived:
    case OffsetSource::unknown:
      break;
  }
  return std::nullopt;
}

std::optional<std::string> DateDecision::localString() const {
  if (!utc || !offsetSeconds) return std::nullopt;
  return ExifDate::format(*utc, *offsetSeconds);
}

}  // namespace quillmere
