#include "core/scan/takeout_scanner.h"

#include <gtest/gtest.h>

#include "core/scan/export_scanner.h"
#include "core/sources/quillmere_error.h"
#include "core/sources/source_collector.h"
#include "tests/support/export_tree.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::ExportTree;
using testing::takeoutSidecar;
using testing::TempDir;

const std::string kRoot = "Takeout/Google Photos/";

// Scans `tree` written as a folder, checking the export is left exactly as it was.
class TakeoutScanTest : public ::testing::Test {
 protected:
  ScanResultPtr scanFolder(const ExportTree& tree, const ProgressCallback& progress = nullptr) {
    tree.writeFolder(dir_ / "export");
    const auto before = testing::snapshotTree(dir_ / "export");
    ScanResultPtr result = ExportScanner::scan({dir_ / "export"}, progress);
    EXPECT_EQ(testing::snapshotTree(dir_ / "export"), before);
    return result;
  }
  ScanResultPtr scanZip(const ExportTree& tree) {
    tree.writeZip(dir_ / "takeout-001.zip");
    const auto before = testing::snapshotTree(dir_.path());
    ScanResultPtr result = ExportScanner::scan({dir_ / "takeout-001.zip"});
    EXPECT_EQ(testing::snapshotTree(dir_.path()), before);
    return result;
  }
  static const MediaFile& byName(const ScanResult& result, const std::string& name) {
    for (const auto& file : result.files) {
      if (file->fileName() == name) return *file;
    }
    throw std::runtime_error("no media file " + name);
  }

  TempDir dir_;
};

TEST_F(TakeoutScanTest, MergesCopiesAndCollectsAlbumsInFolderOrder) {
  ExportTree tree;
  tree.photo(kRoot + "Photos from 2019/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Paris/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Family/IMG_1.JPG", "plain.jpg", "one")
      // Same name and size, other content: stays a file of its own.
      .photo(kRoot + "Paris/IMG_2.JPG", "plain.jpg", "AAA")
      .photo(kRoot + "Family/IMG_2.JPG", "plain.jpg", "BBB")
      .photo(kRoot + "Summer(1)/IMG_3.JPG")
      .json(kRoot + "Summer(1)/metadata.json", {{"title", "Summer"}})
      .json(kRoot + "Family/IMG_1.JPG.json", takeoutSidecar("IMG_1.JPG", 1560000000));
  for (const ScanResultPtr& result : {scanFolder(tree), scanZip(tree)}) {
    SCOPED_TRACE(result->summary.zipParts ? "zip" : "folder");
    ASSERT_EQ(result->files.size(), 4u);
    const MediaFile& one = byName(*result, "IMG_1.JPG");
    EXPECT_EQ(one.id, 0);
    EXPECT_EQ(one.source->logicalPath(), "Photos from 2019/IMG_1.JPG");
    EXPECT_EQ(one.duplicates.size(), 2u);
    EXPECT_EQ(one.albums, (std::vector<std::string>{"Family", "Paris"}));
    // The album copy's sidecar fills in for the year copy that had none.
    EXPECT_EQ(one.sidecarName, "IMG_1.JPG.json");
    EXPECT_EQ(result->files[1]->source->logicalPath(), "Family/IMG_2.JPG");
    EXPECT_EQ(result->files[2]->source->logicalPath(), "Paris/IMG_2.JPG");
    EXPECT_EQ(byName(*result, "IMG_3.JPG").albums, std::vector<std::string>{"Summer"});
    EXPECT_EQ(result->summary.duplicateCopies, 2);
    EXPECT_EQ(result->summary.albums, 3);
    EXPECT_EQ(result->albums.at("Family").size(), 2u);
  }
}

TEST_F(TakeoutScanTest, ClassifiesYearSpecialAndAlbumFolders) {
  const struct {
    std::string folder;
    FolderRole role;
  } cases[] = {
      {"", FolderRole::root()},
      {"2019", FolderRole::year()},
      {"Photos from 2019", FolderRole::year()},
      {"Fotos von 2019", FolderRole::year()},
      {"Zdjęcia z 2019", FolderRole::year()},
      {"Archive/2019", FolderRole::year()},
      {"Photos from 1799", FolderRole::album("Photos from 1799")},
      {"Photos from 2019 (1)", FolderRole::album("Photos from 2019 (1)")},
      {"Photos from 2019 ", FolderRole::album("Photos from 2019 ")},
      {"Holiday 2019", FolderRole::album("Holiday 2019")},
      {"Trash", FolderRole::special("Trash")},
      {"PAPIERKORB", FolderRole::special("PAPIERKORB")},
      {"Locked Folder", FolderRole::special("Locked Folder")},
      {"Archive/Old", FolderRole::album("Old")},
      {"Trip/Trash", FolderRole::album("Trash")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.folder);
    EXPECT_EQ(FolderClassifier::classify(c.folder, std::nullopt), c.role);
  }
  EXPECT_EQ(FolderClassifier::classify("Trash", TakeoutAlbumInfo{"Best", std::nullopt}),
            FolderRole::album("Best"));
}

TEST_F(TakeoutScanTest, MatchesSidecarsAndCountsOrphansAndUnreadableJson) {
  const std::string year = kRoot + "Photos from 2020/";
  const std::string longName = "Holiday at the beach with the whole family 2020.jpg";
  ExportTree tree;
  tree.photo(year + "IMG_1.jpg")
      .json(year + "IMG_1.jpg.supplemental-metadata.json", takeoutSidecar("IMG_1.jpg", 1.6e9))
      .photo(year + "IMG_1-edited.jpg", "plain.jpg", "edit")
      .photo(year + "IMG_2(1).jpg")
      .json(year + "IMG_2.jpg.supplemental-metadata(1).json", takeoutSidecar("IMG_2.jpg", 1.6e9))
      .photo(year + longName)
      .json(year + longName.substr(0, 46) + ".json", takeoutSidecar(longName, 1.6e9))
      .json(year + "lonely.jpg.json", takeoutSidecar("lonely.jpg", 1.6e9))
      .text(year + "broken.json", "{\"title\": ")
      .text(year + "print-subscriptions.json", "[]")
      .text(year + ".hidden.jpg", "x")
      .text(kRoot + "archive_browser.html", "<html>");
  const ScanResultPtr result = scanFolder(tree);
  EXPECT_EQ(byName(*result, "IMG_1.jpg").sidecarName, "IMG_1.jpg.supplemental-metadata.json");
  EXPECT_EQ(byName(*result, "IMG_1-edited.jpg").sidecarName,
            "IMG_1.jpg.supplemental-metadata.json");
  EXPECT_EQ(byName(*result, "IMG_2(1).jpg").sidecarName, "IMG_2.jpg.supplemental-metadata(1).json");
  EXPECT_EQ(byName(*result, longName).sidecarName, longName.substr(0, 46) + ".json");
  EXPECT_EQ(result->summary.orphanSidecars, 1);  // lonely.jpg; IMG_1's counts as used once
  EXPECT_EQ(result->summary.unreadableJSON, 1);  // broken.json; ignored names are not read
  EXPECT_EQ(result->summary.sourceFiles, 11);    // hidden files are never collected
  EXPECT_EQ(result->summary.mediaFiles, 4);
}

TEST_F(TakeoutScanTest, ReadsJsonUpToJustUnderFiveMillionBytes) {
  const std::string folder = kRoot + "Photos from 2020/";
  auto padded = [](const std::string& title, std::size_t size) {
    std::string text = takeoutSidecar(title, 1.6e9).dump();
    text.insert(1, size - text.size(), ' ');
    return text;
  };
  ExportTree tree;
  tree.photo(folder + "a.jpg").text(folder + "a.jpg.json", padded("a.jpg", 4'999'999));
  tree.photo(folder + "b.jpg", "plain.jpg", "b")
      .text(folder + "b.jpg.json", padded("b.jpg", 5'000'000));
  const ScanResultPtr result = scanFolder(tree);
  EXPECT_TRUE(byName(*result, "a.jpg").sidecar.has_value());
  EXPECT_FALSE(byName(*result, "b.jpg").sidecar.has_value());
  EXPECT_EQ(result->summary.unreadableJSON, 1);
}

TEST_F(TakeoutScanTest, GroupsLivePhotosMotionPhotosAndEdits) {
  const std::string f = kRoot + "Photos from 2021/";
  ExportTree tree;
  tree.photo(f + "IMG_10.HEIC", "plain.jpg", "10")
      .text(f + "IMG_10.MOV", "movie 10")
      .photo(f + "IMG_10-edited.HEIC", "plain.jpg", "10e")
      .photo(f + "IMG_11.JPG", "plain.jpg", "11")
      .photo(f + "IMG_11-bearbeitet.JPG", "plain.jpg", "11b")
      .photo(f + "PXL_20210101_120000000.jpg", "plain.jpg", "p")
      .text(f + "PXL_20210101_120000000.MP", "mp")
      .photo(f + "MVIMG_1.jpg", "plain.jpg", "m")
      .text(f + "MVIMG_1.mp4", "m4")
      .photo(f + "IMG_12.JPG", "plain.jpg", "12")
      .photo(kRoot + "Other/IMG_12.MOV", "plain.jpg", "12m");
  const ScanResultPtr result = scanFolder(tree);
  std::map<std::string, std::pair<MediaUnit::Kind, std::size_t>> units;
  for (const MediaUnit& unit : result->units) {
    units[unit.files.front()->fileName()] = {unit.kind, unit.files.size()};
  }
  using K = MediaUnit::Kind;
  EXPECT_EQ(units["IMG_10-edited.HEIC"], std::pair(K::livePhoto, std::size_t{3}));
  EXPECT_EQ(units["IMG_11-bearbeitet.JPG"], std::pair(K::editedWithOriginal, std::size_t{2}));
  EXPECT_EQ(units["MVIMG_1.jpg"], std::pair(K::motionPhoto, std::size_t{2}));
  EXPECT_EQ(units["PXL_20210101_120000000.MP"], std::pair(K::motionPhoto, std::size_t{2}));
  EXPECT_EQ(units["IMG_12.JPG"], std::pair(K::single, std::size_t{1}));  // other folder
  EXPECT_EQ(units["IMG_12.MOV"], std::pair(K::single, std::size_t{1}));
  EXPECT_EQ(result->summary.items, 6);
  for (std::size_t i = 0; i < result->units.size(); ++i)
    EXPECT_EQ(result->units[i].id, static_cast<int>(i));
}

TEST_F(TakeoutScanTest, CountsWhatPhotosLackAndWhatCanBeRestored) {
  const std::string f = kRoot + "Photos from 2022/";
  nlohmann::json exifOnly = takeoutSidecar("c.jpg", std::nullopt, std::pair{0.0, 0.0}, "Caption");
  exifOnly["geoDataExif"] = {{"latitude", 48.1}, {"longitude", 11.5}, {"altitude", 0}};
  ExportTree tree;
  tree.photo(f + "a.jpg", "dated.jpg")       // carries date and place
      .photo(f + "b.jpg", "plain.jpg", "b")  // nothing, no sidecar
      .photo(f + "c.jpg", "plain.jpg", "c")
      .json(f + "c.jpg.json", exifOnly)
      .photo(f + "d.jpg", "plain.jpg", "d")
      .json(f + "d.jpg.json", takeoutSidecar("d.jpg", 1.6e9, std::pair{0.0, 0.0}))
      .text(f + "e.mp4", "not really a movie")
      .json(f + "e.mp4.json", takeoutSidecar("e.mp4", 1.6e9, std::nullopt, "Video caption"));
  const ScanResultPtr result = scanFolder(tree);
  const ScanSummary& s = result->summary;
  ASSERT_TRUE(byName(*result, "a.jpg").embedded.has_value());
  EXPECT_TRUE(byName(*result, "a.jpg").embedded->captureDate.has_value());
  EXPECT_FALSE(byName(*result, "e.mp4").embedded.has_value());  // videos are never read here
  EXPECT_EQ(s.photos, 4);
  EXPECT_EQ(s.videos, 1);
  EXPECT_EQ(s.withSidecar, 3);
  EXPECT_EQ(s.withoutSidecar, 2);
  EXPECT_EQ(s.photosMissingDate, 3);
  EXPECT_EQ(s.datesRecoverable, 1);  // d
  EXPECT_EQ(s.photosMissingLocation, 3);
  EXPECT_EQ(s.locationsRecoverable, 1);  // c, through geoDataExif
  EXPECT_EQ(s.captionsInTakeout, 2);
}

TEST_F(TakeoutScanTest, ReportsProgressAtItsIntervalsOnly) {
  for (int count : {199, 200}) {
    SCOPED_TRACE(count);
    TempDir dir;
    ExportTree tree;
    for (int i = 0; i < count; ++i) {
      tree.text(kRoot + "Photos from 2019/v" + std::to_string(i) + ".mp4", std::to_string(i));
    }
    tree.writeFolder(dir / "export");
    std::vector<WorkProgress> reports;
    ExportScanner::scan({dir / "export"}, [&](const WorkProgress& p) { reports.push_back(p); });
    std::vector<WorkProgress> expected = {{"Reading the export", 0, 0}};
    if (count == 200) expected.push_back({"Matching photos to metadata", 200, 200});
    expected.push_back({"Scan complete", count, count});
    EXPECT_EQ(reports, expected);
  }
}

TEST_F(TakeoutScanTest, CountsOnlyZipPartsThatContributedFiles) {
  ExportTree().photo(kRoot + "Photos from 2019/a.jpg").writeZip(dir_ / "p1.zip");
  ExportTree().photo(kRoot + "Photos from 2019/b.jpg", "plain.jpg", "b").writeZip(dir_ / "p2.zip");
  ExportTree().text("__MACOSX/Takeout/._a.jpg", "fork").writeZip(dir_ / "p3.zip");
  const ScanResultPtr result =
      ExportScanner::scan({dir_ / "p1.zip", dir_ / "p2.zip", dir_ / "p3.zip"});
  EXPECT_EQ(result->summary.zipParts, 2);
  EXPECT_EQ(result->summary.mediaFiles, 2);
  EXPECT_EQ(result->inputs.size(), 3u);
}

TEST_F(TakeoutScanTest, FailsWhenACopyCannotBeReadForComparison) {
  ExportTree tree;
  tree.photo(kRoot + "Photos from 2019/a.jpg").photo(kRoot + "Album/a.jpg");
  tree.writeZip(dir_ / "part.zip");
  Bytes bytes = testing::readFile(dir_ / "part.zip");
  // Damage the first entry's data: its checksum fails when the copies are compared.
  bytes[30 + (kRoot + "Photos from 2019/a.jpg").size() + 5] ^= 0xFF;
  testing::writeFile(dir_ / "part.zip", bytes);
  EXPECT_THROW(ExportScanner::scan({dir_ / "part.zip"}), QuillmereError);
}

TEST_F(TakeoutScanTest, AnEmptyExportIsAnEmptyTakeoutResult) {
  std::filesystem::create_directories(dir_ / "empty");
  const ScanResultPtr result = ExportScanner::scan({dir_ / "empty", dir_ / "missing"});
  EXPECT_EQ(result->kind, ExportKind::googleTakeout);
  EXPECT_TRUE(result->files.empty());
  EXPECT_EQ(result->summary, ScanSummary{});
}

}  // namespace
}  // namespace quillmere
