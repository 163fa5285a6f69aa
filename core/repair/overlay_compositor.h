#ifndef QUILLMERE_CORE_REPAIR_OVERLAY_COMPOSITOR_H_
#define QUILLMERE_CORE_REPAIR_OVERLAY_COMPOSITOR_H_

#include <filesystem>
#include <optional>
#include <string>

namespace quillmere {

// Merges a Snapchat caption/sticker overlay onto its photo.
namespace OverlayCompositor {

// Draws `overlay` over the upright photo `main` and saves the result as a new JPEG at `to`
// (no metadata carried over). Returns the note for the file's report row when the overlay had
// to be fitted, else nullopt. Throws QuillmereError::cannotComposite(main's file name) on any
// failure, leaving nothing at `to`. Safe to call from several threads.
std::optional<std::string> composite(const std::filesystem::path& main,
                                     const std::filesystem::path& overlay,
                                     const std::filesystem::path& to);

}  // namespace OverlayCompositor

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_OVERLAY_COMPOSITOR_H_
