#include "core/metadata/heif_metadata_rewriter.h"

#include <system_error>

#include "core/metadata/heif_container.h"
#include "core/metadata/heif_rewrite_plan.h"
#include "core/metadata/iso_box.h"
#include "core/sources/file_io.h"

namespace quillmere::HeifMetadataRewriter {
namespace {

namespace fs = std::filesystem;
using HeifRewritePlan::Piece;

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

std::optional<Bytes> exifItemOf(const std::optional<Bytes>& tiff) {
  return tiff ? std::optional(exifItem(*tiff)) : std::nullopt;
}

Items itemsOf(const RandomAccessBytes& source, const HeifRewritePlan::Source& opened) {
  const HeifRewritePlan::Selection selection = HeifRewritePlan::select(opened.meta);
  Items items;
  if (selection.exif) {
    if (const auto item = HeifRewritePlan::itemBytes(source, opened, *selection.exif)) {
      items.exifTiff = tiffOfExifItem(*item);
    }
  }
  if (selection.xmp) {
    if (const auto item = HeifRewritePlan::itemBytes(source, opened, *selection.xmp)) {
      items.xmp = std::string(item->begin(), item->end());
    }
  }
  return items;
}

// The new file's bytes: the pieces of the plan, in order.
Bytes assemble(const RandomAccessBytes& source, const std::vector<Piece>& pieces) {
  std::uint64_t size = 0;
  for (const Piece& piece : pieces) {
    size += piece.literal.empty() ? piece.length : piece.literal.size();
  }
  Bytes out;
  out.reserve(static_cast<std::size_t>(size));
  for (const Piece& piece : pieces) {
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

// The new file from the pieces: what this process made is written, the runs of the source are
// copied from descriptor to descriptor. Throws on any failure; the temporary file then goes.
void writePieces(const FileDescriptor& source, const std::vector<Piece>& pieces,
                 const fs::path& destination) {
  // A copy the repair can make again: no flush to disk for each photo.
  AtomicFile out(destination, AtomicFile::Options{.replace = true, .durable = false});
  const int target = out.file().get();
  std::uint64_t at = 0;
  for (const Piece& piece : pieces) {
    if (!piece.literal.empty()) {
      FileIO::pwriteAll(target, piece.literal, at, "Couldn't write the photo");
      at += piece.literal.size();
    } else {
      FileIO::copyRange(source.get(), piece.offset, target, at, piece.length,
                        "Couldn't copy the photo");
      at += piece.length;
    }
  }
  out.commit();
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
  return itemsOf(source, *opened);
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
  const std::optional<HeifRewritePlan::Source> opened = HeifRewritePlan::open(*bytes);
  if (!opened) return std::nullopt;
  const auto pieces =
      HeifRewritePlan::plan(*bytes, *opened, exifItemOf(exifTiff), xmpItem(xmpPacket));
  if (!pieces) return std::nullopt;
  return assemble(*bytes, *pieces);
}

Outcome rewrite(const fs::path& source, const fs::path& destination, const Merge& merge) {
  try {
    if (sameFile(source, destination)) return Outcome::refused;
    const FileDescriptor input = FileDescriptor::openForReading(source);
    const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inOpenFile(input);
    if (!bytes) return Outcome::refused;
    const std::optional<HeifRewritePlan::Source> opened = HeifRewritePlan::open(*bytes);
    if (!opened) return Outcome::refused;
    const std::optional<Items> items = merge(itemsOf(*bytes, *opened));
    if (!items) return Outcome::refused;
    if (!items->exifTiff && !items->xmp) return Outcome::nothingToWrite;
    const auto pieces =
        HeifRewritePlan::plan(*bytes, *opened, exifItemOf(items->exifTiff), xmpItem(items->xmp));
    if (!pieces) return Outcome::refused;
    writePieces(input, *pieces, destination);
    return Outcome::written;
  } catch (const std::exception&) {
    return Outcome::refused;  // the file system's refusal, or out of memory
  }
}

}  // namespace quillmere::HeifMetadataRewriter
