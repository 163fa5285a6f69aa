#ifndef QUILLMERE_CORE_METADATA_HEIF_CONTAINER_H_
#define QUILLMERE_CORE_METADATA_HEIF_CONTAINER_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "core/metadata/random_access_bytes.h"

namespace quillmere {

// The still-image container of HEIC, HEIF and AVIF files (ISO/IEC 23008-12 on ISO base media
// boxes): where its primary image's size and its Exif and XMP items are. Only the boxes that say
// where things are, and those items themselves, are read; never the image data. Every size and
// offset comes from the file, so each is bounds-checked and capped.
namespace HeifContainer {

// The largest item whose bytes are held in memory (Exif, XMP); larger ones are not read.
inline constexpr std::uint64_t kMaxItemBytes = 16 << 20;

struct Contents {
  std::optional<std::uint32_t> pixelWidth;  // of the primary item, rotation not applied
  std::optional<std::uint32_t> pixelHeight;
  std::optional<Bytes> exif;       // the Exif item from its TIFF header on
  std::optional<std::string> xmp;  // the XMP packet (an "application/rdf+xml" item)

  bool operator==(const Contents&) const = default;
};

// True when `head`, the first bytes of a file (16 or more), is an 'ftyp' box naming a HEIF or
// AVIF still-image brand (major or compatible).
bool isHeif(std::span<const std::uint8_t> head);

// The contents of the container, absent when it has no readable 'meta' box of a picture handler.
// Items that lie (in part) outside the bytes, use unsupported constructions or exceed 16 MiB
// are left absent.
std::optional<Contents> read(const RandomAccessBytes& bytes);

}  // namespace HeifContainer
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_HEIF_CONTAINER_H_
