#ifndef QUILLMERE_CORE_SOURCES_MEDIA_KIND_H_
#define QUILLMERE_CORE_SOURCES_MEDIA_KIND_H_

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "core/sources/raw_value.h"

namespace quillmere {

// What a file is, decided from its name alone. Raw values: "photo", "video", "other".
enum class MediaKind { photo, video, other };

using ExtensionSet = std::set<std::string, std::less<>>;

// Lower-case extensions (no dot) of photo files: the 29 still-image and raw formats.
const ExtensionSet& photoExtensions();
// Lower-case extensions (no dot) of video files: 14 movie formats. Google's motion-photo movie
// extension "mp" is not among them; mediaKindOf tests it on its own, and so must anything else
// that asks "is this a video name".
const ExtensionSet& videoExtensions();

// The kind of a file by the extension of `fileName` (text after the last "." of its last path
// component), compared without regard to case: photo, video (including "mp"), else other. A name
// without an extension is other.
MediaKind mediaKindOf(std::string_view fileName);

std::string_view rawValue(MediaKind kind);
template <>
std::optional<MediaKind> fromRawValue<MediaKind>(std::string_view raw);

// JSON form: the raw value as a string. from_json throws nlohmann::json::type_error for anything
// else, like every other nlohmann conversion.
void to_json(nlohmann::json& json, MediaKind kind);
void from_json(const nlohmann::json& json, MediaKind& kind);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_MEDIA_KIND_H_
