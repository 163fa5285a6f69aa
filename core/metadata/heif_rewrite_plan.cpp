#include "core/metadata/heif_rewrite_plan.h"

#include <algorithm>
#include <set>
#include <utility>

#include "core/metadata/heif_container.h"
#include "core/metadata/iso_box.h"

namespace quillmere::HeifRewritePlan {
namespace {

using IsoBox::fourCC;
using Location = HeifMetaBox::Location;

constexpr std::uint64_t kMaxMetaBox = 16 << 20;
constexpr std::size_t kMaxTopLevelBoxes = 4096;

std::optional<std::vector<TopBox>> topLevelBoxes(const RandomAccessBytes& bytes) {
  std::vector<TopBox> boxes;
  const std::uint64_t total = bytes.size();
  std::uint64_t offset = 0;
  while (offset < total) {
    if (boxes.size() >= kMaxTopLevelBoxes) return std::nullopt;
    const std::optional<Bytes> header =
        bytes.read(offset, std::min<std::uint64_t>(16, total - offset));
    if (!header || header->size() < 8) return std::nullopt;
    IsoBox::Cursor cursor(*header);
    TopBox box;
    std::uint64_t size = cursor.u32();
    box.type = cursor.u32();
    if (size == 1) size = cursor.uint(8);
    if (size == 0) {
      size = total - offset;
      box.toEnd = true;
    }
    box.header = cursor.position();
    if (!cursor.ok() || size < box.header || size > total - offset) return std::nullopt;
    box.offset = offset;
    box.size = size;
    boxes.push_back(box);
    offset += size;
  }
  return boxes;
}

bool locationsValid(const Source& source, std::uint64_t total) {
  const TopBox& meta = source.boxes[source.metaIndex];
  for (const Location& location : source.meta.locations) {
    if (location.construction == 2) continue;  // made of other items: no offsets
    const std::uint64_t limit = location.construction == 0 ? total : source.itemData.size();
    for (const HeifMetaBox::Extent& extent : location.extents) {
      const auto span = extentSpan(location, extent, limit);
      if (!span) return false;
      if (location.construction == 0 && span->first < meta.offset + meta.size &&
          span->second > meta.offset) {
        return false;  // data inside 'meta' yet not in 'idat'
      }
    }
  }
  return true;
}

std::optional<std::uint32_t> pick(const HeifMetaBox& meta, bool exif) {
  const auto isKind = [&](const HeifMetaBox::ItemInfo& info) {
    return exif ? info.type == fourCC("Exif")
                : info.type == fourCC("mime") && info.contentType == "application/rdf+xml";
  };
  for (const HeifMetaBox::ItemInfo& info : meta.infos) {
    if (isKind(info) && meta.refers(fourCC("cdsc"), info.id, meta.primary)) return info.id;
  }
  for (const HeifMetaBox::ItemInfo& info : meta.infos) {
    const bool describes = std::any_of(meta.references.begin(), meta.references.end(),
                                       [&](const HeifMetaBox::Reference& r) {
                                         return r.type == fourCC("cdsc") && r.from == info.id;
                                       });
    if (isKind(info) && !describes) return info.id;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::pair<std::uint64_t, std::uint64_t>> extentSpan(
    const HeifMetaBox::Location& location, const HeifMetaBox::Extent& extent, std::uint64_t total) {
  const std::uint64_t start = location.baseOffset + extent.offset;
  if (start < location.baseOffset || start > total) return std::nullopt;
  const std::uint64_t length = extent.length == 0 ? total - start : extent.length;
  if (length > total - start) return std::nullopt;
  return std::make_pair(start, start + length);
}

std::optional<Source> open(const RandomAccessBytes& bytes) {
  std::optional<std::vector<TopBox>> boxes = topLevelBoxes(bytes);
  if (!boxes || boxes->empty() || boxes->front().type != fourCC("ftyp")) return std::nullopt;
  const std::optional<Bytes> head =
      bytes.read(0, std::min<std::uint64_t>(boxes->front().size, 4096));
  if (!head || !HeifContainer::isHeif(*head)) return std::nullopt;
  Source source;
  source.boxes = std::move(*boxes);
  int metas = 0;
  for (std::size_t i = 0; i < source.boxes.size(); ++i) {
    if (source.boxes[i].type != fourCC("meta")) continue;
    ++metas;
    source.metaIndex = i;
  }
  const TopBox& box = source.boxes[source.metaIndex];
  if (metas != 1 || box.size - box.header > kMaxMetaBox) return std::nullopt;
  const std::optional<Bytes> payload =
      bytes.read(box.offset + box.header, static_cast<std::size_t>(box.size - box.header));
  if (!payload) return std::nullopt;
  std::optional<HeifMetaBox> meta = HeifMetaBox::parse(*payload);
  if (!meta) return std::nullopt;
  source.meta = std::move(*meta);
  for (const HeifMetaBox::Child& child : source.meta.children) {
    if (child.type != fourCC("idat")) continue;
    const auto parts = IsoBox::exactChildBoxes(child.box);
    if (!parts || parts->size() != 1) return std::nullopt;
    source.itemData.assign(parts->front().payload.begin(), parts->front().payload.end());
  }
  if (!locationsValid(source, bytes.size())) return std::nullopt;
  return source;
}

Selection select(const HeifMetaBox& meta) { return {pick(meta, true), pick(meta, false)}; }

std::optional<Bytes> itemBytes(const RandomAccessBytes& bytes, const Source& source,
                               std::uint32_t item) {
  const auto found = std::find_if(source.meta.locations.begin(), source.meta.locations.end(),
                                  [&](const Location& l) { return l.id == item; });
  if (found == source.meta.locations.end() || found->construction > 1) return std::nullopt;
  const bool inFile = found->construction == 0;
  Bytes data;
  for (const HeifMetaBox::Extent& extent : found->extents) {
    const auto span = extentSpan(*found, extent, inFile ? bytes.size() : source.itemData.size());
    if (!span || span->second - span->first > HeifContainer::kMaxItemBytes - data.size())
      return std::nullopt;
    const std::size_t length = static_cast<std::size_t>(span->second - span->first);
    if (inFile) {
      const std::optional<Bytes> part = bytes.read(span->first, length);
      if (!part) return std::nullopt;
      data.insert(data.end(), part->begin(), part->end());
    } else {
      const auto start = source.itemData.begin() + static_cast<std::ptrdiff_t>(span->first);
      data.insert(data.end(), start, start + static_cast<std::ptrdiff_t>(length));
    }
  }
  return data;
}

}  // namespace quillmere::HeifRewritePlan
