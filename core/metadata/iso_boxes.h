#ifndef QUILLMERE_CORE_METADATA_ISO_BOXES_H_
#define QUILLMERE_CORE_METADATA_ISO_BOXES_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/metadata/random_access_bytes.h"

// Reading the boxes (atoms) of ISO base media files (HEIF, MP4, QuickTime) from untrusted bytes.
namespace quillmere::IsoBoxes {

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
  std::span<const std::uint8_t> payload;
};

// The boxes laid end to end in `bytes`; stops at the first malformed header.
std::vector<Box> childBoxes(std::span<const std::uint8_t> bytes);

// The payload of the first top-level box of `type` among the first `maxBoxes` of a file, when
// it is complete and at most `maxPayload` bytes long; absent otherwise (also when a box before
// it is cut off by the end of the bytes).
std::optional<Bytes> topLevelPayload(const RandomAccessBytes& bytes, std::uint32_t type,
                                     std::uint64_t maxPayload, int maxBoxes);

}  // namespace quillmere::IsoBoxes

#endif  // QUILLMERE_CORE_METADATA_ISO_BOXES_H_
