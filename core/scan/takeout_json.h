#ifndef QUILLMERE_CORE_SCAN_TAKEOUT_JSON_H_
#define QUILLMERE_CORE_SCAN_TAKEOUT_JSON_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string_view>
#include <variant>

#include "core/scan/takeout_album_info.h"
#include "core/scan/takeout_sidecar.h"

namespace quillmere {

// What one JSON file of a Takeout export holds: per-photo metadata (a TakeoutSidecar), the
// metadata of the album whose folder holds it (a TakeoutAlbumInfo), or anything else.
struct TakeoutJSON {
  // Malformed, truncated, too large or too deeply nested JSON, a top level that is not an
  // object, an empty object, or an object of neither shape.
  struct Other {
    bool operator==(const Other&) const = default;
  };

  // Files of this many bytes or more are never parsed; the scanner skips them unread.
  static constexpr std::size_t maximumSize = 5'000'000;
  // Documents nesting objects and arrays deeper than this are Other. Google's files nest four
  // levels; the limit keeps hostile input from building absurd structures.
  static constexpr std::size_t maximumDepth = 256;

  std::variant<Other, TakeoutSidecar, TakeoutAlbumInfo> value;

  // Classifies and reads one file. Never throws and never fails: anything unusable is Other.
  //  - An object with the key "photoTakenTime", or with both "creationTime" and "geoData", is
  //    per-photo metadata (only the keys' presence counts).
  //  - Otherwise an object with a string "title" is album metadata, whatever else it holds.
  // Fields take exact JSON types only: Booleans must be true or false (1 and 0 are not
  // Booleans), and numbers must be JSON numbers (true and false are not numbers); a string is
  // never read as either, except a "timestamp" string. A field of the wrong type reads as
  // absent, empty or false.
  static TakeoutJSON parse(std::span<const std::uint8_t> data);
  static TakeoutJSON parse(std::string_view text);

  // A timestamp object ({"timestamp": "1546300800", ...}): the "timestamp" member as a decimal
  // number in a string or as a JSON number, in seconds after 1970-01-01 00:00:00 UTC. nullopt
  // unless `value` is an object with such a member whose number is finite and greater than 0.
  static std::optional<double> timestamp(const nlohmann::json& value);
  // A place object: "latitude" and "longitude" must both be finite JSON numbers; "altitude" is
  // taken when it is one, else 0. A place at (0, 0) is still returned (isSet() is false).
  static std::optional<TakeoutSidecar::Geo> geo(const nlohmann::json& value);

  const TakeoutSidecar* photo() const { return std::get_if<TakeoutSidecar>(&value); }
  const TakeoutAlbumInfo* album() const { return std::get_if<TakeoutAlbumInfo>(&value); }
  bool isOther() const { return std::holds_alternative<Other>(value); }

  bool operator==(const TakeoutJSON&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_TAKEOUT_JSON_H_
