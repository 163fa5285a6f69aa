#ifndef QUILLMERE_CORE_REPAIR_REPAIR_SUMMARY_H_
#define QUILLMERE_CORE_REPAIR_REPAIR_SUMMARY_H_

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "core/repair/repair_row.h"

namespace quillmere {

// The totals of a repair run. Every counter a signed 64-bit integer, zero by default.
struct RepairSummary {
  std::int64_t items = 0;
  std::int64_t files = 0;
  std::int64_t fixed = 0;
  std::int64_t unchanged = 0;
  std::int64_t couldntFix = 0;
  std::int64_t failed = 0;
  std::int64_t datesWritten = 0;
  std::int64_t zonesFromLocation = 0;
  std::int64_t zonesInferred = 0;
  std::int64_t zonesGuessed = 0;
  std::int64_t locationsWritten = 0;
  std::int64_t captionsWritten = 0;
  std::int64_t overlaysMerged = 0;
  std::int64_t xmpFallbacks = 0;

  bool operator==(const RepairSummary&) const = default;
};

// An object with the 14 field names as keys, in declaration order, integers as values.
// from_json requires every key as an integer and throws nlohmann::json exceptions otherwise.
void to_json(nlohmann::json& json, const RepairSummary& summary);
void from_json(const nlohmann::json& json, RepairSummary& summary);
void to_json(nlohmann::ordered_json& json, const RepairSummary& summary);
void from_json(const nlohmann::ordered_json& json, RepairSummary& summary);

namespace RepairEngine {

// The totals over `rows`; `items` is the caller's count of items (reached or not).
RepairSummary summarize(const std::vector<RepairRow>& rows, std::int64_t items);

// Adds one row to `summary`: to `files` and to every counter the row counts in (all but
// `items`). summarize is this over every row.
void tally(RepairSummary& summary, const RepairRow& row);

}  // namespace RepairEngine

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_REPAIR_SUMMARY_H_
