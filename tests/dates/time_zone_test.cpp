// Time zones: the system's database, the shipped world grid, and the folder it ships in.
#include "core/dates/time_zone.h"

#include <date/date.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <system_error>
#include <tuple>

#include "core/dates/resource_folder.h"
#include "core/dates/time_zone_map.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tz_grid_builder.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::TzGridBuilder;
using testing::zlibCompress;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr std::nullopt_t kNone = std::nullopt;
constexpr std::uint16_t kNoZone = TzGridBuilder::kNoZone;
constexpr std::uint16_t kSea = 0, kParis = 1, kBerlin = 2, kTokyo = 3, kMars = 4, kSeaWest = 5;
const std::vector<std::string> kNames = {"Etc/GMT",    "Europe/Paris",      "Europe/Berlin",
                                         "Asia/Tokyo", "Mars/Olympus_Mons", "Etc/GMT+1"};

// Seconds since 1970 of a UTC date and time.
double utc(int year, unsigned month, unsigned day, int hour = 12, int minute = 0,
           double second = 0) {
  const date::sys_days days = date::year(year) / month / day;
  return static_cast<double>(days.time_since_epoch() / std::chrono::seconds(1)) + hour * 3600 +
         minute * 60 + second;
}

TEST(TimeZoneTest, OffsetsFollowTheDatabaseIncludingDaylightSavingAndHistory) {
  // Both hemispheres, the second summer time starts (fractions floored), local mean time
  // before 1891, an offset that changed since, and Etc names counting west as positive.
  const std::tuple<const char*, double, int> kCases[] = {
      {"Europe/Paris", utc(2021, 3, 28, 0, 59, 59.75), 3600},
      {"Europe/Paris", utc(2021, 3, 28, 1, 0, 0), 7200},
      {"Europe/Paris", utc(1890, 1, 1), 561},
      {"Europe/Berlin", -0.5, 3600},
      {"Asia/Kathmandu", utc(1985, 6, 1), 19800},
      {"Australia/Adelaide", utc(2021, 1, 15), 37800},
      {"Etc/GMT+3", utc(2021, 7, 15), -10800}};
  for (const auto& [name, instant, offset] : kCases) {
    SCOPED_TRACE(std::string(name) + " at " + std::to_string(instant));
    const std::optional<TimeZone> zone = TimeZone::named(name);
    ASSERT_TRUE(zone.has_value());
    EXPECT_EQ(zone->identifier(), name);
    EXPECT_EQ(zone->offsetSeconds(instant), offset);
  }
}

TEST(TimeZoneTest, UnknownNamesAreAbsentAndNonFiniteInstantsDoNotFail) {
  for (const char* name : {"Mars/Olympus_Mons", "", "Europe/", "Etc/GMT+15", "../../etc/passwd"}) {
    EXPECT_EQ(TimeZone::named(name), kNone) << name;
  }
  const TimeZone paris = TimeZone::named("Europe/Paris").value();
  EXPECT_EQ(paris.offsetSeconds(kNaN), paris.offsetSeconds(0));
  EXPECT_EQ(paris.offsetSeconds(-kInf), 561);
  const int future = paris.offsetSeconds(kInf);
  EXPECT_TRUE(future == 3600 || future == 7200) << future;
}

TEST(ResourceFolderTest, TheOverrideIsTheOnlyPlaceElseABuildFindsTheSourceTree) {
  {
    const ScopedEnvironment variable("QUILLMERE_RESOURCES", "/somewhere/else");
    EXPECT_EQ(ResourceFolder::candidates(), std::vector<fs::path>{"/somewhere/else"});
  }
  const ScopedEnvironment variable("QUILLMERE_RESOURCES", nullptr);
  const fs::path source = fs::path(QUILLMERE_SOURCE_DIR) / "resources";
  const std::vector<fs::path> folders = ResourceFolder::candidates();
  EXPECT_NE(std::find(folders.begin(), folders.end(), source.lexically_normal()), folders.end());
  const fs::path grid = source / TimeZoneMap::kFileName;
  const std::optional<fs::path> found = ResourceFolder::find(TimeZoneMap::kFileName).file;
  ASSERT_NE(found, std::nullopt);
  EXPECT_TRUE(fs::equivalent(*found, grid)) << *found;
}

TEST(ResourceFolderTest, AMissingFileIsAnErrorNamingItAndEveryPlaceLookedIn) {
  testing::TempDir dir;
  fs::create_directories(dir / "a" / "tzgrid.zlib");  // a folder of that name doesn't count
  fs::create_directories(dir / "b");
  testing::writeFile(dir / "b" / "tzgrid.zlib", testing::toBytes("grid"));
  EXPECT_EQ(ResourceFolder::find("tzgrid.zlib", {dir / "missing", dir / "a", dir / "b"}),
            (ResourceFolder::Lookup{dir / "b" / "tzgrid.zlib", ""}));
  const std::string looked = "\n  " + (dir / "missing").string() + "\n  " + (dir / "a").string();
  EXPECT_EQ(ResourceFolder::find("tzgrid.zlib", {dir / "missing", dir / "a"}),
            (ResourceFolder::Lookup{
                std::nullopt, "Quillmere's data file tzgrid.zlib is missing. Looked in:" + looked +
                                  "\nReinstall Quillmere, or set QUILLMERE_RESOURCES to "
                                  "the folder that holds tzgrid.zlib."}));
  EXPECT_THAT(ResourceFolder::find("tzgrid.zlib", {}).error,
              ::testing::HasSubstr("Looked in: nowhere"));
}

TEST(ResourceFolderTest, TheGridShipsWithItsNotice) {
  const fs::path source = fs::path(QUILLMERE_SOURCE_DIR) / "resources";
  const fs::path grid = source / TimeZoneMap::kFileName;
  // The grid ships with its licence notice.
  EXPECT_TRUE(fs::is_regular_file(grid));
  const Bytes notice = testing::readFile(source / "tzgrid-NOTICE.txt");
  for (const char* needed : {"OpenStreetMap contributors", "ODbL", "Open Database License",
                             "timezones-1970", "Evan Siroky"}) {
    EXPECT_NE(std::string(notice.begin(), notice.end()).find(needed), std::string::npos) << needed;
  }
}

TEST(TimeZoneMapTest, TheShippedGridKnowsPlacesAndTheSeaOffTheirCoasts) {
  // A zone inside another zone's country, both sides of longitude 180, open sea, and points a
  // few kilometres offshore, whose own cell is sea but near enough to a coast. Every name is
  // one the system's database knows.
  const std::tuple<double, double, const char*, bool> kCases[] = {
      {-31.9539, 141.4539, "Australia/Broken_Hill", false},
      {-16.5, 179.99, "Pacific/Fiji", false},
      {0, -179.9, "Etc/GMT+12", false},
      {90, 0, "Etc/GMT", false},
      {38.512797, 15.423904, "Europe/Rome", true},
      {63.478718, -23.492956, "Africa/Abidjan", true},  // Iceland keeps GMT since 1970
  };
  const TimeZoneMap* map = TimeZoneMap::shared();
  ASSERT_NE(map, nullptr);
  for (const auto& [lat, lon, zone, offshore] : kCases) {
    SCOPED_TRACE(zone);
    EXPECT_EQ(map->zoneName(lat, lon), zone);
    const auto row = static_cast<std::int64_t>(std::floor((90 - lat) / map->resolution()));
    const auto col = static_cast<std::int64_t>(std::floor((lon + 180) / map->resolution()));
    EXPECT_TRUE(!offshore || map->names()[map->zoneIndex(row, col).value()].starts_with("Etc/"));
  }
  for (const std::string& name : map->names()) EXPECT_TRUE(TimeZone::named(name)) << name;
}

TEST(TimeZoneMapTest, SeaTakesTheNearestLandWithinATenthOfADegree) {
  // A world at 0.05 degree, where a tenth is 2 cells. Cell distance is Euclidean, so (2, 0) is
  // in reach but (2, 1) is not; ties go north, then west; other seas and cells without a zone
  // are not land; columns wrap, rows don't. Land is row, column and width from the cell asked
  // about, and zone.
  using Land = std::tuple<int, int, int, std::uint16_t>;
  using Case = std::tuple<const char*, int, int, std::optional<std::string>, std::vector<Land>>;
  constexpr int r = 1000, c = 3000;
  const Case kCases[] = {
      {"no land near", r, c, "Etc/GMT", {}},
      {"nearer, seen later", r, c, "Europe/Berlin", {{-2, 0, 1, kParis}, {1, 1, 1, kBerlin}}},
      {"north wins a tie", r, c, "Europe/Berlin", {{-1, 1, 1, kBerlin}, {1, -1, 1, kParis}}},
      {"west wins a tie", r, c, "Europe/Paris", {{0, 1, 1, kBerlin}, {0, -1, 1, kParis}}},
      {"on the radius", r, c, "Europe/Paris", {{2, 0, 1, kParis}}},
      {"on the radius in the row", r, c, "Europe/Paris", {{0, 2, 1, kParis}}},
      {"beyond the radius", r, c, "Etc/GMT", {{2, 1, 1, kParis}, {0, 3, 1, kTokyo}}},
      {"another sea", r, c, "Etc/GMT", {{0, 1, 1, kSeaWest}}},
      {"no zone is no land", r, c, "Europe/Paris", {{0, 1, 1, kNoZone}, {1, 1, 1, kParis}}},
      {"a run's nearest cell", r, c, "Europe/Paris", {{-1, -1, 3, kParis}, {0, 1, 1, kTokyo}}},
      {"no zone has none", r, c, kNone, {{0, 0, 1, kNoZone}, {0, 1, 1, kParis}}},
      {"west across -180", 500, 0, "Asia/Tokyo", {{1, -1, 1, kTokyo}}},
      {"east across +180", 500, 7199, "Asia/Tokyo", {{0, 1, 1, kTokyo}}},
      {"too far across", 500, 1, "Etc/GMT", {{0, -3, 1, kTokyo}}},
      {"top row", 0, 100, "Asia/Tokyo", {{2, 0, 1, kTokyo}}},
  };
  for (const auto& [name, row, col, zone, land] : kCases) {
    SCOPED_TRACE(name);
    TzGridBuilder grid(7200, 3600, 0.05, kNames, kSea);
    for (const auto& [dr, dc, width, landZone] : land) {
      for (int i = 0; i < width; ++i) grid.set(row + dr, (col + dc + i + 7200) % 7200, landZone);
    }
    const TimeZoneMap map(grid.compressed());
    EXPECT_EQ(map.zoneName(90 - (row + 0.5) * 0.05, (col + 0.5) * 0.05 - 180), zone);
  }
  // A grid narrower than the window is searched cell by cell, with the same tie-break.
  const TimeZoneMap narrow(
      TzGridBuilder(3, 5, 0.05, kNames, kSea).set(2, 1, kParis).set(2, 2, kBerlin).compressed());
  EXPECT_EQ(narrow.zoneName(90 - 2.5 * 0.05, 0.5 * 0.05 - 180), "Europe/Berlin");
}

TEST(TimeZoneMapTest, ClampsAtThePolesAndLongitude180AndFindsNothingOffTheGlobe) {
  // 0.1 degree: row 0 Tokyo, the last row Berlin; row 900 Paris at the western edge, Berlin
  // at the eastern one and, near longitude 0, Mars: a name but not a time zone.
  TzGridBuilder grid(3600, 1800, 0.1, kNames, kSea);
  grid.set(0, 0, 3600, kTokyo).set(1799, 0, 3600, kBerlin);
  grid.set(900, 0, kParis).set(900, 3599, kBerlin).set(900, 1800, 1802, kMars);
  const TimeZoneMap map(grid.compressed());
  const std::tuple<double, double, std::optional<std::string>> kCases[] = {
      {90, 10, "Asia/Tokyo"},           {89.9995, 10, "Asia/Tokyo"},
      {-89.95, 10, "Europe/Berlin"},    {-90, 10, kNone},
      {-0.05, -180, "Europe/Paris"},    {-0.05, 180, "Europe/Paris"},
      {-0.05, 179.95, "Europe/Berlin"}, {-0.05, 0.25, "Mars/Olympus_Mons"}};
  for (const auto& [lat, lon, zone] : kCases) {
    EXPECT_EQ(map.zoneName(lat, lon), zone) << lat << " " << lon;
  }
  const std::pair<double, double> kOffTheGlobe[] = {
      {-0.05, 180.0001}, {-0.05, -180.0001}, {90.0001, 0},   {-90.0001, 0},
      {kNaN, 0},         {0, kNaN},          {kInf, 0},      {-kInf, 0},
      {0, kInf},         {0, -kInf},         {1e300, 1e300}, {-1e300, -1e300}};
  for (const auto& [lat, lon] : kOffTheGlobe) {
    EXPECT_EQ(map.zoneName(lat, lon), kNone) << lat << " " << lon;
    EXPECT_EQ(map.timeZone(lat, lon), kNone) << lat << " " << lon;
  }
  EXPECT_EQ(map.zoneName(-0.05, 0.05), "Mars/Olympus_Mons");
  EXPECT_EQ(map.timeZone(-0.05, 0.05), kNone);
  EXPECT_EQ(map.timeZone(89.95, 10)->identifier(), "Asia/Tokyo");
}

// An uncompressed one-row grid of `cols` cells named "Europe/Paris", whose row holds `row`.
Bytes oneRowGrid(std::uint32_t cols, const Bytes& row, double resolution = 10) {
  Bytes grid = TzGridBuilder(cols, 1, resolution, {"Europe/Paris"}).encode();
  grid.resize(22 + 13 + 4);  // header, name, the row's offset
  grid.insert(grid.end(), row.begin(), row.end());
  return grid;
}

TEST(TimeZoneMapTest, RowsDecodeFromAnyCheckpointAndAnyValidRun) {
  // One row alternating zone every cell, then a long tail: many runs and checkpoints.
  TzGridBuilder grid(1000, 2, 0.18, kNames, kSea);
  for (std::uint32_t col = 0; col < 300; ++col) grid.set(0, col, col % 2 ? kParis : kBerlin);
  grid.set(0, 300, 1000, kTokyo);
  const TimeZoneMap map(grid.compressed());
  for (int col = 0; col < 1000; ++col) {
    SCOPED_TRACE(col);
    const std::uint16_t expected = col >= 300 ? kTokyo : (col % 2 ? kParis : kBerlin);
    EXPECT_EQ(map.zoneIndex(0, col), expected);
    EXPECT_EQ(map.zoneIndex(0, col - 1000), expected);  // wraps
  }
  EXPECT_EQ(map.zoneIndex(-1, 0), kNone);
  EXPECT_EQ(map.zoneIndex(2, 0), kNone);
  const TimeZoneMap bad(TzGridBuilder(36, 18, 10, {"Etc/GMT", "Bad/\xFF"}, 1).compressed());
  EXPECT_EQ(bad.zoneName(0, 0), "Bad/\xEF\xBF\xBD");  // invalid UTF-8 in names is replaced
  // An empty run, 128 cells (two varint bytes), one cell without a zone, and 71 cells written
  // with a needless second varint byte.
  const TimeZoneMap odd(zlibCompress(
      oneRowGrid(200, {0, 0, 0, 0x80, 0x01, 0, 0, 0x01, 0xFF, 0xFF, 0x80 | 71, 0x00, 0, 0}, 1.8)));
  EXPECT_EQ(odd.zoneIndex(0, 127), 0);
  EXPECT_EQ(odd.zoneIndex(0, 128), kNone);
  EXPECT_EQ(odd.zoneIndex(0, 199), 0);
}

TEST(TimeZoneMapTest, RejectsDamagedResourcesAndLoadGivesNullForThem) {
  // load() is what shared() is built with: a damaged resource leaves the program without a map.
  testing::TempDir dir;
  auto rejected = [&dir](const Bytes& compressed) {
    testing::writeFile(dir / "grid.zlib", compressed);
    EXPECT_EQ(TimeZoneMap::load(dir / "grid.zlib"), nullptr);
    try {
      TimeZoneMap map(compressed);
    } catch (const std::system_error& error) {
      return error.code() == std::errc::illegal_byte_sequence;
    }
    return false;
  };
  auto with = [](Bytes bytes, std::size_t at, std::uint8_t value) {
    bytes.at(at) = value;
    return bytes;
  };
  const Bytes good = oneRowGrid(4, {4, 0, 0});  // header 22, name 13, row offset 4, row 3
  const Bytes compressed = zlibCompress(good);
  EXPECT_NO_THROW(TimeZoneMap{compressed});
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_TRUE(rejected(zlibCompress(Bytes(good.begin(), good.begin() + size)))) << size;
  }
  Bytes trailing = compressed;
  trailing.push_back(0);
  const std::pair<const char*, Bytes> kCases[] = {
      {"empty", {}},
      {"checksum wrong", with(compressed, compressed.size() - 1, compressed.back() ^ 1)},
      {"stream cut short", Bytes(compressed.begin(), compressed.end() - 1)},
      {"bytes after the stream", trailing},
      {"wrong magic", zlibCompress(with(good, 3, '2'))},
      {"row offset past the end", zlibCompress(with(good, 38, 0x7F))},
      {"runs short of the row", zlibCompress(oneRowGrid(4, {3, 0, 0}))},
      {"runs past the row", zlibCompress(oneRowGrid(4, {5, 0, 0}))},
      {"zone index beyond the names", zlibCompress(oneRowGrid(4, {4, 1, 0}))},
      {"endless varint", zlibCompress(oneRowGrid(4, {0x80, 0x80, 0x80, 0x80, 0x80, 0x01, 0, 0}))},
      {"no columns", zlibCompress(oneRowGrid(0, {}))},
      {"no rows", TzGridBuilder(4, 0, 10, {"Europe/Paris"}).compressed()},
      {"resolution NaN", zlibCompress(oneRowGrid(4, {4, 0, 0}, kNaN))},
      {"resolution too fine to search", zlibCompress(oneRowGrid(4, {4, 0, 0}, 1e-9))},
      {"resolution beyond 180 degrees", zlibCompress(oneRowGrid(4, {4, 0, 0}, 180.5))},
  };
  for (const auto& [name, bytes] : kCases) EXPECT_TRUE(rejected(bytes)) << name;
  fs::create_directory(dir / "folder.zlib");
  EXPECT_EQ(TimeZoneMap::load(dir / "folder.zlib"), nullptr);
  EXPECT_EQ(TimeZoneMap::load(dir / "missing.zlib"), nullptr);
  testing::writeFile(dir / "good.zlib", compressed);
  EXPECT_NE(TimeZoneMap::load(dir / "good.zlib"), nullptr);
}

}  // namespace
}  // namespace quillmere
