#ifndef QUILLMERE_CORE_METADATA_HEIF_META_BOX_H_
#define QUILLMERE_CORE_METADATA_HEIF_META_BOX_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/sources/byte_view.h"

namespace quillmere {

// The file-level 'meta' box of a HEIF file taken apart just far enough to add or move items:
// the item infos ('iinf'), locations ('iloc') and references ('iref') as editable values, every
// other child box kept as its exact bytes. `parse` accepts only what `encode` can write back
// with the same meaning; everything else is refused, so an edit never garbles a file.
struct HeifMetaBox {
  struct ItemInfo {
    std::uint32_t id = 0;
    std::uint32_t type = 0;   // 'hvc1', 'Exif', 'mime', ...
    std::string contentType;  // of 'mime' items
    Bytes box;                // the whole 'infe' box, written back as it is

    bool operator==(const ItemInfo&) const = default;
  };
  struct Extent {
    std::uint64_t index = 0;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;  // 0: to the end of the file (or of 'idat')

    bool operator==(const Extent&) const = default;
  };
  struct Location {
    std::uint32_t id = 0;
    std::uint8_t construction = 0;  // 0 file offsets, 1 'idat' offsets, 2 other items
    std::uint64_t baseOffset = 0;
    std::vector<Extent> extents;

    bool operator==(const Location&) const = default;
  };
  struct Reference {
    std::uint32_t type = 0;  // 'cdsc', 'dimg', 'thmb', ...
    std::uint32_t from = 0;
    std::vector<std::uint32_t> to;

    bool operator==(const Reference&) const = default;
  };
  // A child box: its type, and its bytes unless it is one of the three rebuilt ones.
  struct Child {
    std::uint32_t type = 0;
    Bytes box;

    bool operator==(const Child&) const = default;
  };

  std::vector<Child> children;  // in file order
  std::uint32_t primary = 0;
  std::vector<ItemInfo> infos;
  std::uint8_t infoVersion = 0;
  std::vector<Location> locations;
  std::uint8_t locationVersion = 0;
  int offsetSize = 0;  // iloc field widths in bytes: 0, 4 or 8
  int lengthSize = 0;
  int baseOffsetSize = 0;
  int indexSize = 0;
  std::vector<Reference> references;
  std::uint8_t referenceVersion = 0;
  std::uint32_t largestId = 0;  // of items and entity groups, which share one number space

  bool operator==(const HeifMetaBox&) const = default;

  // `payload` is the meta box after its 8-byte header. Absent unless it is a version 0 box of
  // the picture handler with a primary item, item infos of version 2 or 3 (none protected),
  // locations of version 0 to 2 in this file, well-formed references, and no protection scheme.
  static std::optional<HeifMetaBox> parse(std::span<const std::uint8_t> payload);

  // The whole meta box, header included; absent when a value does not fit its field.
  std::optional<Bytes> encode() const;

  // Adds an 'infe' (version 2, or 3 for large numbers) for a new item.
  void addItem(std::uint32_t id, std::uint32_t type, const std::string& contentType);
  // Adds the reference `from` -> `to` of `type` unless it is there already.
  void addReference(std::uint32_t type, std::uint32_t from, std::uint32_t to);
  // The item's location, null when it has none.
  Location* location(std::uint32_t id);
  const ItemInfo* info(std::uint32_t id) const;
  // True when `from` refers to `to` by `type`.
  bool refers(std::uint32_t type, std::uint32_t from, std::uint32_t to) const;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_HEIF_META_BOX_H_
