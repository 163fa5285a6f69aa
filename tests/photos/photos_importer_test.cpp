#include "core/photos/photos_importer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/photos/fake_photo_library.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Kind = MediaUnit::Kind;
using Status = RepairRow::Status;
using testing::FakePhotoLibrary;
using testing::TempDir;

RepairRow row(std::int64_t item, Kind kind, std::string output,
              std::vector<std::string> albums = {}, Status status = Status::fixed) {
  RepairRow row;
  row.item = item;
  row.itemKind = kind;
  row.output = std::move(output);
  row.albums = std::move(albums);
  row.status = status;
  row.captureUTC = 1'500'000'000.0 + static_cast<double>(item);
  row.location = GeoPoint{48.0 + static_cast<double>(item) / 100, 11.5, std::nullopt};
  return row;
}

std::string readText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A run folder with `count` single photos, numbered from 1.
struct Fixture {
  TempDir dir;
  RepairResult result{dir.path()};
  FakePhotoLibrary library;

  Fixture() { fs::create_directories(result.reportFolder()); }
  void addPhotos(int count, std::vector<std::string> albums = {}) {
    for (int i = 1; i <= count; ++i) {
      result.rows.push_back(row(static_cast<std::int64_t>(result.rows.size()) + 1, Kind::single,
                                "Photos/2017/2017-07/IMG_" + std::to_string(i) + ".jpg", albums));
    }
  }
  ImportSummary run(const CancelQuery& cancel = {}, std::vector<WorkProgress>* progress = nullptr) {
    return PhotosImporter::run(
        result, ExportKind::googleTakeout, library,
        progress ? ProgressCallback([progress](const WorkProgress& p) { progress->push_back(p); })
                 : ProgressCallback(),
        cancel);
  }
  PhotosImporter::Record record() const {
    return PhotosImporter::readRecord(result.reportFolder());
  }
  std::string log() const { return readText(result.reportFolder() / "photos-import.csv"); }
};

TEST(PhotosImporterItems, BuildsOneItemPerFileExceptLivePhotoPairs) {
  struct Case {
    const char* name;
    std::vector<RepairRow> rows;
    std::vector<std::vector<std::string>> paths;  // of each item
  };
  const std::vector<Case> cases = {
      {"live photo heic and mov pair",
       {row(1, Kind::livePhoto, "P/a.heic"), row(1, Kind::livePhoto, "P/a.mov")},
       {{"P/a.heic", "P/a.mov"}}},
      {"movie listed first still pairs, photo first",
       {row(1, Kind::livePhoto, "P/a.MOV"), row(1, Kind::livePhoto, "P/a.JPG")},
       {{"P/a.JPG", "P/a.MOV"}}},
      {"live photo with only its movie", {row(1, Kind::livePhoto, "P/a.mov")}, {{"P/a.mov"}}},
      {"live photo with a third file",
       {row(1, Kind::livePhoto, "P/a.heic"), row(1, Kind::livePhoto, "P/a.mov"),
        row(1, Kind::livePhoto, "P/a-edited.jpg")},
       {{"P/a.heic", "P/a.mov"}, {"P/a-edited.jpg"}}},
      {"motion photo parts stay apart",
       {row(1, Kind::motionPhoto, "P/MVIMG.jpg"), row(1, Kind::motionPhoto, "P/MVIMG.MP")},
       {{"P/MVIMG.jpg"}, {"P/MVIMG.MP"}}},
      {"edited and original stay apart",
       {row(1, Kind::editedWithOriginal, "P/x.jpg"),
        row(1, Kind::editedWithOriginal, "P/x-edited.jpg")},
       {{"P/x.jpg"}, {"P/x-edited.jpg"}}},
      {"failed and copy-less rows are left out",
       {row(1, Kind::single, "P/ok.jpg"), row(2, Kind::single, "P/bad.jpg", {}, Status::failed),
        row(3, Kind::single, "", {}, Status::couldntFix),
        row(4, Kind::single, "P/undated.jpg", {}, Status::couldntFix)},
       {{"P/ok.jpg"}, {"P/undated.jpg"}}},
      {"live photo whose movie failed is a still",
       {row(1, Kind::livePhoto, "P/a.heic"),
        row(1, Kind::livePhoto, "P/a.mov", {}, Status::failed)},
       {{"P/a.heic"}}},
      {"groups in item order",
       {row(3, Kind::single, "P/c.jpg"), row(1, Kind::single, "P/a.jpg"),
        row(2, Kind::single, "P/b.png")},
       {{"P/a.jpg"}, {"P/b.png"}, {"P/c.jpg"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RepairResult result("/out");
    result.rows = c.rows;
    std::vector<std::vector<std::string>> paths;
    for (const ImportItem& item : PhotosImporter::items(result)) paths.push_back(item.paths());
    EXPECT_EQ(paths, c.paths);
  }
}

TEST(PhotosImporterItems, TellsVideosByExtensionAndTakesDatePlaceAndAlbumsOfTheGroup) {
  RepairResult result("/out");
  result.rows = {row(1, Kind::livePhoto, "P/a.mov", {"Trip", "Beach"}),
                 row(1, Kind::livePhoto, "P/a.heic", {"Beach", "Alps"}),
                 row(2, Kind::motionPhoto, "P/m.MP"), row(3, Kind::single, "P/strange.xyz"),
                 row(4, Kind::single, "P/noext")};
  const auto items = PhotosImporter::items(result);
  ASSERT_EQ(items.size(), 4u);
  EXPECT_EQ(items[0].photo, "P/a.heic");
  EXPECT_EQ(items[0].pairedVideo, "P/a.mov");
  EXPECT_EQ(items[0].albums, (std::vector<std::string>{"Alps", "Beach", "Trip"}));
  EXPECT_EQ(items[0].date, result.rows[1].captureUTC);  // the still's
  EXPECT_EQ(items[1].video, "P/m.MP");
  EXPECT_FALSE(items[1].photo);
  EXPECT_EQ(items[2].photo, "P/strange.xyz");
  EXPECT_EQ(items[3].photo, "P/noext");
  EXPECT_EQ(items[3].location, result.rows[4].location);
}

TEST(PhotosImporterRun, AddsItemsFilesAlbumsInNameOrderAndRecordsEverything) {
  Fixture f;
  f.result.rows = {row(1, Kind::single, "P/one.jpg", {"b"}),
                   row(2, Kind::livePhoto, "P/two.heic", {"a", "All imported items"}),
                   row(2, Kind::livePhoto, "P/two.mov"), row(3, Kind::single, "P/three.mp4")};
  std::vector<WorkProgress> progress;
  const ImportSummary summary = f.run({}, &progress);

  EXPECT_EQ(summary.items, 3);
  EXPECT_EQ(summary.imported, 3);
  EXPECT_EQ(summary.livePhotos, 1);
  EXPECT_EQ(summary.albums, 3);
  EXPECT_THAT(summary.folderTitle, HasSubstr("Quillmere: Google Photos ("));
  EXPECT_THAT(f.library.calls,
              ElementsAre("authorize", "folder", "addAsset", "addAsset", "addAsset",
                          "album:All imported items", "add", "album:a", "add", "album:b", "add"));
  EXPECT_EQ(f.library.albumTitled("All imported items").assets.size(), 3u);
  EXPECT_EQ(f.library.albumTitled("b").assets.size(), 1u);

  const auto record = f.record();
  EXPECT_EQ(record.folderTitle, summary.folderTitle);
  EXPECT_TRUE(f.library.folders.contains(record.folderID.value()));
  ASSERT_EQ(record.assets.size(), 4u);
  EXPECT_EQ(record.assets.at("P/two.heic"), record.assets.at("P/two.mov"));
  const auto& live = f.library.assets.at(record.assets.at("P/two.heic"));
  EXPECT_EQ(live.pairedVideo, "two.mov");
  EXPECT_EQ(live.date, f.result.rows[1].captureUTC);
  EXPECT_EQ(f.library.assets.at(record.assets.at("P/three.mp4")).video, "three.mp4");
  EXPECT_EQ(record.albumIDs.size(), 3u);
  EXPECT_EQ(f.log(),
            "file,outcome,note\nP/one.jpg,imported,\nP/two.heic,imported,Live Photo\n"
            "P/three.mp4,imported,\n");

  const std::vector<WorkProgress> expected = {{"Adding to Fake", 0, 3},  {"Adding to Fake", 1, 3},
                                              {"Adding to Fake", 2, 3},  {"Creating albums", 0, 3},
                                              {"Creating albums", 1, 3}, {"Creating albums", 2, 3},
                                              {"Creating albums", 3, 3}};
  EXPECT_EQ(progress, expected);
}

TEST(PhotosImporterRun, SecondRunAddsNothingAndFillsTheSameAlbumsAgain) {
  Fixture f;
  f.addPhotos(3, {"Trip"});
  const ImportSummary first = f.run();
  const auto assetsAfterFirst = f.library.assets.size();
  const auto albumsAfterFirst = f.library.albums;
  const std::string logAfterFirst = f.log();
  f.library.calls.clear();

  const ImportSummary second = f.run();
  EXPECT_EQ(second.imported, 0);
  EXPECT_EQ(second.alreadyImported, 3);
  EXPECT_EQ(second.albums, 2);
  EXPECT_EQ(second.folderTitle, first.folderTitle);
  EXPECT_EQ(f.library.assets.size(), assetsAfterFirst);
  EXPECT_EQ(f.library.folders.size(), 1u);
  EXPECT_EQ(f.library.albums.size(), 2u);
  EXPECT_EQ(f.library.albumTitled("Trip").assets, albumsAfterFirst.begin()->second.assets);
  EXPECT_THAT(f.library.calls, ElementsAre("authorize", "folder", "album:All imported items", "add",
                                           "album:Trip", "add"));
  EXPECT_EQ(f.log(), logAfterFirst);
}

TEST(PhotosImporterRun, FillsAnAlbumOf1234AssetsIn500500And234) {
  Fixture f;
  f.addPhotos(1234);
  EXPECT_EQ(f.run().imported, 1234);
  std::vector<std::size_t> sizes;
  for (const auto& [album, size] : f.library.addCalls) sizes.push_back(size);
  EXPECT_THAT(sizes, ElementsAre(500, 500, 234));
  // In item order.
  const auto& members = f.library.albumTitled("All imported items").assets;
  const auto record = f.record();
  EXPECT_EQ(members.front(), record.assets.at("Photos/2017/2017-07/IMG_1.jpg"));
  EXPECT_EQ(members.back(), record.assets.at("Photos/2017/2017-07/IMG_1234.jpg"));
}

TEST(PhotosImporterRun, SplitsARefusedPairIntoPhotoAndVideo) {
  Fixture f;
  f.result.rows = {row(1, Kind::livePhoto, "P/a.heic", {"x"}), row(1, Kind::livePhoto, "P/a.mov")};
  f.library.refusePairs = true;
  const ImportSummary summary = f.run();
  EXPECT_EQ(summary.imported, 1);
  EXPECT_EQ(summary.livePhotos, 0);
  EXPECT_EQ(summary.livePhotosSplit, 1);
  const auto record = f.record();
  ASSERT_NE(record.assets.at("P/a.heic"), record.assets.at("P/a.mov"));
  EXPECT_EQ(f.library.assets.at(record.assets.at("P/a.heic")).photo, "a.heic");
  EXPECT_EQ(f.library.assets.at(record.assets.at("P/a.mov")).video, "a.mov");
  EXPECT_THAT(f.library.albumTitled("x").assets,
              ElementsAre(record.assets.at("P/a.heic"), record.assets.at("P/a.mov")));
  EXPECT_EQ(f.log(),
            "file,outcome,note\nP/a.heic,imported,"
            "Fake wouldn't pair this Live Photo; photo and video added separately\n");
}

TEST(PhotosImporterRun, AFallbackThatFailsOnTheVideoFailsTheItemAndTheNextRunRetriesIt) {
  Fixture f;
  f.result.rows = {row(1, Kind::livePhoto, "P/a.heic", {"x"}), row(1, Kind::livePhoto, "P/a.mov")};
  f.library.refusePairs = true;
  f.library.failAlone = {"a.mov"};
  const ImportSummary first = f.run();
  EXPECT_EQ(first.failed, 1);
  EXPECT_EQ(first.imported, 0);
  EXPECT_EQ(first.livePhotosSplit, 0);
  EXPECT_EQ(first.albums, 0);              // nothing to put in one
  EXPECT_EQ(f.library.assets.size(), 1u);  // the photo alone was added…
  EXPECT_TRUE(f.record().assets.empty());  // …but not recorded
  EXPECT_EQ(f.log(), "file,outcome,note\nP/a.heic,failed,\"The library refused a.mov, sorry.\"\n");

  f.library.failAlone.clear();
  const ImportSummary second = f.run();
  EXPECT_EQ(second.livePhotosSplit, 1);
  EXPECT_EQ(second.alreadyImported, 0);
  EXPECT_EQ(f.record().assets.size(), 2u);
  EXPECT_EQ(f.library.assets.size(), 3u);  // the photo was added again
}

TEST(PhotosImporterRun, AFailedItemIsLoggedWithGuardedFieldsAndTheRunGoesOn) {
  Fixture f;
  f.result.rows = {row(1, Kind::single, "-2019/IMG.jpg"), row(2, Kind::single, "=cmd.jpg"),
                   row(3, Kind::single, "ok.jpg")};
  f.library.failFiles = {"=cmd.jpg"};
  const ImportSummary summary = f.run();
  EXPECT_EQ(summary.imported, 2);
  EXPECT_EQ(summary.failed, 1);
  EXPECT_EQ(f.log(),
            "file,outcome,note\n'-2019/IMG.jpg,imported,\n"
            "'=cmd.jpg,failed,\"The library refused =cmd.jpg, sorry.\"\nok.jpg,imported,\n");
  EXPECT_FALSE(f.record().assets.contains("=cmd.jpg"));
  EXPECT_EQ(f.library.albumTitled("All imported items").assets.size(), 2u);
}

TEST(PhotosImporterRun, RecreatesALostFolderUnderItsTitleAndLostAlbums) {
  Fixture f;
  f.addPhotos(2, {"Trip"});
  const ImportSummary first = f.run();
  const auto before = f.record();
  f.library.folders.clear();
  f.library.albums.clear();

  const ImportSummary second = f.run();
  EXPECT_EQ(second.folderTitle, first.folderTitle);
  const auto after = f.record();
  EXPECT_NE(after.folderID, before.folderID);
  EXPECT_EQ(f.library.folderTitles.at(*after.folderID), first.folderTitle);
  EXPECT_NE(after.albumIDs.at("Trip"), before.albumIDs.at("Trip"));
  EXPECT_EQ(f.library.albumTitled("Trip").assets.size(), 2u);
  EXPECT_EQ(f.library.albumTitled("Trip").folder, *after.folderID);
  EXPECT_EQ(second.alreadyImported, 2);
}

TEST(PhotosImporterRun, AFailingAlbumCallFailsTheRunButKeepsTheRecord) {
  struct Case {
    const char* name;
    std::function<void(FakePhotoLibrary&)> breakIt;
  };
  const std::vector<Case> cases = {
      {"album", [](FakePhotoLibrary& l) { l.failAlbums = {"b"}; }},
      {"add", [](FakePhotoLibrary& l) { l.failAdd = true; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fixture f;
    f.result.rows = {row(1, Kind::single, "P/1.jpg", {"a"}), row(2, Kind::single, "P/2.jpg", {"b"}),
                     row(3, Kind::single, "P/3.jpg", {"c"})};
    c.breakIt(f.library);
    EXPECT_THROW(f.run(), PhotoLibraryError);
    EXPECT_EQ(f.record().assets.size(), 3u);
    EXPECT_FALSE(fs::exists(f.result.reportFolder() / "photos-import.csv"));
    EXPECT_FALSE(f.record().albumIDs.contains("c"));  // never reached
  }
}

TEST(PhotosImporterRun, WritesNothingWhenNotAllowedOrWithoutAFolder) {
  {
    Fixture f;
    f.addPhotos(1);
    f.library.allow = false;
    try {
      f.run();
      FAIL() << "no error";
    } catch (const PhotosImportError& error) {
      EXPECT_STREQ(error.what(),
                   "Quillmere couldn't sign in to Fake at fake://library. Check the server "
                   "address and API key (it needs the asset and album permissions), then try "
                   "again.");
      EXPECT_EQ(error.reason(), "Not allowed.");
    }
    EXPECT_TRUE(fs::is_empty(f.result.reportFolder()));
    EXPECT_THAT(f.library.calls, ElementsAre("authorize"));
  }
  {
    Fixture f;
    f.addPhotos(1);
    f.library.failFolder = true;
    EXPECT_THROW(f.run(), PhotoLibraryError);
    EXPECT_TRUE(fs::is_empty(f.result.reportFolder()));
  }
}

TEST(PhotosImporterRun, ReadsAMissingOrUnreadableRecordAsEmpty) {
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"not json", "{\"assets\": "},
      {"no albumIDs", R"({"folderID": "f", "assets": {"P/IMG_1.jpg": "x"}})"},
      {"assets not strings", R"({"albumIDs": {}, "assets": {"P/IMG_1.jpg": 3}})"},
      {"an array", "[]"},
      {"not UTF-8", "\xff\xfe"},
  };
  for (const auto& [name, text] : cases) {
    SCOPED_TRACE(name);
    Fixture f;
    f.addPhotos(1);
    std::ofstream(f.result.reportFolder() / "photos-import.json") << text;
    EXPECT_EQ(PhotosImporter::readRecord(f.result.reportFolder()), PhotosImporter::Record{});
    EXPECT_EQ(f.run().imported, 1);
    EXPECT_EQ(f.record().assets.size(), 1u);
  }
  EXPECT_EQ(PhotosImporter::readRecord("/nonexistent/folder"), PhotosImporter::Record{});
}

TEST(PhotosImporterRun, SavesAfterTheFolderEveryFiftiethPositionAndBeforeTheAlbums) {
  Fixture f;
  f.addPhotos(120);
  std::vector<std::size_t> recordedAtCall;
  f.library.onCall = [&](const std::string& call) {
    if (call == "addAsset" || call.starts_with("album:")) {
      recordedAtCall.push_back(f.record().assets.size());
    }
  };
  f.run();
  ASSERT_EQ(recordedAtCall.size(), 121u);
  EXPECT_EQ(recordedAtCall[0], 0u);  // the folder's save holds no asset yet
  for (std::size_t i = 1; i < 120; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(recordedAtCall[i], (i - 1) / 50 * 50 + 1);  // saved after positions 0, 50, 100
  }
  EXPECT_EQ(recordedAtCall[120], 120u);  // saved before the albums
  EXPECT_TRUE(f.record().folderID);
}

TEST(PhotosImporterRun, ACancelledRunStillFillsAlbumsAndWritesBothFiles) {
  Fixture f;
  f.addPhotos(10, {"Trip"});
  int polls = 0;
  const ImportSummary summary = f.run([&] { return ++polls > 3; });
  EXPECT_EQ(polls, 4);
  EXPECT_EQ(summary.items, 10);
  EXPECT_EQ(summary.imported, 3);
  EXPECT_EQ(summary.albums, 2);
  EXPECT_EQ(f.library.albumTitled("Trip").assets.size(), 3u);
  EXPECT_EQ(f.record().assets.size(), 3u);
  const std::string log = f.log();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 4);
}

TEST(PhotosImporterRun, AnEmptyResultStillFindsTheFolderAndMakesNoAlbum) {
  Fixture f;
  f.result.rows = {row(1, Kind::single, "", {"a"}, Status::failed)};
  const ImportSummary summary = f.run();
  EXPECT_EQ(summary.items, 0);
  EXPECT_EQ(summary.albums, 0);
  EXPECT_THAT(f.library.calls, ElementsAre("authorize", "folder"));
  EXPECT_EQ(f.log(), "file,outcome,note\n");
}

TEST(PhotosImporterRun, NamesTheAllItemsAlbumAndFolderAfterTheExport) {
  Fixture f;
  f.addPhotos(1);
  const ImportSummary summary =
      PhotosImporter::run(f.result, ExportKind::snapchat, f.library, {}, {});
  EXPECT_THAT(summary.folderTitle, HasSubstr("Quillmere: Snapchat ("));
  EXPECT_EQ(f.library.albumTitled("Snapchat Memories").assets.size(), 1u);
}

TEST(PhotosImporterLog, AccumulatesRunsUnderOneHeaderAndReplacesANonUTF8File) {
  TempDir dir;
  using PhotosImporter::appendLog;
  ASSERT_TRUE(appendLog({{"a.jpg", true, ""}}, dir.path()));
  ASSERT_TRUE(appendLog({{"b.jpg", false, "say \"hi\""}, {"@c", true, "x\r\ny"}}, dir.path()));
  EXPECT_EQ(readText(dir / "photos-import.csv"),
            "file,outcome,note\na.jpg,imported,\nb.jpg,failed,\"say \"\"hi\"\"\"\n"
            "'@c,imported,\"x\r\ny\"\n");
  std::ofstream(dir / "photos-import.csv", std::ios::trunc) << "\xff old\n";
  ASSERT_TRUE(appendLog({{"+d", true, "Live Photo"}}, dir.path()));
  EXPECT_EQ(readText(dir / "photos-import.csv"), "file,outcome,note\n'+d,imported,Live Photo\n");
  EXPECT_FALSE(appendLog({}, dir / "missing"));
  EXPECT_EQ(fs::directory_iterator(dir.path()) == fs::directory_iterator(), false);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);
}

TEST(PhotosImporterValues, SummaryAndRecordRoundTripThroughJSON) {
  const ImportSummary summary{7, 3, 2, 1, 1, 1, 4, "Quillmere: Snapchat (Mar 5, 2025 14:07)"};
  const nlohmann::ordered_json ordered = summary;
  EXPECT_EQ(ordered.dump(),
            R"({"items":7,"imported":3,"alreadyImported":2,"livePhotos":1,"livePhotosSplit":1,)"
            R"j("failed":1,"albums":4,"folderTitle":"Quillmere: Snapchat (Mar 5, 2025 14:07)"})j");
  EXPECT_EQ(nlohmann::json(summary).get<ImportSummary>(), summary);
  EXPECT_THROW(nlohmann::json::parse(R"({"items":1.5})").get<ImportSummary>(),
               nlohmann::json::exception);

  PhotosImporter::Record record;
  EXPECT_EQ(PhotosImporter::recordJSON(record).dump(), R"({"albumIDs":{},"assets":{}})");
  record.folderID = "f";
  record.folderTitle = "t";
  record.albumIDs["a"] = "1";
  record.assets["P/x.jpg"] = "2";
  EXPECT_EQ(PhotosImporter::recordFromJSON(PhotosImporter::recordJSON(record)), record);
}

TEST(PhotosImporterValues, FolderTitleUsesTheMachinesZoneAndEnglishMonths) {
  ScopedEnvironment zone("TZ", "America/St_Johns");
  ScopedEnvironment locale("LC_ALL", "de_DE.UTF-8");
  tzset();
  const RepairResult result("/out");
  // 2025-03-05 17:37 UTC is 14:07 in St. John's (UTC-03:30).
  const auto when = std::chrono::system_clock::from_time_t(1741196220);
  EXPECT_EQ(PhotosImporter::folderTitle(result, ExportKind::googleTakeout, when),
            "Quillmere: Google Photos (Mar 5, 2025 14:07)");
  EXPECT_EQ(PhotosImporter::folderTitle(result, ExportKind::snapchat, when),
            "Quillmere: Snapchat (Mar 5, 2025 14:07)");
}

}  // namespace
}  // namespace quillmere
