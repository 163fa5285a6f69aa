#include "core/scan/snapchat_scanner.h"

#include <gtest/gtest.h>

#include <iterator>
#include <tuple>

#include "core/dates/iso_date.h"
#include "core/scan/export_scanner.h"
#include "core/sources/source_collector.h"
#include "tests/support/export_tree.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

using testing::ExportTree;
using testing::TempDir;
using namespace std::string_literals;

// Every counter zero but those named in `counters`, as JSON so a mismatch names its counter.
nlohmann::json summaryWith(const std::string& counters) {
  nlohmann::json summary = ScanSummary();
  summary.update(nlohmann::json::parse(counters));
  return summary;
}

// One history entry as the export writes it.
nlohmann::json historyEntry(const std::string& date, const std::string& id = "") {
  return {{"Date", date + " UTC"},
          {"Media Type", "Image"},
          {"Location", "Latitude, Longitude: 48.85, 2.35"},
          {"Download Link", "https://app.snapchat.com/dmd/memories?mid=" + id}};
}

TEST(SnapchatScanTest, MatchesByIdentifierThenDayShiftedZeroMinusOnePlusOneThenOrder) {
  const std::string idA = "aaaaaaaa-0000-0000-0000-000000000001";
  const std::string idB = "bbbbbbbb-0000-0000-0000-000000000002";
  const nlohmann::json history = {
      {"Saved Media",
       {
           historyEntry("2019-07-04 10:00:00", idA),
           historyEntry("2019-07-05 23:00:00"),
           historyEntry("2019-07-07 01:00:00"),  // a day after the file's day
           historyEntry("2019-08-09 23:00:00"),  // a day before
           historyEntry("2019-07-09 22:00:00"),  // both sides of the day: after is tried first
           historyEntry("2019-07-11 02:00:00"),
           historyEntry("2020-02-02 09:00:00"),  // two entries, three files that day
           historyEntry("2020-02-02 08:00:00"),
           historyEntry("2021-03-03 12:00:00"),  // a photo's entry: never a video's
           historyEntry("2022-01-01 00:00:00", idB),
       }}};
  TempDir dir;
  ExportTree tree;
  tree.json("json/memories_history.json", history);
  for (const std::string& stem :
       {"2019-07-04_" + idA, "2019-07-05_same"s, "2019-07-06_minus"s, "2019-08-10_plus"s,
        "2019-07-10_tie"s, "2020-02-02_x1"s, "2020-02-02_x2"s, "2020-02-02_x3"s})
    tree.photo(stem + "-main.jpg", "plain.jpg", stem);  // no memories folder: every file counts
  tree.text("2021-03-03_v-main.mp4", "movie").text("nodate-main.mp4", "2");
  tree.photo("2019-07-04_" + idA + "-overlay.png", "plain.jpg", "overlay")
      .photo("2019-07-04_lonely-overlay.png", "plain.jpg", "lonely")
      .photo("a/2018-01-01_z-main.jpg", "plain.jpg", "z")
      .photo("b/2018-01-01_z-overlay.png", "plain.jpg", "z overlay");  // another folder: no pair
  tree.writeFolder(dir / "export");
  const auto before = testing::snapshotTree(dir.path());
  const ScanResultPtr result = ExportScanner::scan({dir / "export"});
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
  const std::string byDate = "Matched to Snapchat's history by date";
  const std::string byOrder =
      "Several Memories that day; the date is right but the time may belong to another of them";
  const std::string dayOnly =
      "Not found in Snapchat's history; only the day is known (from the file name), time set "
      "to midday";
  // In the scan's order: by day (undated first), then stem.
  const std::tuple<std::string, std::optional<std::string>, std::optional<std::string>> cases[] = {
      {"nodate.mp4", std::nullopt, "Not found in Snapchat's history and no date in the file name"},
      {"2018-01-01_z.jpg", "2018-01-01T12:00:00Z", dayOnly},
      {"2019-07-04_" + idA + ".jpg", "2019-07-04T10:00:00Z", std::nullopt},
      {"2019-07-05_same.jpg", "2019-07-05T23:00:00Z", std::nullopt},
      {"2019-07-06_minus.jpg", "2019-07-07T01:00:00Z", byDate},
      {"2019-07-10_tie.jpg", "2019-07-11T02:00:00Z", byDate},
      {"2019-08-10_plus.jpg", "2019-08-09T23:00:00Z", byDate},
      {"2020-02-02_x1.jpg", "2020-02-02T08:00:00Z", byOrder},
      {"2020-02-02_x2.jpg", "2020-02-02T09:00:00Z", byOrder},
      {"2020-02-02_x3.jpg", "2020-02-02T12:00:00Z", dayOnly},
      {"2021-03-03_v.mp4", "2021-03-03T12:00:00Z", dayOnly},
  };
  ASSERT_EQ(result->files.size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& [output, taken, note] = cases[i];
    const MediaFile& file = *result->files[i];
    EXPECT_EQ(file.outputName(), output);
    EXPECT_EQ(file.matchNote(), note) << output;
    EXPECT_EQ(file.sidecar() ? file.sidecar()->photoTakenTime : std::nullopt,
              taken ? std::optional(ISODate::parse(*taken)->date) : std::nullopt)
        << output;
  }
  // An overlay pairs with the main file of its own folder only.
  EXPECT_EQ(result->files[1]->overlay, nullptr);
  ASSERT_NE(result->files[2]->overlay, nullptr);
  EXPECT_EQ(result->files[2]->overlay->logicalPath(), "2019-07-04_" + idA + "-overlay.png");
  // Orphans: the tie's other entry, the 2021 photo entry and idB.
  EXPECT_EQ(nlohmann::json(result->summary), summaryWith(R"({"sourceFiles": 15, "mediaFiles": 11,
      "photos": 9, "videos": 2, "items": 11, "withSidecar": 7, "withoutSidecar": 4,
      "photosMissingDate": 9, "datesRecoverable": 9, "photosMissingLocation": 9,
      "locationsRecoverable": 7, "orphanSidecars": 3, "overlays": 1, "historyEntries": 10,
      "matchedExact": 1, "matchedByDate": 4, "matchedByOrder": 2, "dayOnly": 3})"));
}

TEST(ExportScannerTest, DetectsSnapchatTakeoutOrNothing) {
  const std::tuple<std::vector<std::string>, ExportKind> cases[] = {
      {{"x/Memories_History.JSON", "Photos/a.jpg"}, ExportKind::snapchat},  // history anywhere
      {{"Memories/2019-07-04_a-main.jpg"}, ExportKind::snapchat},
      {{"Photos/2019-07-04_a-main.jpg"}, ExportKind::googleTakeout},  // not in memories
      {{"memories/2019-07-04_a-overlay.png"}, ExportKind::googleTakeout},
      {std::vector<std::string>(), ExportKind::googleTakeout},
  };
  for (const auto& [files, kind] : cases) {
    SCOPED_TRACE(::testing::PrintToString(files));
    TempDir tree;
    for (const auto& file : files) ExportTree().text(file, "x").writeFolder(tree.path());
    EXPECT_EQ(ExportScanner::detect(SourceCollector::collect({tree.path()})), kind);
  }
}

}  // namespace
}  // namespace quillmere
