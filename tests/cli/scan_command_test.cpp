#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::runCommand;

const std::filesystem::path kExamples = std::filesystem::path(QUILLMERE_SOURCE_DIR) / "examples";

TEST(ScanCommandTest, SummarisesTheSampleTakeoutExport) {
  const auto before = testing::snapshotTree(kExamples);
  const auto result = runCommand({QUILLMERE_CLI, "scan", "--quiet",
                                  (kExamples / "takeout-20240101T000000Z-001.zip").string(),
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
  EXPECT_EQ(testing::snapshotTree(kExamples), before);
}

TEST(ScanCommandTest, FolderAndZipPartsGiveTheSameCounters) {
  auto counters = [](std::vector<std::string> inputs) {
    std::vector<std::string> argv = {QUILLMERE_CLI, "scan", "--json", "--quiet"};
    argv.insert(argv.end(), inputs.begin(), inputs.end());
    const auto result = runCommand(argv);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    nlohmann::json json = nlohmann::json::parse(result.out);
    json["summary"].erase("zipParts");
    return json;
  };
  const nlohmann::json zipped =
      counters({(kExamples / "takeout-20240101T000000Z-001.zip").string(),
                (kExamples / "takeout-20240101T000000Z-002.zip").string()});
  const nlohmann::json folder = counters({(kExamples / "google-takeout").string()});
  EXPECT_EQ(zipped["summary"], folder["summary"]);
  EXPECT_EQ(folder["kind"], "Google Takeout");
  EXPECT_EQ(folder["summary"]["orphanSidecars"], 1);
  EXPECT_EQ(folder["summary"].size(), 22u);  // every counter but zipParts, erased above

  const nlohmann::json snapchat = counters({(kExamples / "snapchat").string()});
  EXPECT_EQ(snapchat["kind"], "Snapchat");
  EXPECT_EQ(snapchat["summary"]["matchedExact"], 1);
  EXPECT_EQ(snapchat["summary"]["matchedByDate"], 1);
  EXPECT_EQ(snapchat["summary"]["matchedByOrder"], 2);
  EXPECT_EQ(snapchat["summary"]["dayOnly"], 1);
  EXPECT_EQ(snapchat["summary"]["overlays"], 1);
}

TEST(ScanCommandTest, ExitsWithTwoWhenNothingCanBeScanned) {
  testing::TempDir dir;
  std::filesystem::create_directories(dir / "empty");
  testing::writeFile(dir / "broken.zip", testing::toBytes("PK but not really"));
  const struct {
    std::vector<std::string> args;
    std::string err;
  } cases[] = {
      {{"scan", (dir / "empty").string()},
       "No photos or videos were found in the selected export.\n"},
      {{"scan", "--quiet", (dir / "broken.zip").string()}, "broken.zip isn't a zip file.\n"},
      {{"scan"}, "Usage: quillmere-cli scan"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.err);
    std::vector<std::string> argv = {QUILLMERE_CLI};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    const auto result = runCommand(argv);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find(c.err), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
  }
}

TEST(ScanCommandTest, ReportsProgressAsPlainLinesWhenNotOnATerminal) {
  const auto result = runCommand({QUILLMERE_CLI, "scan", (kExamples / "google-takeout").string()});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_TRUE(result.err.starts_with("Reading the export\n")) << result.err;
  EXPECT_NE(result.err.find("Scan complete 14 of 14"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace quillmere
