#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/repair/repair_engine.h"
#include "core/scan/export_scanner.h"
#include "tests/support/export_tree.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"

// A Takeout export of real phone HEIC and HEIF photos, one of them the still of a Live Photo,
// repaired whole and read back by exiftool.
namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;

// The Live Photo key: in the still's Apple maker note (tag 0x0011, which exiftool calls
// MediaGroupUUID) and in the movie's QuickTime keys.
constexpr const char* kContentIdentifier = "1745E022-9712-43C7-B024-F308EC6413CB";

nlohmann::json exiftool(const fs::path& file) {
  const auto result = runCommand(
      {"exiftool", "-j", "-n", "-DateTimeOriginal", "-OffsetTimeOriginal", "-Composite:GPSLatitude",
       "-Composite:GPSLongitude", "-ImageDescription", "-XMP:Description", "-MediaGroupUUID",
       "-ContentIdentifier", "-Error", "-Warning", file.string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  return nlohmann::json::parse(result.out).at(0);
}

TEST(HeifRepairTest, PhonePhotosAreWrittenIntoTheFileAndTheLivePhotoKeepsItsKey) {
  const fs::path samples = testing::sharedSamples() / "heif";
  if (!fs::exists(samples / "IMG_2927.HEIC")) GTEST_SKIP() << "no HEIF samples at " << samples;
  const ScopedEnvironment utc{"TZ", "UTC"};
  const testing::TempDir in;
  const testing::TempDir out;
  const fs::path root = in / "Takeout";
  const std::string folder = "Google Photos/Photos from 2020/";
  fs::create_directories(root / folder);
  // Google's instants agree with the photos' own clocks; the places and captions are new,
  // except for the Nokia photo, which has its own place and no date: it gets Google's instant
  // at its place's offset. The Samsung photo's own date has no offset and stays as it is.
  const struct {
    const char* name;
    double taken;
    std::pair<double, double> place;
    const char* caption;
    const char* offset;  // as exiftool reads it afterwards
  } photos[] = {
      {"IMG_2927.HEIC", 1588631951, {40.7580, -73.9855}, "Times Square", "-04:00"},
      {"iphone_13_pro_max.HEIC", 1645012541, {48.8584, 2.2945}, "Tour Eiffel", "+01:00"},
      {"HMD_Nokia_8.3_5G_hdr.heif", 1600000000, {0, 0}, "Sierra de Guadarrama", "+02:00"},
      {"Issue_487.heic", 1593484079, {37.5665, 126.9780}, "Seoul at noon", ""},
  };
  testing::ExportTree tree;
  for (const auto& photo : photos) {
    fs::copy_file(samples / photo.name, root / folder / photo.name);
    tree.json(folder + photo.name + ".json",
              testing::takeoutSidecar(photo.name, photo.taken, photo.place, photo.caption));
  }
  tree.writeFolder(root);
  // The Live Photo's movie, carrying the same key as its still.
  ASSERT_EQ(
      runCommand({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=64x48:rate=10", "-t",
                  "1", "-pix_fmt", "yuv420p", "-metadata",
                  std::string("com.apple.quicktime.content.identifier=") + kContentIdentifier,
                  "-movflags", "+use_metadata_tags", (root / folder / "IMG_2927.MOV").string()})
          .exitCode,
      0);
  const auto exported = testing::snapshotTree(in.path());

  const auto scan = ExportScanner::scan({root});
  const auto result = RepairEngine::run(*scan, {out.path(), true}, {}, {});
  const fs::path runFolder = result->outputFolder();

  EXPECT_EQ(testing::snapshotTree(in.path()), exported);
  EXPECT_EQ(result->summary.failed, 0);
  int written = 0;
  for (const RepairRow& row : result->rows) {
    SCOPED_TRACE(row.output);
    if (!row.output.ends_with(".MOV")) {
      ++written;
      EXPECT_EQ(row.method, "written into file") << ::testing::PrintToString(row.notes);
      EXPECT_NE(row.status, RepairRow::Status::failed) << ::testing::PrintToString(row.notes);
      EXPECT_FALSE(fs::exists(runFolder / (row.output + ".xmp")));
      const nlohmann::json tags = exiftool(runFolder / row.output);
      EXPECT_FALSE(tags.contains("Error")) << tags.dump();
      EXPECT_EQ(tags.value("DateTimeOriginal", ""), row.dateAfter);
      ASSERT_TRUE(row.location.has_value());
      EXPECT_NEAR(tags.value("GPSLatitude", 0.0), row.location->latitude, 1e-5);
      EXPECT_NEAR(tags.value("GPSLongitude", 0.0), row.location->longitude, 1e-5);
      const fs::path name = fs::path(row.output).filename();
      for (const auto& photo : photos) {
        if (name != photo.name) continue;
        // Written into its working copy in place: the images decode as the export's do.
        EXPECT_EQ(testing::heifPixels(runFolder / row.output), testing::heifPixels(samples / name));
        EXPECT_EQ(tags.value("OffsetTimeOriginal", ""), photo.offset);
        EXPECT_EQ(tags.value("ImageDescription", ""), photo.caption);
        EXPECT_EQ(tags.value("Description", ""), photo.caption);
      }
    }
  }
  EXPECT_EQ(written, 4);

  // The Live Photo: both halves in one item and one folder, both keeping the key.
  const RepairRow* still = nullptr;
  const RepairRow* movie = nullptr;
  for (const RepairRow& row : result->rows) {
    if (row.output.ends_with("/IMG_2927.HEIC")) still = &row;
    if (row.output.ends_with("/IMG_2927.MOV")) movie = &row;
  }
  ASSERT_TRUE(still && movie);
  EXPECT_EQ(still->itemKind, MediaUnit::Kind::livePhoto);
  EXPECT_EQ(still->item, movie->item);
  EXPECT_EQ(fs::path(still->output).parent_path(), fs::path(movie->output).parent_path());
  EXPECT_EQ(exiftool(runFolder / still->output).value("MediaGroupUUID", ""), kContentIdentifier);
  EXPECT_EQ(exiftool(runFolder / movie->output).value("ContentIdentifier", ""), kContentIdentifier);
}

}  // namespace
}  // namespace quillmere
