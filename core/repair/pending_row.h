#ifndef QUILLMERE_CORE_REPAIR_PENDING_ROW_H_
#define QUILLMERE_CORE_REPAIR_PENDING_ROW_H_

#include <cstddef>
#include <future>

#include "core/metadata/metadata_writer.h"
#include "core/repair/repair_row.h"

namespace quillmere::RepairEngine {

// A file's row, perhaps still waiting for its written copy to be read back. Reading back costs
// about as much as writing, so a run reads several copies back at once; the rows still reach
// the report in item order, each whole.
struct PendingRow {
  explicit PendingRow(RepairRow row) : row(std::move(row)) {}

  RepairRow row;
  // The read-back's outcome; invalid when none was started. Its notes go before the row's note
  // number `checkNotesAt`.
  std::future<MetadataWriter::Verification> check;
  std::size_t checkNotesAt = 0;

  // Waits for the read-back, if any, and returns the row with its outcome in place: the
  // check's problem (which fails the row), then its note. A read-back that threw fails the row
  // with the exception's message in the problem's place. Call once.
  RepairRow finish();
};

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_PENDING_ROW_H_
