#include "core/repair/staging.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillmere {
namespace {

// The read-back's problem fails the row and comes before its note, after what the row had.
TEST(StagingTest, RecordsTheReadBacksOutcomeInTheRow) {
  using Verification = MetadataWriter::Verification;
  const std::string dateProblem = "Date didn't verify after writing";
  const std::string zoneNote = "This file type can't store a time zone; the local time is correct";
  const struct {
    const char* name;
    Verification check;
    bool throws;
    std::vector<std::string> notes;
    RepairRow::Status status;
  } cases[] = {
      {"a clean read-back", Verification{}, false, {"before"}, RepairRow::Status::fixed},
      {"a note only",
       Verification{std::nullopt, zoneNote},
       false,
       {"before", zoneNote},
       RepairRow::Status::fixed},
      {"a problem and a note",
       Verification{dateProblem, zoneNote},
       false,
       {"before", dateProblem, zoneNote},
       RepairRow::Status::failed},
      {"a read-back that threw",
       Verification{},
       true,
       {"before", "disk gone"},
       RepairRow::Status::failed},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    RepairRow row;
    row.status = RepairRow::Status::fixed;
    row.notes = {"before"};
    RepairEngine::recordCheck(row, [&]() -> Verification {
      if (c.throws) throw std::runtime_error("disk gone");
      return c.check;
    });
    EXPECT_EQ(row.notes, c.notes);
    EXPECT_EQ(row.status, c.status);
  }
}

}  // namespace
}  // namespace quillmere
