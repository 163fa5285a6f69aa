#ifndef QUILLMERE_TESTS_DATES_TEST_PRINTERS_H_
#define QUILLMERE_TESTS_DATES_TEST_PRINTERS_H_

#include <ostream>

#include "core/dates/geo_point.h"
#include "core/dates/iso_date.h"

// Readable failure messages for the date and place values (found by GoogleTest through ADL).
namespace quillmere {

inline void PrintTo(const GeoPoint& point, std::ostream* out) {
  *out << "(" << point.latitude << ", " << point.longitude;
  if (point.altitude) *out << ", alt " << *point.altitude;
  *out << ")";
}

namespace ISODate {
inline void PrintTo(const Parsed& parsed, std::ostream* out) {
  *out << "(" << static_cast<long long>(parsed.date) << ", ";
  if (parsed.offsetSeconds) {
    *out << *parsed.offsetSeconds;
  } else {
    *out << "no offset";
  }
  *out << ")";
}
}  // namespace ISODate

}  // namespace quillmere

#endif  // QUILLMERE_TESTS_DATES_TEST_PRINTERS_H_
