#ifndef QUILLMERE_CORE_DATES_ISO6709_H_
#define QUILLMERE_CORE_DATES_ISO6709_H_

#include <optional>
#include <string>
#include <string_view>

#include "core/dates/geo_point.h"

namespace quillmere {

// ISO 6709 positions as movies carry them: "+40.7128-074.0060+12.5/". Locale-independent.
namespace ISO6709 {

// The first run of two or three signed decimal numbers anywhere in `text`
// ([+-]digits[.digits], each sign starting the next number): latitude, longitude and
// optionally altitude. Every number is read as decimal degrees (or metres), whatever its count
// of integer digits; the degree-and-minute forms are not recognised and no range is checked.
// Absent when there is no such run or the latitude or longitude is too large for a double; an
// unreadable altitude is left absent.
std::optional<GeoPoint> parse(std::string_view text);

// "%+09.4f%+010.4f" of latitude and longitude, then "%+.3f" of the altitude if present, then
// "/" — for example "+040.7128-0074.0060/" and "-033.8688+0151.2093+12.500/". The widths are
// wider than the standard's usual ones on purpose; `parse` reads them back.
std::string format(const GeoPoint& point);

}  // namespace ISO6709
}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_ISO6709_H_
