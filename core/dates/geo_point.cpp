#include "core/dates/geo_point.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillmere {
namespace {

constexpr double kEarthDiameterMeters = 12'742'000;

double radians(double degrees) { return degrees * std::numbers::pi / 180; }

}  // namespace

double GeoPoint::distanceMeters(const GeoPoint& other) const {
  const double latitude1 = radians(latitude);
  const double latitude2 = radians(other.latitude);
  const double halfLatitude = std::sin((latitude1 - latitude2) / 2);
  const double halfLongitude = std::sin((radians(longitude) - radians(other.longitude)) / 2);
  double a = halfLatitude * halfLatitude +
             std::cos(latitude1) * std::cos(latitude2) * halfLongitude * halfLongitude;
  a = std::clamp(a, 0.0, 1.0);  // rounding can push nearly antipodal points just past 1
  return kEarthDiameterMeters * std::atan2(std::sqrt(a), std::sqrt(1 - a));
}

}  // namespace quillmere
