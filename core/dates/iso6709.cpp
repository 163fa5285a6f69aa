#include "core/dates/iso6709.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace quillmere::ISO6709 {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t digitRun(std::string_view text, std::size_t from) {
  std::size_t end = from;
  while (end < text.size() && isDigit(text[end])) ++end;
  return end - from;
}

// Length of "[+-]\d+(?:\.\d+)?" at `from`, or 0 when none starts there. Taking every digit
// greedily is the only way to match: a number must be followed by a sign or the end, never by
// a digit or a bare ".".
std::size_t numberLength(std::string_view text, std::size_t from) {
  if (from >= text.size() || (text[from] != '+' && text[from] != '-')) return 0;
  const std::size_t integer = digitRun(text, from + 1);
  if (integer == 0) return 0;
  std::size_t end = from + 1 + integer;
  if (end < text.size() && text[end] == '.') {
    const std::size_t fraction = digitRun(text, end + 1);
    if (fraction > 0) end += 1 + fraction;
  }
  return end - from;
}

// A matched number as a double, with the C locale's rules whatever the process locale.
std::optional<double> toDouble(std::string_view number) {
  const bool negative = number.front() == '-';
  number.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value,
                                            std::chars_format::fixed);
  if (error == std::errc::result_out_of_range) {
    // Too many leading zeros after the point is an underflow, which is 0; a huge integer part
    // is a number no position can have.
    if (number.find_first_not_of("0.") < number.find('.')) return std::nullopt;
    value = 0;
  } else if (error != std::errc() || end != number.data() + number.size()) {
    return std::nullopt;
  }
  return negative ? -value : value;
}

// printf's "%+0<width>.<precision>f" without printf, whose decimal separator follows the
// process locale.
std::string formatSigned(double value, int precision, int width) {
  std::string out;
  if (!std::isfinite(value)) {
    out =
        std::isnan(value) ? (std::signbit(value) ? "-nan" : "+nan") : (value < 0 ? "-inf" : "+inf");
    if (static_cast<int>(out.size()) < width) out.insert(0, width - out.size(), ' ');
    return out;
  }
  char buffer[512];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value),
                                          std::chars_format::fixed, precision);
  const std::string_view digits(buffer, error == std::errc() ? end - buffer : 0);
  out += std::signbit(value) ? '-' : '+';
  const int padding = width - 1 - static_cast<int>(digits.size());
  if (padding > 0) out.append(padding, '0');
  out += digits;
  return out;
}

}  // namespace

std::optional<GeoPoint> parse(std::string_view text) {
  for (std::size_t start = 0; start < text.size(); ++start) {
    const std::size_t latitudeLength = numberLength(text, start);
    if (latitudeLength == 0) continue;
    const std::size_t longitudeStart = start + latitudeLength;
    const std::size_t longitudeLength = numberLength(text, longitudeStart);
    if (longitudeLength == 0) continue;
    const std::size_t altitudeStart = longitudeStart + longitudeLength;
    const std::size_t altitudeLength = numberLength(text, altitudeStart);

    const std::optional<double> latitude = toDouble(text.substr(start, latitudeLength));
    const std::optional<double> longitude = toDouble(text.substr(longitudeStart, longitudeLength));
    if (!latitude || !longitude) return std::nullopt;
    GeoPoint point{*latitude, *longitude, std::nullopt};
    if (altitudeLength > 0) point.altitude = toDouble(text.substr(altitudeStart, altitudeLength));
    return point;
  }
  return std::nullopt;
}

std::string format(const GeoPoint& point) {
  std::string out = formatSigned(point.latitude, 4, 9);
  out += formatSigned(point.longitude, 4, 10);
  if (point.altitude) out += formatSigned(*point.altitude, 3, 0);
  out += '/';
  return out;
}

}  // namespace quillmere::ISO6709
