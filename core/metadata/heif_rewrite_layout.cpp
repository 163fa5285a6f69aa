#include <algorithm>
#include <set>
#include <utility>

#include "core/metadata/heif_container.h"
#include "core/metadata/heif_rewrite_plan.h"
#include "core/metadata/iso_box.h"

// Where the rebuilt 'meta' box and the new item data go, and how every item location follows.
namespace quillmere::HeifRewritePlan {
namespace {

using IsoBox::fourCC;
using Location = HeifMetaBox::Location;

constexpr std::uint32_t kMdat = fourCC("mdat");
constexpr std::uint32_t kFree = fourCC("free");

struct Moved {
  std::uint32_t id = 0;
  Bytes data;
};

// The part of the file the rewrite replaces: the 'meta' box and the free space and
// metadata-only 'mdat' boxes right after it.
struct Region {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
};

// True when the only item data in `box` is that of `items`, and it fills the box's payload
// exactly: nothing else (no track data, say) can hide in it.
bool holdsOnly(const Source& source, const std::set<std::uint32_t>& items, const TopBox& box,
               std::uint64_t total) {
  const std::uint64_t payload = box.offset + box.header;
  const std::uint64_t end = box.offset + box.size;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> spans;
  for (const Location& location : source.meta.locations) {
    if (location.construction != 0) continue;
    for (const HeifMetaBox::Extent& extent : location.extents) {
      const auto span = extentSpan(location, extent, total);
      if (!span || span->second <= box.offset || span->first >= end) continue;
      if (!items.contains(location.id) || extent.length == 0 || span->first < payload) {
        return false;
      }
      spans.push_back(*span);
    }
  }
  std::sort(spans.begin(), spans.end());
  std::uint64_t covered = payload;
  for (const auto& [first, second] : spans) {
    if (first > covered) return false;
    covered = std::max(covered, second);
  }
  return covered == end;
}

Region findRegion(const Source& source, const Selection& selection, std::uint64_t total) {
  std::set<std::uint32_t> items;
  if (selection.exif) items.insert(*selection.exif);
  if (selection.xmp) items.insert(*selection.xmp);
  std::size_t next = source.metaIndex + 1;
  for (; next < source.boxes.size(); ++next) {
    const TopBox& box = source.boxes[next];
    const bool space = box.type == kFree || box.type == fourCC("skip");
    if (!space && !(box.type == kMdat && !box.toEnd && holdsOnly(source, items, box, total))) {
      break;
    }
  }
  return {source.boxes[source.metaIndex].offset,
          next < source.boxes.size() ? source.boxes[next].offset : total};
}

bool inside(const Source& source, std::uint32_t item, Region region, std::uint64_t total) {
  const auto found = std::find_if(source.meta.locations.begin(), source.meta.locations.end(),
                                  [&](const Location& l) { return l.id == item; });
  if (found == source.meta.locations.end() || found->construction != 0) return false;
  return std::all_of(found->extents.begin(), found->extents.end(), [&](const auto& extent) {
    const auto span = extentSpan(*found, extent, total);
    return span && span->first >= region.start && span->second <= region.end;
  });
}

// Boxes whose contents may hold file offsets this code does not update ('moov' chunk tables,
// unknown boxes) forbid moving anything.
bool shiftable(const Source& source) {
  return std::all_of(source.boxes.begin(), source.boxes.end(), [](const TopBox& box) {
    switch (box.type) {
      case fourCC("ftyp"):
      case fourCC("meta"):
      case kMdat:
      case kFree:
      case fourCC("skip"):
      case fourCC("wide"):
        return true;
      default:
        return false;
    }
  });
}

// Widens the 'iloc' fields of `target` (and its version, for large item numbers) until every
// value of `values` fits. True when anything changed.
bool widenToFit(HeifMetaBox& target, const HeifMetaBox& values) {
  bool changed = false;
  const auto need = [&](std::uint64_t value, int& width) {
    if (IsoBox::fits(value, width)) return;
    width = IsoBox::fits(value, 4) ? 4 : 8;
    changed = true;
  };
  for (const Location& location : values.locations) {
    need(location.baseOffset, target.baseOffsetSize);
    for (const HeifMetaBox::Extent& extent : location.extents) {
      need(extent.offset, target.offsetSize);
      need(extent.length, target.lengthSize);
    }
    if (!IsoBox::fits(location.id, 2) && target.locationVersion < 2) {
      target.locationVersion = 2;
      changed = true;
    }
  }
  return changed;
}

struct Layout {
  std::int64_t shift = 0;    // for data after the region
  std::uint64_t dataAt = 0;  // of the new item data
  bool append = false;       // 'meta' and the new data go to the end
  std::uint64_t total = 0;   // of the source
  Region region;
  // A last box running "to the end of the file" that the appended data would join: it is
  // given its size.
  std::optional<TopBox> sized;
};

// Sets every location of `meta` for `layout`; false when one can't follow the move.
bool placeItems(HeifMetaBox& meta, const std::vector<Moved>& moved, const Layout& layout) {
  std::set<std::uint32_t> movedIds;
  std::uint64_t at = layout.dataAt;
  for (const Moved& item : moved) {
    movedIds.insert(item.id);
    // Where the file's own items keep their offsets: Exiv2 0.27 looks for it there alone.
    Location& location = *meta.location(item.id);
    const bool inBase = meta.baseOffsetSize > 0;
    location.baseOffset = inBase ? at : 0;
    location.extents = {{0, inBase ? 0 : at, item.data.size()}};
    at += item.data.size();
  }
  for (Location& location : meta.locations) {
    if (location.construction != 0 || movedIds.contains(location.id)) continue;
    bool before = false;
    bool after = false;
    for (HeifMetaBox::Extent& extent : location.extents) {
      const std::uint64_t start = location.baseOffset + extent.offset;
      (start >= layout.region.end ? after : before) = true;
      // Data now followed by more data must say where it ends.
      if (layout.append && extent.length == 0) {
        if (start == layout.total) return false;  // empty, and 0 can't say so any more
        extent.length = layout.total - start;
      }
      if (layout.shift != 0 && location.baseOffset == 0 && start >= layout.region.end) {
        extent.offset += static_cast<std::uint64_t>(layout.shift);
      }
    }
    if (layout.shift == 0 || location.baseOffset == 0 || !after) continue;
    if (before) return false;
    const std::int64_t base = static_cast<std::int64_t>(location.baseOffset) + layout.shift;
    if (base < 0) return false;
    location.baseOffset = static_cast<std::uint64_t>(base);
  }
  return true;
}

Bytes sizeField(std::uint64_t size) {
  Bytes out;
  IsoBox::putUint(out, size, 4);
  return out;
}

// The header that turns the region into one 'free' box; what it held stays as its content.
Bytes freeHeader(std::uint64_t size) {
  Bytes out = sizeField(size);
  IsoBox::putUint(out, kFree, 4);
  return out;
}

// A 'free' box of `size` bytes in all, zeroed.
Bytes freeBox(std::uint64_t size) { return IsoBox::box(kFree, Bytes(size - 8, 0)); }

// The rebuilt region ('meta' and the new 'mdat'), where it goes and the free space after it.
struct Arranged {
  Layout layout;
  Bytes region;
  std::uint64_t padding = 0;
};

std::vector<Piece> pieces(Arranged arranged) {
  const Layout& layout = arranged.layout;
  std::vector<Piece> out;
  const auto copy = [&](std::uint64_t from, std::uint64_t to) {
    if (to > from) out.push_back({from, to - from, {}});
  };
  copy(0, layout.region.start);
  if (layout.append) {
    // Zeroed, so that no trace of the old items stays in the copy's free space.
    out.push_back({0, 0, freeBox(layout.region.end - layout.region.start)});
    if (layout.sized) {
      copy(layout.region.end, layout.sized->offset);
      out.push_back({0, 0, sizeField(layout.sized->size)});
      copy(layout.sized->offset + 4, layout.total);
    } else {
      copy(layout.region.end, layout.total);
    }
    out.push_back({0, 0, std::move(arranged.region)});
  } else {
    if (arranged.padding > 0) {
      const Bytes space = freeBox(arranged.padding);
      arranged.region.insert(arranged.region.end(), space.begin(), space.end());
    }
    out.push_back({0, 0, std::move(arranged.region)});
    copy(layout.region.end, layout.total);
  }
  return out;
}

// The appended layout as edits of the file itself.
InPlaceEdit edit(Arranged arranged) {
  const Layout& layout = arranged.layout;
  InPlaceEdit out;
  if (layout.sized) out.sizeLastBox = Patch{layout.sized->offset, sizeField(layout.sized->size)};
  out.tail = std::move(arranged.region);
  out.freeMeta = Patch{layout.region.start, freeHeader(layout.region.end - layout.region.start)};
  return out;
}

// Whether the appended layout can be had: the region must fit one 32-bit 'free' header, and a
// last box that runs to the end of the file (unless it is part of the region) gets its size,
// which must fit its 32-bit size field.
bool appendable(Layout& layout, const TopBox& last) {
  if (layout.region.end - layout.region.start > 0xFFFFFFFFu) return false;
  layout.sized.reset();
  if (!last.toEnd || last.offset < layout.region.end) return true;
  if (last.header != 8 || last.size > 0xFFFFFFFFu) return false;
  layout.sized = last;
  return true;
}

// Lays out the rebuilt region: in place when it fits (the rest of the file moving if it may),
// else (or when `layout.append` asks for it) at the end of the file. The field widths settle
// within a few rounds, as they only grow.
std::optional<Arranged> arrange(HeifMetaBox meta, const std::vector<Moved>& moved, Layout layout,
                                std::uint64_t dataLength, bool mayShift, const TopBox& last) {
  const std::uint64_t regionSize = layout.region.end - layout.region.start;
  for (int round = 0; round < 8; ++round) {
    HeifMetaBox probe = meta;
    if (widenToFit(meta, probe)) continue;
    const std::optional<Bytes> probeBytes = probe.encode();
    if (!probeBytes) return std::nullopt;
    const std::uint64_t needed = probeBytes->size() + 8 + dataLength;
    std::uint64_t padding = 0;
    layout.shift = 0;
    if (!layout.append) {
      const bool fitsWithPadding =
          needed <= regionSize && (regionSize - needed == 0 || regionSize - needed >= 8);
      if (fitsWithPadding) {
        padding = regionSize - needed;
      } else {
        layout.shift = static_cast<std::int64_t>(needed) - static_cast<std::int64_t>(regionSize);
      }
      if (layout.shift != 0 && !mayShift) layout.append = true;
    }
    if (layout.append) {
      if (!appendable(layout, last)) return std::nullopt;
      layout.shift = 0;
    }
    const std::uint64_t metaAt = layout.append ? layout.total : layout.region.start;
    layout.dataAt = metaAt + probeBytes->size() + 8;
    HeifMetaBox placed = meta;
    if (!placeItems(placed, moved, layout)) return std::nullopt;
    if (widenToFit(meta, placed)) continue;
    std::optional<Bytes> region = placed.encode();
    if (!region || region->size() != probeBytes->size()) return std::nullopt;
    Bytes data;
    for (const Moved& item : moved) data.insert(data.end(), item.data.begin(), item.data.end());
    const Bytes mdat = IsoBox::box(kMdat, data);
    region->insert(region->end(), mdat.begin(), mdat.end());
    return Arranged{layout, std::move(*region), padding};
  }
  return std::nullopt;
}

// Works out the rewrite for both placements: the region, the items that move and the new
// 'meta' box before it is laid out.
std::optional<Arranged> prepare(const RandomAccessBytes& bytes, const Source& source,
                                const std::optional<Bytes>& exifItem,
                                const std::optional<Bytes>& xmpItem, bool append) {
  if (!exifItem && !xmpItem) return std::nullopt;
  for (const auto* item : {&exifItem, &xmpItem}) {
    if (*item && ((*item)->empty() || (*item)->size() > HeifContainer::kMaxItemBytes))
      return std::nullopt;
  }
  const std::uint64_t total = bytes.size();
  const Selection selection = select(source.meta);
  Layout layout;
  layout.total = total;
  layout.append = append;
  layout.region = findRegion(source, selection, total);

  HeifMetaBox meta = source.meta;
  std::vector<Moved> moved;
  const auto take = [&](std::optional<std::uint32_t> item, const std::optional<Bytes>& data,
                        std::uint32_t type, const std::string& contentType) {
    if (data) {
      if (!item) {
        if (meta.largestId == UINT32_MAX) return false;
        item = meta.largestId + 1;
        meta.addItem(*item, type, contentType);
      }
      meta.addReference(fourCC("cdsc"), *item, meta.primary);
      moved.push_back({*item, *data});
    } else if (item && inside(source, *item, layout.region, total)) {
      std::optional<Bytes> kept = itemBytes(bytes, source, *item);
      if (!kept || kept->empty()) return false;
      moved.push_back({*item, std::move(*kept)});
    }
    return true;
  };
  if (!take(selection.exif, exifItem, fourCC("Exif"), "") ||
      !take(selection.xmp, xmpItem, fourCC("mime"), "application/rdf+xml")) {
    return std::nullopt;
  }
  std::uint64_t dataLength = 0;
  for (const Moved& item : moved) {
    if (!meta.location(item.id)) meta.locations.push_back({item.id, 0, 0, {}});
    Location& location = *meta.location(item.id);
    location.construction = 0;
    location.baseOffset = 0;
    location.extents = {{0, 0, item.data.size()}};
    dataLength += item.data.size();
  }
  // Every other item must lie wholly outside the region, which is rebuilt.
  for (const Location& location : meta.locations) {
    const bool isMoved = std::any_of(moved.begin(), moved.end(),
                                     [&](const Moved& m) { return m.id == location.id; });
    if (location.construction != 0 || isMoved) continue;
    for (const auto& extent : location.extents) {
      const auto span = extentSpan(location, extent, total);
      if (!span || (span->first < layout.region.end && span->second > layout.region.start)) {
        return std::nullopt;
      }
    }
  }
  return arrange(meta, moved, layout, dataLength, shiftable(source), source.boxes.back());
}

}  // namespace

std::optional<std::vector<Piece>> plan(const RandomAccessBytes& bytes, const Source& source,
                                       const std::optional<Bytes>& exifItem,
                                       const std::optional<Bytes>& xmpItem) {
  std::optional<Arranged> arranged = prepare(bytes, source, exifItem, xmpItem, false);
  if (!arranged) return std::nullopt;
  return pieces(std::move(*arranged));
}

std::optional<InPlaceEdit> planInPlace(const RandomAccessBytes& bytes, const Source& source,
                                       const std::optional<Bytes>& exifItem,
                                       const std::optional<Bytes>& xmpItem) {
  std::optional<Arranged> arranged = prepare(bytes, source, exifItem, xmpItem, true);
  if (!arranged) return std::nullopt;
  return edit(std::move(*arranged));
}

}  // namespace quillmere::HeifRewritePlan
