#ifndef QUILLMERE_CORE_METADATA_ISO_BOX_H_
#define QUILLMERE_CORE_METADATA_ISO_BOX_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/metadata/random_access_bytes.h"
#include "core/sources/byte_view.h"

// Reading and writing the boxes of ISO base media files (HEIF, AVIF, MP4): four-character codes,
// a bounds-checked big-endian cursor over untrusted bytes, and box framing.
namespace quillmere::IsoBox {

constexpr std::uint32_t fourCC(const char (&code)[5]) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) << 24 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 16 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 8 |
         static_cast<std::uint32_t>(static_cast<unsigned char>(code[3]));
}

// A big-endian cursor over untrusted bytes: every read checks the bounds and a failed read
// leaves the cursor failed, so a parser can read a run of fields and test once.
class Cursor {
 public:
  explicit Cursor(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool ok() const { return ok_; }
  std::size_t position() const { return position_; }
  std::size_t remaining() const { return ok_ ? bytes_.size() - position_ : 0; }
  // True when every byte was read and no read failed.
  bool atEnd() const { return ok_ && position_ == bytes_.size(); }

  // An unsigned number of `width` bytes (0 to 8; 0 reads nothing and gives 0).
  std::uint64_t uint(int width);
  std::uint8_t u8() { return static_cast<std::uint8_t>(uint(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(uint(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(uint(4)); }
  void skip(std::size_t count);
  // A NUL-terminated string; the NUL is consumed. A missing NUL fails the cursor.
  std::string string();
  std::span<const std::uint8_t> take(std::size_t count);

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
  bool ok_ = true;
};

struct Box {
  std::uint32_t type = 0;
  std::span<const std::uint8_t> payload;  // after the header
  std::span<const std::uint8_t> whole;    // header and payload
  bool toEnd = false;                     // its size said "to the end of the parent"
};

// The boxes laid end to end in `bytes`; stops at the first malformed header.
std::vector<Box> childBoxes(std::span<const std::uint8_t> bytes);

// The boxes laid end to end in `bytes`, absent unless they fill it exactly with well-formed
// headers (a size of 0, "to the end", is accepted only for the last).
std::optional<std::vector<Box>> exactChildBoxes(std::span<const std::uint8_t> bytes);

// Appends `value` big-endian in `width` bytes (0 to 8); the caller checks that it fits.
void putUint(Bytes& out, std::uint64_t value, int width);
// True when `value` can be written in `width` bytes.
bool fits(std::uint64_t value, int width);
// A box of `type` around `payload`, with a 64-bit size only when a 32-bit one can't hold it.
Bytes box(std::uint32_t type, std::span<const std::uint8_t> payload);
// A full box: version and 24-bit flags, then `payload`.
Bytes fullBox(std::uint32_t type, std::uint8_t version, std::uint32_t flags,
              std::span<const std::uint8_t> payload);

// The payload of the first top-level box of `type` among the first `maxBoxes` of a file, when
// it is complete and at most `maxPayload` bytes long; absent otherwise (also when a box before
// it is cut off by the end of the bytes).
std::optional<Bytes> topLevelPayload(const RandomAccessBytes& bytes, std::uint32_t type,
                                     std::uint64_t maxPayload, int maxBoxes);

}  // namespace quillmere::IsoBox

#endif  // QUILLMERE_CORE_METADATA_ISO_BOX_H_
