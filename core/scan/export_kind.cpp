#include "core/scan/export_kind.h"

#include <nlohmann/json.hpp>

namespace quillmere {

std::string_view rawValue(ExportKind kind) {
  switch (kind) {
    case ExportKind::googleTakeout:
      return "Google Takeout";
    case ExportKind::snapchat:
      return "Snapchat";
  }
  return "Google Takeout";
}

template <>
std::optional<ExportKind> fromRawValue<ExportKind>(std::string_view raw) {
  for (const ExportKind kind : {ExportKind::googleTakeout, ExportKind::snapchat}) {
    if (rawValue(kind) == raw) return kind;
  }
  return std::nullopt;
}

void to_json(nlohmann::json& json, ExportKind kind) { json = rawValue(kind); }

void from_json(const nlohmann::json& json, ExportKind& kind) {
  const auto* text = json.get_ptr<const std::string*>();
  const auto decoded = text ? fromRawValue<ExportKind>(*text) : std::nullopt;
  if (!decoded) throw nlohmann::json::type_error::create(302, "not an export kind", &json);
  kind = *decoded;
}

}  // namespace quillmere
