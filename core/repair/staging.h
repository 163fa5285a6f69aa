#ifndef QUILLMERE_CORE_REPAIR_STAGING_H_
#define QUILLMERE_CORE_REPAIR_STAGING_H_

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "core/metadata/metadata_patch.h"
#include "core/metadata/metadata_writer.h"
#include "core/repair/file_plan.h"
#include "core/scan/media_file.h"
#include "core/sources/byte_view.h"

namespace quillmere::RepairEngine {

// One file of the item in hand, copied into the work folder and planned.
struct Staged {
  MediaFilePtr file;
  std::filesystem::path temp;  // the working copy to write out (the composite after a merge)
  // A small photo's whole content, kept in memory instead of at `temp`: written once, straight
  // to its copy (see MetadataWriter::writesFromMemory).
  std::optional<Bytes> content;
  // Its copy's bytes, rewritten while staging (MetadataWriter::prepare); set with `content`.
  std::optional<MetadataWriter::PreparedPhoto> prepared;
  std::string name;  // the wanted output name, before collisions
  FilePlan plan;
  std::optional<std::filesystem::path> overlayTemp;  // working copy of a Snapchat overlay
  std::optional<std::filesystem::path> original;     // the photo without its merged overlay
  std::optional<std::string> overlayNote;            // the compositor's note
  bool operator==(const Staged&) const = default;
};

// Copies (or extracts) `file` and its overlay into `work` as "<id>.<ext>" and
// "<id>-overlay.<ext>" (a small photo without overlay into memory instead), merges a photo's
// overlay into "<id>-composite.jpg", reads what the working copy carries (falling back to what the
// scan read) and plans it; a photo in memory is also rewritten, ready to be written. Throws the
// copy's, extraction's or compositor's error, leaving none of the file's working copies behind.
Staged stage(const MediaFilePtr& file, const std::filesystem::path& work,
             const OffsetIndex& offsets, const RepairOptions& options);

// Writes `staged` to `destination` with its plan's patch (MetadataWriter::writeInPlace on the
// working copy, which a HEIF photo thus gets in place, or the prepared bytes of a photo in
// memory), through a folder inside `work` private to the calling thread: the copy
// (and its ".xmp" sidecar, if the writer made one) is renamed to `destination` only when
// complete, so a killed run leaves nothing half-written among the output. Throws the writer's
// or the file system's error.
WriteMethod writeCopy(const Staged& staged, const std::filesystem::path& destination,
                      const std::filesystem::path& work);

// Puts the outcome of `readBack` into `row`: its problem (which fails the row), then its note.
// A read-back that throws fails the row with the exception's message in the problem's place.
void recordCheck(RepairRow& row, const std::function<MetadataWriter::Verification()>& readBack);

// Reads the written copy back, checks it holds the patch's date and position, and records the
// outcome in `row` (recordCheck). Never throws.
void checkCopy(const std::filesystem::path& written, MediaKind kind, const MetadataPatch& patch,
               RepairRow& row);

// What a Snapchat file leaves besides its copy: a merged photo's original, written with the
// same metadata into "Extras/Without overlays/<sub>", or a video's overlay, moved into
// "Extras/Video overlays/<sub>", where <sub> is `folder` without its "Photos/". Amends `row`.
// Writes through `work` like writeThroughWork. Throws the file system's (or the writer's) error.
void keepExtras(const Staged& staged, const std::string& finalName, const std::string& folder,
                const std::filesystem::path& runFolder, RepairRow& row,
                const std::filesystem::path& work);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_STAGING_H_
