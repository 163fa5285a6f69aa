#include "core/metadata/heif_container.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "core/metadata/iso_box.h"

namespace quillmere::HeifContainer {
namespace {

using IsoBox::Box;
using IsoBox::childBoxes;
using IsoBox::Cursor;
using IsoBox::fourCC;

constexpr std::uint64_t kMaxMetaBox = 16 << 20;
constexpr int kMaxTopLevelBoxes = 64;
// Extents a file may make us walk, whatever its counts claim: far above any real image (a grid
// of tiles has a few hundred), far below what costs noticeable time.
constexpr std::uint64_t kMaxExtentsPerFile = 1 << 16;

struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;  // 0: to the end of the file (or of 'idat')
};

struct Location {
  int constructionMethod = 0;  // 0: file offsets, 1: offsets in 'idat'
  std::uint64_t baseOffset = 0;
  std::vector<Extent> extents;
};

struct Meta {
  bool pictureHandler = false;
  std::optional<std::uint32_t> primary;
  std::map<std::uint32_t, Location> locations;
  std::optional<std::uint32_t> exifItem;
  std::optional<std::uint32_t> xmpItem;
  std::vector<Box> properties;                                       // 'ipco', indexed from 1
  std::map<std::uint32_t, std::vector<std::uint16_t>> associations;  // 'ipma'
  std::span<const std::uint8_t> itemData;                            // 'idat'
};

void readHandler(std::span<const std::uint8_t> payload, Meta& meta) {
  Cursor cursor(payload);
  cursor.skip(8);  // version and flags, pre_defined
  meta.pictureHandler = cursor.u32() == fourCC("pict") && cursor.ok();
}

void readPrimaryItem(std::span<const std::uint8_t> payload, Meta& meta) {
  Cursor cursor(payload);
  const std::uint8_t version = cursor.u8();
  cursor.skip(3);
  const std::uint32_t item = version == 0 ? cursor.u16() : cursor.u32();
  if (cursor.ok()) meta.primary = item;
}

// Records the locations of the `wanted` items only. Counts are checked against the bytes that
// could hold them, and all extents together against kMaxExtentsPerFile, so a small file can't
// claim millions of records; a table that breaks either bound is ignored from there on.
void readItemLocations(std::span<const std::uint8_t> payload,
                       const std::vector<std::uint32_t>& wanted, Meta& meta) {
  Cursor cursor(payload);
  const std::uint8_t version = cursor.u8();
  cursor.skip(3);
  if (version > 2) return;
  const std::uint8_t sizes = cursor.u8();
  const std::uint8_t moreSizes = cursor.u8();
  const int offsetSize = sizes >> 4;
  const int lengthSize = sizes & 0x0F;
  const int baseOffsetSize = moreSizes >> 4;
  const int indexSize = version >= 1 ? moreSizes & 0x0F : 0;
  const std::uint32_t count = version < 2 ? cursor.u16() : cursor.u32();
  // An item's record holds at least its id, data reference, base offset and extent count; an
  // extent at least its fields, and at least one byte even when they are all empty.
  const std::uint64_t itemRecord =
      (version < 2 ? 2 : 4) + (version >= 1 ? 2 : 0) + 2 + baseOffsetSize + 2;
  const std::uint64_t extentBytes = std::max(indexSize + offsetSize + lengthSize, 1);
  if (count > cursor.remaining() / itemRecord) return;
  std::uint64_t extentsSeen = 0;
  for (std::uint32_t i = 0; i < count && cursor.ok(); ++i) {
    const std::uint32_t item = version < 2 ? cursor.u16() : cursor.u32();
    Location location;
    if (version >= 1) location.constructionMethod = cursor.u16() & 0x0F;
    cursor.skip(2);  // data_reference_index
    location.baseOffset = cursor.uint(baseOffsetSize);
    const std::uint16_t extents = cursor.u16();
    extentsSeen += extents;
    if (extents > cursor.remaining() / extentBytes || extentsSeen > kMaxExtentsPerFile) return;
    const bool keep = std::find(wanted.begin(), wanted.end(), item) != wanted.end();
    for (std::uint16_t e = 0; e < extents && cursor.ok(); ++e) {
      cursor.uint(indexSize);
      Extent extent;
      extent.offset = cursor.uint(offsetSize);
      extent.length = cursor.uint(lengthSize);
      if (keep) location.extents.push_back(extent);
    }
    if (keep && cursor.ok()) meta.locations.emplace(item, std::move(location));
  }
}

void readItemInfos(std::span<const std::uint8_t> payload, Meta& meta) {
  Cursor cursor(payload);
  const std::uint8_t version = cursor.u8();
  cursor.skip(3);
  cursor.skip(version == 0 ? 2 : 4);  // entry_count: the boxes themselves say how many
  if (!cursor.ok()) return;
  for (const Box& box : childBoxes(payload.subspan(cursor.position()))) {
    if (box.type != fourCC("infe")) continue;
    Cursor entry(box.payload);
    const std::uint8_t entryVersion = entry.u8();
    entry.skip(3);
    if (entryVersion < 2) continue;  // no item types before version 2
    const std::uint32_t item = entryVersion == 2 ? entry.u16() : entry.u32();
    entry.skip(2);  // item_protection_index
    const std::uint32_t type = entry.u32();
    entry.string();  // item_name
    if (!entry.ok()) continue;
    if (type == fourCC("Exif") && !meta.exifItem) meta.exifItem = item;
    if (type == fourCC("mime") && !meta.xmpItem && entry.string() == "application/rdf+xml" &&
        entry.ok()) {
      meta.xmpItem = item;
    }
  }
}

void readItemProperties(std::span<const std::uint8_t> payload, Meta& meta) {
  for (const Box& box : childBoxes(payload)) {
    if (box.type == fourCC("ipco")) {
      meta.properties = childBoxes(box.payload);
    } else if (box.type == fourCC("ipma")) {
      Cursor cursor(box.payload);
      const std::uint8_t version = cursor.u8();
      const std::uint32_t flags = static_cast<std::uint32_t>(cursor.uint(3));
      const std::uint32_t count = cursor.u32();
      // Each entry holds at least an item id and an association count.
      if (count > cursor.remaining() / (version < 1 ? 3 : 5)) continue;
      for (std::uint32_t i = 0; i < count && cursor.ok(); ++i) {
        const std::uint32_t item = version < 1 ? cursor.u16() : cursor.u32();
        const std::uint8_t associations = cursor.u8();
        std::vector<std::uint16_t> indices;
        for (int a = 0; a < associations && cursor.ok(); ++a) {
          indices.push_back((flags & 1) != 0 ? cursor.u16() & 0x7FFF : cursor.u8() & 0x7F);
        }
        if (cursor.ok() && item == meta.primary)
          meta.associations.emplace(item, std::move(indices));
      }
    }
  }
}

Meta readMeta(std::span<const std::uint8_t> payload) {
  Meta meta;
  if (payload.size() < 4) return meta;
  std::optional<std::span<const std::uint8_t>> itemLocations;
  for (const Box& box : childBoxes(payload.subspan(4))) {  // after version and flags
    switch (box.type) {
      case fourCC("hdlr"):
        readHandler(box.payload, meta);
        break;
      case fourCC("pitm"):
        readPrimaryItem(box.payload, meta);
        break;
      case fourCC("iloc"):
        if (!itemLocations) itemLocations = box.payload;
        break;
      case fourCC("iinf"):
        readItemInfos(box.payload, meta);
        break;
      case fourCC("idat"):
        meta.itemData = box.payload;
        break;
      default:
        break;
    }
  }
  // Properties and locations are kept only for the items that matter, known by now.
  for (const Box& box : childBoxes(payload.subspan(4))) {
    if (box.type == fourCC("iprp")) readItemProperties(box.payload, meta);
  }
  std::vector<std::uint32_t> wanted;
  if (meta.exifItem) wanted.push_back(*meta.exifItem);
  if (meta.xmpItem) wanted.push_back(*meta.xmpItem);
  if (itemLocations && !wanted.empty()) readItemLocations(*itemLocations, wanted, meta);
  return meta;
}

// The item's bytes, its extents joined; absent when any part is missing or it is too large.
std::optional<Bytes> itemBytes(const RandomAccessBytes& bytes, const Meta& meta,
                               std::uint32_t item) {
  const auto found = meta.locations.find(item);
  if (found == meta.locations.end()) return std::nullopt;
  const Location& location = found->second;
  if (location.constructionMethod > 1) return std::nullopt;
  const std::uint64_t total =
      location.constructionMethod == 0 ? bytes.size() : meta.itemData.size();
  Bytes data;
  for (const Extent& extent : location.extents) {
    const std::uint64_t start = location.baseOffset + extent.offset;
    if (start < location.baseOffset || start > total) return std::nullopt;  // overflow or outside
    const std::uint64_t length = extent.length == 0 ? total - start : extent.length;
    if (length > total - start || length > HeifContainer::kMaxItemBytes - data.size())
      return std::nullopt;
    if (location.constructionMethod == 0) {
      const std::optional<Bytes> part = bytes.read(start, static_cast<std::size_t>(length));
      if (!part) return std::nullopt;
      data.insert(data.end(), part->begin(), part->end());
    } else {
      const auto part =
          meta.itemData.subspan(static_cast<std::size_t>(start), static_cast<std::size_t>(length));
      data.insert(data.end(), part.begin(), part.end());
    }
  }
  return data;
}

// An Exif item starts with the offset of its TIFF header, counted after that field (ISO/IEC
// 23008-12 A.2.1); the bytes skipped are usually "Exif\0\0".
std::optional<Bytes> tiffOfExifItem(const Bytes& item) {
  Cursor cursor(item);
  const std::uint32_t headerOffset = cursor.u32();
  if (!cursor.ok() || headerOffset > cursor.remaining()) return std::nullopt;
  return Bytes(item.begin() + 4 + headerOffset, item.end());
}

void readPrimarySize(const Meta& meta, Contents& contents) {
  if (!meta.primary) return;
  const auto found = meta.associations.find(*meta.primary);
  if (found == meta.associations.end()) return;
  for (const std::uint16_t index : found->second) {
    if (index == 0 || index > meta.properties.size()) continue;
    const Box& property = meta.properties[index - 1];
    if (property.type != fourCC("ispe")) continue;
    Cursor cursor(property.payload);
    cursor.skip(4);
    const std::uint32_t width = cursor.u32();
    const std::uint32_t height = cursor.u32();
    if (!cursor.ok()) return;
    contents.pixelWidth = width;
    contents.pixelHeight = height;
    return;
  }
}

bool isStillImageBrand(std::uint32_t brand) {
  switch (brand) {
    case fourCC("mif1"):
    case fourCC("mif2"):
    case fourCC("msf1"):
    case fourCC("heic"):
    case fourCC("heix"):
    case fourCC("heim"):
    case fourCC("heis"):
    case fourCC("hevc"):
    case fourCC("hevx"):
    case fourCC("avif"):
    case fourCC("avis"):
      return true;
    default:
      return false;
  }
}

}  // namespace

bool isHeif(std::span<const std::uint8_t> head) {
  Cursor cursor(head);
  const std::uint32_t size = cursor.u32();
  if (cursor.u32() != fourCC("ftyp") || !cursor.ok() || size < 16) return false;
  const std::span<const std::uint8_t> brands =
      head.subspan(8, std::min<std::size_t>(size, head.size()) - 8);
  Cursor brandCursor(brands);
  const std::uint32_t major = brandCursor.u32();
  brandCursor.skip(4);  // minor_version
  if (!brandCursor.ok()) return false;
  if (isStillImageBrand(major)) return true;
  while (brandCursor.remaining() >= 4) {
    if (isStillImageBrand(brandCursor.u32())) return true;
  }
  return false;
}

std::optional<Contents> read(const RandomAccessBytes& bytes) {
  // Only 'meta' matters; a box cut off by the end of a prefix before it means it is not here.
  const std::optional<Bytes> payload =
      IsoBox::topLevelPayload(bytes, fourCC("meta"), kMaxMetaBox, kMaxTopLevelBoxes);
  if (!payload) return std::nullopt;
  const Meta meta = readMeta(*payload);
  if (!meta.pictureHandler) return std::nullopt;
  Contents contents;
  readPrimarySize(meta, contents);
  if (meta.exifItem) {
    if (const std::optional<Bytes> item = itemBytes(bytes, meta, *meta.exifItem)) {
      contents.exif = tiffOfExifItem(*item);
    }
  }
  if (meta.xmpItem) {
    if (const std::optional<Bytes> item = itemBytes(bytes, meta, *meta.xmpItem)) {
      contents.xmp = std::string(item->begin(), item->end());
    }
  }
  return contents;
}

}  // namespace quillmere::HeifContainer
