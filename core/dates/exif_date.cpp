#include "core/dates/exif_date.h"

#include <cstdint>
#include <cstdlib>

#include "core/dates/text_trimming.h"
#include "core/dates/wall_clock.h"

namespace quillmere::ExifDate {
namespace {

constexpr std::size_t kExifDateLength = 19;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

const std::regex& pattern() {
  // [0-9] rather than \d: a character class of the regex library follows the global C++
  // locale, and the notation only ever uses ASCII digits.
  static const std::regex kPattern("^[0-9]{4}:[0-9]{2}:[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}",
                                   std::regex::ECMAScript | std::regex::optimize);
  return kPattern;
}

std::optional<double> wallClockAsUTC(std::string_view text) {
  // Any text that parses has 19 ASCII characters first, so counting bytes counts characters.
  const std::optional<WallClock> clock = WallClock::parseExif(text.substr(0, kExifDateLength));
  if (!clock) return std::nullopt;
  return static_cast<double>(clock->secondsAsUTC());
}

std::string format(double utc, int offsetSeconds) {
  return WallClock::at(utc, renderableOffset(utc, offsetSeconds)).formatExif();
}

std::optional<int> parseOffset(std::string_view text) {
  text = trimHorizontalSpace(text);
  if (text == "Z") return 0;
  if (text.size() < 5 || (text.front() != '+' && text.front() != '-')) return std::nullopt;
  const int sign = text.front() == '-' ? -1 : 1;
  std::string digits;
  for (const char c : text.substr(1)) {
    if (c != ':') digits += c;
  }
  if (digits.size() != 4 || !isDigit(digits[0]) || !isDigit(digits[1]) || !isDigit(digits[2]) ||
      !isDigit(digits[3])) {
    return std::nullopt;
  }
  const int hours = (digits[0] - '0') * 10 + (digits[1] - '0');
  const int minutes = (digits[2] - '0') * 10 + (digits[3] - '0');
  return sign * (hours * 3600 + minutes * 60);
}

std::string formatOffset(int seconds) {
  const std::int64_t magnitude = std::llabs(static_cast<std::int64_t>(seconds));
  const std::int64_t hours = magnitude / 3600;
  const std::int64_t minutes = magnitude % 3600 / 60;
  std::string out = seconds < 0 ? "-" : "+";
  if (hours < 10) out += '0';
  out += std::to_string(hours);
  out += ':';
  if (minutes < 10) out += '0';
  out += std::to_string(minutes);
  return out;
}

}  // namespace quillmere::ExifDate
