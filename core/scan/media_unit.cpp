#include "core/scan/media_unit.h"

#include <nlohmann/json.hpp>

namespace quillmere {

std::string_view rawValue(MediaUnit::Kind kind) {
  switch (kind) {
    case MediaUnit::Kind::single:
      return "single";
    case MediaUnit::Kind::livePhoto:
      return "livePhoto";
    case MediaUnit::Kind::motionPhoto:
      return "motionPhoto";
    case MediaUnit::Kind::editedWithOriginal:
      return "editedWithOriginal";
  }
  return "single";
}

template <>
std::optional<MediaUnit::Kind> fromRawValue<MediaUnit::Kind>(std::string_view raw) {
  return findRawValue({MediaUnit::Kind::single, MediaUnit::Kind::livePhoto,
                       MediaUnit::Kind::motionPhoto, MediaUnit::Kind::editedWithOriginal},
                      raw);
}

void to_json(nlohmann::json& json, MediaUnit::Kind kind) { json = rawValue(kind); }

void from_json(const nlohmann::json& json, MediaUnit::Kind& kind) {
  readRawValue(json, kind, "not a media unit kind");
}

}  // namespace quillmere
