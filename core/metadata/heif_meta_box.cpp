#include "core/metadata/heif_meta_box.h"

#include <algorithm>
#include <set>

#include "core/metadata/iso_box.h"

namespace quillmere {
namespace {

using IsoBox::Cursor;
using IsoBox::fits;
using IsoBox::fourCC;
using IsoBox::putUint;

constexpr std::uint32_t kInfos = fourCC("iinf");
constexpr std::uint32_t kLocations = fourCC("iloc");
constexpr std::uint32_t kReferences = fourCC("iref");

bool validWidth(int width) { return width == 0 || width == 4 || width == 8; }

bool parseInfos(std::span<const std::uint8_t> payload, HeifMetaBox& meta) {
  Cursor cursor(payload);
  meta.infoVersion = cursor.u8();
  cursor.skip(3);
  if (meta.infoVersion > 1) return false;
  const std::uint32_t count = meta.infoVersion == 0 ? cursor.u16() : cursor.u32();
  if (!cursor.ok()) return false;
  const auto boxes = IsoBox::exactChildBoxes(payload.subspan(cursor.position()));
  if (!boxes || boxes->size() != count) return false;
  std::set<std::uint32_t> seen;
  for (const IsoBox::Box& box : *boxes) {
    // Kept as they are while entries are added after them: "to the end" would swallow those.
    if (box.type != fourCC("infe") || box.toEnd) return false;
    Cursor entry(box.payload);
    const std::uint8_t version = entry.u8();
    entry.skip(3);
    if (version < 2 || version > 3) return false;  // no item types before version 2
    HeifMetaBox::ItemInfo info;
    info.id = version == 2 ? entry.u16() : entry.u32();
    const std::uint16_t protection = entry.u16();
    info.type = entry.u32();
    entry.string();  // item_name
    if (info.type == fourCC("mime")) info.contentType = entry.string();
    if (!entry.ok() || protection != 0 || !seen.insert(info.id).second) return false;
    info.box.assign(box.whole.begin(), box.whole.end());
    meta.infos.push_back(std::move(info));
  }
  return true;
}

bool parseLocations(std::span<const std::uint8_t> payload, HeifMetaBox& meta) {
  Cursor cursor(payload);
  const std::uint8_t version = cursor.u8();
  cursor.skip(3);
  const std::uint8_t sizes = cursor.u8();
  const std::uint8_t moreSizes = cursor.u8();
  if (!cursor.ok() || version > 2) return false;
  meta.locationVersion = version;
  meta.offsetSize = sizes >> 4;
  meta.lengthSize = sizes & 0x0F;
  meta.baseOffsetSize = moreSizes >> 4;
  meta.indexSize = version >= 1 ? moreSizes & 0x0F : 0;
  if (!validWidth(meta.offsetSize) || !validWidth(meta.lengthSize) ||
      !validWidth(meta.baseOffsetSize) || !validWidth(meta.indexSize)) {
    return false;
  }
  const std::uint32_t count = version < 2 ? cursor.u16() : cursor.u32();
  std::set<std::uint32_t> seen;
  for (std::uint32_t i = 0; i < count && cursor.ok(); ++i) {
    HeifMetaBox::Location location;
    location.id = version < 2 ? cursor.u16() : cursor.u32();
    if (version >= 1) {
      const std::uint16_t method = cursor.u16();
      if (method > 2) return false;
      location.construction = static_cast<std::uint8_t>(method);
    }
    // Data in other files (a data reference other than "this file") is not followed.
    if (cursor.u16() != 0) return false;
    location.baseOffset = cursor.uint(meta.baseOffsetSize);
    const std::uint16_t extents = cursor.u16();
    for (std::uint16_t e = 0; e < extents && cursor.ok(); ++e) {
      HeifMetaBox::Extent extent;
      extent.index = cursor.uint(meta.indexSize);
      extent.offset = cursor.uint(meta.offsetSize);
      extent.length = cursor.uint(meta.lengthSize);
      location.extents.push_back(extent);
    }
    if (!seen.insert(location.id).second) return false;
    meta.locations.push_back(std::move(location));
  }
  return cursor.atEnd();
}

bool parseReferences(std::span<const std::uint8_t> payload, HeifMetaBox& meta) {
  Cursor cursor(payload);
  meta.referenceVersion = cursor.u8();
  cursor.skip(3);
  if (!cursor.ok() || meta.referenceVersion > 1) return false;
  const int width = meta.referenceVersion == 0 ? 2 : 4;
  const auto boxes = IsoBox::exactChildBoxes(payload.subspan(cursor.position()));
  if (!boxes) return false;
  for (const IsoBox::Box& box : *boxes) {
    Cursor entry(box.payload);
    HeifMetaBox::Reference reference;
    reference.type = box.type;
    reference.from = static_cast<std::uint32_t>(entry.uint(width));
    const std::uint16_t count = entry.u16();
    for (std::uint16_t i = 0; i < count && entry.ok(); ++i) {
      reference.to.push_back(static_cast<std::uint32_t>(entry.uint(width)));
    }
    if (!entry.atEnd()) return false;
    meta.references.push_back(std::move(reference));
  }
  return true;
}

// Entity groups ('grpl') number their groups from the same space as items.
bool readGroupIds(std::span<const std::uint8_t> payload, std::uint32_t& largest) {
  const auto boxes = IsoBox::exactChildBoxes(payload);
  if (!boxes) return false;
  for (const IsoBox::Box& box : *boxes) {
    Cursor cursor(box.payload);
    cursor.skip(4);
    const std::uint32_t group = cursor.u32();
    if (!cursor.ok()) return false;
    largest = std::max(largest, group);
  }
  return true;
}

bool isPictureHandler(std::span<const std::uint8_t> payload) {
  Cursor cursor(payload);
  cursor.skip(8);  // version and flags, pre_defined
  return cursor.u32() == fourCC("pict") && cursor.ok();
}

std::optional<std::uint32_t> primaryItem(std::span<const std::uint8_t> payload) {
  Cursor cursor(payload);
  const std::uint8_t version = cursor.u8();
  cursor.skip(3);
  const std::uint32_t item = version == 0 ? cursor.u16() : cursor.u32();
  if (!cursor.atEnd() || version > 1) return std::nullopt;
  return item;
}

// One child box into `meta`; false refuses the whole box.
bool parseChild(const IsoBox::Box& box, HeifMetaBox& meta, bool& handler,
                std::optional<std::uint32_t>& primary) {
  switch (box.type) {
    case fourCC("hdlr"):
      handler = isPictureHandler(box.payload);
      return true;
    case fourCC("pitm"):
      primary = primaryItem(box.payload);
      return primary.has_value();
    case kInfos:
      return parseInfos(box.payload, meta);
    case kLocations:
      return parseLocations(box.payload, meta);
    case kReferences:
      return parseReferences(box.payload, meta);
    case fourCC("grpl"):
      return readGroupIds(box.payload, meta.largestId);
    case fourCC("ipro"):  // protected items: their data must not be touched or trusted
    case fourCC("ipmc"):
      return false;
    default:
      return true;
  }
}

}  // namespace

std::optional<HeifMetaBox> HeifMetaBox::parse(std::span<const std::uint8_t> payload) {
  Cursor cursor(payload);
  if (cursor.u32() != 0 || !cursor.ok()) return std::nullopt;  // version 0, no flags
  const auto boxes = IsoBox::exactChildBoxes(payload.subspan(4));
  if (!boxes) return std::nullopt;
  HeifMetaBox meta;
  bool handler = false;
  std::optional<std::uint32_t> primary;
  std::set<std::uint32_t> once;
  for (const IsoBox::Box& box : *boxes) {
    if (box.toEnd) return std::nullopt;  // written back, "to the end" could change meaning
    const bool single = box.type == kInfos || box.type == kLocations || box.type == kReferences ||
                        box.type == fourCC("pitm") || box.type == fourCC("hdlr") ||
                        box.type == fourCC("idat");
    if (single && !once.insert(box.type).second) return std::nullopt;
    if (!parseChild(box, meta, handler, primary)) return std::nullopt;
    Child child{box.type, {}};
    if (box.type != kInfos && box.type != kLocations && box.type != kReferences) {
      child.box.assign(box.whole.begin(), box.whole.end());
    }
    meta.children.push_back(std::move(child));
  }
  if (!handler || !primary || !once.contains(kInfos) || !once.contains(kLocations) ||
      !meta.info(*primary)) {
    return std::nullopt;
  }
  meta.primary = *primary;
  for (const ItemInfo& info : meta.infos) meta.largestId = std::max(meta.largestId, info.id);
  for (const Location& location : meta.locations) {
    meta.largestId = std::max(meta.largestId, location.id);
  }
  for (const Reference& reference : meta.references) {
    meta.largestId = std::max(meta.largestId, reference.from);
    for (const std::uint32_t to : reference.to) meta.largestId = std::max(meta.largestId, to);
  }
  return meta;
}

namespace {

std::optional<Bytes> encodeInfos(const HeifMetaBox& meta) {
  const std::uint8_t version = meta.infos.size() > 0xFFFF ? 1 : meta.infoVersion;
  Bytes payload;
  putUint(payload, meta.infos.size(), version == 0 ? 2 : 4);
  for (const HeifMetaBox::ItemInfo& info : meta.infos) {
    payload.insert(payload.end(), info.box.begin(), info.box.end());
  }
  return IsoBox::fullBox(kInfos, version, 0, payload);
}

std::optional<Bytes> encodeLocations(const HeifMetaBox& meta) {
  const std::uint8_t version = meta.locationVersion;
  const int idWidth = version < 2 ? 2 : 4;
  if (!fits(meta.locations.size(), idWidth)) return std::nullopt;
  Bytes payload;
  putUint(payload, static_cast<std::uint64_t>(meta.offsetSize << 4 | meta.lengthSize), 1);
  putUint(payload, static_cast<std::uint64_t>(meta.baseOffsetSize << 4 | meta.indexSize), 1);
  putUint(payload, meta.locations.size(), idWidth);
  for (const HeifMetaBox::Location& location : meta.locations) {
    if (!fits(location.id, idWidth) || !fits(location.baseOffset, meta.baseOffsetSize) ||
        location.extents.size() > 0xFFFF || (version == 0 && location.construction != 0)) {
      return std::nullopt;
    }
    putUint(payload, location.id, idWidth);
    if (version >= 1) putUint(payload, location.construction, 2);
    putUint(payload, 0, 2);  // data_reference_index: this file
    putUint(payload, location.baseOffset, meta.baseOffsetSize);
    putUint(payload, location.extents.size(), 2);
    for (const HeifMetaBox::Extent& extent : location.extents) {
      if (!fits(extent.index, meta.indexSize) || !fits(extent.offset, meta.offsetSize) ||
          !fits(extent.length, meta.lengthSize)) {
        return std::nullopt;
      }
      putUint(payload, extent.index, meta.indexSize);
      putUint(payload, extent.offset, meta.offsetSize);
      putUint(payload, extent.length, meta.lengthSize);
    }
  }
  return IsoBox::fullBox(kLocations, version, 0, payload);
}

std::optional<Bytes> encodeReferences(const HeifMetaBox& meta) {
  std::uint8_t version = meta.referenceVersion;
  for (const HeifMetaBox::Reference& reference : meta.references) {
    if (!fits(reference.from, 2)) version = 1;
    for (const std::uint32_t to : reference.to) {
      if (!fits(to, 2)) version = 1;
    }
  }
  const int width = version == 0 ? 2 : 4;
  Bytes payload;
  for (const HeifMetaBox::Reference& reference : meta.references) {
    if (reference.to.size() > 0xFFFF) return std::nullopt;
    Bytes entry;
    putUint(entry, reference.from, width);
    putUint(entry, reference.to.size(), 2);
    for (const std::uint32_t to : reference.to) putUint(entry, to, width);
    const Bytes box = IsoBox::box(reference.type, entry);
    payload.insert(payload.end(), box.begin(), box.end());
  }
  return IsoBox::fullBox(kReferences, version, 0, payload);
}

}  // namespace

std::optional<Bytes> HeifMetaBox::encode() const {
  Bytes body(4, 0);  // version 0, no flags
  for (const Child& child : children) {
    std::optional<Bytes> box = child.box;
    if (child.type == kInfos) box = encodeInfos(*this);
    if (child.type == kLocations) box = encodeLocations(*this);
    if (child.type == kReferences) box = encodeReferences(*this);
    if (!box) return std::nullopt;
    body.insert(body.end(), box->begin(), box->end());
  }
  return IsoBox::box(fourCC("meta"), body);
}

void HeifMetaBox::addItem(std::uint32_t id, std::uint32_t type, const std::string& contentType) {
  const std::uint8_t version = fits(id, 2) ? 2 : 3;
  Bytes payload;
  putUint(payload, id, version == 2 ? 2 : 4);
  putUint(payload, 0, 2);  // not protected
  putUint(payload, type, 4);
  payload.push_back(0);  // no name
  if (!contentType.empty()) {
    payload.insert(payload.end(), contentType.begin(), contentType.end());
    payload.push_back(0);
  }
  infos.push_back({id, type, contentType, IsoBox::fullBox(fourCC("infe"), version, 0, payload)});
  largestId = std::max(largestId, id);
}

void HeifMetaBox::addReference(std::uint32_t type, std::uint32_t from, std::uint32_t to) {
  if (refers(type, from, to)) return;
  const auto has = [&](std::uint32_t t) {
    return std::any_of(children.begin(), children.end(),
                       [&](const Child& c) { return c.type == t; });
  };
  if (!has(kReferences)) {
    const auto infosAt = std::find_if(children.begin(), children.end(),
                                      [](const Child& c) { return c.type == kInfos; });
    children.insert(infosAt == children.end() ? children.end() : infosAt + 1,
                    Child{kReferences, {}});
  }
  for (Reference& reference : references) {
    if (reference.type == type && reference.from == from) {
      reference.to.push_back(to);
      return;
    }
  }
  references.push_back({type, from, {to}});
}

HeifMetaBox::Location* HeifMetaBox::location(std::uint32_t id) {
  for (Location& location : locations) {
    if (location.id == id) return &location;
  }
  return nullptr;
}

const HeifMetaBox::ItemInfo* HeifMetaBox::info(std::uint32_t id) const {
  for (const ItemInfo& info : infos) {
    if (info.id == id) return &info;
  }
  return nullptr;
}

bool HeifMetaBox::refers(std::uint32_t type, std::uint32_t from, std::uint32_t to) const {
  return std::any_of(references.begin(), references.end(), [&](const Reference& r) {
    return r.type == type && r.from == from &&
           std::find(r.to.begin(), r.to.end(), to) != r.to.end();
  });
}

}  // namespace quillmere
