#include <gtest/gtest.h>
#include <stdlib.h>

#include "core/dates/time_zone_map.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tz_grid_builder.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::runCommand;
using testing::TempDir;
using testing::TzGridBuilder;

TEST(ZoneCommandTest, PrintsTheZoneAndItsOffsetAtAnInstant) {
  const struct {
    std::vector<std::string> args;
    std::string out;
  } cases[] = {
      {{"48.8566", "2.3522"}, "Europe/Paris\n"},
      {{"48.8566", "2.3522", "2021-07-15T10:00:00Z"}, "Europe/Paris\t+02:00\n"},
      {{"48.8566", "2.3522", "2021-01-15T10:00:00.250Z"}, "Europe/Paris\t+01:00\n"},
      {{"27.7172", "85.3240", "2021-06-01T00:00:00+05:45"}, "Asia/Kathmandu\t+05:45\n"},
      {{"-34.9285", "138.6007", "2021-01-15T00:00:00Z"}, "Australia/Adelaide\t+10:30\n"},
      {{"-43.9535", "-176.5597", "2021-07-15T00:00:00Z"}, "Pacific/Chatham\t+12:45\n"},
      {{"10.4806", "-66.9036", "2010-01-01T00:00:00-0430"}, "America/Caracas\t-04:30\n"},
      {{"47.5615", "-52.7126", "2021-01-15T00:00:00Z"}, "America/St_Johns\t-03:30\n"},
      {{"22.5726", "88.3639", "2021-01-15T00:00:00Z"}, "Asia/Kolkata\t+05:30\n"},
      {{"30", "-40", "2021-01-15T00:00:00Z"}, "Etc/GMT+3\t-03:00\n"},
      {{"-90", "0"}, "none\n"},
      {{"nan", "0", "2021-01-15T00:00:00Z"}, "none\n"},
      {{"0", "180.5"}, "none\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0] + " " + c.args[1]);
    std::vector<std::string> argv = {QUILLMERE_CLI, "zone"};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    const auto result = runCommand(argv);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, c.out);
  }
}

TEST(ZoneCommandTest, BadArgumentsExitWithTwo) {
  const std::vector<std::string> cases[] = {
      {},
      {"48.8"},
      {"48.8", "2.3", "2021-07-15T10:00:00Z", "extra"},
      {"48,8", "2.3"},
      {"48.8", "east"},
      {"48.8", "2.3", "2021-07-15"},
      {"48.8", "2.3", "2021-07-15T10:00:00Zulu"},
      {"48.8", "2.3", "2021-07-15T10:00:00+02:00x"},
  };
  for (const auto& args : cases) {
    std::vector<std::string> argv = {QUILLMERE_CLI, "zone"};
    argv.insert(argv.end(), args.begin(), args.end());
    SCOPED_TRACE(::testing::PrintToString(args));
    const auto result = runCommand(argv);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
  const auto help = runCommand({QUILLMERE_CLI, "zone", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Usage: quillmere-cli zone LATITUDE LONGITUDE [INSTANT]"),
            std::string::npos);
}

TEST(ZoneCommandTest, BatchModeAnswersOneLinePerLine) {
  TempDir dir;
  testing::writeFile(dir / "points.txt",
                     testing::toBytes("48.8566 2.3522\n30 -40\nnot a point\n-90 0\n"));
  const auto result = runCommand({"/bin/sh", "-c", "\"$0\" zone --batch < \"$1\"", QUILLMERE_CLI,
                                  (dir / "points.txt").string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "Europe/Paris\nEtc/GMT+3\nnone\nnone\n");
}

// Runs the zone command at Paris with QUILLMERE_RESOURCES naming `folder`.
testing::CommandResult zoneWithResources(const std::filesystem::path& folder) {
  const char* old = getenv("QUILLMERE_RESOURCES");
  const std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
  setenv("QUILLMERE_RESOURCES", folder.c_str(), 1);
  auto result = runCommand({QUILLMERE_CLI, "zone", "48.8566", "2.3522"});
  if (saved) {
    setenv("QUILLMERE_RESOURCES", saved->c_str(), 1);
  } else {
    unsetenv("QUILLMERE_RESOURCES");
  }
  return result;
}

TEST(ZoneCommandTest, UsesTheResourceFolderOverride) {
  TempDir dir;
  testing::writeFile(dir / TimeZoneMap::kFileName,
                     TzGridBuilder(360, 180, 1, {"Etc/GMT", "Asia/Tokyo"}, 1).compressed());
  const auto result = zoneWithResources(dir.path());
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "Asia/Tokyo\n");
}

TEST(ZoneCommandTest, AMissingOrDamagedGridFindsNoZone) {
  const Bytes good = TzGridBuilder(360, 180, 1, {"Asia/Tokyo"}, 0).compressed();
  Bytes truncated(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() / 2));
  Bytes wrongMagic = TzGridBuilder(360, 180, 1, {"Asia/Tokyo"}, 0).encode();
  wrongMagic[0] = 'X';
  const struct {
    const char* name;
    std::optional<Bytes> content;
  } cases[] = {
      {"missing", std::nullopt},
      {"truncated", truncated},
      {"wrong magic", testing::zlibCompress(wrongMagic)},
      {"not compressed", TzGridBuilder(360, 180, 1, {"Asia/Tokyo"}, 0).encode()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    if (c.content) testing::writeFile(dir / TimeZoneMap::kFileName, *c.content);
    const auto result = zoneWithResources(dir.path());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "none\n");
  }
}

}  // namespace
}  // namespace quillmere
