#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "core/sources/quillmere_error.h"
#include "tests/support/export_tree.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

// What `quillmere-cli repair` prints, writes and exits with.
namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using testing::TempDir;

const fs::path kExamples = fs::path(QUILLMERE_SOURCE_DIR) / "examples";

testing::CommandResult cli(std::vector<std::string> args) {
  args.insert(args.begin(), QUILLMERE_CLI);
  return runCommand(args);
}

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(RepairCommandTest, RepairsTheSamplesAndWordsTheResultLikeTheApp) {
  const ScopedEnvironment utc("TZ", "UTC");
  const auto before = testing::snapshotTree(kExamples);
  TempDir out;
  const auto result = cli({"repair", "--quiet", "--out", (out / "new").string(),
                           (kExamples / "takeout-20240101T000000Z-001.zip").string(),
                           (kExamples / "takeout-20240101T000000Z-002.zip").string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const fs::path runFolder = testing::onlyEntry(out / "new");
  EXPECT_EQ(result.out, "Repaired copies are in " + runFolder.string() +
                            "\n"
                            "\n"
                            "Repair finished\n"
                            "  13 files fixed\n"
                            "  1 already correct \u2014 copied as-is\n"
                            "  0 need a look \u2014 listed in couldnt-fix.csv\n"
                            "  10 dates restored \u2014 1 time zones guessed\n"
                            "  12 places restored\n"
                            "  2 captions restored\n");
  EXPECT_TRUE(fs::is_regular_file(runFolder / "Report" / "changes.csv"));

  const auto json = cli({"repair", "--json", "--quiet", "--no-album-keywords", "--out",
                         out.path().string(), (kExamples / "snapchat").string()});
  EXPECT_EQ(json.exitCode, 0) << json.err;
  const auto parsed = nlohmann::json::parse(json.out);
  const fs::path snapFolder(parsed.at("outputFolder").get<std::string>());
  EXPECT_EQ(snapFolder.parent_path(), out.path());
  EXPECT_TRUE(fs::is_directory(snapFolder / "Photos"));
  EXPECT_EQ(parsed.at("scan").size(), 23u);
  EXPECT_EQ(parsed.at("repair").size(), 14u);
  EXPECT_EQ(parsed.at("repair").at("items"), 5);
  EXPECT_EQ(parsed.at("stopped"), false);
  EXPECT_EQ(testing::snapshotTree(kExamples), before);
}

TEST(RepairCommandTest, ExitStatusesAndMessages) {
  TempDir work;
  // An unzipped export, a zip part with one damaged photo, an empty folder.
  const fs::path folder = work / "Takeout";
  testing::ExportTree()
      .photo("Google Photos/Photos from 2019/A.jpg", "plain.jpg")
      .json("Google Photos/Photos from 2019/A.jpg.json",
            testing::takeoutSidecar("A.jpg", 1562247000))
      .writeFolder(folder);
  testing::ZipBuilder zip;
  testing::ZipEntryDraft intact;
  intact.name = testing::toBytes("Takeout/Google Photos/Photos from 2019/B.jpg");
  intact.content = testing::readFile(fs::path(QUILLMERE_TEST_DATA) / "scan" / "plain.jpg");
  zip.add(std::move(intact));
  testing::ZipEntryDraft damaged;
  damaged.name = testing::toBytes("Takeout/Google Photos/Photos from 2019/C.jpg");
  damaged.content = testing::readFile(fs::path(QUILLMERE_TEST_DATA) / "scan" / "dated.jpg");
  damaged.crc = 1;
  zip.add(std::move(damaged));
  zip.write(work / "takeout-001.zip");
  fs::create_directories(work / "empty");
  const auto before = testing::snapshotTree(folder);
  const std::string zipBefore = slurp(work / "takeout-001.zip");

  const struct {
    std::string name;
    std::vector<std::string> args;
    int exitCode;
    std::string err;  // exact, or a prefix when it ends in "…"
  } cases[] = {
      {"output inside the export",
       {"--out", (folder / "Google Photos" / "out").string(), folder.string()},
       2,
       std::string(
           QuillmereError::outputInsideSource((folder / "Google Photos" / "out").string()).what()) +
           "\n"},
      {"nothing to repair",
       {"--out", (work / "out").string(), (work / "empty").string()},
       2,
       std::string(QuillmereError::nothingToRepair().what()) + "\n"},
      {"a destination that can't be made",
       {"--out", (work / "takeout-001.zip" / "out").string(), folder.string()},
       2,
       "filesystem error: \u2026"},
      {"a damaged photo",
       {"--out", (work / "out").string(), (work / "takeout-001.zip").string()},
       1,
       ""},
      {"no --out", {folder.string()}, 2, "Usage: quillmere-cli repair \u2026"},
      {"a server without --add-to-immich",
       {"--server", "http://127.0.0.1:2283", "--out", (work / "out").string(), folder.string()},
       2,
       "quillmere-cli repair: --server and --key go with --add-to-immich\n\nUsage: \u2026"},
      {"unknown option",
       {"--fast", folder.string()},
       2,
       "quillmere-cli repair: unknown option \u2026"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args{"repair", "--quiet"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const auto result = cli(args);
    EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
    if (c.err.ends_with("\u2026")) {
      EXPECT_TRUE(result.err.starts_with(c.err.substr(0, c.err.size() - 3))) << result.err;
    } else {
      EXPECT_EQ(result.err, c.err);
    }
    if (c.exitCode == 1) {  // C.jpg failed, B.jpg has no date
      EXPECT_NE(result.out.find("Repair finished with problems\n"), std::string::npos);
      EXPECT_NE(result.out.find("  2 need a look"), std::string::npos) << result.out;
    }
  }
  EXPECT_FALSE(fs::exists(folder / "Google Photos" / "out"));
  EXPECT_EQ(testing::snapshotTree(folder), before);
  EXPECT_EQ(slurp(work / "takeout-001.zip"), zipBefore);

  const auto help = cli({"repair", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(help.out.starts_with("Usage: quillmere-cli repair --out DIR")) << help.out;
  const auto usage = cli({"--help"});
  EXPECT_NE(usage.out.find("  repair "), std::string::npos);
}

TEST(RepairCommandTest, CtrlCFinishesTheItemWritesTheReportAndExits130) {
  TempDir work;
  const fs::path root = work / "Takeout";
  const fs::path photos = root / "Google Photos" / "Photos from 2019";
  fs::create_directories(photos);
  testing::ExportTree tree;
  constexpr int kCount = 40;
  for (int i = 0; i < kCount; ++i) {
    const std::string name = "IMG_" + std::to_string(i) + ".jpg";
    testing::makePhoto(photos / name, testing::PhotoFormat::jpeg, 160 + i, 120, true);
    tree.json("Google Photos/Photos from 2019/" + name + ".json",
              testing::takeoutSidecar(name, 1562247000 + 60.0 * i));
  }
  tree.writeFolder(root);
  const auto before = testing::snapshotTree(root);
  const fs::path out = work / "out";

  const std::string cliPath = QUILLMERE_CLI;
  std::vector<std::string> argv{cliPath, "repair",     "--quiet",    "--json",
                                "--out", out.string(), root.string()};
  std::vector<char*> args;
  for (std::string& arg : argv) args.push_back(arg.data());
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, (work / "stdout").c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, (work / "stderr").c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, cliPath.c_str(), &actions, nullptr, args.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  // Wait until the first copies appear, then press Ctrl-C twice.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!fs::exists(out) || fs::is_empty(out) || !fs::exists(testing::onlyEntry(out) / "Photos")) {
    if (std::chrono::steady_clock::now() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::kill(pid, SIGINT);
  ::kill(pid, SIGINT);
  int status = 0;
  ::waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130) << slurp(work / "stderr");
  const std::string err = slurp(work / "stderr");
  EXPECT_NE(err.find("Stopping after the item in progress"), std::string::npos) << err;
  EXPECT_NE(err.find(" of 40 items; the report covers those.\n"), std::string::npos) << err;
  const auto json = nlohmann::json::parse(slurp(work / "stdout"));
  EXPECT_EQ(json.at("stopped"), true);
  EXPECT_EQ(json.at("repair").at("items"), kCount);
  const std::int64_t files = json.at("repair").at("files");
  EXPECT_LT(files, kCount);
  const fs::path runFolder = json.at("outputFolder").get<std::string>();
  EXPECT_FALSE(fs::exists(runFolder / ".work"));
  const std::string changes = slurp(runFolder / "Report" / "changes.csv");
  EXPECT_EQ(std::count(changes.begin(), changes.end(), '\n'), files + 1);
  EXPECT_EQ(testing::snapshotTree(root), before);
}

}  // namespace
}  // namespace quillmere
