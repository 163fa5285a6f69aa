#ifndef QUILLMERE_CORE_METADATA_METADATA_WRITER_H_
#define QUILLMERE_CORE_METADATA_METADATA_WRITER_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/dates/geo_point.h"
#include "core/metadata/embedded_metadata.h"
#include "core/metadata/metadata_patch.h"
#include "core/metadata/write_method.h"
#include "core/sources/byte_view.h"
#include "core/sources/media_kind.h"

namespace quillmere {

// Writes a patch into the final copy of one file: inside the file where a lossless rewrite is
// possible, else as an unchanged copy plus an XMP sidecar. Stateless; one file at a time per
// thread.
namespace MetadataWriter {

// What a patch puts into a photo or its sidecar, in the notations the files use. Both the
// in-file writer and the sidecar writer take their values from here.
struct PhotoTags {
  // Only when the patch has both an instant and an offset: a date without a known offset is
  // never embedded (it reaches the copy through its file times alone).
  std::optional<std::string> localDate;  // "2021:03:04 10:05:00": DateTimeOriginal, Digitized
  std::optional<std::string> offset;     // "+02:00": OffsetTimeOriginal, OffsetTimeDigitized
  std::optional<std::string> xmpDate;    // "2021-03-04T10:05:00+02:00": photoshop:DateCreated
  // Written with references N/S and E/W; the altitude only when the patch's is present and not
  // exactly 0 (a file's existing altitude is then left as it is).
  std::optional<GeoPoint> location;
  std::optional<std::string> caption;  // TIFF ImageDescription and IPTC Caption-Abstract
  // The whole keyword list (the file's own first, then each added one not already there,
  // compared exactly); absent when nothing is added, and the file's keywords stay untouched.
  std::optional<std::vector<std::string>> keywords;

  bool isEmpty() const { return !localDate && !location && !caption && !keywords; }
  bool operator==(const PhotoTags&) const = default;
};

// The tags `patch` writes into a photo whose own keywords are `existingKeywords`.
PhotoTags buildMetadata(const MetadataPatch& patch,
                        const std::vector<std::string>& existingKeywords);

// Produces `destination` from the working file `source`, which is consumed (moved or deleted).
// An empty patch moves the file and returns unchanged. Otherwise photos are rewritten where the
// format allows a lossless rewrite (JPEG, PNG, TIFF, WebP, DNG, and HEIC, HEIF and AVIF by their
// 'ftyp' brands: the metadata blocks or items are replaced, the image data copied byte for byte),
// movies through writeVideo; anything else (CR3, JXL, GIF, BMP, camera raws other than DNG), or
// any refusal or failure of the rewrite,
// falls back to moving the file unchanged and writing "<destination>.xmp". A rewrite goes to a
// temporary file beside `destination` that is renamed into place only when complete, so
// `destination` is never half-written and `source` stays untouched until the copy exists.
// When the patch has a date, the copy's access and modification times are set to it. Linux
// offers no way to set a file's creation (birth) time, so that one is left as it falls.
// `destination` must not exist, except as the leftover of a failed attempt.
// Throws std::filesystem::filesystem_error (or std::system_error) when the file system fails:
// a move, a delete, the sidecar's exclusive create, setting the file times.
WriteMethod write(const MetadataPatch& patch, MediaKind kind, const std::filesystem::path& source,
                  const std::filesystem::path& destination,
                  const std::vector<std::string>& existingKeywords);

// Like write, for a working `file` that this process alone reads and writes: a HEIC, HEIF or
// AVIF photo gets its metadata items inside `file` itself (only the new items and a box header
// are written; the image data stays where it lies), and `file` is then renamed to
// `destination`, which appears complete or not at all. When the in-place write is refused,
// `file` is as it was and write takes over (the copying rewrite, else the sidecar); any other
// file goes through write too. Throws like write, and std::system_error when a failed in-place
// write could not be undone (`file` is then left as it is, and nothing is at `destination`).
WriteMethod writeInPlace(const MetadataPatch& patch, MediaKind kind,
                         const std::filesystem::path& file,
                         const std::filesystem::path& destination,
                         const std::vector<std::string>& existingKeywords);

// True when a photo of `kind` with this `content` can be written from memory (prepare, then
// writePrepared): every photo but HEIC, HEIF and AVIF, which are rewritten from a file.
bool writesFromMemory(MediaKind kind, std::span<const std::uint8_t> content);

// A photo whose whole content is in memory is written in two steps, so that the rewrite can be
// done away from where the copy is filed: `prepare` does everything but writing, and
// `writePrepared` writes the copy once, from the photo as it is or from its rewritten bytes,
// consuming no working file. Together they take the same way as write through an unchanged
// copy, the in-file rewrite and the XMP fallback, with the same outcome for the same bytes.
struct PreparedPhoto {
  bool unchanged = false;          // the patch is empty: the copy is the photo as it is
  std::optional<Bytes> rewritten;  // the photo with the tags inside
  bool embedded = false;           // the tags are inside: in `rewritten`, or none were needed
  bool operator==(const PreparedPhoto&) const = default;
};

// Rewrites `photo` for a copy named like `fileName` (only its extension counts) in memory.
// Never throws (Exiv2 failing is `embedded` false).
PreparedPhoto prepare(const MetadataPatch& patch, std::span<const std::uint8_t> photo,
                      std::string_view fileName, const std::vector<std::string>& existingKeywords);

// Writes the copy of `photo` that `prepared` describes to `destination`, with the XMP fallback
// when the tags did not go inside or their copy could not be written. Only for what
// writesFromMemory accepts. Throws like write.
WriteMethod writePrepared(const PreparedPhoto& prepared, const MetadataPatch& patch,
                          std::span<const std::uint8_t> photo,
                          const std::filesystem::path& destination,
                          const std::vector<std::string>& existingKeywords);

// Copies the movie `source` to `destination` (mov, qt, mp4, m4v by extension) with the patch's
// QuickTime metadata items, every other byte of the movie kept, then stamps the movie header's
// creation time. False, with nothing left at `destination`, for any other container or
// anything the rewriter refuses. Never throws.
bool writeVideo(const MetadataPatch& patch, const std::filesystem::path& source,
                const std::filesystem::path& destination);

// Writes the patch as XMP to "<file's full name>.xmp", created exclusively and atomically.
// Throws std::filesystem::filesystem_error when the file system refuses (an existing sidecar
// fails with "File exists").
void writeXMPSidecar(const MetadataPatch& patch, const std::filesystem::path& file,
                     const std::vector<std::string>& existingKeywords);

// The outcome of reading a written copy back: a problem makes the row failed; a note is added
// to the row.
struct Verification {
  std::optional<std::string> problem;
  std::optional<std::string> note;
  bool operator==(const Verification&) const = default;
};

// Compares what the copy carries when read back (nullopt: it could not be read) with `patch`:
// - nothing read: problem "Couldn't re-read the written file";
// - a patch instant, read back as a wall clock without offset while the patch has one: its
//   first 19 characters must be the patch's local time (else problem "Date didn't verify after
//   writing"); when they are, the note "This file type can't store a time zone; the local time
//   is correct";
// - any other date must resolve (DatePlanner::resolveEmbedded, no export instant) to within
//   2 s of the patch's, else problem "Date didn't verify after writing", which ends the check;
// - a patch position must be read back less than 50 m away, else problem "Location didn't
//   verify after writing" (a note from the date stays).
Verification verify(const MetadataPatch& patch, const std::optional<EmbeddedMetadata>& reread);

}  // namespace MetadataWriter

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_METADATA_WRITER_H_
