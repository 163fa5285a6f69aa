// Time zones: the system's database, the shipped world grid, and the folder it ships in.
#include "core/dates/time_zone.h"

#include <date/date.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <system_error>
#include <tuple>

#include "core/dates/resource_folder.h"
#include "core/dates/time_zone_map.h"
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
  // before 1891, offsets that changed since, and Etc names counting west as positive.
  const std::tuple<const char*, double, int> kCases[] = {
      {"Europe/Paris", utc(2021, 1, 15), 3600},
      {"Europe/Paris", utc(2021, 7, 15), 7200},
      {"Europe/Paris", utc(2021, 3, 28, 0, 59, 59.75), 3600},
      {"Europe/Paris", utc(2021, 3, 28, 1, 0, 0), 7200},
      {"Europe/Paris", utc(1890, 1, 1), 561},
      {"Europe/Berlin", -0.5, 3600},
      {"Asia/Kathmandu", utc(1985, 6, 1), 19800},
      {"Australia/Adelaide", utc(2021, 1, 15), 37800},
      {"Pacific/Chatham", utc(2021, 1, 15), 49500},
      {"America/Caracas", utc(2010, 1, 1), -16200},
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

TEST(ResourceFolderTest, TheOverrideComesFirstElseABuildFindsTheSourceTree) {
  setenv("QUILLMERE_RESOURCES", "/somewhere/else", 1);
  EXPECT_EQ(ResourceFolder::candidates().front(), fs::path("/somewhere/else"));
  unsetenv("QUILLMERE_RESOURCES");
  const fs::path source = fs::path(QUILLMERE_SOURCE_DIR) / "resources";
  const std::vector<fs::path> folders = ResourceFolder::candidates();
  EXPECT_NE(std::find(folders.begin(), folders.end(), source.lexically_normal()), folders.end());
  const fs::path found = ResourceFolder::locate();
  EXPECT_TRUE(fs::equivalent(found, source)) << found;
  // The grid ships with its licence notice.
  EXPECT_TRUE(fs::is_regular_file(found / TimeZoneMap::kFileName));
  const Bytes notice = testing::readFile(found / "tzgrid-NOTICE.txt");
  for (const char* needed : {"OpenStreetMap contributors", "ODbL", "Open Database License",
                             "timezones-1970", "Evan Siroky"}) {
    EXPECT_NE(std::string(notice.begin(), notice.end()).find(needed), std::string::npos) << needed;
  }
}

TEST(ResourceFolderTest, FirstExistingSkipsMissingFoldersAndFiles) {
  testing::TempDir dir;
  fs::create_directory(dir / "second");
  testing::writeFile(dir / "file", testing::toBytes("not a folder"));
  EXPECT_EQ(
      ResourceFolder::firstExisting({dir / "missing", dir / "file", dir / "second", dir.path()}),
      dir / "second");
  EXPECT_EQ(ResourceFolder::firstExisting({dir / "missing", dir / "file"}), kNone);
  EXPECT_EQ(ResourceFolder::firstExisting({}), kNone);
}

TEST(TimeZoneMapTest, TheShippedGridKnowsPlacesAndTheSeaOffTheirCoasts) {
  // Odd offsets, zones inside other zones' countries, both sides of longitude 180, open sea;
  // and points a few kilometres offshore, whose own cell is sea but near enough to a coast.
  const struct {
    double lat, lon;
    const char* zone;
    bool offshore = false;
  } kCases[] = {
      {48.8566, 2.3522, "Europe/Paris"},
      {-31.9539, 141.4539, "Australia/Broken_Hill"},
      {-16.5, 179.99, "Pacific/Fiji"},
      {0, 179.9, "Etc/GMT-12"},
      {0, -179.9, "Etc/GMT+12"},
      {90, 0, "Etc/GMT"},
      {38.512797, 15.423904, "Europe/Rome", true},
      {63.478718, -23.492956, "Africa/Abidjan", true},  // Iceland keeps GMT since 1970
  };
  const TimeZoneMap* map = TimeZoneMap::shared();
  ASSERT_NE(map, nullptr);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.zone);
    EXPECT_EQ(map->zoneName(c.lat, c.lon), c.zone);
    const auto row = static_cast<std::int64_t>(std::floor((90 - c.lat) / map->resolution()));
    const auto col = static_cast<std::int64_t>(std::floor((c.lon + 180) / map->resolution()));
    EXPECT_TRUE(!c.offshore || map->names()[map->zoneIndex(row, col).value()].starts_with("Etc/"));
  }
  for (const std::string& name : map->names()) EXPECT_TRUE(TimeZone::named(name)) << name;
  EXPECT_EQ(map->timeZone(48.8566, 2.3522)->offsetSeconds(utc(2021, 7, 15)), 7200);
}

// A whole world at 0.05 degree: the sea search reaches round(0.1 / 0.05) = 2 cells.
TzGridBuilder world() { return TzGridBuilder(7200, 3600, 0.05, kNames, kSea); }
double latitudeOf(const TimeZoneMap& map, int row) { return 90 - (row + 0.5) * map.resolution(); }
double longitudeOf(const TimeZoneMap& map, int col) {
  return -180 + (col + 0.5) * map.resolution();
}

TEST(TimeZoneMapTest, SeaTakesTheNearestLandWithinATenthOfADegree) {
  // Cell distance is Euclidean, so (2, 0) is in reach but (2, 1) is not; ties go north, then
  // west; other seas and cells without a zone are not land; columns wrap, rows don't.
  struct Land {
    int row, col, width;  // from the cell asked about
    std::uint16_t zone;
  };
  const struct {
    const char* name;
    int row, col;  // the cell asked about
    std::optional<std::string> zone;
    std::vector<Land> land;
  } kCases[] = {
      {"no land near", 1000, 3000, "Etc/GMT", {}},
      {"nearer, seen later", 1000, 3000, "Europe/Berlin", {{-2, 0, 1, kParis}, {1, 1, 1, kBerlin}}},
      {"north wins a tie", 1000, 3000, "Europe/Berlin", {{-1, 1, 1, kBerlin}, {1, -1, 1, kParis}}},
      {"west wins a tie", 1000, 3000, "Europe/Paris", {{0, 1, 1, kBerlin}, {0, -1, 1, kParis}}},
      {"on the radius", 1000, 3000, "Europe/Paris", {{2, 0, 1, kParis}}},
      {"beyond the radius", 1000, 3000, "Etc/GMT", {{2, 1, 1, kParis}, {0, 3, 1, kTokyo}}},
      {"another sea", 1000, 3000, "Etc/GMT", {{0, 1, 1, kSeaWest}}},
      {"no zone is no land", 1000, 3000, "Europe/Paris", {{0, 1, 1, kNoZone}, {1, 1, 1, kParis}}},
      {"a run's nearest cell",
       1000,
       3000,
       "Europe/Paris",
       {{-1, -10, 10, kParis}, {0, 2, 1, kBerlin}}},
      {"a run across the window", 1000, 3000, "Europe/Berlin", {{1, -20, 40, kBerlin}}},
      {"land itself", 1000, 3000, "Asia/Tokyo", {{0, 0, 1, kTokyo}}},
      {"no zone has none", 1000, 3000, kNone, {{0, 0, 1, kNoZone}, {0, 1, 1, kParis}}},
      {"west across -180", 500, 0, "Asia/Tokyo", {{1, -1, 1, kTokyo}}},
      {"east across +180", 500, 7199, "Asia/Tokyo", {{0, 1, 1, kTokyo}}},
      {"too far across", 500, 1, "Etc/GMT", {{0, -3, 1, kTokyo}}},
      {"top row", 0, 100, "Asia/Tokyo", {{2, 0, 1, kTokyo}}},
      {"bottom row", 3599, 100, "Asia/Tokyo", {{-2, 0, 1, kTokyo}}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    TzGridBuilder grid = world();
    for (const Land& land : test.land) {
      for (int i = 0; i < land.width; ++i) {
        grid.set(test.row + land.row, (test.col + land.col + i + 7200) % 7200, land.zone);
      }
    }
    const TimeZoneMap map(grid.compressed());
    EXPECT_EQ(map.zoneName(latitudeOf(map, test.row), longitudeOf(map, test.col)), test.zone);
  }
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

TEST(TimeZoneMapTest, LongRowsDecodeFromAnyCheckpoint) {
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
}

// An uncompressed one-row grid of `cols` cells named "Europe/Paris", whose row holds `row`.
Bytes oneRowGrid(std::uint32_t cols, const Bytes& row, double resolution = 10) {
  const TzGridBuilder builder(cols, 1, resolution, {"Europe/Paris"});
  Bytes grid = builder.encode();
  grid.resize(builder.rowOffsetsStart() + 4);
  grid.insert(grid.end(), row.begin(), row.end());
  return grid;
}

TEST(TimeZoneMapTest, RejectsDamagedResources) {
  const Bytes shipped =
      testing::readFile(fs::path(QUILLMERE_SOURCE_DIR) / "resources" / TimeZoneMap::kFileName);
  const Bytes good = oneRowGrid(4, {4, 0, 0});  // header 22, name 13, row offset 4, row 3
  auto with = [](Bytes bytes, std::size_t at, std::uint8_t value) {
    bytes.at(at) = value;
    return bytes;
  };
  auto head = [](const Bytes& bytes, std::size_t size) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
  };
  Bytes trailing = zlibCompress(good);
  trailing.push_back(0);
  const std::pair<const char*, Bytes> kCases[] = {
      {"empty", {}},
      {"truncated", head(shipped, shipped.size() / 2)},
      {"one byte flipped", with(shipped, shipped.size() / 2, shipped[shipped.size() / 2] ^ 0x10)},
      {"bytes after the stream", trailing},
      {"wrong magic", zlibCompress(with(good, 3, '2'))},
      {"22 bytes", zlibCompress(head(good, 22))},
      {"names cut short", zlibCompress(head(good, 25))},
      {"row offsets cut short", zlibCompress(head(good, 37))},
      {"row offset past the end", zlibCompress(with(good, 38, 0x7F))},
      {"row cut short", zlibCompress(head(good, good.size() - 1))},
      {"runs short of the row", zlibCompress(oneRowGrid(4, {3, 0, 0}))},
      {"runs past the row", zlibCompress(oneRowGrid(4, {5, 0, 0}))},
      {"zone index beyond the names", zlibCompress(oneRowGrid(4, {4, 1, 0}))},
      {"endless varint", zlibCompress(oneRowGrid(4, {0x80, 0x80, 0x80, 0x80, 0x80, 0x01, 0, 0}))},
      {"no columns", zlibCompress(oneRowGrid(0, {}))},
      {"no rows", TzGridBuilder(4, 0, 10, {"Europe/Paris"}).compressed()},
      {"resolution NaN", zlibCompress(oneRowGrid(4, {4, 0, 0}, kNaN))},
      {"resolution too fine to search", zlibCompress(oneRowGrid(4, {4, 0, 0}, 1e-9))},
  };
  EXPECT_NO_THROW(TimeZoneMap{zlibCompress(good)});
  for (const auto& [name, compressed] : kCases) {
    SCOPED_TRACE(name);
    try {
      TimeZoneMap map(compressed);
      ADD_FAILURE() << "accepted";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::errc::illegal_byte_sequence);
    }
  }
  // An empty run, 128 cells (two varint bytes), one cell without a zone, and 71 cells written
  // with a needless second varint byte are all fine.
  const TimeZoneMap odd(zlibCompress(
      oneRowGrid(200, {0, 0, 0, 0x80, 0x01, 0, 0, 0x01, 0xFF, 0xFF, 0x80 | 71, 0x00, 0, 0}, 1.8)));
  EXPECT_EQ(odd.zoneIndex(0, 127), 0);
  EXPECT_EQ(odd.zoneIndex(0, 128), kNone);
  EXPECT_EQ(odd.zoneIndex(0, 199), 0);
}

TEST(TimeZoneMapTest, LoadGivesNullForMissingOrDamagedFiles) {
  // What shared() is built with: a damaged resource leaves the program without a map.
  testing::TempDir dir;
  testing::writeFile(dir / "good.zlib", world().compressed());
  Bytes truncated = world().compressed();
  truncated.resize(truncated.size() - 10);
  testing::writeFile(dir / "truncated.zlib", truncated);
  testing::writeFile(dir / "wrong-magic.zlib", zlibCompress(Bytes(40, 'x')));
  fs::create_directory(dir / "folder.zlib");
  EXPECT_NE(TimeZoneMap::load(dir / "good.zlib"), nullptr);
  for (const char* name : {"missing.zlib", "truncated.zlib", "wrong-magic.zlib", "folder.zlib"}) {
    EXPECT_EQ(TimeZoneMap::load(dir / name), nullptr) << name;
  }
}

}  // namespace
}  // namespace quillmere
