#include "core/dates/text_trimming.h"

#include <utf8proc.h>

#include <cstddef>

namespace quillmere {
namespace {

bool isHorizontalSpace(utf8proc_int32_t codePoint) {
  return codePoint == '\t' || utf8proc_category(codePoint) == UTF8PROC_CATEGORY_ZS;
}

bool isSpaceOrLineBreak(utf8proc_int32_t codePoint) {
  return isHorizontalSpace(codePoint) || (codePoint >= 0x0A && codePoint <= 0x0D) ||
         codePoint == 0x85 || codePoint == 0x2028 || codePoint == 0x2029;
}

// Length in bytes of the code point that `text` starts with, if it is well-formed and one that
// `trimmed` accepts; else 0.
std::size_t leadingLength(std::string_view text, bool (*trimmed)(utf8proc_int32_t)) {
  utf8proc_int32_t codePoint;
  const utf8proc_ssize_t n =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
  if (n <= 0 || !trimmed(codePoint)) return 0;
  return static_cast<std::size_t>(n);
}

std::string_view trim(std::string_view text, bool (*trimmed)(utf8proc_int32_t)) {
  while (!text.empty()) {
    const std::size_t n = leadingLength(text, trimmed);
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
    if (leadingLength(last, trimmed) != last.size()) break;
    text.remove_suffix(last.size());
  }
  return text;
}

}  // namespace

std::string_view trimHorizontalSpace(std::string_view text) {
  return trim(text, isHorizontalSpace);
}

std::string_view trimWhiteSpaceAndLineBreaks(std::string_view text) {
  return trim(text, isSpaceOrLineBreak);
}

}  // namespace quillmere
