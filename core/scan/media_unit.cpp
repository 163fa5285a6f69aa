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
  for (const MediaUnit::Kind kind :
       {MediaUnit::Kind::single, MediaUnit::Kind::livePhoto, MediaUnit::Kind::motionPhoto,
        MediaUnit::Kind::editedWithOriginal}) {
    if (rawValue(kind) == raw) return kind;
  }
  return std::nullopt;
}

void to_json(nlohmann::json& json, MediaUnit::Kind kind) { json = rawValue(kind); }

void from_json(const nlohmann::json& json, MediaUnit::Kind& kind) {
  const auto* text = json.get_ptr<const std::string*>();
  const auto decoded = text ? fromRawValue<MediaUnit::Kind>(*text) : std::nullopt;
  if (!decoded) throw nlohmann::json::type_error::create(302, "not a media unit kind", &json);
  kind = *decoded;
}

}  // namespace quillmere
