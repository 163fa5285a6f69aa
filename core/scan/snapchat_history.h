#ifndef QUILLMERE_CORE_SCAN_SNAPCHAT_HISTORY_H_
#define QUILLMERE_CORE_SCAN_SNAPCHAT_HISTORY_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/dates/geo_point.h"
#include "core/sources/media_kind.h"

namespace quillmere::SnapchatScanner {

// One saved memory listed in "memories_history.json".
struct Entry {
  double utc = 0;  // capture instant, seconds since the Unix epoch
  MediaKind kind = MediaKind::photo;
  std::optional<GeoPoint> location;
  std::vector<std::string> ids;  // identifiers found in the entry, as written
  bool used = false;             // already matched to a file

  bool operator==(const Entry&) const = default;
};

// The entries of a history file: a top-level array of objects, or the "Saved Media" list, or
// else the first list of objects whose first object has a "Date". Objects without a readable
// "Date" are skipped; bytes that are not JSON give no entries. Never throws.
std::vector<Entry> parseHistory(std::span<const std::uint8_t> bytes);

// "2019-07-04 15:30:12 UTC" → the instant 2019-07-04T15:30:12Z.
std::optional<double> parseDate(std::string_view text);

// The first two numbers in the text as latitude and longitude ("Latitude, Longitude: 37.77,
// -122.41"); none for (0, 0), out-of-range values or fewer than two numbers.
std::optional<GeoPoint> parseLocation(const std::optional<std::string>& text);

// Every 8-4-4-4-12 hexadecimal identifier in the text, in order, as written.
std::vector<std::string> uuids(std::string_view text);

// The runs of letters, digits and "-" in the text; after each run, its "-"-separated parts and
// the identifiers inside it.
std::vector<std::string> tokens(std::string_view text);

}  // namespace quillmere::SnapchatScanner

#endif  // QUILLMERE_CORE_SCAN_SNAPCHAT_HISTORY_H_
