// A Takeout zip part repaired by `quillmere-cli repair`, then added to the stand-in Immich
// server by `quillmere-cli import` and by `repair --add-to-immich`, as a user runs them.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/support/export_tree.h"
#include "tests/support/immich_standin.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::ImmichStandIn;
using ::testing::StartsWith;
using testing::TempDir;

constexpr double kJuly4 = 1562247000;  // 2019-07-04 13:30:00 UTC
constexpr std::pair<double, double> kLisbon{38.7223, -9.1393};
const std::string kYear = "Takeout/Google Photos/Photos from 2019/";
const std::string kAlbum = "Takeout/Google Photos/Lisbon 2019/";

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A zip part of five items: a photo and a HEIC Live Photo that are also in the album
// "Lisbon 2019", a JPEG Live Photo, a video, and a GIF whose date and place can only go into
// an XMP sidecar. Media made by the real tools.
void writeExport(const fs::path& part) {
  const TempDir media;
  testing::makePhoto(media / "photo.jpg", testing::PhotoFormat::jpeg, 64, 48);
  testing::makePhoto(media / "still.heic", testing::PhotoFormat::heic, 64, 48);
  testing::makeMovie(media / "still.mov", 64, 48);
  testing::makePhoto(media / "still.jpg", testing::PhotoFormat::jpeg, 48, 64);
  testing::makeMovie(media / "still-jpg.mov", 48, 64);
  testing::makeMovie(media / "video.mp4", 64, 40);
  ASSERT_EQ(
      testing::runCommand({"convert", "-size", "40x30", "gradient:", (media / "anim.gif").string()})
          .exitCode,
      0);
  testing::ExportTree tree;
  for (const std::string& folder : {kYear, kAlbum}) {
    tree.file(folder + "IMG_1001.JPG", testing::readFile(media / "photo.jpg"))
        .json(folder + "IMG_1001.JPG.supplemental-metadata.json",
              testing::takeoutSidecar("IMG_1001.JPG", kJuly4, kLisbon, "Tram 28"))
        .file(folder + "IMG_1002.HEIC", testing::readFile(media / "still.heic"))
        .file(folder + "IMG_1002.MOV", testing::readFile(media / "still.mov"))
        .json(folder + "IMG_1002.HEIC.supplemental-metadata.json",
              testing::takeoutSidecar("IMG_1002.HEIC", kJuly4 + 3600, kLisbon));
  }
  tree.json(kAlbum + "metadata.json", {{"title", "Lisbon 2019"},
                                       {"description", "A week in Portugal"},
                                       {"access", "protected"},
                                       {"date", {{"timestamp", "1562200000"}, {"formatted", ""}}}})
      .file(kYear + "IMG_1003.JPG", testing::readFile(media / "still.jpg"))
      .file(kYear + "IMG_1003.MOV", testing::readFile(media / "still-jpg.mov"))
      .json(kYear + "IMG_1003.JPG.supplemental-metadata.json",
            testing::takeoutSidecar("IMG_1003.JPG", kJuly4 + 7200, std::nullopt))
      .file(kYear + "VID_1004.mp4", testing::readFile(media / "video.mp4"))
      .json(kYear + "VID_1004.mp4.supplemental-metadata.json",
            testing::takeoutSidecar("VID_1004.mp4", kJuly4 + 10800, kLisbon))
      .file(kYear + "ANIM_1005.gif", testing::readFile(media / "anim.gif"))
      .json(kYear + "ANIM_1005.gif.supplemental-metadata.json",
            testing::takeoutSidecar("ANIM_1005.gif", kJuly4 + 14400, kLisbon))
      .writeZip(part);
}

testing::CommandResult cli(std::vector<std::string> args) {
  args.insert(args.begin(), QUILLMERE_CLI);
  return testing::runCommand(args);
}

// The stand-in's assets by original file name.
std::map<std::string, nlohmann::json> assetsByName(ImmichStandIn& server) {
  std::map<std::string, nlohmann::json> byName;
  const nlohmann::json state = server.state();
  for (const auto& [id, asset] : state["assets"].items()) {
    byName[asset["filename"].get<std::string>()] = asset;
  }
  return byName;
}

std::set<std::string> namesIn(const nlohmann::json& album,
                              const std::map<std::string, nlohmann::json>& assets) {
  std::set<std::string> names;
  for (const auto& id : album["assets"]) {
    for (const auto& [name, asset] : assets) {
      if (asset["id"] == id) names.insert(name);
    }
  }
  return names;
}

std::size_t uploads(ImmichStandIn& server) {
  return server.requestsStartingWith("POST /api/assets");
}

// An address on this machine where nothing answers.
std::string deadAddress() {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(socket);  // bound but never listening: the port is free and refuses connections
  return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

// One repair of the sample export, made once; each test imports a copy of its run folder.
class ImmichEndToEnd : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    shared_ = std::make_unique<TempDir>();
    writeExport(part());
    exportBytes_ = slurp(part());
    const auto repair =
        cli({"repair", "--quiet", "--out", (*shared_ / "out").string(), part().string()});
    ASSERT_EQ(repair.exitCode, 0) << repair.err << repair.out;
    repaired_ = testing::onlyEntry(*shared_ / "out");
  }
  static void TearDownTestSuite() { shared_.reset(); }
  static fs::path part() { return *shared_ / "takeout-20250305T140700Z-001.zip"; }

  void SetUp() override {
    ASSERT_FALSE(repaired_.empty());
    fs::copy(repaired_, run_, fs::copy_options::recursive);
  }
  void TearDown() override {
    EXPECT_EQ(slurp(part()), exportBytes_) << "the export changed";
    EXPECT_FALSE(fs::exists(repaired_ / "Report" / "photos-import.json"));
  }

  testing::CommandResult import(std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"import",      "--quiet", "--server",
                                     server_.url(), "--key",   ImmichStandIn::key};
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(run_.string());
    return cli(args);
  }

  static inline std::unique_ptr<TempDir> shared_;
  static inline std::string exportBytes_;
  static inline fs::path repaired_;
  ImmichStandIn server_;
  TempDir work_;
  fs::path run_ = work_ / "Quillmere Repair";
  ScopedEnvironment url_{"IMMICH_INSTANCE_URL", nullptr};
  ScopedEnvironment key_{"IMMICH_API_KEY", nullptr};
  ScopedEnvironment home_{"HOME", work_.path().c_str()};
};

TEST_F(ImmichEndToEnd, ImportsEveryItemOnceIntoItsAlbumsAndRecreatesADeletedAlbum) {
  const auto first = import();
  ASSERT_EQ(first.exitCode, 0) << first.err;
  EXPECT_THAT(
      first.out,
      StartsWith("Added 5 items to Immich, in the folder \u201cQuillmere: Google Photos ("));
  EXPECT_THAT(first.out, HasSubstr("\u201d\n2 Live Photos re-paired\n"));

  auto assets = assetsByName(server_);
  ASSERT_EQ(assets.size(), 7u);
  for (const auto& [still, movie] :
       {std::pair{"IMG_1002.HEIC", "IMG_1002.MOV"}, std::pair{"IMG_1003.JPG", "IMG_1003.MOV"}}) {
    SCOPED_TRACE(still);
    EXPECT_EQ(assets[still]["livePhotoVideoId"], assets[movie]["id"]);
    EXPECT_EQ(assets[movie]["visibility"], "hidden");
  }
  // What reached the server is the repaired copy, byte for byte, dated and placed.
  const fs::path month = run_ / "Photos/2019/2019-07";
  for (const std::string name : {"IMG_1001.JPG", "IMG_1002.HEIC", "VID_1004.mp4"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(slurp(assets[name]["path"].get<std::string>()), slurp(month / name));
  }
  for (const std::string name : {"IMG_1001.JPG", "IMG_1002.HEIC"}) {
    SCOPED_TRACE(name);
    const auto tags = testing::exiftoolTags(assets[name]["path"].get<std::string>());
    EXPECT_EQ(tags.value("ExifIFD:OffsetTimeOriginal", ""), "+01:00") << tags.dump();
    EXPECT_NEAR(tags.value("Composite:GPSLatitude", 0.0), kLisbon.first, 1e-4);
    EXPECT_NEAR(tags.value("Composite:GPSLongitude", 0.0), kLisbon.second, 1e-4);
  }
  EXPECT_EQ(assets["IMG_1001.JPG"]["fileCreatedAt"], "2019-07-04T13:30:00+00:00");
  EXPECT_EQ(assets["VID_1004.mp4"]["fileCreatedAt"], "2019-07-04T16:30:00+00:00");
  // The GIF's date and place travel in the sidecar the repair wrote beside it.
  ASSERT_TRUE(assets["ANIM_1005.gif"]["sidecarPath"].is_string());
  const fs::path sidecar = assets["ANIM_1005.gif"]["sidecarPath"].get<std::string>();
  EXPECT_EQ(slurp(sidecar), slurp(month / "ANIM_1005.gif.xmp"));
  const auto xmp = testing::exiftoolTags(sidecar);
  EXPECT_EQ(xmp.value("XMP-exif:DateTimeOriginal", ""), "2019:07:04 18:30:00+01:00") << xmp.dump();
  EXPECT_NEAR(xmp.value("XMP-exif:GPSLatitude", 0.0), kLisbon.first, 1e-4);
  EXPECT_TRUE(assets["IMG_1001.JPG"]["sidecarPath"].is_null());

  const std::set<std::string> everything = {"IMG_1001.JPG", "IMG_1002.HEIC", "IMG_1003.JPG",
                                            "VID_1004.mp4", "ANIM_1005.gif"};
  const std::set<std::string> lisbon = {"IMG_1001.JPG", "IMG_1002.HEIC"};
  const auto checkAlbums = [&] {
    const auto all = server_.albumNamed("All imported items");
    const auto trip = server_.albumNamed("Lisbon 2019");
    EXPECT_EQ(namesIn(all, assets), everything);
    EXPECT_EQ(namesIn(trip, assets), lisbon);
    EXPECT_THAT(trip["description"].get<std::string>(),
                StartsWith("Added by Quillmere: Google Photos ("));
    EXPECT_EQ(server_.state()["albums"].size(), 2u);
  };
  checkAlbums();
  const std::string log = slurp(run_ / "Report/photos-import.csv");
  EXPECT_EQ(log,
            "file,outcome,note\n"
            "Photos/2019/2019-07/ANIM_1005.gif,imported,\n"
            "Photos/2019/2019-07/IMG_1001.JPG,imported,\n"
            "Photos/2019/2019-07/IMG_1002.HEIC,imported,Live Photo\n"
            "Photos/2019/2019-07/IMG_1003.JPG,imported,Live Photo\n"
            "Photos/2019/2019-07/VID_1004.mp4,imported,\n");

  const std::size_t sent = uploads(server_);
  const auto second = import({"--json"});
  ASSERT_EQ(second.exitCode, 0) << second.err;
  const auto summary = nlohmann::json::parse(second.out);
  EXPECT_EQ(summary["imported"], 0);
  EXPECT_EQ(summary["alreadyImported"], 5);
  EXPECT_EQ(summary["albums"], 2);
  EXPECT_EQ(uploads(server_), sent);
  EXPECT_EQ(server_.state()["assets"].size(), 7u);
  EXPECT_EQ(slurp(run_ / "Report/photos-import.csv"), log);
  checkAlbums();

  server_.forgetAlbums();
  const auto third = import();
  ASSERT_EQ(third.exitCode, 0) << third.err;
  EXPECT_THAT(third.out, HasSubstr("\u201d\n5 items already added earlier, skipped\n"));
  EXPECT_EQ(uploads(server_), sent);
  checkAlbums();
  const auto record = nlohmann::json::parse(slurp(run_ / "Report/photos-import.json"));
  EXPECT_EQ(record["albumIDs"]["Lisbon 2019"], server_.albumNamed("Lisbon 2019")["id"]);
}

TEST_F(ImmichEndToEnd, APairTheServerRefusesArrivesAsPhotoAndVideo) {
  server_.config({{"refusePairs", true}});
  const auto first = import();
  ASSERT_EQ(first.exitCode, 0) << first.err;
  EXPECT_THAT(first.out, HasSubstr("\u201d\n2 Live Photos added as separate photo and video\n"));
  auto assets = assetsByName(server_);
  ASSERT_EQ(assets.size(), 7u);
  for (const std::string movie : {"IMG_1002.MOV", "IMG_1003.MOV"}) {
    EXPECT_EQ(assets[movie]["visibility"], "timeline") << movie;
  }
  EXPECT_TRUE(assets["IMG_1002.HEIC"]["livePhotoVideoId"].is_null());
  EXPECT_EQ(namesIn(server_.albumNamed("Lisbon 2019"), assets),
            (std::set<std::string>{"IMG_1001.JPG", "IMG_1002.HEIC", "IMG_1002.MOV"}));
  EXPECT_EQ(namesIn(server_.albumNamed("All imported items"), assets).size(), 7u);
  EXPECT_THAT(slurp(run_ / "Report/photos-import.csv"),
              HasSubstr("Photos/2019/2019-07/IMG_1002.HEIC,imported,Immich wouldn't pair this "
                        "Live Photo; photo and video added separately\n"));
  const auto record = nlohmann::json::parse(slurp(run_ / "Report/photos-import.json"));
  EXPECT_EQ(record["assets"]["Photos/2019/2019-07/IMG_1002.MOV"], assets["IMG_1002.MOV"]["id"]);

  const std::size_t sent = uploads(server_);
  const auto second = import({"--json"});
  ASSERT_EQ(second.exitCode, 0) << second.err;
  EXPECT_EQ(nlohmann::json::parse(second.out)["alreadyImported"], 5);
  EXPECT_EQ(uploads(server_), sent);
}

TEST_F(ImmichEndToEnd, SaysWhyItCouldNotSignIn) {
  const std::string dead = deadAddress();
  const auto signIn = [](const std::string& url) {
    return "Quillmere couldn't sign in to Immich at " + url +
           ". Check the server address and API key (it needs the asset and album permissions), "
           "then try again.\n";
  };
  const struct {
    const char* name;
    std::string url, key;
  } cases[] = {
      {"wrong key", server_.url(), "wrong"},
      {"no server", dead, ImmichStandIn::key},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const bool afterRepair : {false, true}) {
      SCOPED_TRACE(afterRepair ? "repair --add-to-immich" : "import");
      const TempDir out;
      std::vector<std::string> args = {"--quiet", "--server", c.url, "--key", c.key};
      if (afterRepair) {
        args.insert(args.begin(), {"repair", "--add-to-immich", "--out", out.path().string()});
        args.push_back(part().string());
      } else {
        args.insert(args.begin(), "import");
        args.push_back(run_.string());
      }
      const auto result = cli(args);
      EXPECT_EQ(result.exitCode, 2);
      EXPECT_EQ(result.err, signIn(c.url));
      // The repair itself is done and reported; nothing was recorded as added.
      if (afterRepair) {
        EXPECT_THAT(result.out, StartsWith("Repaired copies are in "));
      } else {
        EXPECT_EQ(result.out, "");
      }
      const fs::path report =
          afterRepair ? testing::onlyEntry(out.path()) / "Report" : run_ / "Report";
      EXPECT_TRUE(fs::exists(report / "changes.csv"));
      EXPECT_FALSE(fs::exists(report / "photos-import.json"));
      EXPECT_FALSE(fs::exists(report / "photos-import.csv"));
    }
  }
  EXPECT_TRUE(server_.state()["assets"].empty());

  // Without a server address the repair doesn't start at all.
  const TempDir out;
  const auto unaddressed = cli({"repair", "--quiet", "--add-to-immich", "--key", "k", "--out",
                                out.path().string(), part().string()});
  EXPECT_EQ(unaddressed.exitCode, 2);
  EXPECT_EQ(unaddressed.err,
            "No Immich server address was given. Pass --server with the server's address, or set "
            "IMMICH_INSTANCE_URL, then try again.\n");
  EXPECT_TRUE(fs::is_empty(out.path()));
}

TEST_F(ImmichEndToEnd, RepairAddToImmichImportsRightAfterTheRepair) {
  const TempDir out;
  const auto result =
      cli({"repair", "--quiet", "--add-to-immich", "--server", server_.url(), "--key",
           ImmichStandIn::key, "--out", out.path().string(), part().string()});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const fs::path run = testing::onlyEntry(out.path());
  // The repair's own result, then the import status in the result screen's words.
  const auto added = result.out.find(
      "Added 5 items to Immich, in the folder \u201cQuillmere: "
      "Google Photos (");
  ASSERT_NE(added, std::string::npos) << result.out;
  EXPECT_THAT(result.out.substr(0, added),
              StartsWith("Repaired copies are in " + run.string() + "\n"));
  EXPECT_THAT(result.out.substr(0, added), HasSubstr("\n\nRepair finished\n"));
  EXPECT_THAT(result.out.substr(0, added), HasSubstr(" restored\n\n"));  // a line between
  EXPECT_THAT(result.out.substr(added), HasSubstr("\u201d\n2 Live Photos re-paired\n"));

  const auto assets = assetsByName(server_);
  EXPECT_EQ(assets.size(), 7u);
  EXPECT_EQ(namesIn(server_.albumNamed("Lisbon 2019"), assets),
            (std::set<std::string>{"IMG_1001.JPG", "IMG_1002.HEIC"}));
  EXPECT_EQ(namesIn(server_.albumNamed("All imported items"), assets).size(), 5u);
  const auto record = nlohmann::json::parse(slurp(run / "Report/photos-import.json"));
  EXPECT_EQ(record["assets"].size(), 7u);  // both halves of each Live Photo
  EXPECT_EQ(record["albumIDs"].size(), 2u);
  const std::string log = slurp(run / "Report/photos-import.csv");
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 6) << log;

  // The same run folder, imported again, adds nothing.
  const std::size_t sent = uploads(server_);
  const auto again = cli({"import", "--quiet", "--json", "--server", server_.url(), "--key",
                          ImmichStandIn::key, run.string()});
  ASSERT_EQ(again.exitCode, 0) << again.err;
  EXPECT_EQ(nlohmann::json::parse(again.out)["alreadyImported"], 5);
  EXPECT_EQ(uploads(server_), sent);
}

TEST_F(ImmichEndToEnd, SnapchatMemoriesGoIntoTheirOwnAlbum) {
  const fs::path memories = fs::path(QUILLMERE_SOURCE_DIR) / "examples" / "snapchat";
  const auto before = testing::snapshotTree(memories);
  const TempDir out;
  const auto result =
      cli({"repair", "--quiet", "--json", "--add-to-immich", "--server", server_.url(), "--key",
           ImmichStandIn::key, "--out", out.path().string(), memories.string()});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  // The repair's JSON object, then the import summary's.
  const auto split = result.out.find("}\n{");
  ASSERT_NE(split, std::string::npos) << result.out;
  EXPECT_EQ(nlohmann::json::parse(result.out.substr(0, split + 1))["repair"]["items"], 5);
  const auto summary = nlohmann::json::parse(result.out.substr(split + 2));
  EXPECT_EQ(summary["imported"], 5);
  EXPECT_THAT(summary["folderTitle"].get<std::string>(), StartsWith("Quillmere: Snapchat ("));
  const auto album = server_.albumNamed("Snapchat Memories");
  EXPECT_EQ(album["assets"].size(), 5u);
  EXPECT_EQ(album["description"], "Added by " + summary["folderTitle"].get<std::string>());
  EXPECT_EQ(server_.state()["albums"].size(), 1u);
  EXPECT_EQ(testing::snapshotTree(memories), before);
}

}  // namespace
}  // namespace quillmere
