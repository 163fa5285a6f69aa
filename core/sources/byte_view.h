#ifndef QUILLMERE_CORE_SOURCES_BYTE_VIEW_H_
#define QUILLMERE_CORE_SOURCES_BYTE_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <vector>

namespace quillmere {

using Bytes = std::vector<std::uint8_t>;

// a + b for sizes and counts that come from files: saturates at the type's limits instead of
// wrapping, so a sum of lying sizes is merely large, never negative or undefined.
template <typename Integer>
Integer saturatingAdd(Integer a, Integer b) {
  Integer sum;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return b < 0 ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
}

// Bounds-checked little-endian reads over untrusted bytes. Callers check `contains` first and
// map a miss to their own error; the accessors check again and throw std::out_of_range, so a
// forgotten check can never read past the buffer.
class ByteView {
 public:
  explicit ByteView(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::size_t size() const { return bytes_.size(); }
  // True when [offset, offset + count) lies inside the bytes; overflow-safe.
  bool contains(std::uint64_t offset, std::uint64_t count) const {
    return offset <= bytes_.size() && count <= bytes_.size() - offset;
  }
  std::span<const std::uint8_t> sub(std::uint64_t offset, std::uint64_t count) const {
    check(offset, count);
    return bytes_.subspan(offset, count);
  }
  std::uint16_t u16le(std::uint64_t offset) const {
    return static_cast<std::uint16_t>(le(offset, 2));
  }
  std::uint32_t u32le(std::uint64_t offset) const {
    return static_cast<std::uint32_t>(le(offset, 4));
  }
  std::uint64_t u64le(std::uint64_t offset) const { return le(offset, 8); }

 private:
  void check(std::uint64_t offset, std::uint64_t count) const {
    if (!contains(offset, count)) throw std::out_of_range("read past the end of a byte buffer");
  }
  std::uint64_t le(std::uint64_t offset, int width) const {
    check(offset, width);
    std::uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i) value = (value << 8) | bytes_[offset + i];
    return value;
  }

  std::span<const std::uint8_t> bytes_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_BYTE_VIEW_H_
