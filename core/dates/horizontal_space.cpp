#include "core/dates/horizontal_space.h"

#include <utf8proc.h>

#include <cstddef>

namespace quillmere {
namespace {

bool isHorizontalSpace(utf8proc_int32_t codePoint) {
  return codePoint == '\t' || utf8proc_category(codePoint) == UTF8PROC_CATEGORY_ZS;
}

// Length in bytes of the horizontal space that `text` starts with, if it starts with one
// well-formed code point that is such a space; else 0.
std::size_t leadingSpaceLength(std::string_view text) {
  utf8proc_int32_t codePoint;
  const utf8proc_ssize_t n =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
  if (n <= 0 || !isHorizontalSpace(codePoint)) return 0;
  return static_cast<std::size_t>(n);
}

}  // namespace

std::string_view trimHorizontalSpace(std::string_view text) {
  while (!text.empty()) {
    const std::size_t n = leadingSpaceLength(text);
    if (n == 0) break;
    text.remove_prefix(n);
  }
  while (!text.empty()) {
    // Step back to the first byte of the last code point (at most four bytes long).
    std::size_t start = text.size() - 1;
    while (start > 0 && text.size() - start < 4 &&
           (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
      --start;
    }
    const std::string_view last = text.substr(start);
    if (leadingSpaceLength(last) != last.size()) break;
    text.remove_suffix(last.size());
  }
  return text;
}

}  // namespace quillmere
