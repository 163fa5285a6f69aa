#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

#include "core/dates/iso_date.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/metadata_fixtures.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

// What each command prints, its exit codes and its error messages.
namespace quillmere {
namespace {

using testing::runCommand;

// Runs quillmere-cli with `args`.
testing::CommandResult cli(std::vector<std::string> args) {
  args.insert(args.begin(), QUILLMERE_CLI);
  return runCommand(args);
}

const std::filesystem::path kExamples = std::filesystem::path(QUILLMERE_SOURCE_DIR) / "examples";

TEST(ScanCommandTest, SummarisesTheSamplesAsTextOrJSON) {
  const auto before = testing::snapshotTree(kExamples);
  const auto result =
      cli({"scan", "--quiet", (kExamples / "takeout-20240101T000000Z-001.zip").string(),
           (kExamples / "takeout-20240101T000000Z-002.zip").string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "Here's what's in your Google Photos export\n"
            "2 selections \u00B7 2 zip parts\n"
            "\n"
            "  10 items \u2014 14 files: 11 photos, 3 videos\n"
            "  1 album \u2014 3 album copies merged\n"
            "  14 with Google's metadata \u2014 all matched\n"
            "\n"
            "What Quillmere will fix\n"
            "  \u2022 9 photos have no date in the file\n"
            "      9 can be restored from Google's metadata\n"
            "  \u2022 10 photos have no place in the file\n"
            "      9 can be restored\n"
            "  \u2022 2 captions are only in Google's metadata\n"
            "      written into the files\n"
            "  \u2022 1 album\n"
            "      saved as keywords and album lists\n"
            "Videos are checked during the repair.\n");

  const auto json = cli({"scan", "--json", "--quiet", (kExamples / "snapchat").string()});
  EXPECT_EQ(json.exitCode, 0) << json.err;
  const nlohmann::json snapchat = nlohmann::json::parse(json.out);
  EXPECT_EQ(snapchat["inputs"], nlohmann::json::array({(kExamples / "snapchat").string()}));
  EXPECT_EQ(snapchat["kind"], "Snapchat");
  EXPECT_EQ(snapchat.size(), 3u);
  EXPECT_EQ(snapchat["summary"], nlohmann::json::parse(R"({"albums": 0, "captionsInTakeout": 0,
      "datesRecoverable": 4, "dayOnly": 1, "duplicateCopies": 0, "historyEntries": 4,
      "items": 5, "locationsRecoverable": 2, "matchedByDate": 1, "matchedByOrder": 2,
      "matchedExact": 1, "mediaFiles": 5, "orphanSidecars": 0, "overlays": 1, "photos": 4,
      "photosMissingDate": 4, "photosMissingLocation": 4, "sourceFiles": 7,
      "unreadableJSON": 0, "videos": 1, "withSidecar": 4, "withoutSidecar": 1,
      "zipParts": 0})"));
  EXPECT_EQ(testing::snapshotTree(kExamples), before);
}

TEST(ScanCommandTest, ExitsWithTwoWhenNothingCanBeScanned) {
  testing::TempDir dir;
  std::filesystem::create_directories(dir / "empty");
  testing::writeFile(dir / "broken.zip", testing::toBytes("PK but not really"));
  const auto before = testing::snapshotTree(dir.path());
  const std::tuple<std::vector<std::string>, std::string> cases[] = {
      {{"scan", "--quiet", (dir / "empty").string()},
       "No photos or videos were found in the selected export.\n"},
      {{"scan", "--quiet", (dir / "broken.zip").string()}, "broken.zip isn't a zip file.\n"},
  };
  for (const auto& [args, err] : cases) {
    const auto result = cli(args);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
}

TEST(ListCommandTest, ListsEveryFileAndReportsDamage) {
  testing::TempDir dir;
  std::filesystem::create_directories(dir / "export/Photos from 2020");
  testing::writeFile(dir / "export/Photos from 2020/a.jpg", testing::toBytes("jpeg bytes"));
  testing::ZipBuilder()
      .add("Takeout/Google Photos/Trip/b.jpg", "second part", 0)
      .add("Takeout/Google Photos/Trip/c.jpg", std::string(3000, 'c'))
      .write(dir / "export/takeout-002.zip");
  Bytes part = testing::readFile(dir / "export/takeout-002.zip");
  part[30 + 32 + 3] ^= 0xFF;  // inside b.jpg's stored data
  testing::writeFile(dir / "damaged.zip", part);
  const auto before = testing::snapshotTree(dir.path());

  const auto listed = cli({"list", (dir / "export").string()});
  EXPECT_EQ(listed.exitCode, 0) << listed.err;
  EXPECT_EQ(listed.out,
            "Photos from 2020/a.jpg\t10\t" + (dir / "export/Photos from 2020/a.jpg").string() +
                "\n"
                "Trip/b.jpg\t11\ttakeout-002.zip \u203A Takeout/Google Photos/Trip/b.jpg\n"
                "Trip/c.jpg\t3000\ttakeout-002.zip \u203A Takeout/Google Photos/Trip/c.jpg\n");
  const auto damaged = cli({"list", "--check", "--quiet", (dir / "damaged.zip").string()});
  EXPECT_EQ(damaged.exitCode, 1);
  EXPECT_EQ(damaged.err,
            "damaged.zip \u203A Takeout/Google Photos/Trip/b.jpg: Takeout/Google Photos/Trip/b.jpg "
            "failed its checksum. The zip may be damaged; try downloading it again.\n"
            "Checked 2 files (3.0 KB): 1 damaged.\n");
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
}

TEST(ListCommandTest, SumsOfLyingSizesSaturateAndPipesSeeEachPhasesLastReport) {
  testing::TempDir dir;
  // Two ZIP64 entries that each claim nearly 2^63 bytes: their sum must not overflow.
  Bytes lying = testing::ZipBuilder()
                    .add({.name = testing::toBytes("a.jpg"), .content = Bytes(10), .zip64 = true})
                    .add({.name = testing::toBytes("b.jpg"), .content = Bytes(10), .zip64 = true})
                    .build();
  const std::string central = "PK\1\2";
  for (auto at = lying.begin();
       (at = std::search(at, lying.end(), central.begin(), central.end())) != lying.end(); ++at) {
    const std::size_t extra = (at - lying.begin()) + 46 + 5 + 4;  // name "a.jpg", block header
    for (int i = 0; i < 8; ++i) lying[extra + i] = i == 7 ? 0x7F : 0xFF;
  }
  testing::writeFile(dir / "lying.zip", lying);
  const auto summed = cli({"list", "--check", "--quiet", (dir / "lying.zip").string()});
  EXPECT_EQ(summed.exitCode, 1) << summed.err;
  EXPECT_THAT(summed.err, ::testing::EndsWith("Checked 2 files (9223372 TB): 2 damaged.\n"));

  // On a pipe, progress shows each phase's first and last report, however fast it went.
  testing::ZipBuilder big;
  for (const char* name : {"a.bin", "b.bin", "c.bin"}) {
    big.add({.name = testing::toBytes(name), .content = Bytes(1500000, 7)});
  }
  big.write(dir / "big.zip");
  const auto before = testing::snapshotTree(dir.path());
  const auto checked = cli({"list", "--check", (dir / "big.zip").string()});
  EXPECT_EQ(checked.exitCode, 0) << checked.err;
  EXPECT_THAT(checked.err, ::testing::StartsWith("Checking 1.0 MB of 4.5 MB\n"));
  EXPECT_THAT(checked.err,
              ::testing::ContainsRegex("\nChecking 4\\.5 MB of 4\\.5 MB(, [0-9.]+ [KMG]?B/s)?\n"
                                       "Checked 3 files \\(4\\.5 MB\\): all intact\\.\n$"));
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
}

TEST(CommandLineTest, MistakesAndMissingInputsAreNamedWithTheSameExitCodes) {
  testing::TempDir dir;
  const std::string missing = (dir / "takeout-001.zp").string();
  const std::string snapchat = (kExamples / "snapchat").string();
  const std::string bare = std::string(QUILLMERE_TEST_DATA) + "/metadata/bare.jpg";
  const auto unknown = [](const std::string& command, const std::string& option) {
    return "quillmere-cli " + command + ": unknown option '" + option + "'\nRun 'quillmere-cli " +
           command + " --help' for its options.\n";
  };
  const std::string noSuch = "quillmere-cli: no such file or folder: " + missing + "\n";
  const std::string offGlobe = " (latitude -90 to 90, longitude -180 to 180)\n";
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{"scan", "-q", snapchat}, 2, unknown("scan", "-q")},
      {{"scan", "--jsn", snapchat}, 2, unknown("scan", "--jsn")},
      {{"list", "-c", snapchat}, 2, unknown("list", "-c")},
      {{"inspect", "--all", bare}, 2, unknown("inspect", "--all")},
      {{"zone", "-q", "0"}, 2, unknown("zone", "-q")},
      {{"zone", "91", "0"}, 2, "quillmere-cli zone: not a position: 91 0" + offGlobe},
      {{"zone", "nan", "inf"}, 2, "quillmere-cli zone: not a position: nan inf" + offGlobe},
      {{"zone", "-33.92", "18.42"}, 0, ""},  // negative numbers are still positions
      {{"scan", "--quiet", missing, snapchat}, 1, noSuch},
      {{"scan", "--quiet", missing},
       2,
       noSuch + "No photos or videos were found in the selected export.\n"},
      {{"list", missing, "--", snapchat}, 1, noSuch},
  };
  for (const auto& [args, exitCode, err] : cases) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const auto result = cli(args);
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.out.empty(), exitCode == 2) << result.out;
  }
  // The exit codes are explained once, in the general help.
  const std::string help = cli({"--help"}).out;
  EXPECT_NE(help.find("Exit status, the same for every command:\n  0  all went well\n  1  "),
            std::string::npos)
      << help;
  EXPECT_EQ(help.find("Exit status", help.find("Exit status") + 1), std::string::npos);
}

TEST(InspectCommandTest, WritesOneJSONLinePerFileWithNullsForWhatIsMissing) {
  const std::string bare = std::string(QUILLMERE_TEST_DATA) + "/metadata/bare.jpg";
  const auto result = cli({"inspect", bare, "/nonexistent/a.jpg"});
  EXPECT_EQ(result.exitCode, 1);  // a file was missing
  EXPECT_EQ(result.out,
            "{\"file\":\"" + bare +
                "\",\"kind\":\"photo\",\"metadata\":{\"captureDate\":null,"
                "\"location\":null,\"caption\":null,\"keywords\":[],"
                "\"pixelWidth\":40,\"pixelHeight\":30}}\n"
                "{\"file\":\"/nonexistent/a.jpg\",\"kind\":\"photo\",\"metadata\":null}\n");
  EXPECT_EQ(result.err, "quillmere-cli: no such file or folder: /nonexistent/a.jpg\n");
  EXPECT_EQ(cli({"inspect"}).exitCode, 2);
  // A folder, or anything else that can't be opened as a file, is named too.
  const auto folder = cli({"inspect", QUILLMERE_TEST_DATA});
  EXPECT_EQ(folder.exitCode, 1);
  EXPECT_EQ(folder.err, "quillmere-cli: couldn't open " + std::string(QUILLMERE_TEST_DATA) +
                            ": Is a directory\n");
}

// An inspect line's metadata read back as a value, to hold against exiftool's reading.
std::optional<EmbeddedMetadata> fromLine(const nlohmann::json& metadata) {
  if (metadata.is_null()) return std::nullopt;
  EmbeddedMetadata m;
  const auto optional = [](const nlohmann::json& value) {
    return value.is_null() ? std::nullopt : std::optional<nlohmann::json>(value);
  };
  if (const auto date = optional(metadata.at("captureDate"))) {
    const std::optional<int> offset = optional(date->at("offsetSeconds"));
    m.captureDate =
        date->contains("local")
            ? EmbeddedMetadata::CaptureDate::local(date->at("local"), offset)
            : EmbeddedMetadata::CaptureDate::absolute(
                  ISODate::parse(date->at("absolute").get<std::string>())->date, offset);
  }
  if (const auto place = optional(metadata.at("location"))) {
    m.location = GeoPoint{place->at("latitude"), place->at("longitude"), std::nullopt};
    if (const auto altitude = optional(place->at("altitude"))) m.location->altitude = *altitude;
  }
  if (const auto caption = optional(metadata.at("caption"))) m.caption = *caption;
  m.keywords = metadata.at("keywords").get<std::vector<std::string>>();
  if (const auto width = optional(metadata.at("pixelWidth"))) m.pixelWidth = *width;
  if (const auto height = optional(metadata.at("pixelHeight"))) m.pixelHeight = *height;
  return m;
}

TEST(InspectCommandTest, AgreesWithExiftoolOnEveryFixture) {
  const std::filesystem::path fixtures = std::filesystem::path(QUILLMERE_TEST_DATA) / "metadata";
  std::vector<std::string> args = {"inspect"};
  for (const auto& fixture : testing::metadataFixtures()) {
    args.push_back((fixtures / fixture.name).string());
  }
  const auto result = cli(args);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  std::istringstream lines(result.out);
  const auto& readings = testing::exiftoolReadings(fixtures);
  for (const auto& fixture : testing::metadataFixtures()) {
    SCOPED_TRACE(fixture.name);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const nlohmann::json printed = nlohmann::json::parse(line);
    EXPECT_EQ(printed.at("kind"), fixture.movie ? "video" : "photo");
    const auto order = fixture.movie ? testing::movieTags(fixtures / fixture.name)
                                     : std::vector<std::pair<std::string, std::string>>{};
    testing::expectSameMetadata(
        fromLine(printed.at("metadata")),
        testing::expectedFromExiftool(readings.at(fixture.name), fixture.movie, order));
  }
}

TEST(ZoneCommandTest, PrintsTheZoneAndItsOffsetOrExitsWithTwo) {
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{"zone", "48.8566", "2.3522"}, 0, "Europe/Paris\n"},
      {{"zone", "48.8566", "2.3522", "2021-07-15T10:00:00Z"}, 0, "Europe/Paris\t+02:00\n"},
      {{"zone", "30", "-40", "2021-01-15T00:00:00Z"}, 0, "Etc/GMT+3\t-03:00\n"},
      {{"zone", "48.8", "east"}, 2, ""},
  };
  for (const auto& [args, exitCode, out] : cases) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const auto result = cli(args);
    EXPECT_EQ(result.exitCode, exitCode) << result.err;
    EXPECT_EQ(result.out, out);
  }
}

TEST(ZoneCommandTest, AMissingOrDamagedGridIsReportedWithExitTwo) {
  testing::TempDir dir;
  testing::writeFile(dir / "tzgrid.zlib", testing::toBytes("not a grid"));
  const std::string missing = (dir / "missing").string();
  const std::tuple<std::string, std::string> cases[] = {
      {missing, "quillmere-cli: Quillmere's data file tzgrid.zlib is missing. Looked in:\n  " +
                    missing +
                    "\nReinstall Quillmere, or set QUILLMERE_RESOURCES to the folder that holds "
                    "tzgrid.zlib.\n"},
      {dir.path().string(), "quillmere-cli: Quillmere's time zone grid " +
                                (dir / "tzgrid.zlib").string() +
                                " can't be read or is damaged. Reinstall Quillmere.\n"},
  };
  for (const auto& [folder, message] : cases) {
    SCOPED_TRACE(folder);
    const ScopedEnvironment resources("QUILLMERE_RESOURCES", folder.c_str());
    for (const auto& args : {std::vector<std::string>{"zone", "0", "0"},
                             std::vector<std::string>{"zone", "--batch"}}) {
      const auto result = cli(args);
      EXPECT_EQ(result.exitCode, 2);
      EXPECT_EQ(result.out, "");
      EXPECT_EQ(result.err, message);
    }
  }
}

}  // namespace
}  // namespace quillmere
