#ifndef QUILLMERE_CORE_DATES_EXIF_DATE_H_
#define QUILLMERE_CORE_DATES_EXIF_DATE_H_

#include <optional>
#include <regex>
#include <string>
#include <string_view>

namespace quillmere {

// The EXIF wall-clock notation "2021:03:04 10:05:00" and the separate offset notation "+02:00".
// Instants are seconds since 1970-01-01 UTC; offsets are whole seconds east of UTC. Nothing here
// depends on the machine's locale or zone (except the one documented fallback of `format`), and
// every function may be called from any thread.
namespace ExifDate {

// The shape "^dddd:dd:dd dd:dd:dd" (ASCII digits) that tells a real date from filler text.
// Built once on first use and shared. Its match is at most 19 characters long, so callers may
// search just the first 19 characters of a long text.
const std::regex& pattern();

// The instant whose UTC wall clock is written in the first 19 characters of `text`
// ("yyyy:MM:dd HH:mm:ss"); whatever follows (sub-seconds, an offset) is ignored. Absent when
// those characters are not exactly that notation or name no real date (30 February, hour 24);
// a shorter text is always absent.
std::optional<double> wallClockAsUTC(std::string_view text);

// The wall clock `offsetSeconds` east of UTC at the instant `utc`, as "yyyy:MM:dd HH:mm:ss";
// fractions of a second are dropped. An offset beyond ±18 hours has no fixed zone: the
// machine's own zone is used instead.
std::string format(double utc, int offsetSeconds);

// Reads "+02:00", "+0200", "-08:00" or "Z" (horizontal white space around it is ignored) as
// seconds east of UTC. Absent for anything else: "+05", "05:30", "+5:30", "GMT+2". Hours and
// minutes are not range-checked ("+99:99" is 362,340).
std::optional<int> parseOffset(std::string_view text);

// "+HH:MM" or "-HH:MM" (zero is "+00:00"); hours take more digits when needed, and leftover
// seconds are dropped, never rounded.
std::string formatOffset(int seconds);

}  // namespace ExifDate
}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_EXIF_DATE_H_
