#ifndef QUILLMERE_CORE_DATES_GEO_POINT_H_
#define QUILLMERE_CORE_DATES_GEO_POINT_H_

#include <nlohmann/json.hpp>
#include <optional>

namespace quillmere {

// A position on Earth. Checks no ranges and treats no value as "unset": the rule that (0, 0)
// means no position belongs to whoever reads a position from a file.
struct GeoPoint {
  double latitude = 0;             // degrees, north positive
  double longitude = 0;            // degrees, east positive
  std::optional<double> altitude;  // metres above sea level (below is negative); absent if unknown

  // Field by field: a point with an altitude never equals one without.
  bool operator==(const GeoPoint&) const = default;

  // Great-circle distance in metres (haversine, Earth's radius 6,371 km); altitudes ignored.
  double distanceMeters(const GeoPoint& other) const;
};

// JSON form: {"latitude": …, "longitude": …, "altitude": …} in that order (with an ordered
// json type), "altitude" left out when absent.
template <typename BasicJson>
void to_json(BasicJson& json, const GeoPoint& point) {
  json = BasicJson::object();
  json["latitude"] = point.latitude;
  json["longitude"] = point.longitude;
  if (point.altitude) json["altitude"] = *point.altitude;
}

// Requires "latitude" and "longitude" as numbers and accepts a missing or null "altitude";
// anything else throws the json library's own exception, like any nested field of a record
// being decoded.
template <typename BasicJson>
void from_json(const BasicJson& json, GeoPoint& point) {
  GeoPoint decoded;
  decoded.latitude = json.at("latitude").template get<double>();
  decoded.longitude = json.at("longitude").template get<double>();
  if (const auto altitude = json.find("altitude"); altitude != json.end() && !altitude->is_null()) {
    decoded.altitude = altitude->template get<double>();
  }
  point = decoded;
}

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_GEO_POINT_H_
