#ifndef QUILLMERE_CORE_DATES_WALL_CLOCK_H_
#define QUILLMERE_CORE_DATES_WALL_CLOCK_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

// A date of the proleptic Gregorian calendar and a time of day, as some clock shows it; no zone
// is attached. The shared arithmetic of the date notations, done without the C library's
// locale- and zone-dependent functions.
struct WallClock {
  std::int64_t year = 1970;  // astronomical numbering: 0 is 1 BC
  int month = 1;             // 1...12
  int day = 1;               // 1...31
  int hour = 0;              // 0...23
  int minute = 0;
  int second = 0;

  bool operator==(const WallClock&) const = default;

  // The clock `offsetSeconds` east of UTC at the instant `utc` (seconds since the Unix epoch;
  // the fraction is dropped towards the past). A non-finite instant counts as the epoch, and
  // instants are clamped to about ±3 million years so the arithmetic cannot overflow.
  static WallClock at(double utc, std::int64_t offsetSeconds);

  // Reads exactly "yyyy:MM:dd HH:mm:ss" (19 ASCII characters, every field zero-padded to its
  // width). Fails on any other shape and on a date or time that does not exist: month 13,
  // 30 February, hour 24, second 60, year 0000.
  static std::optional<WallClock> parseExif(std::string_view text);

  // Seconds since the Unix epoch when this clock is read as UTC. Requires valid fields.
  std::int64_t secondsAsUTC() const;

  // "yyyy:MM:dd HH:mm:ss", the year as a year of its era with at least four digits (1 BC is
  // 0001), so the text reads back through parseExif for every year from 1 to 9999.
  std::string formatExif() const;
};

// The offset to render a wall clock with: `offsetSeconds` itself when a fixed zone of that
// offset can exist (at most 18 hours either side of UTC), else the offset of the machine's own
// zone at `utc` (TZ when it names a zone, else the system's zone, else UTC).
std::int64_t renderableOffset(double utc, std::int64_t offsetSeconds);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_WALL_CLOCK_H_
