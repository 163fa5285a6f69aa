#ifndef QUILLMERE_CORE_METADATA_METADATA_WRITER_H_
#define QUILLMERE_CORE_METADATA_METADATA_WRITER_H_

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/metadata/embedded_metadata.h"
#include "core/metadata/metadata_patch.h"
#include "core/metadata/write_method.h"
#include "core/scan/media_kind.h"

namespace quillmere {

// Writes a patch into the final copy of one file: inside the file where a lossless rewrite is
// possible, else as an unchanged copy plus an XMP sidecar. Stateless; one file at a time per
// thread.
namespace MetadataWriter {

// Produces `destination` from the working file `source`, which is consumed (moved or deleted).
// An empty patch moves the file and returns unchanged. Otherwise photos are rewritten in place
// where the format allows it, movies through writeVideo; anything else, or any refusal, falls
// back to moving the file and writing "<destination>.xmp". When the patch has a date, the
// copy's access and modification times are set to it (Linux keeps no settable creation time).
// `destination` must not exist, except as the leftover of a failed attempt.
// Throws std::filesystem::filesystem_error (or std::system_error) when the file system fails:
// a move, a delete, the sidecar's exclusive create, setting the file times.
WriteMethod write(const MetadataPatch& patch, MediaKind kind, const std::filesystem::path& source,
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

// Compares what the copy carries when read back (nullopt: it could not be read) with `patch`.
Verification verify(const MetadataPatch& patch, const std::optional<EmbeddedMetadata>& reread);

}  // namespace MetadataWriter

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_METADATA_WRITER_H_
