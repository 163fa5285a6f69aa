#include "core/metadata/heif_metadata_rewriter.h"

#include <system_error>

#include "core/metadata/heif_container.h"
#include "core/metadata/heif_rewrite_plan.h"
#include "core/metadata/iso_box.h"
#include "core/sources/file_io.h"

namespace quillmere::HeifMetadataRewriter {
namespace {

namespace fs = std::filesystem;

// Files are rewritten in memory; beyond this a photo keeps its sidecar.
constexpr std::uint64_t kLargestFile = std::uint64_t{1} << 30;

// The Exif item as phones write it: the offset of the TIFF header after this field (6), then
// "Exif\0\0", then the TIFF bytes.
Bytes exifItem(const Bytes& tiff) {
  Bytes item = {0, 0, 0, 6, 'E', 'x', 'i', 'f', 0, 0};
  item.insert(item.end(), tiff.begin(), tiff.end());
  return item;
}

std::optional<Bytes> tiffOfExifItem(const Bytes& item) {
  IsoBox::Cursor cursor(item);
  const std::uint32_t headerOffset = cursor.u32();
  if (!cursor.ok() || headerOffset > cursor.remaining()) return std::nullopt;
  return Bytes(item.begin() + 4 + headerOffset, item.end());
}

std::optional<Bytes> xmpItem(const std::optional<std::string>& packet) {
  if (!packet) return std::nullopt;
  return Bytes(packet->begin(), packet->end());
}

// The new file's bytes: the pieces of the plan, in order.
Bytes assemble(const RandomAccessBytes& source, const std::vector<HeifRewritePlan::Piece>& pieces) {
  std::uint64_t size = 0;
  for (const HeifRewritePlan::Piece& piece : pieces) {
    size += piece.literal.empty() ? piece.length : piece.literal.size();
  }
  Bytes out;
  out.reserve(static_cast<std::size_t>(size));
  for (const HeifRewritePlan::Piece& piece : pieces) {
    if (!piece.literal.empty()) {
      out.insert(out.end(), piece.literal.begin(), piece.literal.end());
    } else if (const std::optional<Bytes> part =
                   source.read(piece.offset, static_cast<std::size_t>(piece.length))) {
      out.insert(out.end(), part->begin(), part->end());
    } else {
      return {};  // the source shrank or failed under us
    }
  }
  return out;
}

bool sameFile(const fs::path& a, const fs::path& b) {
  std::error_code error;
  return fs::exists(b, error) && fs::equivalent(a, b, error);
}

}  // namespace

bool isHeif(const fs::path& file) {
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(file);
  if (!bytes) return false;
  const std::optional<Bytes> head = bytes->read(0, std::min<std::uint64_t>(bytes->size(), 4096));
  return head && HeifContainer::isHeif(*head);
}

std::optional<Items> readItems(const RandomAccessBytes& source) {
  const std::optional<HeifRewritePlan::Source> opened = HeifRewritePlan::open(source);
  if (!opened) return std::nullopt;
  const HeifRewritePlan::Selection selection = HeifRewritePlan::select(opened->meta);
  Items items;
  if (selection.exif) {
    if (const auto item = HeifRewritePlan::itemBytes(source, *opened, *selection.exif)) {
      items.exifTiff = tiffOfExifItem(*item);
    }
  }
  if (selection.xmp) {
    if (const auto item = HeifRewritePlan::itemBytes(source, *opened, *selection.xmp)) {
      items.xmp = std::string(item->begin(), item->end());
    }
  }
  return items;
}

std::optional<Items> readItems(const fs::path& file) {
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(file);
  if (!bytes) return std::nullopt;
  return readItems(*bytes);
}

std::optional<Bytes> rewriteBytes(std::span<const std::uint8_t> source,
                                  const std::optional<Bytes>& exifTiff,
                                  const std::optional<std::string>& xmpPacket) {
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inMemory(source);
  const auto pieces = HeifRewritePlan::plan(
      *bytes, exifTiff ? std::optional(exifItem(*exifTiff)) : std::nullopt, xmpItem(xmpPacket));
  if (!pieces) return std::nullopt;
  return assemble(*bytes, *pieces);
}

bool rewrite(const fs::path& source, const fs::path& destination,
             const std::optional<Bytes>& exifTiff, const std::optional<std::string>& xmpPacket) {
  try {
    if (sameFile(source, destination)) return false;
    const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(source);
    if (!bytes || bytes->size() > kLargestFile) return false;
    const auto pieces = HeifRewritePlan::plan(
        *bytes, exifTiff ? std::optional(exifItem(*exifTiff)) : std::nullopt, xmpItem(xmpPacket));
    if (!pieces) return false;
    const Bytes written = assemble(*bytes, *pieces);
    if (written.empty()) return false;
    FileIO::writeFile(destination, written, /*exclusive=*/false);
    return true;
  } catch (const std::exception&) {
    return false;  // the file system's refusal, or out of memory
  }
}

}  // namespace quillmere::HeifMetadataRewriter
