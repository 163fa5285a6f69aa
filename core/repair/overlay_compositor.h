#ifndef QUILLMERE_CORE_REPAIR_OVERLAY_COMPOSITOR_H_
#define QUILLMERE_CORE_REPAIR_OVERLAY_COMPOSITOR_H_

#include <filesystem>
#include <optional>
#include <string>

namespace quillmere {

// Merges a Snapchat caption/sticker overlay onto its photo.
namespace OverlayCompositor {

// Draws `overlay` (its first image, as stored) over the photo `main` turned upright by its
// orientation, and saves the result as a new JPEG at `to` at quality 92, in sRGB, with no
// metadata. An overlay within 2 % of the upright photo's shape is stretched over all of it;
// any other is fitted inside it and centred, and the note "Overlay was a different shape from
// the photo; it was fitted and centered" is returned for the file's report row (else nullopt).
// Throws QuillmereError::cannotComposite(main's file name) on any failure (unreadable,
// truncated or not an image, more than 100 megapixels, or `to` not writable), leaving nothing
// at `to`. Safe to call from several threads.
std::optional<std::string> composite(const std::filesystem::path& main,
                                     const std::filesystem::path& overlay,
                                     const std::filesystem::path& to);

}  // namespace OverlayCompositor

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_OVERLAY_COMPOSITOR_H_
