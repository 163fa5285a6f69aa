#ifndef QUILLMERE_CORE_METADATA_EMBEDDED_METADATA_READER_H_
#define QUILLMERE_CORE_METADATA_EMBEDDED_METADATA_READER_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>

#include "core/metadata/embedded_metadata.h"
#include "core/metadata/image_properties.h"
#include "core/metadata/movie_properties.h"
#include "core/sources/media_kind.h"

namespace quillmere {

// Reads what a photo or movie already carries: capture date, position, caption, keywords and
// pixel size. Nothing here throws, logs or fails loudly: anything unreadable is simply absent,
// and a whole result is absent only when the file cannot be opened as an image or movie at all.
// Stateless; safe to call from several threads at once.
namespace EmbeddedMetadataReader {

// The file at `file` read as `kind` says: a photo with readPhoto, a video with readVideo; other
// files are absent.
std::optional<EmbeddedMetadata> read(const std::filesystem::path& file, MediaKind kind);

// The photo at `file`; its type is told by its content, never by its extension.
std::optional<EmbeddedMetadata> readPhoto(const std::filesystem::path& file);

// A photo from its bytes, which may be only the beginning of the file (the scanners pass the
// first mebibyte of a zip entry): metadata lying inside `prefix` is read.
std::optional<EmbeddedMetadata> readImage(std::span<const std::uint8_t> prefix);

// The movie at `file`, read from its container header without decoding any frame.
std::optional<EmbeddedMetadata> readVideo(const std::filesystem::path& file);

// The photo rules, applied to properties already read:
// - captureDate: EXIF DateTimeOriginal only, when it has the EXIF date shape and does not start
//   with "0000"; kept as `local` text with the offset of OffsetTimeOriginal, else `xmpOffset`;
// - location: GPS latitude and longitude (numbers) with their references ("S" and "W" negate,
//   exactly so), altitude negated when its reference is the number 1; (0, 0) counts as none;
// - caption: the TIFF description if it is text, else the IPTC caption; trimmed of white space
//   and line breaks, none when blank (a blank description does not fall through to IPTC);
// - keywords: the IPTC keywords if they are a list of texts, as found.
EmbeddedMetadata fromImageSource(const ImageProperties& source);

// The offset an XMP photoshop:DateCreated lends to the EXIF date `exifDate`: only when that
// text has something after its seconds and its first 19 characters (with "-" read as ":" and
// "T" as a space) are exactly those of `exifDate`; the offset is what ISODate::parse reads from
// it, possibly none. An XMP date naming another moment never lends its offset.
std::optional<int> xmpOffset(std::string_view exifDate, const ImageProperties& source);

// The movie rules, applied to properties already read. Items are visited in order: the first
// date item that parses as an ISO 8601 date wins (com.apple.quicktime.creationdate, then the
// user-data date), as does the first place item that parses as ISO 6709; a non-empty
// description replaces any earlier one, so the last wins. Without a date item, the movie
// header's creation time counts if it lies more than 366 days after the epoch. No (0, 0) rule
// and no keywords for movies.
EmbeddedMetadata fromMovie(const MovieProperties& movie);

}  // namespace EmbeddedMetadataReader
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_EMBEDDED_METADATA_READER_H_
