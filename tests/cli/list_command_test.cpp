#include <gtest/gtest.h>

#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::runCommand;
using testing::TempDir;
using testing::ZipBuilder;

class ListCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir_ / "export/Photos from 2020");
    testing::writeFile(dir_ / "export/Photos from 2020/a.jpg", testing::toBytes("jpeg bytes"));
    ZipBuilder()
        .add("Takeout/Google Photos/Trip/b.jpg", "second part", 0)
        .add("Takeout/Google Photos/Trip/c.jpg", std::string(3000, 'c'))
        .write(dir_ / "export/takeout-002.zip");
    before_ = testing::snapshotTree(dir_ / "export");
  }
  void TearDown() override { EXPECT_EQ(testing::snapshotTree(dir_ / "export"), before_); }

  TempDir dir_;
  std::map<std::string, std::string> before_;
};

TEST_F(ListCommandTest, ListsEveryFileWithSizeAndLocation) {
  const auto result = runCommand({QUILLMERE_CLI, "list", (dir_ / "export").string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out,
            "Photos from 2020/a.jpg\t10\t" + (dir_ / "export/Photos from 2020/a.jpg").string() +
                "\n"
                "Trip/b.jpg\t11\ttakeout-002.zip \u203A Takeout/Google Photos/Trip/b.jpg\n"
                "Trip/c.jpg\t3000\ttakeout-002.zip \u203A Takeout/Google Photos/Trip/c.jpg\n");
}

TEST_F(ListCommandTest, CheckReportsDamagedFilesAndCountsThem) {
  const auto intact = runCommand({QUILLMERE_CLI, "list", "--check", (dir_ / "export").string()});
  EXPECT_EQ(intact.exitCode, 0) << intact.err;
  EXPECT_NE(intact.err.find("Checked 3 files (3.0 KB): all intact."), std::string::npos)
      << intact.err;

  Bytes part = testing::readFile(dir_ / "export/takeout-002.zip");
  part[30 + 32 + 3] ^= 0xFF;  // inside b.jpg's stored data
  testing::writeFile(dir_ / "damaged.zip", part);
  const auto damaged =
      runCommand({QUILLMERE_CLI, "list", "--check", "--quiet", (dir_ / "damaged.zip").string()});
  EXPECT_EQ(damaged.exitCode, 1);
  EXPECT_EQ(damaged.err,
            "damaged.zip \u203A Takeout/Google Photos/Trip/b.jpg: Takeout/Google Photos/Trip/b.jpg "
            "failed its checksum. The zip may be damaged; try downloading it again.\n"
            "Checked 2 files (3.0 KB): 1 damaged.\n");
}

TEST_F(ListCommandTest, RunLevelFailuresExitWithTwo) {
  testing::writeFile(dir_ / "notes.zip", testing::toBytes("plain text"));
  const struct {
    std::vector<std::string> args;
    std::string err;
  } cases[] = {
      {{"list", (dir_ / "notes.zip").string()}, "notes.zip isn't a zip file.\n"},
      {{"list", "--bogus", "x"}, "quillmere-cli list: unknown option '--bogus'"},
      {{"list"}, "Usage: quillmere-cli list"},
      {{"nonsense"}, "quillmere-cli: unknown command 'nonsense'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0] + " " + (c.args.size() > 1 ? c.args[1] : ""));
    std::vector<std::string> argv = {QUILLMERE_CLI};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    const auto result = runCommand(argv);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.starts_with(c.err)) << result.err;
    EXPECT_EQ(result.out, "");
  }
  const auto help = runCommand({QUILLMERE_CLI, "list", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("--check"), std::string::npos);
}

}  // namespace
}  // namespace quillmere
