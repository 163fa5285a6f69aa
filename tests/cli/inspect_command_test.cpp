#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "core/dates/exif_date.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/metadata_fixtures.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;

const fs::path kFixtures = fs::path(QUILLMERE_TEST_DATA) / "metadata";

std::vector<nlohmann::json> lines(const std::string& out) {
  std::vector<nlohmann::json> parsed;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) parsed.push_back(nlohmann::json::parse(line));
  return parsed;
}

// The inspect line's metadata back as a value, to compare with exiftool's reading.
std::optional<EmbeddedMetadata> fromLine(const nlohmann::json& metadata) {
  if (metadata.is_null()) return std::nullopt;
  EmbeddedMetadata m;
  const nlohmann::json& date = metadata.at("captureDate");
  if (!date.is_null()) {
    std::optional<int> offset;
    if (!date.at("offsetSeconds").is_null()) offset = date.at("offsetSeconds").get<int>();
    if (date.contains("local")) {
      m.captureDate = EmbeddedMetadata::CaptureDate::local(date.at("local"), offset);
    } else {
      // "2021-03-04T09:05:00Z": read back through the EXIF notation, independent of the writer.
      std::string text = date.at("absolute");
      EXPECT_EQ(text.size(), 20u);
      EXPECT_EQ(text.back(), 'Z');
      for (char& c : text) c = c == '-' ? ':' : (c == 'T' ? ' ' : c);
      const std::optional<double> utc = ExifDate::wallClockAsUTC(text);
      EXPECT_TRUE(utc.has_value()) << text;
      m.captureDate = EmbeddedMetadata::CaptureDate::absolute(utc.value_or(0), offset);
    }
  }
  const nlohmann::json& location = metadata.at("location");
  if (!location.is_null()) {
    m.location = GeoPoint{location.at("latitude"), location.at("longitude"), std::nullopt};
    if (!location.at("altitude").is_null()) m.location->altitude = location.at("altitude");
  }
  if (!metadata.at("caption").is_null()) m.caption = metadata.at("caption");
  m.keywords = metadata.at("keywords").get<std::vector<std::string>>();
  if (!metadata.at("pixelWidth").is_null()) m.pixelWidth = metadata.at("pixelWidth");
  if (!metadata.at("pixelHeight").is_null()) m.pixelHeight = metadata.at("pixelHeight");
  return m;
}

TEST(InspectCommandTest, AgreesWithExiftoolOnEveryFixture) {
  const auto before = testing::snapshotTree(kFixtures);
  std::vector<std::string> command = {QUILLMERE_CLI, "inspect"};
  for (const auto& fixture : testing::metadataFixtures()) {
    command.push_back((kFixtures / fixture.name).string());
  }
  const auto result = runCommand(command);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const std::vector<nlohmann::json> output = lines(result.out);
  ASSERT_EQ(output.size(), testing::metadataFixtures().size());
  const auto& readings = testing::exiftoolReadings(kFixtures);
  for (std::size_t i = 0; i < output.size(); ++i) {
    const testing::MetadataFixture& fixture = testing::metadataFixtures()[i];
    SCOPED_TRACE(fixture.name);
    const fs::path path = kFixtures / fixture.name;
    EXPECT_EQ(output[i].at("file"), path.string());
    EXPECT_EQ(output[i].at("kind"), fixture.movie ? "video" : "photo");
    const auto order = fixture.movie ? testing::movieTags(path)
                                     : std::vector<std::pair<std::string, std::string>>{};
    testing::expectSameMetadata(
        fromLine(output[i].at("metadata")),
        testing::expectedFromExiftool(readings.at(fixture.name), fixture.movie, order));
    testing::expectSameMetadata(fromLine(output[i].at("metadata")), fixture.expected);
  }
  EXPECT_EQ(testing::snapshotTree(kFixtures), before);
}

TEST(InspectCommandTest, WritesEveryKeyWithNullsForWhatIsMissing) {
  const auto result = runCommand({QUILLMERE_CLI, "inspect", (kFixtures / "bare.jpg").string()});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "{\"file\":\"" + (kFixtures / "bare.jpg").string() +
                            "\",\"kind\":\"photo\",\"metadata\":{\"captureDate\":null,"
                            "\"location\":null,\"caption\":null,\"keywords\":[],"
                            "\"pixelWidth\":40,\"pixelHeight\":30}}\n");
}

TEST(InspectCommandTest, UnreadableFilesHaveNullMetadata) {
  testing::TempDir dir;
  testing::writeFile(dir / "text.jpg", testing::toBytes("not a photo"));
  testing::writeFile(dir / "notes.txt", testing::toBytes("notes"));
  fs::copy_file(kFixtures / "full.jpg", dir / "photo.mov");    // a photo that says it is a movie
  fs::copy_file(kFixtures / "full.jpg", dir / "caf\xE9.jpg");  // a name that is not UTF-8
  const struct {
    std::string name;
    std::string kind;
    bool readable;
  } kCases[] = {
      {"text.jpg", "photo", false},
      {"notes.txt", "other", false},
      {"photo.mov", "video", false},
      {"caf\xE9.jpg", "photo", true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto result = runCommand({QUILLMERE_CLI, "inspect", (dir / c.name).string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::vector<nlohmann::json> output = lines(result.out);  // valid JSON, always
    ASSERT_EQ(output.size(), 1u);
    EXPECT_EQ(output[0].at("kind"), c.kind);
    EXPECT_EQ(!output[0].at("metadata").is_null(), c.readable);
  }
}

TEST(InspectCommandTest, ReportsMissingFilesAndBadUsage) {
  const struct {
    std::vector<std::string> args;
    int exitCode;
    std::size_t lines;
  } kCases[] = {
      {{"inspect", "/nonexistent/a.jpg", (kFixtures / "full.jpg").string()}, 1, 2},
      {{"inspect"}, 2, 0},
      {{"inspect", "--frobnicate"}, 2, 0},
      {{"inspect", "--help"}, 0, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.args.back());
    std::vector<std::string> command = {QUILLMERE_CLI};
    command.insert(command.end(), c.args.begin(), c.args.end());
    const auto result = runCommand(command);
    EXPECT_EQ(result.exitCode, c.exitCode);
    if (c.lines > 0) {
      EXPECT_EQ(lines(result.out).size(), c.lines);
    }
  }
}

}  // namespace
}  // namespace quillmere
