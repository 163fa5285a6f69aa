#include "core/dates/time_zone.h"

#include <date/tz.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
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

std::optional<TimeZone> TimeZone::current() {
  // The date library's current_zone() reads only /etc/localtime; every Unix tool honours TZ.
  if (const char* variable = std::getenv("TZ"); variable != nullptr) {
    std::string_view name(variable);
    if (name.empty()) return named("Etc/UTC");
    if (name.front() == ':') name.remove_prefix(1);
    constexpr std::string_view kZoneInfo = "/usr/share/zoneinfo/";
    if (name.starts_with(kZoneInfo)) name.remove_prefix(kZoneInfo.size());
    // Anything else (a POSIX rule text, say) falls through to the system's zone.
    if (std::optional<TimeZone> zone = named(name)) return zone;
  }
  try {
    return TimeZone(date::current_zone());
  } catch (const std::exception&) {
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
