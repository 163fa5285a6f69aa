#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "core/dates/time_zone_map.h"

namespace quillmere::cli {
namespace {

constexpr const char* kZoneHelp =
    "Usage: quillmere-cli zone LATITUDE LONGITUDE [INSTANT]\n"
    "\n"
    "Prints the time zone at a position (degrees, north and east positive), as the repair\n"
    "would give it to a photo taken there, or \"none\" when there is none. Near a coast,\n"
    "open sea takes the zone of the land within about 10 km.\n"
    "\n"
    "With an ISO 8601 instant (2021-03-04T10:05:00Z or 2021-03-04T12:05:00+02:00), also\n"
    "prints that zone's offset from UTC at that instant, daylight saving included, as +HH:MM.\n"
    "\n"
    "Exit status 1 when the system lacks the zone's rules for the offset; 2 for a position\n"
    "off the globe or a missing time zone grid.\n";

// A whole decimal number in the POSIX notation (also "nan" and "inf"), nothing around it.
std::optional<double> parseNumber(std::string_view text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

// The unsigned number in `text` exactly; -1 when it isn't one.
int digits(std::string_view text) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && stop == text.data() + text.size() && text.front() != '+' ? value
                                                                                          : -1;
}

// Seconds since 1970 of an ISO 8601 date and time with its zone: YYYY-MM-DDTHH:MM:SS, an
// optional fraction, then "Z", "+HH:MM" or "+HHMM". Kept small on purpose: the command only
// needs an unambiguous instant.
std::optional<double> parseInstant(std::string_view text) {
  if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
      text[16] != ':') {
    return std::nullopt;
  }
  const int year = digits(text.substr(0, 4)), month = digits(text.substr(5, 2)),
            day = digits(text.substr(8, 2)), hour = digits(text.substr(11, 2)),
            minute = digits(text.substr(14, 2)), second = digits(text.substr(17, 2));
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (year < 0 || !date.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 ||
      second > 59) {
    return std::nullopt;
  }
  std::string_view rest = text.substr(19);
  double fraction = 0;
  if (rest.starts_with('.')) {
    std::size_t end = 1;
    while (end < rest.size() && rest[end] >= '0' && rest[end] <= '9') ++end;
    if (end == 1) return std::nullopt;
    const std::string decimal = "0" + std::string(rest.substr(0, end));
    fraction = std::strtod(decimal.c_str(), nullptr);
    rest.remove_prefix(end);
  }
  int offset = 0;
  if (rest != "Z") {
    const bool colon = rest.size() == 6 && rest[3] == ':';
    if ((rest.size() != 5 && !colon) || (rest[0] != '+' && rest[0] != '-')) return std::nullopt;
    const int hours = digits(rest.substr(1, 2)), minutes = digits(rest.substr(colon ? 4 : 3, 2));
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) return std::nullopt;
    offset = (rest[0] == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
  }
  const auto days = std::chrono::sys_days(date).time_since_epoch().count();
  return static_cast<double>(days) * 86400 + hour * 3600 + minute * 60 + second + fraction - offset;
}

// "+HH:MM" east of UTC; a lone remainder of seconds is dropped.
std::string formatOffset(int seconds) {
  const int magnitude = std::abs(seconds);
  char text[16];
  std::snprintf(text, sizeof text, "%c%02d:%02d", seconds < 0 ? '-' : '+', magnitude / 3600,
                magnitude / 60 % 60);
  return text;
}

// The program's map; null after telling why on stderr (a broken installation).
const TimeZoneMap* sharedMap() {
  const TimeZoneMap* map = TimeZoneMap::shared();
  if (!map) std::fprintf(stderr, "quillmere-cli: %s\n", TimeZoneMap::sharedError().c_str());
  return map;
}

// Undocumented, for the accuracy check: one "LATITUDE LONGITUDE" per stdin line, one zone
// (or "none") per stdout line.
int runBatch() {
  const TimeZoneMap* map = sharedMap();
  if (!map) return kExitFailed;
  std::string line;
  std::string out;
  while (std::getline(std::cin, line)) {
    const std::size_t space = line.find(' ');
    std::optional<double> latitude, longitude;
    if (space != std::string::npos) {
      latitude = parseNumber(std::string_view(line).substr(0, space));
      longitude = parseNumber(std::string_view(line).substr(space + 1));
    }
    std::optional<std::string> zone;
    if (latitude && longitude) zone = map->zoneName(*latitude, *longitude);
    out += zone ? *zone : "none";
    out += '\n';
    if (out.size() > 1 << 16) {
      std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
  std::fflush(stdout);
  return kExitOk;
}

}  // namespace

int runZone(std::span<const std::string> args) {
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    std::fputs(kZoneHelp, stdout);
    return kExitOk;
  }
  if (args.size() == 1 && args[0] == "--batch") return runBatch();
  for (const std::string& arg : args) {
    // Negative numbers are positions; anything else beginning with "-" is a mistyped option.
    if (arg.size() > 1 && arg.front() == '-' && !parseNumber(arg))
      return unknownOption("zone", arg);
  }
  if (args.size() < 2 || args.size() > 3) {
    std::fputs(kZoneHelp, stderr);
    return kExitFailed;
  }
  const std::optional<double> latitude = parseNumber(args[0]);
  const std::optional<double> longitude = parseNumber(args[1]);
  if (!latitude || !longitude || !(std::abs(*latitude) <= 90) || !(std::abs(*longitude) <= 180)) {
    std::fprintf(stderr,
                 "quillmere-cli zone: not a position: %s %s (latitude -90 to 90, longitude -180 "
                 "to 180)\n",
                 args[0].c_str(), args[1].c_str());
    return kExitFailed;
  }
  std::optional<double> instant;
  if (args.size() == 3) {
    instant = parseInstant(args[2]);
    if (!instant) {
      std::fprintf(stderr, "quillmere-cli zone: not an ISO 8601 instant: %s\n", args[2].c_str());
      return kExitFailed;
    }
  }
  const TimeZoneMap* map = sharedMap();
  if (!map) return kExitFailed;
  const std::optional<std::string> zone = map->zoneName(*latitude, *longitude);
  if (!zone) {
    std::puts("none");
    return kExitOk;
  }
  if (!instant) {
    std::puts(zone->c_str());
    return kExitOk;
  }
  const std::optional<TimeZone> timeZone = TimeZone::named(*zone);
  if (!timeZone) {
    std::puts(zone->c_str());
    std::fprintf(stderr, "quillmere-cli zone: this system's time zone database lacks %s\n",
                 zone->c_str());
    return kExitDamaged;
  }
  std::printf("%s\t%s\n", zone->c_str(), formatOffset(timeZone->offsetSeconds(*instant)).c_str());
  return kExitOk;
}

}  // namespace quillmere::cli
