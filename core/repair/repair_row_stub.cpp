// TEMPORARY stand-in, to be deleted when repair_row.cpp lands on main: only the two status
// label functions the import command needs, so this branch links before the records do.

#include <array>

#include "core/repair/repair_row.h"

namespace quillmere {
namespace {

constexpr std::array<std::pair<RepairRow::Status, std::string_view>, 4> kLabels = {{
    {RepairRow::Status::fixed, "fixed"},
    {RepairRow::Status::unchanged, "unchanged"},
    {RepairRow::Status::couldntFix, "couldn't fix"},
    {RepairRow::Status::failed, "failed"},
}};

}  // namespace

std::string_view label(RepairRow::Status status) {
  for (const auto& [value, text] : kLabels) {
    if (value == status) return text;
  }
  return "failed";
}

std::optional<RepairRow::Status> repairStatusFromLabel(std::string_view text) {
  for (const auto& [value, label] : kLabels) {
    if (label == text) return value;
  }
  return std::nullopt;
}

}  // namespace quillmere
