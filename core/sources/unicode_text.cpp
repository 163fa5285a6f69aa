#include "core/sources/unicode_text.h"

#include <utf8proc.h>

namespace quillmere::UnicodeText {
namespace {

void appendCodePoint(std::string& out, utf8proc_int32_t codePoint) {
  utf8proc_uint8_t buffer[4];
  const utf8proc_ssize_t n = utf8proc_encode_char(codePoint, buffer);
  out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n));
}

}  // namespace

bool isValidUTF8(std::span<const std::uint8_t> bytes) {
  std::size_t i = 0;
  while (i < bytes.size()) {
    utf8proc_int32_t codePoint;
    const utf8proc_ssize_t n = utf8proc_iterate(
        bytes.data() + i, static_cast<utf8proc_ssize_t>(bytes.size() - i), &codePoint);
    if (n <= 0) return false;
    i += static_cast<std::size_t>(n);
  }
  return true;
}

bool isValidUTF8(std::string_view text) {
  return isValidUTF8(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::string repairUTF8(std::span<const std::uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  std::size_t i = 0;
  while (i < bytes.size()) {
    utf8proc_int32_t codePoint;
    const utf8proc_ssize_t n = utf8proc_iterate(
        bytes.data() + i, static_cast<utf8proc_ssize_t>(bytes.size() - i), &codePoint);
    if (n <= 0) {
      appendCodePoint(out, 0xFFFD);
      ++i;  // resynchronise on the next byte
    } else {
      out.append(reinterpret_cast<const char*>(bytes.data() + i), static_cast<std::size_t>(n));
      i += static_cast<std::size_t>(n);
    }
  }
  return out;
}

std::string fromLatin1(std::span<const std::uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size() * 2);
  for (std::uint8_t b : bytes) appendCodePoint(out, b);
  return out;
}

}  // namespace quillmere::UnicodeText
