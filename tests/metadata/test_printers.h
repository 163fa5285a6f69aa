#ifndef QUILLMERE_TESTS_METADATA_TEST_PRINTERS_H_
#define QUILLMERE_TESTS_METADATA_TEST_PRINTERS_H_

#include <ostream>

#include "core/metadata/embedded_metadata.h"
#include "tests/dates/test_printers.h"

namespace quillmere {

inline void PrintTo(const EmbeddedMetadata::CaptureDate& date, std::ostream* out) {
  if (const auto* local = date.asLocal()) {
    *out << "local(\"" << local->text << "\", ";
  } else {
    *out << "absolute(" << static_cast<long long>(date.asAbsolute()->date) << ", ";
  }
  if (date.offsetSeconds()) {
    *out << *date.offsetSeconds() << ")";
  } else {
    *out << "no offset)";
  }
}

}  // namespace quillmere

#endif  // QUILLMERE_TESTS_METADATA_TEST_PRINTERS_H_
