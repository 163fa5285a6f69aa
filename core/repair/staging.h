#ifndef QUILLMERE_CORE_REPAIR_STAGING_H_
#define QUILLMERE_CORE_REPAIR_STAGING_H_

#include <filesystem>
#include <optional>
#include <string>

#include "core/metadata/metadata_patch.h"
#include "core/metadata/metadata_writer.h"
#include "core/repair/file_plan.h"
#include "core/scan/media_file.h"

namespace quillmere::RepairEngine {

// One file of the item in hand, copied into the work folder and planned.
struct Staged {
  MediaFilePtr file;
  std::filesystem::path temp;  // the working copy to write out (the composite after a merge)
  std::string name;            // the wanted output name, before collisions
  FilePlan plan;
  std::optional<std::filesystem::path> overlayTemp;  // working copy of a Snapchat overlay
  std::optional<std::filesystem::path> original;     // the photo without its merged overlay
  std::optional<std::string> overlayNote;            // the compositor's note
  bool operator==(const Staged&) const = default;
};

// Copies (or extracts) `file` and its overlay into `work` as "<id>.<ext>" and
// "<id>-overlay.<ext>", merges a photo's overlay into "<id>-composite.jpg", reads what the
// working copy carries (falling back to what the scan read) and plans it. Throws the copy's,
// extraction's or compositor's error, leaving none of the file's working copies behind.
Staged stage(const MediaFilePtr& file, const std::filesystem::path& work,
             const OffsetIndex& offsets, const RepairOptions& options);

// MetadataWriter::write into a private folder inside `work`, then the copy (and its ".xmp"
// sidecar, if the writer made one) renamed to `destination`: whatever the writer leaves while
// it works stays inside the work folder, so a killed run leaves nothing half-written among the
// output. Throws the writer's or the file system's error.
WriteMethod writeThroughWork(const MetadataPatch& patch, MediaKind kind,
                             const std::filesystem::path& source,
                             const std::filesystem::path& destination,
                             const std::vector<std::string>& existingKeywords,
                             const std::filesystem::path& work);

// Reads the written copy back and checks it holds the patch's date and position.
MetadataWriter::Verification verify(const std::filesystem::path& written, MediaKind kind,
                                    const MetadataPatch& patch);

// What a Snapchat file leaves besides its copy: a merged photo's original, written with the
// same metadata into "Extras/Without overlays/<sub>", or a video's overlay, moved into
// "Extras/Video overlays/<sub>", where <sub> is `folder` without its "Photos/". Amends `row`.
// Writes through `work` like writeThroughWork. Throws the file system's (or the writer's) error.
void keepExtras(const Staged& staged, const std::string& finalName, const std::string& folder,
                const std::filesystem::path& runFolder, RepairRow& row,
                const std::filesystem::path& work);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_STAGING_H_
