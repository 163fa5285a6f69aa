#include "core/scan/takeout_scanner.h"

#include <gtest/gtest.h>

#include "core/scan/export_scanner.h"
#include "core/sources/folder_file.h"
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
using namespace std::string_literals;

const std::string kRoot = "Takeout/Google Photos/";

// Every counter zero but those named in `counters`, as JSON so a mismatch names its counter.
nlohmann::json summaryWith(const std::string& counters) {
  nlohmann::json summary = ScanSummary();
  summary.update(nlohmann::json::parse(counters));
  return summary;
}

// Scans, checking the export is left exactly as it was.
class TakeoutScanTest : public ::testing::Test {
 protected:
  ScanResultPtr scan(const std::vector<std::filesystem::path>& inputs,
                     const ProgressCallback& progress = nullptr) {
    const auto before = testing::snapshotTree(dir_.path());
    ScanResultPtr result = ExportScanner::scan(inputs, progress);
    EXPECT_EQ(testing::snapshotTree(dir_.path()), before);
    return result;
  }
  ScanResultPtr scanFolder(const ExportTree& tree) {
    tree.writeFolder(dir_ / "export");
    return scan({dir_ / "export"});
  }
  static const MediaFile& byName(const ScanResult& result, const std::string& name) {
    for (const auto& file : result.files) {
      if (file->fileName() == name) return *file;
    }
    throw std::runtime_error("no media file " + name);
  }

  TempDir dir_;
};

TEST_F(TakeoutScanTest, MergesCopiesAndCollectsTheirAlbumsAndSpecialFolders) {
  ExportTree tree;
  tree.photo(kRoot + "Photos from 2019/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Paris/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Family/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Trash/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "PAPIERKORB/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Archive/Zdjęcia z 2019/IMG_1.JPG", "plain.jpg", "one")
      .photo(kRoot + "Photos from 1799/IMG_1.JPG", "plain.jpg", "one")  // not a year
      // Same name and size, other content: stays a file of its own.
      .photo(kRoot + "Paris/IMG_2.JPG", "plain.jpg", "AAA")
      .photo(kRoot + "Family/IMG_2.JPG", "plain.jpg", "BBB")
      .photo(kRoot + "Summer(1)/IMG_3.JPG")
      .json(kRoot + "Summer(1)/metadata.json", {{"title", "Summer"}})
      .json(kRoot + "Family/IMG_1.JPG.json", takeoutSidecar("IMG_1.JPG", 1560000000));
  tree.writeZip(dir_ / "p1.zip");
  ExportTree().text("__MACOSX/Takeout/._a.jpg", "fork").writeZip(dir_ / "p2.zip");  // no files
  for (const ScanResultPtr& result : {scanFolder(tree), scan({dir_ / "p1.zip", dir_ / "p2.zip"})}) {
    SCOPED_TRACE(result->inputs.size() == 2 ? "zip" : "folder");
    EXPECT_EQ(result->summary.zipParts, result->inputs.size() == 2 ? 1 : 0);
    ASSERT_EQ(result->files.size(), 4u);
    const MediaFile& one = byName(*result, "IMG_1.JPG");
    EXPECT_EQ(one.source->logicalPath(), "Archive/Zdjęcia z 2019/IMG_1.JPG");  // years first
    EXPECT_EQ(one.duplicates.size(), 6u);
    EXPECT_EQ(one.albums, (std::vector<std::string>{"Family", "Paris", "Photos from 1799"}));
    EXPECT_EQ(one.specialFolders(), (std::vector<std::string>{"PAPIERKORB", "Trash"}));
    // The album copy's sidecar fills in for the year copy that had none.
    EXPECT_EQ(one.sidecarName(), "IMG_1.JPG.json");
    EXPECT_EQ(result->files[1]->source->logicalPath(), "Family/IMG_2.JPG");
    EXPECT_EQ(byName(*result, "IMG_3.JPG").albums, std::vector<std::string>{"Summer"});
    EXPECT_EQ(result->summary.duplicateCopies, 6);
    EXPECT_EQ(result->summary.albums, 4);
  }
}

TEST_F(TakeoutScanTest, MatchesSidecarsGroupsItemsAndCountsWhatCanBeRestored) {
  const std::string f = kRoot + "Photos from 2020/";
  const std::string longName = "Holiday at the beach with the whole family 2020.jpg";
  nlohmann::json exifOnly = takeoutSidecar("c.jpg", std::nullopt, std::pair{0.0, 0.0}, "Caption");
  exifOnly["geoDataExif"] = {{"latitude", 48.1}, {"longitude", 11.5}, {"altitude", 0}};
  ExportTree tree;
  tree.photo(f + "IMG_1.jpg")
      .json(f + "IMG_1.jpg.supplemental-metadata.json", takeoutSidecar("IMG_1.jpg", 1.6e9))
      .photo(f + "IMG_1-edited.jpg", "plain.jpg", "edit")
      .photo(f + "IMG_2(1).jpg", "plain.jpg", "2")
      .json(f + "IMG_2.jpg.supplemental-metadata(1).json", takeoutSidecar("IMG_2.jpg", 1.6e9))
      .photo(f + longName, "plain.jpg", "long")
      .json(f + longName.substr(0, 46) + ".json", takeoutSidecar(longName, std::nullopt))
      .photo(f + "a.jpg", "dated.jpg")  // carries date and place
      .photo(f + "c.jpg", "plain.jpg", "c")
      .json(f + "c.jpg.json", exifOnly)
      .text(f + "e.mp4", "not really a movie")
      .json(f + "e.mp4.json", takeoutSidecar("e.mp4", 1.6e9, std::nullopt, "Video caption"))
      .json(f + "lonely.jpg.json", takeoutSidecar("lonely.jpg", 1.6e9))
      .text(f + "broken.json", "{\"title\": ")
      .text(f + "print-subscriptions.json", "[]")  // ignored by name, never read
      .text(f + ".hidden.jpg", "x")                // never collected
      .text(kRoot + "archive_browser.html", "<html>")
      .photo(f + "IMG_10.HEIC", "plain.jpg", "10")
      .text(f + "IMG_10.MOV", "movie 10")
      .photo(f + "IMG_10-edited.HEIC", "plain.jpg", "10e")
      .photo(f + "IMG_11-bearbeitet.JPG", "plain.jpg", "11b")
      .photo(f + "IMG_11.JPG", "plain.jpg", "11")
      .photo(f + "PXL_20210101_120000000.jpg", "plain.jpg", "p")
      .text(f + "PXL_20210101_120000000.MP", "mp")
      .photo(f + "MVIMG_1.jpg", "plain.jpg", "m")
      .text(f + "MVIMG_1.mp4", "m4")
      .photo(f + "IMG_12.JPG", "plain.jpg", "12")
      .photo(kRoot + "Other/IMG_12.MOV", "plain.jpg", "12m");  // another folder: no pair
  const ScanResultPtr result = scanFolder(tree);
  std::map<std::string, std::string> units;  // first file -> kind and size
  for (const MediaUnit& unit : result->units) {
    units[unit.files.front()->fileName()] =
        std::string(rawValue(unit.kind)) + std::to_string(unit.files.size());
  }
  EXPECT_EQ(units["IMG_1-edited.jpg"], "editedWithOriginal2");
  EXPECT_EQ(units["IMG_10-edited.HEIC"], "livePhoto3");
  EXPECT_EQ(units["IMG_11-bearbeitet.JPG"], "editedWithOriginal2");
  EXPECT_EQ(units["MVIMG_1.jpg"], "motionPhoto2");
  EXPECT_EQ(units["PXL_20210101_120000000.MP"], "motionPhoto2");
  EXPECT_EQ(units["IMG_12.MOV"], "single1");
  EXPECT_EQ(byName(*result, "IMG_1.jpg").sidecarName(), "IMG_1.jpg.supplemental-metadata.json");
  EXPECT_EQ(byName(*result, "IMG_1-edited.jpg").sidecarName(),
            "IMG_1.jpg.supplemental-metadata.json");
  EXPECT_EQ(byName(*result, "IMG_2(1).jpg").sidecarName(), "IMG_2.jpg.supplemental-metadata(1).json");
  EXPECT_EQ(byName(*result, longName).sidecarName(), longName.substr(0, 46) + ".json");
  // Orphans: lonely.jpg only (IMG_1's counts as used once); unreadable: broken.json.
  EXPECT_EQ(nlohmann::json(result->summary), summaryWith(R"({"sourceFiles": 27, "mediaFiles": 18,
      "photos": 13, "videos": 5, "items": 12, "withSidecar": 6, "withoutSidecar": 12,
      "photosMissingDate": 12, "datesRecoverable": 3, "photosMissingLocation": 12,
      "locationsRecoverable": 1, "captionsInTakeout": 2, "albums": 1, "orphanSidecars": 1,
      "unreadableJSON": 1})"));
}

TEST_F(TakeoutScanTest, KeepsCopiesApartByNameAndCountsSidecarsOfFoldersWithoutMedia) {
  ExportTree tree;
  tree.photo(kRoot + "Photos from 2019/IMG_1.JPG", "plain.jpg", "same")
      .photo(kRoot + "Trip/img_1.jpg", "plain.jpg", "same")  // the same file, name in other case
      .photo(kRoot + "Trip/IMG_9.JPG", "plain.jpg", "same")  // same content, another name
      .json(kRoot + "Trip/unused.jpg.json", takeoutSidecar("unused.jpg", 1.6e9))
      .json(kRoot + "No media/a.jpg.json", takeoutSidecar("a.jpg", 1.6e9))
      .json(kRoot + "No media/b.jpg.json", takeoutSidecar("b.jpg", 1.6e9));
  const ScanResultPtr result = scanFolder(tree);
  ASSERT_EQ(result->files.size(), 2u);
  EXPECT_EQ(result->files[0]->duplicates.size(), 1u);
  EXPECT_EQ(result->files[1]->fileName(), "IMG_9.JPG");
  EXPECT_EQ(result->summary.orphanSidecars, 3);
}

TEST(TakeoutGroupUnitsTest, UnitsFollowTheirFirstFileAndKeepFileOrder) {
  struct Case {
    std::vector<std::string> paths;
    std::vector<std::string> units;  // per unit: kind, then the indices of its files
  };
  const std::vector<Case> cases = {
      {{"a/IMG_1.jpg", "a/IMG_2.jpg", "a/IMG_1.MOV", "b/IMG_1.jpg", "a/img_1-edited.JPG"},
       {"livePhoto 0 2 4", "single 1", "single 3"}},
      {{"x/B.jpg", "x/A.jpg", "x/b-edited.jpg", "x/a.mov"},
       {"editedWithOriginal 0 2", "livePhoto 1 3"}},
      {{"PXL_1.jpg", "PXL_1.MP", "z.jpg"}, {"motionPhoto 0 1", "single 2"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.paths.front());
    std::vector<MediaFilePtr> files;
    for (const std::string& path : c.paths) {
      auto source = std::make_shared<FolderFile>("/nowhere/" + path, path, 1);
      files.push_back(
          std::make_shared<MediaFile>(static_cast<int>(files.size()), source, mediaKindOf(path)));
    }
    std::vector<std::string> units;
    for (const MediaUnit& unit : TakeoutScanner::groupUnits(files)) {
      EXPECT_EQ(unit.id, static_cast<int>(units.size()));
      std::string text(rawValue(unit.kind));
      for (const MediaFilePtr& file : unit.files) text += " " + std::to_string(file->id);
      units.push_back(text);
    }
    EXPECT_EQ(units, c.units);
  }
}

TEST_F(TakeoutScanTest, ReportsProgressAtItsIntervalsOnly) {
  ExportTree tree;
  int made = 0;
  for (int count : {199, 200}) {
    SCOPED_TRACE(count);
    for (; made < count; ++made) {
      tree.text(kRoot + "Photos from 2019/v" + std::to_string(made) + ".mp4", "v");
    }
    std::vector<WorkProgress> reports;
    tree.writeFolder(dir_ / std::to_string(count));
    scan({dir_ / std::to_string(count)}, [&](const WorkProgress& p) { reports.push_back(p); });
    std::vector<WorkProgress> expected = {{"Reading the export", 0, 0}};
    if (count == 200) expected.push_back({"Matching photos to metadata", 200, 200});
    expected.push_back({"Scan complete", count, count});
    EXPECT_EQ(reports, expected);
  }
}

TEST_F(TakeoutScanTest, FailsWhenACopyCannotBeReadForComparison) {
  ExportTree tree;
  tree.photo(kRoot + "Photos from 2019/a.jpg").photo(kRoot + "A/a.jpg").writeZip(dir_ / "p.zip");
  Bytes bytes = testing::readFile(dir_ / "p.zip");
  // Damage the first entry's data: its checksum fails when the copies are compared.
  bytes[30 + (kRoot + "Photos from 2019/a.jpg").size() + 5] ^= 0xFF;
  testing::writeFile(dir_ / "p.zip", bytes);
  const auto before = testing::snapshotTree(dir_.path());
  EXPECT_THROW(ExportScanner::scan({dir_ / "p.zip"}), QuillmereError);
  EXPECT_EQ(testing::snapshotTree(dir_.path()), before);
}

TEST_F(TakeoutScanTest, SurvivesHostileInputAndReadsJsonJustUnderFiveMillionBytes) {
  const std::string f = kRoot + "Photos from 2023/";
  auto padded = [](const std::string& title, std::size_t size) {
    std::string text = takeoutSidecar(title, 1.6e9).dump();
    return text.insert(1, size - text.size(), ' ');
  };
  ExportTree tree;
  tree.photo(f + "a.jpg").text(f + "a.jpg.json", padded("a.jpg", 4'999'999));
  tree.photo(f + "b.jpg", "plain.jpg", "b").text(f + "b.jpg.json", padded("b.jpg", 5'000'000));
  tree.text(f + "bomb.json", std::string(200'000, '[') + std::string(200'000, ']'))
      .text(f + "wide.json", "[" + std::string(4'000'000, '1').insert(1, ",") + "]")
      .text(f + "nul.json", "{\"title\": \"x\"}\0garbage"s)
      .photo(f + "\u5199\u771f.jpg")  // Japanese
      .json(f + "\u5199\u771f.jpg.json", takeoutSidecar("\u5199\u771f.jpg", 1.6e9))
      .text(f + "not-a-photo.jpg", "plain text with a photo's name")
      .text(f + "\xff\xfe broken name.jpg", "bytes that are not UTF-8");
  std::filesystem::create_directories(dir_ / "export/Takeout/Google Photos/Empty");
  const ScanResultPtr result = scanFolder(tree);
  EXPECT_TRUE(byName(*result, "a.jpg").sidecar().has_value());
  EXPECT_FALSE(byName(*result, "b.jpg").sidecar().has_value());
  EXPECT_EQ(result->summary.unreadableJSON, 4);
  EXPECT_EQ(result->summary.mediaFiles, 5);
  EXPECT_TRUE(byName(*result, "\u5199\u771f.jpg").sidecar().has_value());
  EXPECT_FALSE(byName(*result, "not-a-photo.jpg").embedded().has_value());
}

}  // namespace
}  // namespace quillmere
