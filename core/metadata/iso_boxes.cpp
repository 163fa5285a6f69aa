#include "core/metadata/iso_boxes.h"

#include <algorithm>

namespace quillmere::IsoBoxes {

std::uint64_t Cursor::uint(int width) {
  if (!ok_ || width < 0 || width > 8 || remaining() < static_cast<std::size_t>(width)) {
    ok_ = false;
    return 0;
  }
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = value << 8 | bytes_[position_++];
  return value;
}

void Cursor::skip(std::size_t count) {
  if (remaining() < count) ok_ = false;
  if (ok_) position_ += count;
}

std::string Cursor::string() {
  std::string text;
  while (ok_ && remaining() > 0) {
    const char c = static_cast<char>(bytes_[position_++]);
    if (c == '\0') return text;
    text += c;
  }
  ok_ = false;
  return text;
}

std::span<const std::uint8_t> Cursor::take(std::size_t count) {
  if (remaining() < count) {
    ok_ = false;
    return {};
  }
  const std::span<const std::uint8_t> part = bytes_.subspan(position_, count);
  position_ += count;
  return part;
}

std::vector<Box> childBoxes(std::span<const std::uint8_t> bytes) {
  std::vector<Box> boxes;
  Cursor cursor(bytes);
  while (cursor.remaining() >= 8) {
    const std::size_t start = cursor.position();
    std::uint64_t size = cursor.u32();
    const std::uint32_t type = cursor.u32();
    if (size == 1) size = cursor.uint(8);
    if (size == 0) size = bytes.size() - start;  // to the end of the parent
    const std::size_t header = cursor.position() - start;
    if (!cursor.ok() || size < header || size - header > cursor.remaining()) break;
    boxes.push_back({type, cursor.take(static_cast<std::size_t>(size - header))});
  }
  return boxes;
}

std::optional<Bytes> topLevelPayload(const RandomAccessBytes& bytes, std::uint32_t type,
                                     std::uint64_t maxPayload, int maxBoxes) {
  std::uint64_t offset = 0;
  for (int box = 0; box < maxBoxes && offset < bytes.size(); ++box) {
    const std::optional<Bytes> header = bytes.read(
        offset, static_cast<std::size_t>(std::min<std::uint64_t>(16, bytes.size() - offset)));
    if (!header || header->size() < 8) return std::nullopt;
    Cursor cursor(*header);
    std::uint64_t size = cursor.u32();
    const std::uint32_t found = cursor.u32();
    if (size == 1) size = cursor.uint(8);
    if (size == 0) size = bytes.size() - offset;
    const std::uint64_t headerSize = cursor.position();
    if (!cursor.ok() || size < headerSize || size > bytes.size() - offset) return std::nullopt;
    if (found == type) {
      if (size - headerSize > maxPayload) return std::nullopt;
      return bytes.read(offset + headerSize, static_cast<std::size_t>(size - headerSize));
    }
    offset += size;
  }
  return std::nullopt;
}

}  // namespace quillmere::IsoBoxes
