#include "core/repair/pending_row.h"

#include <gtest/gtest.h>

#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillmere {
namespace {

// The read-back's notes go where the check was started, whatever was added to the row after.
TEST(PendingRowTest, PutsTheReadBacksOutcomeInItsPlace) {
  using Verification = MetadataWriter::Verification;
  const std::string dateProblem = "Date didn't verify after writing";
  const std::string zoneNote = "This file type can't store a time zone; the local time is correct";
  const struct {
    const char* name;
    std::optional<Verification> check;  // nullopt: no read-back was started
    bool throws;
    std::vector<std::string> notes;
    RepairRow::Status status;
  } cases[] = {
      {"no read-back", std::nullopt, false, {"before", "after"}, RepairRow::Status::fixed},
      {"a clean read-back", Verification{}, false, {"before", "after"}, RepairRow::Status::fixed},
      {"a note only",
       Verification{std::nullopt, zoneNote},
       false,
       {"before", zoneNote, "after"},
       RepairRow::Status::fixed},
      {"a problem and a note",
       Verification{dateProblem, zoneNote},
       false,
       {"before", dateProblem, zoneNote, "after"},
       RepairRow::Status::failed},
      {"a read-back that threw",
       Verification{},
       true,
       {"before", "disk gone", "after"},
       RepairRow::Status::failed},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RepairRow row;
    row.status = RepairRow::Status::fixed;
    row.notes = {"before"};
    RepairEngine::PendingRow pending(row);
    if (c.check) {
      pending.checkNotesAt = pending.row.notes.size();
      std::promise<Verification> outcome;
      if (c.throws) {
        outcome.set_exception(std::make_exception_ptr(std::runtime_error("disk gone")));
      } else {
        outcome.set_value(*c.check);
      }
      pending.check = outcome.get_future();
    }
    pending.row.notes.push_back("after");  // added while the check still ran
    const RepairRow finished = pending.finish();
    EXPECT_EQ(finished.notes, c.notes);
    EXPECT_EQ(finished.status, c.status);
  }
}

}  // namespace
}  // namespace quillmere
