#include "core/metadata/heif_metadata_rewriter.h"

#include <system_error>
#include <variant>

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

// Writes `patch` over the file, keeping the bytes it replaces in `undo` first.
void overwrite(const FileDescriptor& file, const HeifRewritePlan::Patch& patch,
               std::vector<HeifRewritePlan::Patch>& undo) {
  Bytes old(patch.bytes.size());
  if (file.preadFully(old, patch.offset) != old.size()) {
    throw std::system_error(EIO, std::generic_category(), "Couldn't read the photo");
  }
  undo.push_back({patch.offset, std::move(old)});
  FileIO::pwriteAll(file.get(), patch.bytes, patch.offset, "Couldn't write the photo");
}

// Puts `file` back as it was before an in-place edit: its length, then what the edit wrote
// over, newest first. Opened anew, as the failure may have been the descriptor's.
void undoEdit(const fs::path& file, std::uint64_t length,
              const std::vector<HeifRewritePlan::Patch>& undo) {
  const FileDescriptor target = FileDescriptor::openForUpdate(file);
  target.truncate(length);
  for (auto patch = undo.rbegin(); patch != undo.rend(); ++patch) {
    FileIO::pwriteAll(target.get(), patch->bytes, patch->offset, "Couldn't restore the photo");
  }
}

// The edit `merge` asks of the file `bytes` reads, or the outcome when there is none.
std::variant<HeifRewritePlan::InPlaceEdit, Outcome> planEdit(const RandomAccessBytes& bytes,
                                                             const Merge& merge) {
  const std::optional<HeifRewritePlan::Source> opened = HeifRewritePlan::open(bytes);
  if (!opened) return Outcome::refused;
  const std::optional<Items> items = merge(itemsOf(bytes, *opened));
  if (!items) return Outcome::refused;
  if (!items->exifTiff && !items->xmp) return Outcome::nothingToWrite;
  std::optional<HeifRewritePlan::InPlaceEdit> edit = HeifRewritePlan::planInPlace(
      bytes, *opened, exifItemOf(items->exifTiff), xmpItem(items->xmp));
  if (!edit) return Outcome::refused;
  return std::move(*edit);
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

Outcome rewriteInPlace(const fs::path& file, const Merge& merge) {
  std::optional<FileDescriptor> target;
  std::uint64_t length = 0;
  HeifRewritePlan::InPlaceEdit edit;
  try {
    target = FileDescriptor::openForUpdate(file);
    const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inOpenFile(*target);
    if (!bytes) return Outcome::refused;
    length = bytes->size();
    auto planned = planEdit(*bytes, merge);
    if (const Outcome* outcome = std::get_if<Outcome>(&planned)) return *outcome;
    edit = std::move(std::get<HeifRewritePlan::InPlaceEdit>(planned));
  } catch (const std::exception&) {
    return Outcome::refused;  // nothing written yet
  }
  // The last box's size first, so that the appended boxes never count as part of it; the old
  // 'meta' box last, so that until then the file keeps its own.
  std::vector<HeifRewritePlan::Patch> undo;
  try {
    if (edit.sizeLastBox) overwrite(*target, *edit.sizeLastBox, undo);
    FileIO::pwriteAll(target->get(), edit.tail, length, "Couldn't write the photo");
    overwrite(*target, edit.freeMeta, undo);
    target->close();  // a late write error shows here
    return Outcome::written;
  } catch (const std::exception&) {
    undoEdit(file, length, undo);
    return Outcome::refused;
  }
}

}  // namespace quillmere::HeifMetadataRewriter
