#ifndef QUILLMERE_CORE_SCAN_TAKEOUT_SIDECAR_H_
#define QUILLMERE_CORE_SCAN_TAKEOUT_SIDECAR_H_

#include <optional>
#include <string>
#include <vector>

#include "core/scan/packed_record.h"

namespace quillmere {

// Google's per-photo (or per-video) metadata from a Takeout JSON file; see TakeoutJSON::parse
// for how each field is read. Instants are seconds since 1970-01-01 00:00:00 UTC (fractions
// kept), always finite and greater than 0; no time zone is attached.
struct TakeoutSidecar {
  // A place in degrees (north and east positive) and metres. Always finite.
  struct Geo {
    double latitude = 0;
    double longitude = 0;
    double altitude = 0;

    // False at exactly (0, 0), which the service writes for "no place": such a Geo is kept in
    // the record but never used as a place.
    bool isSet() const { return latitude != 0 || longitude != 0; }

    bool operator==(const Geo&) const = default;
  };

  std::optional<std::string> title;
  // Kept exactly as written, but absent when blank (only white space and line breaks).
  std::optional<std::string> description;
  std::optional<double> photoTakenTime;
  std::optional<double> creationTime;
  std::optional<Geo> geoData;
  std::optional<Geo> geoDataExif;
  std::optional<std::string> url;
  std::vector<std::string> people;
  bool favorited = false;
  bool archived = false;
  bool trashed = false;

  // The place to use: geoData when present and set, else geoDataExif when present and set,
  // else nullopt. geoData wins whenever it is set.
  std::optional<Geo> bestGeo() const;

  // The record laid out compactly, for keeping one per file of an export; unpack() gives back
  // an equal value. unpack() requires a record made by pack().
  PackedRecord pack() const;
  static TakeoutSidecar unpack(const PackedRecord& record);

  bool operator==(const TakeoutSidecar&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_TAKEOUT_SIDECAR_H_
