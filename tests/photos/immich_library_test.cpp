#include "core/photos/immich_library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/immich_standin.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::ImmichStandIn;
using testing::TempDir;

constexpr double kTaken = 1562247000;  // 2019-07-04 13:30:00 UTC

// exiftool's reading (numbers as numbers) of `file`: the independent check of what Immich,
// which reads files with exiftool too, will show.
nlohmann::json exiftool(const fs::path& file) {
  const auto result = testing::runCommand({"exiftool", "-j", "-n", file.string()});
  if (result.exitCode != 0) throw std::runtime_error(result.err);
  return nlohmann::json::parse(result.out).at(0);
}

// Repaired copies as the repair leaves them: a JPEG with date, zone and place written in, a
// HEIC whose metadata went into an XMP sidecar, and a QuickTime movie.
struct Copies {
  TempDir dir;
  fs::path jpeg = dir / "IMG_0001.jpg";
  fs::path heic = dir / "IMG_0002.heic";
  fs::path movie = dir / "IMG_0002.mov";

  Copies() {
    testing::makePhoto(jpeg, testing::PhotoFormat::jpeg, 64, 48);
    testing::writeTags({jpeg,
                        {"-DateTimeOriginal=2019:07:04 15:30:00", "-OffsetTimeOriginal=+02:00",
                         "-GPSLatitude=48.1372", "-GPSLatitudeRef=N", "-GPSLongitude=11.5756",
                         "-GPSLongitudeRef=E", "-overwrite_original"}});
    testing::makePhoto(heic, testing::PhotoFormat::heic, 64, 48);
    testing::writeTags({dir / "IMG_0002.heic.xmp",
                        {"-XMP-exif:DateTimeOriginal=2019:07:04 15:30:00+02:00",
                         "-XMP-exif:GPSLatitude=48.1372", "-XMP-exif:GPSLongitude=11.5756"}});
    testing::makeMovie(movie, 64, 48, {{"creation_time", "2019-07-04T13:30:00Z"}});
  }
};

// Made once: the tests only read them (and check they still read the same).
const Copies& sharedCopies() {
  static const Copies copies;
  return copies;
}

struct Fixture {
  ImmichStandIn server;
  const Copies& copies = sharedCopies();
  std::map<std::string, std::string> before = testing::snapshotTree(copies.dir.path());
  ImmichLibrary library{{server.url(), ImmichStandIn::key},
                        {std::chrono::seconds(5), std::chrono::seconds(2), 1}};

  ~Fixture() { EXPECT_EQ(testing::snapshotTree(copies.dir.path()), before); }
  nlohmann::json asset(const std::string& id) { return server.state()["assets"][id]; }
};

TEST(ImmichLibraryAuthorize, FindsTheAPIAndChecksTheKeyOnce) {
  ImmichStandIn server;
  for (const std::string& given :
       {server.url(), server.url() + "/", server.url() + "/api", server.url() + "/api/"}) {
    SCOPED_TRACE(given);
    ImmichLibrary library({given, ImmichStandIn::key});
    EXPECT_TRUE(library.authorize()) << library.authorizationProblem();
    EXPECT_EQ(library.apiURL(), server.url() + "/api");
    EXPECT_EQ(library.name(), "Immich");
    EXPECT_EQ(library.address(), given);
  }
}

TEST(ImmichLibraryAuthorize, SaysWhatIsWrongWhenItCannotAdd) {
  ImmichStandIn server;
  server.config(
      {{"keys",
        {{"test-key", {"asset.upload", "asset.update", "album.read"}}, {"all-key", {"all"}}}}});
  struct Case {
    std::string url, key, problem;
  };
  const std::vector<Case> cases = {
      {server.url(), "wrong", "refused the API key"},
      {server.url(), "test-key",
       "lacks the permissions album.create, albumAsset.create. Allow them under"},
      {"http://127.0.0.1:1", "test-key", "couldn't reach the Immich server at http://127.0.0.1:1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    ImmichLibrary library({c.url, c.key});
    EXPECT_FALSE(library.authorize());
    EXPECT_THAT(library.authorizationProblem(), HasSubstr(c.problem));
  }
  ImmichLibrary library({server.url(), "all-key"});
  EXPECT_TRUE(library.authorize());
}

TEST(ImmichLibraryAssets, UploadsAPhotoWhoseDateZoneAndPlaceImmichCanRead) {
  Fixture f;
  const std::string id =
      f.library.addAsset(f.copies.jpeg, std::nullopt, std::nullopt, kTaken, std::nullopt);
  const auto asset = f.asset(id);
  EXPECT_EQ(asset["type"], "IMAGE");
  EXPECT_EQ(asset["filename"], "IMG_0001.jpg");
  EXPECT_EQ(asset["fileCreatedAt"], "2019-07-04T13:30:00+00:00");
  const auto read = exiftool(asset["path"].get<std::string>());
  EXPECT_EQ(read["DateTimeOriginal"], "2019:07:04 15:30:00");
  EXPECT_EQ(read["OffsetTimeOriginal"], "+02:00");
  EXPECT_NEAR(read["GPSLatitude"].get<double>(), 48.1372, 1e-4);
  EXPECT_NEAR(read["GPSLongitude"].get<double>(), 11.5756, 1e-4);
  // The same file again is the same asset, not a second one.
  EXPECT_EQ(f.library.addAsset(f.copies.jpeg, std::nullopt, std::nullopt, kTaken, std::nullopt),
            id);
  EXPECT_EQ(f.server.state()["assets"].size(), 1u);
}

TEST(ImmichLibraryAssets, SendsAHeicsSidecarAndPairsALivePhotoMovieFirst) {
  Fixture f;
  const std::string id =
      f.library.addAsset(f.copies.heic, f.copies.movie, std::nullopt, kTaken, std::nullopt);
  const auto state = f.server.state();
  ASSERT_EQ(state["assets"].size(), 2u);
  const auto still = state["assets"][id];
  const auto movie = state["assets"][still["livePhotoVideoId"].get<std::string>()];
  EXPECT_EQ(movie["type"], "VIDEO");
  EXPECT_EQ(movie["visibility"], "hidden");
  EXPECT_EQ(state["requests"],
            nlohmann::json({"GET /.well-known/immich -> 200", "POST /api/assets -> 201",
                            "POST /api/assets -> 201"}));
  const auto sidecar = exiftool(still["sidecarPath"].get<std::string>());
  EXPECT_EQ(sidecar["DateTimeOriginal"], "2019:07:04 15:30:00+02:00");
  EXPECT_NEAR(sidecar["GPSLatitude"].get<double>(), 48.1372, 1e-4);
  EXPECT_TRUE(movie["sidecarPath"].is_null());

  // Adding the pair again finds both and keeps them paired.
  EXPECT_EQ(f.library.addAsset(f.copies.heic, f.copies.movie, std::nullopt, kTaken, std::nullopt),
            id);
  EXPECT_EQ(f.server.state()["assets"].size(), 2u);
}

TEST(ImmichLibraryAssets, AddsARealIPhoneStillAndMovieAsOneLivePhotoByteForByte) {
  const fs::path samples = testing::sharedSamples();
  const fs::path still = samples / "heif/iphone_13_pro_max.HEIC";
  const fs::path movie = samples / "movies/with-gps.mov";
  if (!fs::exists(still) || !fs::exists(movie)) {
    GTEST_SKIP() << "the real samples are not at " << samples;
  }
  const auto before = testing::snapshotTree(samples);
  ImmichStandIn server;
  ImmichLibrary library({server.url(), ImmichStandIn::key});
  const std::string id = library.addAsset(still, movie, std::nullopt, std::nullopt, std::nullopt);
  const auto state = server.state();
  const auto asset = state["assets"][id];
  const auto video = state["assets"][asset["livePhotoVideoId"].get<std::string>()];
  EXPECT_EQ(asset["filename"], "iphone_13_pro_max.HEIC");
  EXPECT_EQ(video["filename"], "with-gps.mov");
  const auto stored = exiftool(asset["path"].get<std::string>());
  EXPECT_EQ(stored["DateTimeOriginal"], "2022:02:16 12:55:41");
  EXPECT_EQ(stored["OffsetTimeOriginal"], "+01:00");
  EXPECT_EQ(testing::snapshotTree(fs::path(asset["path"].get<std::string>()).parent_path())
                .at(fs::path(asset["path"].get<std::string>()).filename().string()),
            before.at("heif/iphone_13_pro_max.HEIC"));
  EXPECT_EQ(testing::snapshotTree(samples), before);
}

TEST(ImmichLibraryAssets, PairsAStillTheServerAlreadyHeldByUpdatingIt) {
  Fixture f;
  const std::string still =
      f.library.addAsset(f.copies.heic, std::nullopt, std::nullopt, kTaken, std::nullopt);
  EXPECT_EQ(f.library.addAsset(f.copies.heic, f.copies.movie, std::nullopt, kTaken, std::nullopt),
            still);
  EXPECT_TRUE(f.asset(still)["livePhotoVideoId"].is_string());
  EXPECT_THAT(f.server.state()["requests"].dump(), HasSubstr("PUT /api/assets/" + still));
}

TEST(ImmichLibraryAssets, FailsWithASentenceAPersonCanActOn) {
  struct Case {
    const char* name;
    nlohmann::json switches;
    PhotoLibraryError::Kind kind;
    const char* message;
  };
  const std::vector<Case> cases = {
      {"pair refused",
       {{"refusePairs", true}},
       PhotoLibraryError::Kind::refused,
       "Immich refused IMG_0002.heic (Immich says: Live photo video must be a video)."},
      {"type refused",
       {{"refuseTypes", {"heic"}}},
       PhotoLibraryError::Kind::refused,
       "Immich refused IMG_0002.heic (Immich says: Unsupported file type IMG_0002.heic)."},
      {"proxy limit",
       {{"tooLarge", {"IMG_0002.heic"}}},
       PhotoLibraryError::Kind::refused,
       "IMG_0002.heic is too large for the server or a proxy in front of it. Raise the proxy's "
       "upload limit (for nginx, client_max_body_size), then try again."},
      {"quota",
       {{"quotaFull", true}},
       PhotoLibraryError::Kind::refused,
       "Your Immich storage quota is full, so IMG_0002.mov wasn't added. Free up space or ask "
       "the server's admin for a larger quota, then try again."},
      {"dropped",
       {{"dropUploads", {"IMG_0002.heic"}}},
       PhotoLibraryError::Kind::unreachable,
       "The upload of IMG_0002.heic to "},
      {"no upload permission",
       {{"keys", {{"test-key", {"album.read"}}}}},
       PhotoLibraryError::Kind::missingAccess,
       "The API key may not do this (Immich says: Missing required permission: asset.upload). "
       "Give it the asset and album permissions in Immich, then try again."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fixture f;
    f.server.config(c.switches);
    try {
      f.library.addAsset(f.copies.heic, f.copies.movie, std::nullopt, kTaken, std::nullopt);
      ADD_FAILURE() << "no error";
    } catch (const PhotoLibraryError& error) {
      EXPECT_EQ(error.kind(), c.kind);
      EXPECT_THAT(error.what(), HasSubstr(c.message));
    }
    const auto state = f.server.state();
    for (const auto& [id, asset] : state["assets"].items()) {
      EXPECT_EQ(asset["type"], "VIDEO");  // a refused still is never created
    }
    // The one connection still works afterwards.
    f.server.config({{"refusePairs", false},
                     {"refuseTypes", nlohmann::json::array()},
                     {"tooLarge", nlohmann::json::array()},
                     {"quotaFull", false},
                     {"dropUploads", nlohmann::json::array()},
                     {"keys", {{"test-key", {"all"}}}}});
    EXPECT_NO_THROW(
        f.library.addAsset(f.copies.jpeg, std::nullopt, std::nullopt, kTaken, std::nullopt));
  }
}

TEST(ImmichLibraryAlbums, GivesUpOnAServerThatStopsAnswering) {
  ImmichStandIn server;
  ImmichLibrary library(
      {server.url(), ImmichStandIn::key},
      {std::chrono::seconds(5), std::chrono::seconds(5), 1, std::chrono::seconds(1)});
  ASSERT_TRUE(library.authorize());
  server.config({{"delay", 2}});
  const auto start = std::chrono::steady_clock::now();
  try {
    library.album("Trip", library.folder("Title", std::nullopt), std::nullopt);
    ADD_FAILURE() << "no error";
  } catch (const PhotoLibraryError& error) {
    EXPECT_EQ(error.kind(), PhotoLibraryError::Kind::unreachable);
    EXPECT_THAT(error.what(), HasSubstr("Check the address and that the server is running"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
  server.config({{"delay", 0}});
}

TEST(ImmichLibraryAlbums, CreatesReusesRecreatesAndFillsAlbums) {
  Fixture f;
  const std::string folder = f.library.folder("Quillmere: Snapchat (Mar 5, 2025 14:07)", {});
  EXPECT_EQ(f.library.folder("ignored", folder), folder);
  EXPECT_TRUE(f.server.state()["requests"].empty());  // folders cost no request

  const std::string album = f.library.album("Trip", folder, std::nullopt);
  EXPECT_EQ(f.server.albumNamed("Trip")["description"],
            "Added by Quillmere: Snapchat (Mar 5, 2025 14:07)");
  EXPECT_EQ(f.library.album("Trip", folder, album), album);
  EXPECT_EQ(f.server.state()["albums"].size(), 1u);

  const std::string a =
      f.library.addAsset(f.copies.jpeg, std::nullopt, std::nullopt, kTaken, std::nullopt);
  const std::string b =
      f.library.addAsset(f.copies.heic, std::nullopt, std::nullopt, kTaken, std::nullopt);
  f.library.add({a, b}, album);
  f.library.add({b, a}, album);  // already there: no error, no change
  EXPECT_EQ(f.server.albumNamed("Trip")["assets"], nlohmann::json({a, b}));

  f.server.forgetAlbums();
  try {
    f.library.add({a}, album);
    ADD_FAILURE() << "no error";
  } catch (const PhotoLibraryError& error) {
    EXPECT_EQ(error.kind(), PhotoLibraryError::Kind::notFound);
  }
  const std::string again = f.library.album("Trip", folder, album);
  EXPECT_NE(again, album);
  f.library.add({a}, again);
  EXPECT_EQ(f.server.albumNamed("Trip")["assets"], nlohmann::json({a}));
}

TEST(ImmichStandIn, RejectsRequestsThatDontMatchImmichsShapes) {
  ImmichStandIn server;
  const Copies& copies = sharedCopies();
  HttpClient http({});
  const std::vector<std::string> headers = {"x-api-key: test-key", "Expect:"};
  const auto upload = [&](std::vector<HttpClient::Part> parts) {
    return http.upload(server.url() + "/api/assets", headers, parts);
  };
  const HttpClient::Part created{"fileCreatedAt", "2019-07-04T13:30:00Z", std::nullopt};
  const HttpClient::Part modified{"fileModifiedAt", "2019-07-04T13:30:00Z", std::nullopt};
  const HttpClient::Part file{"assetData", "", copies.jpeg};
  EXPECT_EQ(upload({created, file, modified}).status, 400);  // a field after the file
  EXPECT_EQ(upload({created, file}).status, 400);            // a required field missing
  EXPECT_EQ(upload({created, modified, {"deviceId", "x", std::nullopt}, file}).status, 400);
  EXPECT_EQ(upload({{"fileCreatedAt", "yesterday", std::nullopt}, modified, file}).status, 400);
  EXPECT_EQ(upload({created, modified, file}).status, 201);
  const auto json = [&](const std::string& method, const std::string& path,
                        const std::string& body) {
    return http
        .send(method, server.url() + path,
              {"x-api-key: test-key", "Content-Type: application/json"}, body)
        .status;
  };
  EXPECT_EQ(json("POST", "/api/albums", R"({"name": "x"})"), 400);
  EXPECT_EQ(json("POST", "/api/albums", R"({"albumName": 3})"), 400);
  EXPECT_EQ(json("PUT", "/api/albums/not-a-uuid/assets", R"({"ids": []})"), 400);
  EXPECT_EQ(json("POST", "/api/albums", R"({"albumName": "x", "description": null})"), 201);
  const std::string album = server.state()["albums"].begin().key();
  EXPECT_EQ(http.send("GET", server.url() + "/api/albums/" + album + "?withoutAssets=true",
                      {"x-api-key: test-key"})
                .status,
            400);
  EXPECT_EQ(http.send("GET", server.url() + "/api/albums/" + album, {"x-api-key: test-key"}).status,
            200);
}

TEST(ImmichCredentials, TakesOptionsThenTheEnvironmentThenImmichsAuthFile) {
  TempDir home;
  fs::create_directories(home / ".config/immich");
  std::ofstream(home / ".config/immich/auth.yml") << "url: \"https://file.example/api\"\n"
                                                     "key: file-key\n";
  ScopedEnvironment homeVariable("HOME", home.path().c_str());
  {
    ScopedEnvironment url("IMMICH_INSTANCE_URL", nullptr);
    ScopedEnvironment key("IMMICH_API_KEY", "env-key");
    EXPECT_EQ(ImmichCredentials::find(),
              (ImmichCredentials{"https://file.example/api", "env-key"}));
    EXPECT_EQ(ImmichCredentials::find("https://option.example", std::nullopt),
              (ImmichCredentials{"https://option.example", "env-key"}));
  }
  {
    ScopedEnvironment url("IMMICH_INSTANCE_URL", "https://env.example");
    ScopedEnvironment key("IMMICH_API_KEY", nullptr);
    EXPECT_EQ(ImmichCredentials::find(std::nullopt, "option-key"),
              (ImmichCredentials{"https://env.example", "option-key"}));
  }
  fs::remove(home / ".config/immich/auth.yml");
  ScopedEnvironment url("IMMICH_INSTANCE_URL", nullptr);
  ScopedEnvironment key("IMMICH_API_KEY", nullptr);
  try {
    ImmichCredentials::find(std::nullopt, "k");
    ADD_FAILURE() << "no error";
  } catch (const PhotoLibraryError& error) {
    EXPECT_EQ(error.kind(), PhotoLibraryError::Kind::misconfigured);
    EXPECT_THAT(error.what(), HasSubstr("--server"));
  }
  EXPECT_THROW(ImmichCredentials::find("https://x.example", std::nullopt), PhotoLibraryError);
}

}  // namespace
}  // namespace quillmere
