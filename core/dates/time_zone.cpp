#include "core/dates/time_zone.h"

#include <date/tz.h>

#include <chrono>
#include <cmath>
#include <exception>

namespace quillmere {

std::optional<TimeZone> TimeZone::named(std::string_view identifier) {
  try {
    return TimeZone(date::locate_zone(identifier));
  } catch (const std::exception&) {
    // Unknown identifier, or no readable database: either way there is no such zone here.
    return std::nullopt;
  }
}

std::string_view TimeZone::identifier() const { return zone_->name(); }

int TimeZone::offsetSeconds(double instant) const {
  // About 31 million years each way: far beyond any transition, and safe to convert.
  constexpr double kLimit = 1e15;
  const double clamped = std::isnan(instant) ? 0.0 : std::fmax(-kLimit, std::fmin(kLimit, instant));
  const date::sys_seconds when{std::chrono::seconds(static_cast<long long>(std::floor(clamped)))};
  return static_cast<int>(zone_->get_info(when).offset.count());
}

}  // namespace quillmere
