// `quillmere-cli import` end to end: a run folder as a repair leaves it, the stand-in Immich
// server, and the command as a user runs it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/support/immich_standin.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"

extern char** environ;

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::ImmichStandIn;
using ::testing::StartsWith;
using testing::TempDir;

constexpr const char* kHeader =
    "item,item kind,status,source,output,date before,date after,date source,time zone,"
    "time zone source,location written,caption written,albums,method,notes\n";

// A run folder as the repair writes it: copies made by the real tools, and its change log.
struct RunFolder {
  TempDir dir;
  fs::path root = dir / "Quillmere Repair 2026-11-23 18.00";

  RunFolder() {
    const fs::path month = root / "Photos/2019/2019-07";
    fs::create_directories(month);
    fs::create_directories(root / "Photos/Undated");
    fs::create_directories(root / "Report");
    testing::makePhoto(month / "IMG_0001.jpg", testing::PhotoFormat::jpeg, 64, 48);
    testing::writeTags({month / "IMG_0001.jpg",
                        {"-DateTimeOriginal=2019:07:04 15:30:00", "-OffsetTimeOriginal=+02:00",
                         "-GPSLatitude=48.1372", "-GPSLatitudeRef=N", "-GPSLongitude=11.5756",
                         "-GPSLongitudeRef=E", "-overwrite_original"}});
    testing::makePhoto(month / "IMG_0002.heic", testing::PhotoFormat::heic, 64, 48);
    testing::writeTags({month / "IMG_0002.heic.xmp",
                        {"-XMP-exif:DateTimeOriginal=2019:07:05 09:00:00+02:00",
                         "-XMP-exif:GPSLatitude=47.5", "-XMP-exif:GPSLongitude=12.25"}});
    testing::makeMovie(month / "IMG_0002.mov", 64, 48, {{"creation_time", "2019-07-05T07:00:00Z"}});
    testing::makeMovie(month / "VID_0003.mp4", 64, 40, {{"creation_time", "2019-07-06T10:00:00Z"}});
    testing::makePhoto(root / "Photos/Undated/scan.png", testing::PhotoFormat::png, 32, 32);
    std::ofstream(root / "README.txt")
        << "Quillmere repair\n================\n\nThese are repaired copies of a Google Takeout "
           "export. The original export was only read, never changed.\n";
    std::ofstream(root / "Report/changes.csv")
        << kHeader
        << "1,single,fixed,/t/Takeout/IMG_0001.jpg,Photos/2019/2019-07/IMG_0001.jpg,,"
           "2019:07:04 15:30:00,export,UTC+02:00,location,yes,,\"Trip, 2019\","
           "written into file,Time zone from the photo's location\n"
           "2,livePhoto,fixed,/t/Takeout/IMG_0002.HEIC,Photos/2019/2019-07/IMG_0002.heic,,"
           "2019:07:05 09:00:00,export,UTC+02:00,location,yes,,\"Trip, 2019\","
           "XMP sidecar + file dates,\n"
           "2,livePhoto,fixed,/t/Takeout/IMG_0002.MOV,Photos/2019/2019-07/IMG_0002.mov,,,"
           "export,,unknown,,,\"Trip, 2019\",written into file,\n"
           "3,single,unchanged,/t/Takeout/VID_0003.mp4,Photos/2019/2019-07/VID_0003.mp4,"
           "2019:07:06 10:00:00 +00:00,2019:07:06 10:00:00,file,UTC+00:00,file,,,,"
           "copied unchanged,\n"
           "4,single,failed,/t/Takeout/broken.jpg,,,,none,,unknown,,,,,'-Couldn't copy\n"
           "5,single,couldn't fix,/t/Takeout/scan.png,Photos/Undated/scan.png,,,none,,unknown,,,"
           ",copied unchanged,No date anywhere\n";
  }

  // Everything but the two files an import keeps beside the report.
  std::map<std::string, std::string> snapshot() const {
    auto tree = testing::snapshotTree(root);
    std::erase_if(tree, [](const auto& entry) {
      return entry.first.find("photos-import.") != std::string::npos;
    });
    return tree;
  }
};

struct Fixture {
  ImmichStandIn server;
  RunFolder run;
  std::map<std::string, std::string> before = run.snapshot();
  TempDir home;
  ScopedEnvironment homeVariable{"HOME", home.path().c_str()};
  ScopedEnvironment url{"IMMICH_INSTANCE_URL", nullptr};
  ScopedEnvironment key{"IMMICH_API_KEY", nullptr};

  ~Fixture() { EXPECT_EQ(run.snapshot(), before); }

  testing::CommandResult import(std::vector<std::string> extra = {}) {
    std::vector<std::string> argv = {QUILLMERE_CLI, "import", "--quiet",         "--server",
                                     server.url(),  "--key",  ImmichStandIn::key};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.push_back(run.root.string());
    return testing::runCommand(argv);
  }
  std::size_t uploads() { return server.requestsStartingWith("POST /api/assets"); }
};

TEST(ImportCommand, AddsARepairOnceAndRecreatesADeletedAlbum) {
  Fixture f;
  const auto first = f.import();
  ASSERT_EQ(first.exitCode, 0) << first.err;
  EXPECT_THAT(first.out, StartsWith("Added 4 items to Immich, in the folder \u201cQuillmere: "
                                    "Google Photos ("));
  EXPECT_THAT(first.out, HasSubstr("\u201d\n1 Live Photo re-paired\n"));
  const auto state = f.server.state();
  EXPECT_EQ(state["assets"].size(), 5u);
  const auto trip = f.server.albumNamed("Trip, 2019");
  EXPECT_EQ(trip["assets"].size(), 2u);  // the photo and the Live Photo
  EXPECT_THAT(trip["description"].get<std::string>(), StartsWith("Added by Quillmere: Google "));
  EXPECT_EQ(f.server.albumNamed("All imported items")["assets"].size(), 4u);
  // Dates from the log, or from the copy itself where the log has none.
  std::map<std::string, std::string> created;
  for (const auto& [id, asset] : state["assets"].items()) {
    created[asset["filename"]] = asset["fileCreatedAt"];
  }
  EXPECT_EQ(created["IMG_0001.jpg"], "2019-07-04T13:30:00+00:00");
  EXPECT_EQ(created["IMG_0002.mov"], "2019-07-05T07:00:00+00:00");
  EXPECT_EQ(created["VID_0003.mp4"], "2019-07-06T10:00:00+00:00");

  const std::size_t uploads = f.uploads();
  const auto second = f.import({"--json"});
  ASSERT_EQ(second.exitCode, 0) << second.err;
  const auto summary = nlohmann::json::parse(second.out);
  EXPECT_EQ(summary["imported"], 0);
  EXPECT_EQ(summary["alreadyImported"], 4);
  EXPECT_EQ(summary["items"], 4);
  EXPECT_EQ(summary["albums"], 2);
  EXPECT_EQ(f.uploads(), uploads);  // nothing sent again
  EXPECT_EQ(f.server.state()["assets"].size(), 5u);

  f.server.forgetAlbums();
  const auto third = f.import();
  ASSERT_EQ(third.exitCode, 0) << third.err;
  EXPECT_THAT(third.out, HasSubstr("\u201d\n4 items already added earlier, skipped\n"));
  EXPECT_EQ(f.server.albumNamed("Trip, 2019")["assets"].size(), 2u);
  EXPECT_EQ(f.server.albumNamed("All imported items")["assets"].size(), 4u);
}

TEST(ImportCommand, SplitsARefusedPairAndReportsFailedItems) {
  Fixture f;
  f.server.config({{"refusePairs", true}, {"refuseTypes", {"png"}}});
  const auto result = f.import();
  EXPECT_EQ(result.exitCode, 1) << result.err;
  EXPECT_THAT(result.out, StartsWith("Added 3 items to Immich"));
  EXPECT_THAT(result.out, HasSubstr("\n1 Live Photo added as separate photo and video\n"
                                    "1 item couldn't be added (see Report/photos-import.csv)\n"));
  std::ifstream log(f.run.root / "Report/photos-import.csv");
  std::stringstream text;
  text << log.rdbuf();
  EXPECT_THAT(text.str(), HasSubstr("Photos/Undated/scan.png,failed,Immich refused scan.png "
                                    "(Immich says: Unsupported file type scan.png).\n"));
  EXPECT_THAT(text.str(), HasSubstr("IMG_0002.heic,imported,Immich wouldn't pair this Live "
                                    "Photo; photo and video added separately\n"));
}

TEST(ImportCommand, CtrlCStopsBeforeTheNextItemAndStillFillsTheAlbums) {
  Fixture f;
  f.server.config({{"delay", 0.4}});
  const std::string out = (f.home / "out.txt").string(), err = (f.home / "err.txt").string();
  const std::string url = f.server.url(), folder = f.run.root.string();
  std::vector<const char*> argv = {QUILLMERE_CLI,      "import",       "--quiet",
                                   "--server",         url.c_str(),    "--key",
                                   ImmichStandIn::key, folder.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, QUILLMERE_CLI, &actions, nullptr,
                        const_cast<char* const*>(argv.data()), environ),
            0);
  posix_spawn_file_actions_destroy(&actions);
  // Once the key is checked the command is importing: stop it during its first uploads.
  for (int i = 0; i < 100 && f.server.state()["requests"].size() < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  f.server.config({{"delay", 0}});
  std::ifstream text(out);
  const std::string printed{std::istreambuf_iterator<char>(text), {}};
  EXPECT_THAT(printed, StartsWith("Added "));
  std::ifstream errors(err);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(errors), {}),
            "\nStopping before the next item\u2026\n");
  const auto record =
      nlohmann::json::parse(std::ifstream(f.run.root / "Report/photos-import.json"));
  const auto all = f.server.albumNamed("All imported items");
  ASSERT_FALSE(all.is_null()) << printed;
  EXPECT_GE(all["assets"].size(), 1u);
  EXPECT_LT(all["assets"].size(), 4u);  // stopped before the last items
  EXPECT_EQ(record["albumIDs"].size(), f.server.state()["albums"].size());
}

TEST(ImportCommand, SaysWhyItCouldNotRun) {
  Fixture f;
  struct Case {
    std::vector<std::string> argv;
    std::string err;
  };
  const std::vector<Case> cases = {
      {{QUILLMERE_CLI, "import", "--server", f.server.url(), "--key", "wrong", f.run.root.string()},
       "Quillmere couldn't sign in to Immich at " + f.server.url() +
           ". Check the server address and API key (it needs the asset and album permissions), "
           "then try again.\n"},
      {{QUILLMERE_CLI, "import", "--key", "k", f.run.root.string()},
       "No Immich server address was given. Pass --server with the server's address, or set "
       "IMMICH_INSTANCE_URL, then try again.\n"},
      {{QUILLMERE_CLI, "import", "--server", f.server.url(), "--key", "k",
        (f.run.dir / "elsewhere").string()},
       (f.run.dir / "elsewhere").string() +
           " has no Report/changes.csv. Pass the folder a repair made: the one whose name starts "
           "with \"Quillmere Repair\".\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.argv.back());
    const auto result = testing::runCommand(c.argv);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(result.out, "");
  }
  EXPECT_TRUE(f.server.state()["assets"].empty());
}

}  // namespace
}  // namespace quillmere
