#ifndef QUILLMERE_TESTS_SUPPORT_ISO_BOXES_H_
#define QUILLMERE_TESTS_SUPPORT_ISO_BOXES_H_

#include <cstdint>
#include <string>

// ISO base media boxes (HEIF, MP4), big-endian like the format, built as strings of bytes.
namespace quillmere::testing {

// `value` in `width` big-endian bytes; widths past 8 are padded with leading zeros.
inline std::string be(std::uint64_t value, int width) {
  std::string bytes;
  for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(i >= 8 ? 0 : value >> (8 * i));
  return bytes;
}
inline std::string box(const std::string& type, const std::string& payload) {
  return be(payload.size() + 8, 4) + type + payload;
}
inline std::string fullBox(const std::string& type, int version, const std::string& payload) {
  return box(type, be(version, 1) + be(0, 3) + payload);
}

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_ISO_BOXES_H_
