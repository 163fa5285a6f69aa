#include "core/dates/wall_clock.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <exception>

#include "core/dates/time_zone.h"

namespace quillmere {
namespace {

// About 3 million years either side of the epoch: far beyond any date a file can carry,
// and small enough that every sum below stays inside 64 bits.
constexpr double kClampSeconds = 1e14;
constexpr std::int64_t kLargestFixedZone = 18 * 3600;

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's days_from_civil).
std::int64_t daysFromCivil(std::int64_t year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

void civilFromDays(std::int64_t days, WallClock& clock) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthIndex = (5 * dayOfYear + 2) / 153;
  clock.day = static_cast<int>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
  clock.month = static_cast<int>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
  clock.year = yearOfEra + era * 400 + (clock.month <= 2 ? 1 : 0);
}

bool isLeapYear(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int daysInMonth(std::int64_t year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Reads `count` ASCII digits at `offset`; -1 when any is not a digit.
int digitsAt(std::string_view text, std::size_t offset, std::size_t count) {
  int value = 0;
  for (std::size_t i = offset; i < offset + count; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value;
}

void appendPadded(std::string& out, std::int64_t value, int width) {
  const std::string digits = std::to_string(value);
  if (static_cast<int>(digits.size()) < width) out.append(width - digits.size(), '0');
  out += digits;
}

}  // namespace

WallClock WallClock::at(double utc, std::int64_t offsetSeconds) {
  if (!std::isfinite(utc)) utc = 0;
  if (utc > kClampSeconds) utc = kClampSeconds;
  if (utc < -kClampSeconds) utc = -kClampSeconds;
  std::int64_t seconds = static_cast<std::int64_t>(std::floor(utc));
  // Offsets beyond a day or so never reach here from a file, but any 64-bit value must be safe.
  const std::int64_t limit = static_cast<std::int64_t>(kClampSeconds);
  if (offsetSeconds > limit) offsetSeconds = limit;
  if (offsetSeconds < -limit) offsetSeconds = -limit;
  seconds += offsetSeconds;
  std::int64_t days = seconds / 86400;
  std::int64_t secondOfDay = seconds % 86400;
  if (secondOfDay < 0) {
    secondOfDay += 86400;
    --days;
  }
  WallClock clock;
  civilFromDays(days, clock);
  clock.hour = static_cast<int>(secondOfDay / 3600);
  clock.minute = static_cast<int>(secondOfDay % 3600 / 60);
  clock.second = static_cast<int>(secondOfDay % 60);
  return clock;
}

std::optional<WallClock> WallClock::parseExif(std::string_view text) {
  if (text.size() != 19 || text[4] != ':' || text[7] != ':' || text[10] != ' ' || text[13] != ':' ||
      text[16] != ':') {
    return std::nullopt;
  }
  WallClock clock;
  const int year = digitsAt(text, 0, 4);
  clock.month = digitsAt(text, 5, 2);
  clock.day = digitsAt(text, 8, 2);
  clock.hour = digitsAt(text, 11, 2);
  clock.minute = digitsAt(text, 14, 2);
  clock.second = digitsAt(text, 17, 2);
  if (year < 1 || clock.month < 1 || clock.month > 12 || clock.day < 1 ||
      clock.day > daysInMonth(year, clock.month) || clock.hour < 0 || clock.hour > 23 ||
      clock.minute < 0 || clock.minute > 59 || clock.second < 0 || clock.second > 59) {
    return std::nullopt;
  }
  clock.year = year;
  return clock;
}

std::int64_t WallClock::secondsAsUTC() const {
  return daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

std::string WallClock::formatExif() const {
  std::string out;
  out.reserve(19);
  appendPadded(out, year >= 1 ? year : 1 - year, 4);
  out += ':';
  appendPadded(out, month, 2);
  out += ':';
  appendPadded(out, day, 2);
  out += ' ';
  appendPadded(out, hour, 2);
  out += ':';
  appendPadded(out, minute, 2);
  out += ':';
  appendPadded(out, second, 2);
  return out;
}

std::int64_t renderableOffset(double utc, std::int64_t offsetSeconds) {
  if (offsetSeconds >= -kLargestFixedZone && offsetSeconds <= kLargestFixedZone) {
    return offsetSeconds;
  }
  const std::optional<TimeZone> zone = TimeZone::current();
  return zone ? zone->offsetSeconds(utc) : 0;
}

}  // namespace quillmere
