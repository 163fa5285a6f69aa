#ifndef QUILLMERE_CORE_SCAN_EXPORT_KIND_H_
#define QUILLMERE_CORE_SCAN_EXPORT_KIND_H_

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>

#include "core/sources/raw_value.h"

namespace quillmere {

// Which service an export comes from. Raw values: "Google Takeout", "Snapchat".
enum class ExportKind { googleTakeout, snapchat };

std::string_view rawValue(ExportKind kind);
template <>
std::optional<ExportKind> fromRawValue<ExportKind>(std::string_view raw);

// JSON form: the raw value as a string; from_json throws nlohmann::json::type_error otherwise.
void to_json(nlohmann::json& json, ExportKind kind);
void from_json(const nlohmann::json& json, ExportKind& kind);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_EXPORT_KIND_H_
