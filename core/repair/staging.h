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

// Reads the written copy back and checks it holds the patch's date and position.
MetadataWriter::Verification verify(const std::filesystem::path& written, MediaKind kind,
                                    const MetadataPatch& patch);

// What a Snapchat file leaves besides its copy: a merged photo's original, written with the
// same metadata into "Extras/Without overlays/<sub>", or a video's overlay, moved into
// "Extras/Video overlays/<sub>", where <sub> is `folder` without its "Photos/". Amends `row`.
// Throws the file system's (or the writer's) error.
void keepExtras(const Staged& staged, const std::string& finalName, const std::string& folder,
                const std::filesystem::path& runFolder, RepairRow& row);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_STAGING_H_
