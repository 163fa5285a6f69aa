#ifndef QUILLMERE_CORE_METADATA_HEIF_REWRITE_PLAN_H_
#define QUILLMERE_CORE_METADATA_HEIF_REWRITE_PLAN_H_

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "core/metadata/heif_meta_box.h"
#include "core/metadata/random_access_bytes.h"

// How a HEIF file is rewritten with new metadata items, worked out without writing anything:
// the new file as a list of pieces, each a run of the source's bytes or new bytes.
// HeifMetadataRewriter writes the pieces out; the same rules serve both it and its reader.
namespace quillmere::HeifRewritePlan {

// A top-level box of the file.
struct TopBox {
  std::uint32_t type = 0;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t header = 8;
  bool toEnd = false;  // its header says "to the end of the file"
};

// The parts of a file the rewrite works on: its top-level boxes and its 'meta' box.
struct Source {
  std::vector<TopBox> boxes;
  std::size_t metaIndex = 0;
  HeifMetaBox meta;
  Bytes itemData;  // the payload of 'idat'
};

// Absent unless the file is a HEIF still image with exactly one top-level 'meta' box that
// HeifMetaBox accepts, boxes that tile the file, and every item within the file.
std::optional<Source> open(const RandomAccessBytes& bytes);

// The Exif and XMP items describing the primary image (see HeifMetadataRewriter::Items).
struct Selection {
  std::optional<std::uint32_t> exif;
  std::optional<std::uint32_t> xmp;
};
Selection select(const HeifMetaBox& meta);

// The bytes of an item, its extents joined; absent when it can't be had (or passes 16 MiB).
std::optional<Bytes> itemBytes(const RandomAccessBytes& bytes, const Source& source,
                               std::uint32_t item);

// Where an extent of `location` lies in data of `total` bytes: [first, second). Absent when it
// lies (in part) outside.
std::optional<std::pair<std::uint64_t, std::uint64_t>> extentSpan(
    const HeifMetaBox::Location& location, const HeifMetaBox::Extent& extent, std::uint64_t total);

struct Piece {
  std::uint64_t offset = 0;  // a run of the source: offset and length
  std::uint64_t length = 0;
  Bytes literal;  // or, when not empty, these bytes

  bool operator==(const Piece&) const = default;
};

// The new file with its Exif item holding `exifItem` (prefix included) and its XMP item
// holding `xmpItem`; absent when refused. `source` is what `open` found in `bytes`.
std::optional<std::vector<Piece>> plan(const RandomAccessBytes& bytes, const Source& source,
                                       const std::optional<Bytes>& exifItem,
                                       const std::optional<Bytes>& xmpItem);

}  // namespace quillmere::HeifRewritePlan

#endif  // QUILLMERE_CORE_METADATA_HEIF_REWRITE_PLAN_H_
