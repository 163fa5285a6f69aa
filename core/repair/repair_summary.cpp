#include "core/repair/repair_summary.h"

#include <array>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace quillmere {

namespace {

using Field = std::pair<std::string_view, std::int64_t RepairSummary::*>;

// Every counter with its JSON key, in declaration order.
constexpr std::array<Field, 14> kFields = {{
    {"items", &RepairSummary::items},
    {"files", &RepairSummary::files},
    {"fixed", &RepairSummary::fixed},
    {"unchanged", &RepairSummary::unchanged},
    {"couldntFix", &RepairSummary::couldntFix},
    {"failed", &RepairSummary::failed},
    {"datesWritten", &RepairSummary::datesWritten},
    {"zonesFromLocation", &RepairSummary::zonesFromLocation},
    {"zonesInferred", &RepairSummary::zonesInferred},
    {"zonesGuessed", &RepairSummary::zonesGuessed},
    {"locationsWritten", &RepairSummary::locationsWritten},
    {"captionsWritten", &RepairSummary::captionsWritten},
    {"overlaysMerged", &RepairSummary::overlaysMerged},
    {"xmpFallbacks", &RepairSummary::xmpFallbacks},
}};

// The label of WriteMethod::xmpSidecar. Spelled out here because the count must match exactly
// what rows carry, letter case included.
constexpr std::string_view kXMPFallbackLabel = "XMP sidecar + file dates";

template <typename Json>
void summaryToJSON(Json& json, const RepairSummary& summary) {
  json = Json::object();
  for (const auto& [name, member] : kFields) json[std::string(name)] = summary.*member;
}

template <typename Json>
void summaryFromJSON(const Json& json, RepairSummary& summary) {
  if (!json.is_object()) throw Json::type_error::create(302, "not a repair summary", &json);
  RepairSummary decoded;
  for (const auto& [name, member] : kFields) {
    const Json& value = json.at(std::string(name));
    if (value.is_number_unsigned()) {
      const auto unsignedValue = value.template get<std::uint64_t>();
      if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        throw Json::type_error::create(302, "counter too large", &value);
      }
      decoded.*member = static_cast<std::int64_t>(unsignedValue);
    } else if (value.is_number_integer()) {
      decoded.*member = value.template get<std::int64_t>();
    } else {
      throw Json::type_error::create(302, "counter is not an integer", &value);
    }
  }
  summary = decoded;
}

// Date and zone counters describe decisions, so a failed row still counts what was decided
// for it; rows that wrote no date (unchanged, couldn't fix) never do.
void countDecision(const RepairRow& row, RepairSummary& summary) {
  if (row.status != RepairRow::Status::fixed && row.status != RepairRow::Status::failed) return;
  if (row.dateSource == DateSource::takeout || row.dateSource == DateSource::takeoutOverride) {
    ++summary.datesWritten;
  }
  if (row.dateSource == DateSource::file) return;
  switch (row.timeZoneSource) {
    case OffsetSource::location:
      ++summary.zonesFromLocation;
      break;
    case OffsetSource::neighbor:
      ++summary.zonesInferred;
      break;
    case OffsetSource::guessed:
      ++summary.zonesGuessed;
      break;
    case OffsetSource::file:
    case OffsetSource::derived:
    case OffsetSource::unknown:
      break;
  }
}

}  // namespace

void to_json(nlohmann::json& json, const RepairSummary& summary) { summaryToJSON(json, summary); }
void from_json(const nlohmann::json& json, RepairSummary& summary) {
  summaryFromJSON(json, summary);
}
void to_json(nlohmann::ordered_json& json, const RepairSummary& summary) {
  summaryToJSON(json, summary);
}
void from_json(const nlohmann::ordered_json& json, RepairSummary& summary) {
  summaryFromJSON(json, summary);
}

void RepairEngine::tally(RepairSummary& summary, const RepairRow& row) {
  ++summary.files;
  switch (row.status) {
    case RepairRow::Status::fixed:
      ++summary.fixed;
      break;
    case RepairRow::Status::unchanged:
      ++summary.unchanged;
      break;
    case RepairRow::Status::couldntFix:
      ++summary.couldntFix;
      break;
    case RepairRow::Status::failed:
      ++summary.failed;
      break;
  }
  countDecision(row, summary);
  if (row.locationWritten) ++summary.locationsWritten;
  if (row.captionWritten) ++summary.captionsWritten;
  if (row.overlayMerged) ++summary.overlaysMerged;
  if (row.method == kXMPFallbackLabel) ++summary.xmpFallbacks;
}

RepairSummary RepairEngine::summarize(const std::vector<RepairRow>& rows, std::int64_t items) {
  RepairSummary summary;
  summary.items = items;
  for (const RepairRow& row : rows) tally(summary, row);
  return summary;
}

}  // namespace quillmere
