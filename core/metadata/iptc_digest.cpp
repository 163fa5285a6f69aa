#include "core/metadata/iptc_digest.h"

#include <openssl/evp.h>

#include <cstring>
#include <optional>
#include <span>
#include <string_view>

namespace quillmere::IptcDigest {
namespace {

constexpr std::string_view kPhotoshop("Photoshop 3.0\0", 14);
constexpr std::uint16_t kIptcResource = 0x0404;
constexpr std::uint16_t kDigestResource = 0x0425;
constexpr std::size_t kDigestLength = 16;

std::uint32_t bigEndian(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// The payload of the first APP13 segment holding Photoshop resources, or empty.
std::span<std::uint8_t> photoshopSegment(Bytes& jpeg) {
  std::size_t at = 2;  // after the start-of-image marker
  if (jpeg.size() < 4 || jpeg[0] != 0xFF || jpeg[1] != 0xD8) return {};
  while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF) {
    const std::uint8_t marker = jpeg[at + 1];
    if (marker == 0xDA || marker == 0xD9) break;  // the image data begins: no more metadata
    const std::size_t length = bigEndian(jpeg, at + 2, 2);
    if (length < 2 || length > jpeg.size() - at - 2) break;
    const std::span<std::uint8_t> payload(jpeg.data() + at + 4, length - 2);
    if (marker == 0xED && payload.size() >= kPhotoshop.size() &&
        std::memcmp(payload.data(), kPhotoshop.data(), kPhotoshop.size()) == 0) {
      return payload.subspan(kPhotoshop.size());
    }
    at += 2 + length;
  }
  return {};
}

}  // namespace

void refresh(Bytes& jpeg) {
  const std::span<std::uint8_t> resources = photoshopSegment(jpeg);
  std::optional<std::span<std::uint8_t>> iptc, digest;
  std::size_t at = 0;
  while (at + 8 <= resources.size() && std::memcmp(&resources[at], "8BIM", 4) == 0) {
    const auto id = static_cast<std::uint16_t>(bigEndian(resources, at + 4, 2));
    std::size_t name = 1 + resources[at + 6];  // a Pascal string padded to an even length
    name += name % 2;
    if (name > resources.size() - at - 6 || resources.size() - at - 6 - name < 4) return;
    const std::size_t start = at + 6 + name + 4;
    const std::size_t size = bigEndian(resources, start - 4, 4);
    if (size > resources.size() - start) return;
    if (id == kIptcResource) iptc = resources.subspan(start, size);
    if (id == kDigestResource) digest = resources.subspan(start, size);
    at = start + size + size % 2;
  }
  if (!iptc || !digest || digest->size() != kDigestLength) return;
  unsigned char md5[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(iptc->data(), iptc->size(), md5, &length, EVP_md5(), nullptr) != 1 ||
      length != kDigestLength) {
    return;
  }
  std::memcpy(digest->data(), md5, kDigestLength);
}

}  // namespace quillmere::IptcDigest
