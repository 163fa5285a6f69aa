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

// Bytes written over the file's own at `offset`.
struct Patch {
  std::uint64_t offset = 0;
  Bytes bytes;

  bool operator==(const Patch&) const = default;
};

// The same rewrite made inside the file: the new 'meta' box and item data are appended, and the
// old 'meta' box (with the free space and metadata 'mdat' after it) becomes one 'free' box by
// a new header, so no byte of image data moves.
struct InPlaceEdit {
  // The size of a last box that ran "to the end of the file", written before `tail` joins it.
  std::optional<Patch> sizeLastBox;
  Bytes tail;      // appended at the old end of the file
  Patch freeMeta;  // written last: until then the old 'meta' box stands

  bool operator==(const InPlaceEdit&) const = default;
};

// The edit that gives the file those items in place; absent when refused (as `plan` refuses,
// and also when the old 'meta' region is larger than a 32-bit 'free' box or a last box of
// unstated size can't be given one).
std::optional<InPlaceEdit> planInPlace(const RandomAccessBytes& bytes, const Source& source,
                                       const std::optional<Bytes>& exifItem,
                                       const std::optional<Bytes>& xmpItem);

}  // namespace quillmere::HeifRewritePlan

#endif  // QUILLMERE_CORE_METADATA_HEIF_REWRITE_PLAN_H_
