#include "core/dates/iso_date.h"

#include <cstdint>
#include <cstdlib>

#include "core/dates/exif_date.h"
#include "core/dates/text_trimming.h"
#include "core/dates/wall_clock.h"

namespace quillmere::ISODate {
namespace {

constexpr std::size_t kDateTimeLength = 19;

void appendTwoDigits(std::string& out, std::int64_t value) {
  out += static_cast<char>('0' + value / 10 % 10);
  out += static_cast<char>('0' + value % 10);
}

}  // namespace

std::optional<Parsed> parse(std::string_view text) {
  text = trimHorizontalSpace(text);
  // A text that parses begins with 19 ASCII characters, so bytes and characters agree.
  if (text.size() < kDateTimeLength) return std::nullopt;
  std::string wallClock(text.substr(0, kDateTimeLength));
  for (char& c : wallClock) {
    if (c == '-') c = ':';
    if (c == 'T') c = ' ';
  }
  const std::optional<double> asUTC = ExifDate::wallClockAsUTC(wallClock);
  if (!asUTC) return std::nullopt;

  std::string_view rest = text.substr(kDateTimeLength);
  if (rest.starts_with('.')) {
    std::size_t skipped = 0;
    while (skipped < rest.size() &&
           (rest[skipped] == '.' || (rest[skipped] >= '0' && rest[skipped] <= '9'))) {
      ++skipped;
    }
    rest.remove_prefix(skipped);
  }
  if (rest.empty()) return Parsed{*asUTC, std::nullopt};
  const std::optional<int> offset = ExifDate::parseOffset(rest);
  if (!offset) return Parsed{*asUTC, std::nullopt};
  return Parsed{*asUTC - *offset, offset};
}

std::string format(double utc, int offsetSeconds) {
  const std::int64_t offset = renderableOffset(utc, offsetSeconds);
  std::string out = WallClock::at(utc, offset).formatExif();
  // "yyyy:MM:dd HH:mm:ss" -> "yyyy-MM-ddTHH:mm:ss"; the year may be longer than four digits.
  const std::size_t dateEnd = out.size() - 9;
  out[dateEnd] = 'T';
  out[dateEnd - 3] = '-';
  out[dateEnd - 6] = '-';
  const std::int64_t magnitude = std::llabs(offset);
  out += offset < 0 ? '-' : '+';
  appendTwoDigits(out, magnitude / 3600);
  appendTwoDigits(out, magnitude % 3600 / 60);
  if (magnitude % 60 != 0) appendTwoDigits(out, magnitude % 60);
  return out;
}

std::string formatXMP(double utc, int offsetSeconds) {
  const std::string exif = ExifDate::format(utc, offsetSeconds);
  // Years past 9999 take a fifth digit, so the date ends at the space, not at a fixed column.
  const std::size_t space = exif.find(' ');
  std::string out = exif.substr(0, space);
  for (char& c : out) {
    if (c == ':') c = '-';
  }
  out += 'T';
  out += exif.substr(space + 1);
  out += ExifDate::formatOffset(offsetSeconds);
  return out;
}

}  // namespace quillmere::ISODate
