#include "core/repair/pending_row.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace quillmere::RepairEngine {

RepairRow PendingRow::finish() {
  if (!check.valid()) return std::move(row);
  std::vector<std::string> notes;
  try {
    const MetadataWriter::Verification outcome = check.get();
    if (outcome.problem) {
      notes.push_back(*outcome.problem);
      row.status = RepairRow::Status::failed;
    }
    if (outcome.note) notes.push_back(*outcome.note);
  } catch (const std::exception& error) {
    notes.emplace_back(error.what());
    row.status = RepairRow::Status::failed;
  }
  const std::size_t at = std::min(checkNotesAt, row.notes.size());
  row.notes.insert(row.notes.begin() + static_cast<std::ptrdiff_t>(at), notes.begin(), notes.end());
  return std::move(row);
}

}  // namespace quillmere::RepairEngine
