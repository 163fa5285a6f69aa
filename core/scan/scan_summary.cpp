#include "core/scan/scan_summary.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace quillmere {

const std::array<ScanSummary::Field, 23> ScanSummary::fields = {{
    {"sourceFiles", &ScanSummary::sourceFiles},
    {"zipParts", &ScanSummary::zipParts},
    {"mediaFiles", &ScanSummary::mediaFiles},
    {"photos", &ScanSummary::photos},
    {"videos", &ScanSummary::videos},
    {"items", &ScanSummary::items},
    {"duplicateCopies", &ScanSummary::duplicateCopies},
    {"withSidecar", &ScanSummary::withSidecar},
    {"withoutSidecar", &ScanSummary::withoutSidecar},
    {"photosMissingDate", &ScanSummary::photosMissingDate},
    {"datesRecoverable", &ScanSummary::datesRecoverable},
    {"photosMissingLocation", &ScanSummary::photosMissingLocation},
    {"locationsRecoverable", &ScanSummary::locationsRecoverable},
    {"captionsInTakeout", &ScanSummary::captionsInTakeout},
    {"albums", &ScanSummary::albums},
    {"orphanSidecars", &ScanSummary::orphanSidecars},
    {"unreadableJSON", &ScanSummary::unreadableJSON},
    {"overlays", &ScanSummary::overlays},
    {"historyEntries", &ScanSummary::historyEntries},
    {"matchedExact", &ScanSummary::matchedExact},
    {"matchedByDate", &ScanSummary::matchedByDate},
    {"matchedByOrder", &ScanSummary::matchedByOrder},
    {"dayOnly", &ScanSummary::dayOnly},
}};

std::optional<ScanSummary> ScanSummary::fromJSON(const nlohmann::json& json) {
  if (!json.is_object()) return std::nullopt;
  ScanSummary summary;
  for (const auto& [name, member] : fields) {
    const auto found = json.find(name);
    if (found == json.end()) return std::nullopt;
    if (found->is_number_unsigned()) {
      const auto value = found->get<std::uint64_t>();
      if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return std::nullopt;
      }
      summary.*member = static_cast<std::int64_t>(value);
    } else if (found->is_number_integer()) {
      summary.*member = found->get<std::int64_t>();
    } else {
      return std::nullopt;
    }
  }
  return summary;
}

void to_json(nlohmann::json& json, const ScanSummary& summary) {
  json = nlohmann::json::object();
  for (const auto& [name, member] : ScanSummary::fields) json[name] = summary.*member;
}

void from_json(const nlohmann::json& json, ScanSummary& summary) {
  const auto decoded = ScanSummary::fromJSON(json);
  if (!decoded) throw nlohmann::json::type_error::create(302, "not a scan summary", &json);
  summary = *decoded;
}

}  // namespace quillmere
