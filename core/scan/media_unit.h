#ifndef QUILLMERE_CORE_SCAN_MEDIA_UNIT_H_
#define QUILLMERE_CORE_SCAN_MEDIA_UNIT_H_

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "core/sources/raw_value.h"

namespace quillmere {

class MediaFile;

// One item as the user thinks of it: a single photo, a Live Photo, a motion photo, or an edited
// photo with its original.
struct MediaUnit {
  // Raw values (used in report rows): "single", "livePhoto", "motionPhoto",
  // "editedWithOriginal".
  enum class Kind {
    single,              // one file
    livePhoto,           // a still and its short movie
    motionPhoto,         // a Google motion photo ("MVIMG"/"PXL") split into still and movie
    editedWithOriginal,  // files of one base name without both a still and a movie
  };

  int id = 0;  // position in the result's unit list
  Kind kind = Kind::single;
  std::vector<std::shared_ptr<MediaFile>> files;  // at least one, in export order

  bool operator==(const MediaUnit&) const = default;  // files compare by identity
};

std::string_view rawValue(MediaUnit::Kind kind);
template <>
std::optional<MediaUnit::Kind> fromRawValue<MediaUnit::Kind>(std::string_view raw);

// JSON form: the raw value as a string; from_json throws nlohmann::json::type_error otherwise.
void to_json(nlohmann::json& json, MediaUnit::Kind kind);
void from_json(const nlohmann::json& json, MediaUnit::Kind& kind);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_MEDIA_UNIT_H_
