#include "core/scan/snapchat_scanner.h"

#include <gtest/gtest.h>

#include "core/dates/iso_date.h"
#include "core/scan/export_scanner.h"
#include "core/sources/source_collector.h"
#include "tests/support/export_tree.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using namespace SnapchatScanner;
using testing::ExportTree;
using testing::TempDir;

double at(const std::string& iso) { return ISODate::parse(iso)->date; }

TEST(SnapchatNamesTest, ParsesStemsRolesAndDays) {
  const struct {
    std::string name;
    std::optional<ParsedName> expected;
  } cases[] = {
      {"2019-07-04_ABC-main.jpg", ParsedName{"2019-07-04_ABC", "main", "2019-07-04"}},
      {"2019-07-04_ABC-overlay.png", ParsedName{"2019-07-04_ABC", "overlay", "2019-07-04"}},
      {"2019-07-04_ABC_MAIN.mp4", ParsedName{"2019-07-04_ABC", "main", "2019-07-04"}},
      {"2019-07-04_ABC overlay.png", ParsedName{"2019-07-04_ABC", "overlay", "2019-07-04"}},
      {"2019-07-04_x.jpg", ParsedName{"2019-07-04_x", "main", "2019-07-04"}},
      {"2019-13-45_x.jpg", ParsedName{"2019-13-45_x", "main", std::nullopt}},
      {"1999.jpg", ParsedName{"1999", "main", std::nullopt}},
      {"snap-main.jpg", ParsedName{"snap", "main", std::nullopt}},
      {"IMG_0001.jpg", std::nullopt},
      {"memories_history.json", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(parseName(c.name), c.expected);
  }
}

TEST(SnapchatHistoryTest, ParsesDatesPlacesIdentifiersAndTokens) {
  EXPECT_EQ(parseDate("2019-07-04 15:30:12 UTC"), at("2019-07-04T15:30:12Z"));
  EXPECT_EQ(parseDate("  2019-07-04 15:30:12  "), at("2019-07-04T15:30:12Z"));
  EXPECT_EQ(parseDate("2019-07-04 15:30"), std::nullopt);
  EXPECT_EQ(parseDate("yesterday at noon, roughly"), std::nullopt);

  const struct {
    std::optional<std::string> text;
    std::optional<GeoPoint> expected;
  } places[] = {
      {"Latitude, Longitude: 37.7749, -122.4194", GeoPoint{37.7749, -122.4194, std::nullopt}},
      {"Latitude, Longitude: 0.0, 0.0", std::nullopt},
      {"Latitude, Longitude: 91.0, 10.0", std::nullopt},
      {"only 12.5 here", std::nullopt},
      {"- . 48.1 -- 11.5", GeoPoint{48.1, 11.5, std::nullopt}},  // runs that aren't numbers drop
      {std::nullopt, std::nullopt},
  };
  for (const auto& p : places) {
    SCOPED_TRACE(p.text.value_or("(none)"));
    EXPECT_EQ(parseLocation(p.text), p.expected);
  }

  const std::string id = "ABCDEF12-3456-7890-abcd-ef1234567890";
  EXPECT_EQ(uuids("x" + id + "y" + id), (std::vector<std::string>{id, id}));
  EXPECT_TRUE(uuids("ABCDEF12-3456-7890-abcd-ef123456789").empty());
  EXPECT_EQ(tokens("2019-07-04_" + id + "-main"),
            (std::vector<std::string>{"2019-07-04", "2019", "07", "04", id + "-main", "ABCDEF12",
                                      "3456", "7890", "abcd", "ef1234567890", "main", id}));
}

TEST(SnapchatHistoryTest, ReadsEveryShapeOfHistoryFile) {
  const std::string id = "11111111-2222-3333-4444-555555555555";
  const nlohmann::json entry = {
      {"Date", "2020-01-02 03:04:05 UTC"},
      {"Media Type", "Video"},
      {"Location", "Latitude, Longitude: 1.5, 2.5"},
      {"Download Link",
       "https://app.snapchat.com/dmd/memories?uid=abc&sid=" + id + "&mid=SHORT&ts=1"},
      {"Media ID", "N/A"},
      {"Id", "plain-identifier"}};
  const nlohmann::json undated = {{"Date", "sometime"}, {"Media Type", "Image"}};
  auto parse = [](const nlohmann::json& value) {
    const std::string text = value.dump();
    return parseHistory(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  };
  const struct {
    std::string name;
    nlohmann::json history;
    std::size_t count;
  } shapes[] = {
      {"Saved Media", {{"Saved Media", {entry, undated}}}, 1},
      {"top-level array", nlohmann::json::array({entry, entry}), 2},
      {"another list with dates", {{"Other", {1, 2}}, {"Stuff", {entry}}}, 1},
      {"no list", {{"Saved Media", "none"}}, 0},
      {"a number", 42, 0},
  };
  for (const auto& s : shapes) {
    SCOPED_TRACE(s.name);
    EXPECT_EQ(parse(s.history).size(), s.count);
  }
  const Entry parsed = parse({{"Saved Media", {entry}}}).at(0);
  EXPECT_EQ(parsed.utc, at("2020-01-02T03:04:05Z"));
  EXPECT_EQ(parsed.kind, MediaKind::video);
  EXPECT_EQ(parsed.location, (GeoPoint{1.5, 2.5, std::nullopt}));
  EXPECT_EQ(parsed.ids, (std::vector<std::string>{id, id, "plain-identifier"}));
  const std::string broken = "{\"Saved Media\": [";
  EXPECT_TRUE(
      parseHistory(std::span(reinterpret_cast<const std::uint8_t*>(broken.data()), broken.size()))
          .empty());
}

// One history entry as the export writes it.
nlohmann::json historyEntry(const std::string& date, const std::string& type,
                            const std::string& id = "") {
  nlohmann::json e = {{"Date", date + " UTC"},
                      {"Media Type", type},
                      {"Location", "Latitude, Longitude: 48.85, 2.35"}};
  if (!id.empty()) e["Download Link"] = "https://app.snapchat.com/dmd/memories?mid=" + id;
  return e;
}

class SnapchatScanTest : public ::testing::Test {
 protected:
  ScanResultPtr scan(const ExportTree& tree) {
    tree.writeFolder(dir_ / "export");
    const auto before = testing::snapshotTree(dir_ / "export");
    ScanResultPtr result = ExportScanner::scan({dir_ / "export"});
    EXPECT_EQ(testing::snapshotTree(dir_ / "export"), before);
    return result;
  }
  static const MediaFile& byOutput(const ScanResult& result, const std::string& name) {
    for (const auto& file : result.files) {
      if (file->outputName == name) return *file;
    }
    throw std::runtime_error("no media file named " + name);
  }
  TempDir dir_;
};

TEST_F(SnapchatScanTest, MatchesByIdentifierDateOrderAndDay) {
  const std::string idA = "aaaaaaaa-0000-0000-0000-000000000001";
  const std::string idB = "bbbbbbbb-0000-0000-0000-000000000002";
  const nlohmann::json history = {
      {"Saved Media",
       {
           historyEntry("2019-07-04 10:00:00", "Image", idA),
           historyEntry("2019-07-05 01:00:00", "Image"),  // one day after 2019-07-04
           historyEntry("2020-02-02 09:00:00", "Image"),  // two photos, three files that day
           historyEntry("2020-02-02 08:00:00", "Image"),
           historyEntry("2021-03-03 12:00:00", "Image"),       // photo entry: never a video's
           historyEntry("2022-01-01 00:00:00", "Image", idB),  // unused
       }}};
  ExportTree tree;
  tree.json("json/memories_history.json", history)
      .photo("memories/2019-07-04_" + idA + "-main.jpg", "plain.jpg", "a")
      .photo("memories/2019-07-04_other-main.jpg", "plain.jpg", "b")
      .photo("memories/2020-02-02_x1-main.jpg", "plain.jpg", "x1")
      .photo("memories/2020-02-02_x2-main.jpg", "plain.jpg", "x2")
      .photo("memories/2020-02-02_x3-main.jpg", "plain.jpg", "x3")
      .text("memories/2021-03-03_v-main.mp4", "movie")
      .text("memories/nodate-main.mp4", "movie 2");
  const ScanResultPtr result = scan(tree);
  ASSERT_EQ(result->kind, ExportKind::snapchat);
  ASSERT_EQ(result->files.size(), 7u);
  const MediaFile& exact = byOutput(*result, "2019-07-04_" + idA + ".jpg");
  EXPECT_EQ(exact.sidecar->photoTakenTime, at("2019-07-04T10:00:00Z"));
  EXPECT_EQ(exact.sidecarName, "memories_history.json");
  EXPECT_EQ(exact.sidecar->geoData, (TakeoutSidecar::Geo{48.85, 2.35, 0}));
  EXPECT_FALSE(exact.matchNote.has_value());
  const MediaFile& shifted = byOutput(*result, "2019-07-04_other.jpg");
  EXPECT_EQ(shifted.sidecar->photoTakenTime, at("2019-07-05T01:00:00Z"));
  EXPECT_EQ(shifted.matchNote, "Matched to Snapchat's history by date");
  EXPECT_EQ(byOutput(*result, "2020-02-02_x1.jpg").sidecar->photoTakenTime,
            at("2020-02-02T08:00:00Z"));
  EXPECT_EQ(byOutput(*result, "2020-02-02_x2.jpg").sidecar->photoTakenTime,
            at("2020-02-02T09:00:00Z"));
  EXPECT_EQ(byOutput(*result, "2020-02-02_x1.jpg").matchNote,
            "Several Memories that day; the date is right but the time may belong to another of "
            "them");
  const MediaFile& third = byOutput(*result, "2020-02-02_x3.jpg");
  EXPECT_EQ(third.sidecar->photoTakenTime, at("2020-02-02T12:00:00Z"));
  EXPECT_FALSE(third.sidecarName.has_value());
  EXPECT_EQ(third.matchNote,
            "Not found in Snapchat's history; only the day is known (from the file name), time "
            "set to midday");
  EXPECT_EQ(byOutput(*result, "2021-03-03_v.mp4").matchNote,
            "Not found in Snapchat's history; only the day is known (from the file name), time "
            "set to midday");
  const MediaFile& undated = byOutput(*result, "nodate.mp4");
  EXPECT_FALSE(undated.sidecar.has_value());
  EXPECT_EQ(undated.matchNote, "Not found in Snapchat's history and no date in the file name");

  const ScanSummary& s = result->summary;
  EXPECT_EQ(s.historyEntries, 6);
  EXPECT_EQ(s.matchedExact, 1);
  EXPECT_EQ(s.matchedByDate, 1);
  EXPECT_EQ(s.matchedByOrder, 2);
  EXPECT_EQ(s.dayOnly, 2);
  EXPECT_EQ(s.withSidecar, 4);
  EXPECT_EQ(s.withoutSidecar, 3);
  EXPECT_EQ(s.orphanSidecars, 2);  // the 2021 photo entry and idB
  EXPECT_EQ(s.photos, 5);
  EXPECT_EQ(s.videos, 2);
  EXPECT_EQ(s.photosMissingDate, 5);
  EXPECT_EQ(s.datesRecoverable, 5);
  EXPECT_EQ(s.locationsRecoverable, 4);
  EXPECT_EQ(result->units.size(), 7u);
}

TEST_F(SnapchatScanTest, PairsOverlaysWithinAFolderAndSortsByDayThenStem) {
  ExportTree tree;
  tree.text("memories/2019-07-04_x-main.mp4", "movie")
      .photo("memories/2019-07-04_x-overlay.png", "plain.jpg", "overlay")
      .photo("memories/b/2019-07-04_x-overlay.png", "plain.jpg", "other folder")
      .photo("memories/a/2019-07-04_x-main.jpg")
      .photo("memories/2018-01-01_z-main.jpg", "plain.jpg", "z")
      .photo("memories/2019-07-04_lonely-overlay.png", "plain.jpg", "lonely");
  const ScanResultPtr result = scan(tree);
  ASSERT_EQ(result->files.size(), 3u);
  EXPECT_EQ(result->files[0]->outputName, "2018-01-01_z.jpg");
  EXPECT_EQ(result->files[1]->source->logicalPath(), "memories/2019-07-04_x-main.mp4");
  ASSERT_NE(result->files[1]->overlay, nullptr);
  EXPECT_EQ(result->files[1]->overlay->logicalPath(), "memories/2019-07-04_x-overlay.png");
  EXPECT_EQ(result->files[2]->overlay, nullptr);  // its overlay lies in another folder
  EXPECT_EQ(result->summary.overlays, 1);
}

TEST(ExportScannerTest, DetectsSnapchatByHistoryFileOrMemoryNames) {
  TempDir dir;
  const struct {
    std::string name;
    std::vector<std::string> files;
    ExportKind kind;
  } cases[] = {
      {"history anywhere",
       {"x/Memories_History.JSON", "Photos from 2019/a.jpg"},
       ExportKind::snapchat},
      {"memory in memories", {"Memories/2019-07-04_a-main.jpg"}, ExportKind::snapchat},
      {"memory elsewhere", {"Photos/2019-07-04_a-main.jpg"}, ExportKind::googleTakeout},
      {"overlay only", {"memories/2019-07-04_a-overlay.png"}, ExportKind::googleTakeout},
      {"takeout", {"Takeout/Google Photos/Photos from 2019/a.jpg"}, ExportKind::googleTakeout},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir tree;
    for (const auto& file : c.files) ExportTree().text(file, "x").writeFolder(tree.path());
    EXPECT_EQ(ExportScanner::detect(SourceCollector::collect({tree.path()})), c.kind);
  }
}

TEST(SnapchatScanWithoutMemoriesFolderTest, ScansEveryFile) {
  TempDir dir;
  ExportTree()
      .json("memories_history.json",
            {{"Saved Media", {historyEntry("2019-07-04 10:00:00", "Image")}}})
      .photo("2019-07-04_a-main.jpg")
      .writeZip(dir / "mydata.zip");
  const ScanResultPtr result = ExportScanner::scan({dir / "mydata.zip"});
  ASSERT_EQ(result->files.size(), 1u);
  EXPECT_EQ(result->summary.matchedByDate, 1);
  EXPECT_EQ(result->summary.zipParts, 1);
  EXPECT_FALSE(result->files[0]->matchNote.has_value());
}

}  // namespace
}  // namespace quillmere
