#include "core/repair/repair_engine.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "core/dates/exif_date.h"
#include "core/scan/export_scanner.h"
#include "core/sources/quillmere_error.h"
#include "tests/support/child_process.h"
#include "tests/support/export_tree.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

// Whole repairs of real exports, read back with exiftool and ffprobe.
namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

const fs::path kExamples = fs::path(QUILLMERE_SOURCE_DIR) / "examples";
constexpr double kJuly31Late = 1564615800;  // 2019-07-31 23:30:00 UTC: August in Tokyo

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// exiftool's reading of `file`: dates, signed GPS, captions and keywords.
nlohmann::json exiftool(const fs::path& file) {
  const auto result = testing::runCommand(
      {"exiftool", "-j", "-n", "-DateTimeOriginal", "-OffsetTimeOriginal", "-Composite:GPSLatitude",
       "-Composite:GPSLongitude", "-ImageDescription", "-Caption-Abstract", "-XMP:Description",
       "-Keywords", "-Subject", "-Error", file.string()});
  if (result.exitCode != 0) return nlohmann::json::object({{"Error", result.err}});
  return nlohmann::json::parse(result.out).at(0);
}

// Every photo below `folder`, with its date as exiftool reads it (or its error): one call.
void expectEveryPhotoCompleteAndDated(const fs::path& folder) {
  if (!fs::exists(folder)) return;
  const auto result = testing::runCommand(
      {"exiftool", "-j", "-r", "-ext", "jpg", "-DateTimeOriginal", "-Error", folder.string()});
  if (result.out.empty()) return;  // no photo there yet
  for (const auto& tags : nlohmann::json::parse(result.out)) {
    SCOPED_TRACE(tags.dump());
    EXPECT_FALSE(tags.contains("Error"));
    EXPECT_TRUE(tags.contains("DateTimeOriginal"));
  }
}

std::vector<std::string> keywordsOf(const nlohmann::json& tags) {
  std::vector<std::string> all;
  for (const char* key : {"Keywords", "Subject"}) {
    if (!tags.contains(key)) continue;
    if (tags[key].is_array()) {
      for (const auto& k : tags[key]) all.push_back(k.get<std::string>());
    } else {
      all.push_back(tags[key].get<std::string>());
    }
  }
  return all;
}

// Every path below `root`, relative, sorted; folders end in "/".
std::vector<std::string> listing(const fs::path& root) {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    paths.push_back(fs::relative(entry.path(), root).string() + (entry.is_directory() ? "/" : ""));
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

const RepairRow* rowFor(const RepairResult& result, std::string_view outputSuffix) {
  for (const RepairRow& row : result.rows) {
    if (row.output.ends_with(outputSuffix)) return &row;
  }
  return nullptr;
}

// Scans `inputs`, repairs into `destination` and checks that the inputs did not change and
// that no work folder is left.
class RepairTest : public ::testing::Test {
 protected:
  RepairResultPtr repair(const std::vector<fs::path>& inputs, RepairOptions options,
                         const CancelQuery& cancel = {}) {
    const auto scan = ExportScanner::scan(inputs);
    return run(*scan, options, {}, cancel);
  }
  RepairResultPtr run(const ScanResult& scan, const RepairOptions& options,
                      const ProgressCallback& progress = {}, const CancelQuery& cancel = {}) {
    for (const auto& input : scan.inputs) watch(input);
    auto result = RepairEngine::run(scan, options, progress, cancel);
    EXPECT_FALSE(fs::exists(result->outputFolder() / ".work"));
    return result;
  }
  void watch(const fs::path& input) {
    if (!snapshots_.contains(input)) snapshots_[input] = snapshot(input);
  }
  void TearDown() override {
    for (const auto& [input, before] : snapshots_) {
      EXPECT_EQ(snapshot(input), before) << input << " changed";
    }
  }
  static std::map<std::string, std::string> snapshot(const fs::path& input) {
    if (fs::is_directory(input)) return testing::snapshotTree(input);
    return {{"", slurp(input)}};
  }

  const ScopedEnvironment utc_{"TZ", "UTC"};  // guessed zones must not depend on the machine
  TempDir in_;                                // generated exports; outlives TearDown's check
  TempDir out_;
  std::map<fs::path, std::map<std::string, std::string>> snapshots_;
};

TEST_F(RepairTest, TheTakeoutSampleGetsDatesZonesPlacesCaptionsAndAlbums) {
  const auto result = repair({kExamples / "takeout-20240101T000000Z-001.zip",
                              kExamples / "takeout-20240101T000000Z-002.zip"},
                             {out_.path(), true});
  const fs::path runFolder = result->outputFolder();
  EXPECT_EQ(runFolder.parent_path(), out_.path());
  EXPECT_TRUE(runFolder.filename().string().starts_with("Quillmere Repair "));
  EXPECT_EQ(result->summary.items, 10);
  EXPECT_EQ(result->summary.failed, 0);
  EXPECT_EQ(result->summary.files, static_cast<std::int64_t>(result->rows.size()));
  for (const RepairRow& row : result->rows) {
    SCOPED_TRACE(row.output);
    EXPECT_TRUE(fs::is_regular_file(runFolder / row.output));
    EXPECT_NE(row.status, RepairRow::Status::failed) << ::testing::PrintToString(row.notes);
  }

  // A photo without a date of its own: Google's instant in Lisbon's zone, with place.
  const RepairRow* edited = rowFor(*result, "/IMG_0002.JPG");
  ASSERT_NE(edited, nullptr);
  EXPECT_EQ(edited->output, "Photos/2019/2019-06/IMG_0002.JPG");
  EXPECT_EQ(edited->timeZoneSource, OffsetSource::location);
  const auto tags = exiftool(runFolder / edited->output);
  EXPECT_EQ(tags.value("DateTimeOriginal", ""), edited->dateAfter);
  EXPECT_EQ(tags.value("OffsetTimeOriginal", ""), "+01:00");
  ASSERT_TRUE(edited->location.has_value());
  EXPECT_NEAR(tags.value("GPSLatitude", 0.0), edited->location->latitude, 1e-5);
  EXPECT_NEAR(tags.value("GPSLongitude", 0.0), edited->location->longitude, 1e-5);

  // The Live Photo's halves share a folder and its album; the album list names both.
  const RepairRow* still = rowFor(*result, "/IMG_0003.HEIC");
  const RepairRow* movie = rowFor(*result, "/IMG_0003.MOV");
  ASSERT_TRUE(still && movie);
  EXPECT_EQ(fs::path(still->output).parent_path(), fs::path(movie->output).parent_path());
  EXPECT_EQ(still->item, movie->item);
  EXPECT_EQ(slurp(runFolder / "Albums" / "Lisbon 2019.txt"),
            "# Lisbon 2019\n../Photos/2019/2019-06/IMG_0001.JPG\n"
            "../Photos/2019/2019-06/IMG_0003.HEIC\n../Photos/2019/2019-06/IMG_0003.MOV");
  const RepairRow* inAlbum = rowFor(*result, "/IMG_0001.JPG");
  ASSERT_NE(inAlbum, nullptr);
  const auto albumTags = exiftool(runFolder / inAlbum->output);
  const auto keywords = keywordsOf(albumTags);
  EXPECT_NE(std::find(keywords.begin(), keywords.end(), "Lisbon 2019"), keywords.end())
      << albumTags.dump();

  // The movie, read by ffprobe: Google's place and caption in its QuickTime items.
  const RepairRow* video = rowFor(*result, "/VID_0006.mp4");
  ASSERT_NE(video, nullptr);
  std::map<std::string, std::string> movieTags;
  for (const auto& [key, value] : testing::movieTags(runFolder / video->output))
    movieTags[key] = value;
  EXPECT_EQ(movieTags["com.apple.quicktime.location.ISO6709"], "+040.4168-0003.7038+0.000/");
  EXPECT_EQ(movieTags["com.apple.quicktime.description"], "Plaza Mayor at breakfast");
  EXPECT_EQ(movieTags["creation_time"], "2020-08-08T08:08:08.000000Z");

  // The four report files, byte for byte (summary.json apart from its time of writing).
  const fs::path expected = fs::path(QUILLMERE_TEST_DATA) / "repair";
  EXPECT_EQ(slurp(result->reportFolder() / "changes.csv"), slurp(expected / "takeout-changes.csv"));
  const std::string changes = slurp(expected / "takeout-changes.csv");
  EXPECT_EQ(slurp(result->reportFolder() / "couldnt-fix.csv"),
            changes.substr(0, changes.find('\n') + 1));  // nothing failed: the header alone
  EXPECT_EQ(slurp(runFolder / "README.txt"), slurp(expected / "takeout-README.txt"));
  auto summary = nlohmann::json::parse(slurp(result->reportFolder() / "summary.json"));
  EXPECT_TRUE(summary["createdAt"].get<std::string>().ends_with("Z"));
  summary.erase("createdAt");
  auto expectedSummary = nlohmann::json::parse(slurp(expected / "takeout-summary.json"));
  for (auto& input : expectedSummary["inputs"]) {
    input = kExamples.string() + input.get<std::string>().substr(std::string("{examples}").size());
  }
  EXPECT_EQ(summary, expectedSummary);
  for (const std::string& path : listing(runFolder)) {
    EXPECT_TRUE(path.starts_with("Photos/") || path.starts_with("Albums/") ||
                path.starts_with("Report/") || path == "Albums/" || path == "Photos/" ||
                path == "Report/" || path == "README.txt")
        << path;
  }
}

TEST_F(RepairTest, TheSnapchatSampleGetsCompositesAndExtras) {
  const auto result = repair({kExamples / "snapchat"}, {out_.path(), true});
  const fs::path runFolder = result->outputFolder();
  EXPECT_EQ(result->summary.failed, 0);
  EXPECT_GE(result->summary.overlaysMerged, 1);
  for (const RepairRow& row : result->rows) {
    SCOPED_TRACE(row.output);
    if (!row.overlayMerged) continue;
    const fs::path photo(row.output);
    const fs::path original =
        runFolder / "Extras" / "Without overlays" / fs::relative(photo, "Photos");
    EXPECT_TRUE(fs::is_regular_file(runFolder / photo));
    EXPECT_TRUE(fs::is_regular_file(original));
    // Both carry the decided date.
    for (const fs::path& file : {runFolder / photo, original}) {
      const auto tags = exiftool(file);
      EXPECT_EQ(tags.value("DateTimeOriginal", ""), row.dateAfter) << file;
    }
    EXPECT_NE(std::find(row.notes.begin(), row.notes.end(),
                        "Caption/sticker overlay merged into the photo; original without it is "
                        "in Extras/Without overlays"),
              row.notes.end());
  }
}

TEST_F(RepairTest, MonthFoldersFollowTheLocalDateAndLivePhotosStayTogether) {
  const TempDir& work = in_;
  const fs::path root = work / "Takeout";
  const fs::path year = root / "Google Photos" / "Photos from 2019";
  fs::create_directories(year);
  // Taken late on 31 July UTC in Tokyo: 1 August there.
  testing::makePhoto(year / "TOKYO.jpg", testing::PhotoFormat::jpeg, 32, 24);
  testing::ExportTree()
      .json("Google Photos/Photos from 2019/TOKYO.jpg.json",
            testing::takeoutSidecar("TOKYO.jpg", kJuly31Late, std::pair{35.6812, 139.7671},
                                    "Station"))
      .writeFolder(root);
  // A Live Photo: the still dated in July by its sidecar, the movie without any date.
  testing::makePhoto(year / "IMG_7.HEIC", testing::PhotoFormat::heic, 32, 24);
  testing::makeMovie(year / "IMG_7.MOV", 32, 24);
  testing::ExportTree()
      .json("Google Photos/Photos from 2019/IMG_7.HEIC.json",
            testing::takeoutSidecar("IMG_7.HEIC", 1562247000, std::pair{38.7223, -9.1393}))
      .writeFolder(root);

  const auto result = repair({root}, {out_.path(), true});
  const fs::path runFolder = result->outputFolder();
  const RepairRow* tokyo = rowFor(*result, "TOKYO.jpg");
  ASSERT_NE(tokyo, nullptr);
  EXPECT_EQ(tokyo->output, "Photos/2019/2019-08/TOKYO.jpg");
  EXPECT_EQ(tokyo->dateAfter, "2019:08:01 08:30:00");
  EXPECT_EQ(tokyo->timeZone, "UTC+09:00");
  EXPECT_TRUE(tokyo->captionWritten);
  const auto tags = exiftool(runFolder / tokyo->output);
  EXPECT_EQ(tags.value("DateTimeOriginal", ""), "2019:08:01 08:30:00");
  EXPECT_EQ(tags.value("OffsetTimeOriginal", ""), "+09:00");
  EXPECT_NEAR(tags.value("GPSLatitude", 0.0), 35.6812, 1e-5);
  EXPECT_NEAR(tags.value("GPSLongitude", 0.0), 139.7671, 1e-5);
  const std::string caption = tags.value("ImageDescription", tags.value("Description", ""));
  EXPECT_EQ(caption, "Station") << tags.dump();

  const RepairRow* still = rowFor(*result, "IMG_7.HEIC");
  const RepairRow* movie = rowFor(*result, "IMG_7.MOV");
  ASSERT_TRUE(still && movie);
  EXPECT_EQ(still->output, "Photos/2019/2019-07/IMG_7.HEIC");
  EXPECT_EQ(movie->output, "Photos/2019/2019-07/IMG_7.MOV");
  EXPECT_EQ(still->itemKind, MediaUnit::Kind::livePhoto);
  // ffprobe reads the movie copy like any other.
  EXPECT_NO_THROW(testing::movieTags(runFolder / movie->output));
}

// A zip part whose second photo is damaged, and names that clash in every letter case.
TEST_F(RepairTest, ADamagedEntryFailsOnlyItsFileAndClashingNamesGetNumbers) {
  const TempDir& work = in_;
  const fs::path photoA = work / "a.jpg", photoB = work / "b.jpg", photoC = work / "c.jpg";
  testing::makePhoto(photoA, testing::PhotoFormat::jpeg, 20, 20);
  testing::makePhoto(photoB, testing::PhotoFormat::jpeg, 24, 20);
  testing::makePhoto(photoC, testing::PhotoFormat::jpeg, 28, 20);
  const auto sidecar = [](const std::string& name) {
    return testing::toBytes(testing::takeoutSidecar(name, 1562247000).dump());
  };
  testing::ZipBuilder zip;
  const auto add = [&](const std::string& path, Bytes content, std::optional<std::uint32_t> crc) {
    testing::ZipEntryDraft draft;
    draft.name = testing::toBytes(path);
    draft.content = std::move(content);
    draft.crc = crc;
    zip.add(std::move(draft));
  };
  const std::string folder = "Takeout/Google Photos/Photos from 2019/";
  add(folder + "IMG_1.JPG", testing::readFile(photoA), std::nullopt);
  add(folder + "IMG_1.JPG.json", sidecar("IMG_1.JPG"), std::nullopt);
  add("Takeout/Google Photos/Trip/img_1.jpg", testing::readFile(photoB), std::nullopt);
  add("Takeout/Google Photos/Trip/img_1.jpg.json", sidecar("img_1.jpg"), std::nullopt);
  add(folder + "Img_1.Jpg", testing::readFile(photoC), 0x12345678u);  // damaged
  add(folder + "Img_1.Jpg.json", sidecar("Img_1.Jpg"), std::nullopt);
  const fs::path part = work / "takeout-001.zip";
  zip.write(part);

  const auto result = repair({part}, {out_.path(), true});
  std::vector<std::string> outputs;
  const RepairRow* damaged = nullptr;
  for (const RepairRow& row : result->rows) {
    if (row.status == RepairRow::Status::failed) damaged = &row;
    if (!row.output.empty()) outputs.push_back(row.output);
  }
  ASSERT_NE(damaged, nullptr);
  EXPECT_EQ(damaged->output, "");
  EXPECT_EQ(damaged->notes, std::vector<std::string>{
                                QuillmereError::checksumMismatch(folder + "Img_1.Jpg").what()});
  std::sort(outputs.begin(), outputs.end());
  EXPECT_EQ(outputs, (std::vector<std::string>{"Photos/2019/2019-07/IMG_1.JPG",
                                               "Photos/2019/2019-07/img_1 (2).jpg"}));
  EXPECT_EQ(result->summary.failed, 1);
  const auto copies = listing(result->outputFolder() / "Photos" / "2019" / "2019-07");
  EXPECT_EQ(std::count_if(copies.begin(), copies.end(),
                          [](const std::string& name) { return !name.ends_with(".xmp"); }),
            2);
  // The album list of "Trip" points at the renamed copy.
  EXPECT_EQ(slurp(result->outputFolder() / "Albums" / "Trip.txt"),
            "# Trip\n../Photos/2019/2019-07/img_1 (2).jpg");
}

// An export of `count` dated photos in one folder.
fs::path datedExport(const fs::path& root, int count, int size = 24, bool noisy = false) {
  const fs::path folder = root / "Google Photos" / "Photos from 2019";
  fs::create_directories(folder);
  testing::ExportTree tree;
  for (int i = 0; i < count; ++i) {
    const std::string name = "IMG_" + std::to_string(1000 + i) + ".jpg";
    testing::makePhoto(folder / name, testing::PhotoFormat::jpeg, size + i, size, noisy);
    tree.json("Google Photos/Photos from 2019/" + name + ".json",
              testing::takeoutSidecar(name, 1562247000 + 3600.0 * i, std::pair{48.8566, 2.3522}));
  }
  tree.writeFolder(root);
  return root;
}

TEST_F(RepairTest, ACancelledRunStillWritesListsAndReportForTheItemsReached) {
  const TempDir& work = in_;
  const fs::path root = datedExport(work / "Takeout", 5);
  const auto scan = ExportScanner::scan({root});
  for (const auto& file : scan->files) file->albums = {"Paris"};
  int asked = 0;
  std::vector<WorkProgress> progress;
  const auto result = run(
      *scan, {out_.path(), true}, [&](const WorkProgress& p) { progress.push_back(p); },
      [&] { return ++asked > 3; });
  EXPECT_EQ(result->summary.items, 5);
  EXPECT_EQ(result->rows.size(), 3u);
  EXPECT_EQ(progress,
            (std::vector<WorkProgress>{
                {"Repairing", 0, 5}, {"Repairing", 1, 5}, {"Repairing", 2, 5}, {"Done", 5, 5}}));
  const std::string list = slurp(result->outputFolder() / "Albums" / "Paris.txt");
  EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 3);
  const std::string changes = slurp(result->reportFolder() / "changes.csv");
  EXPECT_EQ(std::count(changes.begin(), changes.end(), '\n'), 4);
}

TEST_F(RepairTest, ManyItemsKeepTheirOrderNamesAndOwnBytesWhateverIsDoneSideBySide) {
  // 75 different photos, all named IMG_1.jpg, each in its own album with its own date: more
  // items than are ever handled at once, so any mix-up of order or content shows in the names
  // and dates of the copies.
  const TempDir& work = in_;
  const fs::path root = work / "Takeout";
  constexpr int kCount = 75;
  testing::ExportTree tree;
  for (int i = 0; i < kCount; ++i) {
    const std::string album = "Google Photos/Album " + std::to_string(1000 + i) + "/";
    fs::create_directories(root / album);
    testing::makePhoto(root / album / "IMG_1.jpg", testing::PhotoFormat::jpeg, 16 + i, 16);
    tree.json(album + "IMG_1.jpg.json",
              testing::takeoutSidecar("IMG_1.jpg", kJuly31Late - 60.0 * i));
  }
  tree.writeFolder(root);
  const auto result = repair({root}, {out_.path(), true});
  ASSERT_EQ(result->rows.size(), static_cast<std::size_t>(kCount));
  const auto tags = testing::runCommand(
      {"exiftool", "-j", "-r", "-DateTimeOriginal", (result->outputFolder() / "Photos").string()});
  std::map<std::string, std::string> dateOf;  // copy's name → its date as exiftool reads it
  for (const auto& photo : nlohmann::json::parse(tags.out)) {
    dateOf[fs::path(photo["SourceFile"].get<std::string>()).filename().string()] =
        photo.value("DateTimeOriginal", "");
  }
  for (int n = 0; n < kCount; ++n) {
    const RepairRow& row = result->rows[static_cast<std::size_t>(n)];
    SCOPED_TRACE(row.source);
    EXPECT_EQ(row.item, n + 1);
    const std::string name = n == 0 ? "IMG_1.jpg" : "IMG_1 (" + std::to_string(n + 1) + ").jpg";
    EXPECT_EQ(row.output, "Photos/2019/2019-07/" + name);
    // The album's number says which date its photo was given.
    const int album = std::stoi(row.source.substr(row.source.find("Album ") + 6, 4)) - 1000;
    EXPECT_EQ(dateOf[name], ExifDate::format(kJuly31Late - 60.0 * album, 0).substr(0, 19));
  }
}

TEST_F(RepairTest, RunLevelFailuresEndTheRunWithoutAWorkFolder) {
  const TempDir& work = in_;
  const fs::path root = datedExport(work / "Takeout", 2);
  const auto scan = ExportScanner::scan({root});
  watch(root);
  const struct {
    std::string name;
    std::function<void(const fs::path& runFolder)> sabotage;  // at the first item
  } cases[] = {
      {"dated folder blocked by a file",
       [](const fs::path& run) { std::ofstream(run / "Photos") << "in the way"; }},
      {"album lists blocked by a file",
       [](const fs::path& run) { std::ofstream(run / "Albums") << "in the way"; }},
      {"report blocked by a file",
       [](const fs::path& run) { std::ofstream(run / "Report") << "in the way"; }},
  };
  for (const auto& file : scan->files) file->albums = {"A"};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir destination;
    const auto sabotage = [&](const WorkProgress& p) {
      if (p.phase == "Repairing" && p.done == 0) c.sabotage(testing::onlyEntry(destination.path()));
    };
    try {
      RepairEngine::run(*scan, {destination.path(), true}, sabotage);
      ADD_FAILURE() << "no error";
    } catch (const fs::filesystem_error& error) {
      EXPECT_TRUE(error.code() == std::errc::not_a_directory ||
                  error.code() == std::errc::file_exists)
          << error.what();
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
    EXPECT_FALSE(fs::exists(testing::onlyEntry(destination.path()) / ".work"));
  }

  // Inside the export, and an export without media.
  try {
    RepairEngine::run(*scan, {root / "Google Photos" / "out", true});
    ADD_FAILURE() << "accepted";
  } catch (const QuillmereError& error) {
    EXPECT_EQ(error.kind(), QuillmereError::Kind::outputInsideSource);
  }
  EXPECT_FALSE(fs::exists(root / "Google Photos" / "out"));
  ScanResult empty({root});
  EXPECT_THROW(RepairEngine::run(empty, {out_.path(), true}), QuillmereError);
  EXPECT_TRUE(fs::is_empty(out_.path()));
}

TEST_F(RepairTest, AnUnwritableDestinationEndsTheRunWithTheFileSystemsMessage) {
  const TempDir& work = in_;
  const fs::path root = datedExport(work / "Takeout", 1);
  watch(root);
  fs::permissions(work.path(), fs::perms::all);
  fs::permissions(root, fs::perms::all);
  fs::create_directories(work / "locked");
  fs::permissions(work / "locked", fs::perms::owner_read | fs::perms::owner_exec |
                                       fs::perms::group_read | fs::perms::group_exec |
                                       fs::perms::others_read | fs::perms::others_exec);
  const int status = testing::runInChild(
      [&] {
        try {
          const auto scan = ExportScanner::scan({root});
          RepairEngine::run(*scan, {work / "locked" / "out", true});
        } catch (const fs::filesystem_error& error) {
          return error.code() == std::errc::permission_denied ? 0 : 1;
        }
        return 2;
      },
      {.fileSizeBytes = std::nullopt, .withoutRoot = true});
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(fs::is_empty(work / "locked"));
}

TEST_F(RepairTest, ADestinationThatFillsUpFailsTheFilesThatDontFitAndNothingIsHalfWritten) {
  const TempDir& work = in_;
  // Noisy photos of about 12 KB and 90 KB: with a 40 KB file size limit the large ones can't
  // be written, so those files fail while the small ones and the report still get written.
  const fs::path root = work / "Takeout";
  datedExport(root, 3, 120, true);
  const fs::path folder = root / "Google Photos" / "Photos from 2019";
  testing::makePhoto(folder / "BIG.jpg", testing::PhotoFormat::jpeg, 360, 300, true);
  testing::ExportTree()
      .json("Google Photos/Photos from 2019/BIG.jpg.json",
            testing::takeoutSidecar("BIG.jpg", 1562247000, std::pair{48.8566, 2.3522}))
      .writeFolder(root);
  ASSERT_GT(fs::file_size(folder / "BIG.jpg"), 60'000u);
  watch(root);
  const fs::path destination = work / "out";
  const int status = testing::runInChild(
      [&] {
        const auto scan = ExportScanner::scan({root});
        const auto result = RepairEngine::run(*scan, {destination, true});
        return static_cast<int>(result->summary.failed);
      },
      {.fileSizeBytes = 40'000, .withoutRoot = false});
  EXPECT_EQ(status, 1);
  const fs::path runFolder = testing::onlyEntry(destination);
  EXPECT_FALSE(fs::exists(runFolder / ".work"));
  const std::string problems = slurp(runFolder / "Report" / "couldnt-fix.csv");
  EXPECT_NE(problems.find("BIG.jpg,,"), std::string::npos) << problems;
  EXPECT_FALSE(fs::exists(runFolder / "Photos" / "2019" / "2019-07" / "BIG.jpg"));
  expectEveryPhotoCompleteAndDated(runFolder / "Photos");
}

TEST_F(RepairTest, AKilledRunLeavesNoHalfWrittenFileOutsideItsWorkFolder) {
  const TempDir& work = in_;
  const fs::path root = datedExport(work / "Takeout", 24, 200, true);
  watch(root);
  const auto scan = ExportScanner::scan({root});
  const fs::path destination = work / "out";
  for (const int delayMs : {150, 400}) {
    SCOPED_TRACE(delayMs);
    fs::remove_all(destination);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      RepairEngine::run(*scan, {destination, true});
      ::_exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!fs::exists(destination)) continue;
    for (const auto& runFolder : fs::directory_iterator(destination)) {
      for (const std::string& path : listing(runFolder.path())) {
        if (path.starts_with(".work") || path.ends_with("/")) continue;
        SCOPED_TRACE(path);
        EXPECT_FALSE(fs::path(path).filename().string().starts_with(".")) << "a temporary file";
      }
      expectEveryPhotoCompleteAndDated(runFolder.path() / "Photos");
    }
  }
}

}  // namespace
}  // namespace quillmere
