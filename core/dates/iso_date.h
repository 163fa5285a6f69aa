#ifndef QUILLMERE_CORE_DATES_ISO_DATE_H_
#define QUILLMERE_CORE_DATES_ISO_DATE_H_

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

// ISO 8601 date-times as movies, XMP and the services write them: "2021-03-04T10:05:00+02:00",
// "…+0200", "…Z", with or without fractional seconds. Locale- and zone-independent; any thread.
namespace ISODate {

struct Parsed {
  double date = 0;                   // the instant, seconds since the Unix epoch
  std::optional<int> offsetSeconds;  // east of UTC, when the text states one

  bool operator==(const Parsed&) const = default;
};

// Reads a date-time. Horizontal white space around the text is ignored. The first 19
// characters must be "yyyy-MM-ddTHH:mm:ss" (the separators "-" or ":", and "T" or a space, may
// be mixed, so the EXIF notation reads too); otherwise absent. Fractional seconds are skipped,
// never added. The offset after them ("+02:00", "+0200", "Z", optionally after spaces) is
// subtracted from the wall clock; without one, or when what follows is not an offset (which is
// never an error), the wall clock is read as UTC and `offsetSeconds` is absent, so the caller
// must treat it as a floating wall clock.
std::optional<Parsed> parse(std::string_view text);

// "yyyy-MM-ddTHH:mm:ss+HHMM" at a fixed zone `offsetSeconds` east of UTC (basic offset form;
// offset 0 is "+0000", never "Z"; leftover seconds of an offset appear as "+HHMMSS"). Offsets
// beyond ±18 hours fall back on the machine's zone, like ExifDate::format.
std::string format(double utc, int offsetSeconds);

// The extended form used in XMP, "yyyy-MM-ddTHH:mm:ss+HH:MM", made from ExifDate::format and
// ExifDate::formatOffset of the same offset; offset 0 is "+00:00".
std::string formatXMP(double utc, int offsetSeconds);

}  // namespace ISODate
}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_ISO_DATE_H_
