#include "core/metadata/iso_box.h"

#include <algorithm>

namespace quillmere::IsoBox {

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

namespace {

// The box at the cursor, or absent (cursor failed) when its header is malformed.
std::optional<Box> nextBox(Cursor& cursor, std::span<const std::uint8_t> bytes) {
  const std::size_t start = cursor.position();
  std::uint64_t size = cursor.u32();
  const std::uint32_t type = cursor.u32();
  if (size == 1) size = cursor.uint(8);
  const bool toEnd = size == 0;
  if (toEnd) size = bytes.size() - start;
  const std::size_t header = cursor.position() - start;
  if (!cursor.ok() || size < header || size - header > cursor.remaining()) return std::nullopt;
  const auto payload = cursor.take(static_cast<std::size_t>(size - header));
  return Box{type, payload, bytes.subspan(start, static_cast<std::size_t>(size)), toEnd};
}

}  // namespace

std::vector<Box> childBoxes(std::span<const std::uint8_t> bytes) {
  std::vector<Box> boxes;
  Cursor cursor(bytes);
  while (cursor.remaining() >= 8) {
    const std::optional<Box> box = nextBox(cursor, bytes);
    if (!box) break;
    boxes.push_back(*box);
  }
  return boxes;
}

std::optional<std::vector<Box>> exactChildBoxes(std::span<const std::uint8_t> bytes) {
  std::vector<Box> boxes;
  Cursor cursor(bytes);
  while (cursor.remaining() > 0) {
    const std::optional<Box> box = nextBox(cursor, bytes);
    if (!box) return std::nullopt;
    boxes.push_back(*box);
  }
  return boxes;
}

void putUint(Bytes& out, std::uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

bool fits(std::uint64_t value, int width) {
  return width >= 8 || (width >= 0 && value >> (8 * width) == 0);
}

Bytes box(std::uint32_t type, std::span<const std::uint8_t> payload) {
  Bytes out;
  out.reserve(payload.size() + 16);
  if (payload.size() <= 0xFFFFFFFFu - 8) {
    putUint(out, payload.size() + 8, 4);
    putUint(out, type, 4);
  } else {
    putUint(out, 1, 4);
    putUint(out, type, 4);
    putUint(out, payload.size() + 16, 8);
  }
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

Bytes fullBox(std::uint32_t type, std::uint8_t version, std::uint32_t flags,
              std::span<const std::uint8_t> payload) {
  Bytes body;
  body.reserve(payload.size() + 4);
  putUint(body, version, 1);
  putUint(body, flags & 0xFFFFFF, 3);
  body.insert(body.end(), payload.begin(), payload.end());
  return box(type, body);
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

}  // namespace quillmere::IsoBox
