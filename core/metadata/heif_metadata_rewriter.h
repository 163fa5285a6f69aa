#ifndef QUILLMERE_CORE_METADATA_HEIF_METADATA_REWRITER_H_
#define QUILLMERE_CORE_METADATA_HEIF_METADATA_REWRITER_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "core/metadata/random_access_bytes.h"

namespace quillmere {

// Lossless rewriting of the Exif and XMP items of HEIF, HEIC and AVIF still-image files. Coded
// images, grids, thumbnails, auxiliary images and their properties keep their bytes; only the
// item infos, locations and references change, and new item data goes into an 'mdat' box right
// after the 'meta' box (or, when moving the rest of the file would break offsets this code does
// not know, both go to the end and the old 'meta' becomes 'free' space). Anything not fully
// understood is refused: unknown box versions, data in other files, protected items, items
// pointing outside the file. Rewriting a result again with the same bytes gives the same file.
namespace HeifMetadataRewriter {

// True when the file starts with an 'ftyp' box naming a HEIF or AVIF still-image brand (heic,
// heix, heim, heis, hevc, hevx, mif1, mif2, msf1, avif, avis), whatever its extension.
bool isHeif(const std::filesystem::path& file);

// The contents of the primary image's metadata items: the Exif item's TIFF bytes (after its
// 4-byte header-offset prefix) and the XMP packet. The items are those `rewrite` replaces: the
// first Exif (or "application/rdf+xml") item describing the primary image, else the first one
// describing nothing.
struct Items {
  std::optional<Bytes> exifTiff;
  std::optional<std::string> xmp;

  bool operator==(const Items&) const = default;
};

// Absent when the file can't be read or its 'meta' box is one `rewrite` refuses.
std::optional<Items> readItems(const std::filesystem::path& file);
std::optional<Items> readItems(const RandomAccessBytes& source);

// The items to write given those the file has (a member left absent keeps that item), or absent
// to refuse the file.
using Merge = std::function<std::optional<Items>(const Items&)>;

enum class Outcome {
  written,         // the new file is at `destination`
  nothingToWrite,  // `merge` changed no item; nothing was written
  refused,         // the file, `merge` or the file system refused; nothing was written
};

// Writes a new file at `destination` holding `source` with the items `merge` makes from the
// file's own (read in the same pass: the file is opened and its 'meta' box parsed once). The Exif
// item holds TIFF bytes from the byte-order mark on, stored after "Exif\0\0"; an item that isn't
// there is added and linked to the primary image ('cdsc'). Neither item may be empty or larger
// than 16 MiB. Only the 'meta' box and the new item data are written by this process; the rest
// of the file is copied by the kernel where the file system allows it. The file is written under
// a temporary name in `destination`'s folder and renamed into place, replacing whatever is there;
// on any other outcome than `written` nothing is left behind. `source` is never changed (a
// `destination` naming the same file is refused). Never throws; `merge` must not either.
Outcome rewrite(const std::filesystem::path& source, const std::filesystem::path& destination,
                const Merge& merge);

// The same rewrite made inside `file` itself, for a file this process alone reads and writes (a
// working copy): the new 'meta' box and item data are appended, the file's last box is given
// its size if it had none ("to the end of the file"), and the old 'meta' box becomes free space
// by its header. Only those bytes are written; no image data moves. A reader of the result
// finds one 'meta' box: the old one is retired last. Refuses what `rewrite` refuses, and also a
// file whose old 'meta' region passes 4 GiB. On `refused` the file holds exactly its old bytes:
// a failed write is undone (length and headers put back). Throws std::system_error only when
// even that fails, the file then being left damaged; `merge` must not throw.
Outcome rewriteInPlace(const std::filesystem::path& file, const Merge& merge);

// The same rewrite in memory: the new file's bytes, or absent when refused.
std::optional<Bytes> rewriteBytes(std::span<const std::uint8_t> source,
                                  const std::optional<Bytes>& exifTiff,
                                  const std::optional<std::string>& xmpPacket);

}  // namespace HeifMetadataRewriter
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_HEIF_METADATA_REWRITER_H_
