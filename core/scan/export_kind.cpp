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
  return findRawValue({ExportKind::googleTakeout, ExportKind::snapchat}, raw);
}

void to_json(nlohmann::json& json, ExportKind kind) { json = rawValue(kind); }

void from_json(const nlohmann::json& json, ExportKind& kind) {
  readRawValue(json, kind, "not an export kind");
}

}  // namespace quillmere
