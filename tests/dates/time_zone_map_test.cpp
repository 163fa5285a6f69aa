#include "core/dates/time_zone_map.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <system_error>
#include <thread>
#include <tuple>

#include "tests/support/temp_dir.h"
#include "tests/support/tz_grid_builder.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::TzGridBuilder;
using testing::zlibCompress;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr std::uint16_t kNoZone = TzGridBuilder::kNoZone;
constexpr std::uint16_t kSea = 0, kParis = 1, kBerlin = 2, kTokyo = 3, kMars = 4, kSeaWest = 5;
const std::vector<std::string> kNames = {"Etc/GMT",    "Europe/Paris",      "Europe/Berlin",
                                         "Asia/Tokyo", "Mars/Olympus_Mons", "Etc/GMT+1"};

const TimeZoneMap& shippedMap() {
  const TimeZoneMap* map = TimeZoneMap::shared();
  if (map == nullptr) throw std::runtime_error("the shipped time zone grid did not load");
  return *map;
}

// A whole world at 0.05 degree: the sea search reaches round(0.1 / 0.05) = 2 cells.
TzGridBuilder world() { return TzGridBuilder(7200, 3600, 0.05, kNames, kSea); }
double latitudeOf(const TimeZoneMap& map, int row) { return 90 - (row + 0.5) * map.resolution(); }
double longitudeOf(const TimeZoneMap& map, int col) {
  return -180 + (col + 0.5) * map.resolution();
}

// The sea-to-land search exactly as defined, cell by cell, to check the run-wise one against.
std::optional<std::string> definitionZoneName(const TimeZoneMap& map, double lat, double lon) {
  if (!(std::fabs(lat) <= 90) || !(std::fabs(lon) <= 180)) return std::nullopt;
  if (lat > 89.999) lat = 89.999;
  if (lon == 180) lon = -180;
  const auto row = static_cast<std::int64_t>(std::floor((90 - lat) / map.resolution()));
  const auto col = static_cast<std::int64_t>(std::floor((lon + 180) / map.resolution()));
  const std::optional<std::uint16_t> zone = map.zoneIndex(row, col);
  if (!zone) return std::nullopt;
  if (!map.names()[*zone].starts_with("Etc/")) return map.names()[*zone];
  const std::int64_t radius = std::lround(0.1 / map.resolution());
  std::optional<std::uint16_t> best;
  std::int64_t bestDistance = 0;
  for (std::int64_t dr = -radius; dr <= radius; ++dr) {
    for (std::int64_t dc = -radius; dc <= radius; ++dc) {
      const std::int64_t distance = dr * dr + dc * dc;
      if ((dr == 0 && dc == 0) || distance > radius * radius) continue;
      const std::optional<std::uint16_t> near = map.zoneIndex(row + dr, col + dc);
      if (near && !map.names()[*near].starts_with("Etc/") && (!best || distance < bestDistance)) {
        best = near;
        bestDistance = distance;
      }
    }
  }
  return map.names()[best ? *best : *zone];
}

TEST(TimeZoneMapShippedTest, KnownPlaces) {
  const struct {
    const char* place;
    double lat, lon;
    const char* zone;
  } cases[] = {
      {"Paris", 48.8566, 2.3522, "Europe/Paris"},
      {"Greenwich", 51.4779, -0.0015, "Europe/London"},
      {"Kathmandu", 27.7172, 85.3240, "Asia/Kathmandu"},
      {"Kolkata", 22.5726, 88.3639, "Asia/Kolkata"},
      {"Adelaide", -34.9285, 138.6007, "Australia/Adelaide"},
      {"Broken Hill, NSW but on Adelaide time", -31.9539, 141.4539, "Australia/Broken_Hill"},
      {"Eucla", -31.6767, 128.8831, "Australia/Eucla"},
      {"Chatham Islands", -43.9535, -176.5597, "Pacific/Chatham"},
      {"Caracas", 10.4806, -66.9036, "America/Caracas"},
      {"St. John's", 47.5615, -52.7126, "America/St_Johns"},
      {"Phoenix, no daylight saving", 33.4484, -112.0740, "America/Phoenix"},
      {"Kiritimati, UTC+14", 1.8721, -157.4278, "Pacific/Kiritimati"},
      {"Fiji, just west of 180", -16.5, 179.99, "Pacific/Fiji"},
      {"McMurdo", -77.8419, 166.6863, "Pacific/Auckland"},
      {"mid-Atlantic", 30, -40, "Etc/GMT+3"},
      {"Gulf of Guinea", 0, 0, "Etc/GMT"},
      {"Indian Ocean", -30, 80, "Etc/GMT-5"},
      {"Pacific west of the date line", 0, 179.9, "Etc/GMT-12"},
      {"Pacific east of the date line", 0, -179.9, "Etc/GMT+12"},
      {"North Pole", 90, 0, "Etc/GMT"},
  };
  const TimeZoneMap& map = shippedMap();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.place);
    EXPECT_EQ(map.zoneName(c.lat, c.lon), c.zone);
  }
}

TEST(TimeZoneMapShippedTest, GridIsTheFinestThatWasPlanned) {
  const TimeZoneMap& map = shippedMap();
  EXPECT_EQ(map.resolution(), 0.01);
  EXPECT_EQ(map.cols(), 36000);
  EXPECT_EQ(map.rows(), 18000);
  EXPECT_LT(map.byteSize(), std::size_t{20} << 20);
}

TEST(TimeZoneMapShippedTest, EveryNameIsKnownToTheSystemDatabase) {
  for (const std::string& name : shippedMap().names()) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(TimeZone::named(name).has_value());
  }
}

TEST(TimeZoneMapShippedTest, SeaNearACoastTakesTheCoastsZone) {
  // Points a few kilometres beyond territorial waters: their own cell is open sea.
  const struct {
    double lat, lon;
    const char* zone;
  } cases[] = {
      {38.512797, 15.423904, "Europe/Rome"},
      {26.522564, 34.855379, "Africa/Cairo"},
      {-28.909385, 113.470074, "Australia/Perth"},
      {63.478718, -23.492956, "Africa/Abidjan"},  // Iceland keeps GMT since 1970
  };
  const TimeZoneMap& map = shippedMap();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.zone);
    const auto row = static_cast<std::int64_t>(std::floor((90 - c.lat) / map.resolution()));
    const auto col = static_cast<std::int64_t>(std::floor((c.lon + 180) / map.resolution()));
    ASSERT_TRUE(map.names()[map.zoneIndex(row, col).value()].starts_with("Etc/"));
    EXPECT_EQ(map.zoneName(c.lat, c.lon), c.zone);
  }
}

TEST(TimeZoneMapShippedTest, ClampsAtThePolesAndTheDateLine) {
  const TimeZoneMap& map = shippedMap();
  for (double lon : {-179.995, -30.0, 0.0, 100.0}) {
    SCOPED_TRACE(lon);
    EXPECT_EQ(map.zoneName(90, lon), map.zoneName(89.999, lon));
    EXPECT_EQ(map.zoneName(89.9995, lon), map.zoneName(89.999, lon));
  }
  EXPECT_EQ(map.zoneName(-90, 0), std::nullopt);
  EXPECT_TRUE(map.zoneName(-89.9999, 0).has_value());
  for (double lat : {-16.5, 0.0, 65.0, 71.0}) {
    SCOPED_TRACE(lat);
    EXPECT_EQ(map.zoneName(lat, 180), map.zoneName(lat, -180));
  }
}

TEST(TimeZoneMapShippedTest, PositionsOutsideTheGlobeHaveNoZone) {
  const TimeZoneMap& map = shippedMap();
  const std::pair<double, double> cases[] = {
      {kNaN, 0},      {0, kNaN},        {kInf, 0},     {-kInf, 0},    {0, kInf},
      {0, -kInf},     {90.0001, 0},     {-90.0001, 0}, {0, 180.0001}, {0, -180.0001},
      {1e300, 1e300}, {-1e300, -1e300}, {kNaN, kNaN},
  };
  for (const auto& [lat, lon] : cases) {
    SCOPED_TRACE(std::to_string(lat) + " " + std::to_string(lon));
    EXPECT_EQ(map.zoneName(lat, lon), std::nullopt);
    EXPECT_EQ(map.timeZone(lat, lon), std::nullopt);
  }
}

TEST(TimeZoneMapShippedTest, TimeZoneComesFromTheSystemDatabase) {
  const std::optional<TimeZone> paris = shippedMap().timeZone(48.8566, 2.3522);
  ASSERT_TRUE(paris.has_value());
  EXPECT_EQ(paris->identifier(), "Europe/Paris");
  EXPECT_EQ(paris->offsetSeconds(1626307200), 7200);  // 2021-07-15, summer time
}

TEST(TimeZoneMapShippedTest, RunWiseSeaSearchMatchesTheDefinitionNearCoasts) {
  // Random points around coasts, islands and straits, where the search decides most.
  const std::pair<double, double> coasts[] = {
      {38.5, 15.4},  {26.5, 34.9},    {-28.9, 113.5}, {63.5, -23.5},  {59.0, 10.8},
      {1.3, 104.0},  {36.0, -5.6},    {54.0, 8.0},    {-41.3, 174.8}, {21.3, -157.9},
      {10.5, -61.5}, {12.1, -68.9},   {65.6, -168.5}, {-8.6, 125.6},  {41.0, 29.0},
      {9.0, -79.5},  {18.1, -65.5},   {-54.8, -68.3}, {47.0, -56.2},  {35.0, 33.5},
      {0.0, 179.99}, {-16.5, -179.9}, {60.2, 19.9},   {25.0, 51.5},   {32.5, -117.1},
  };
  const TimeZoneMap& map = shippedMap();
  std::mt19937 random(7);
  std::uniform_real_distribution<double> jitter(-0.4, 0.4);
  int compared = 0;
  for (const auto& [lat, lon] : coasts) {
    for (int i = 0; i < 400; ++i) {
      const double pointLat = lat + jitter(random);
      double pointLon = lon + jitter(random);
      if (pointLon > 180) pointLon -= 360;
      if (pointLon < -180) pointLon += 360;
      ASSERT_EQ(map.zoneName(pointLat, pointLon), definitionZoneName(map, pointLat, pointLon))
          << pointLat << " " << pointLon;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 10000);
}

TEST(TimeZoneMapShippedTest, SharedIsBuiltOnceWhenManyThreadsAskFirst) {
  std::vector<const TimeZoneMap*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] { seen[i] = TimeZoneMap::shared(); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const TimeZoneMap* map : seen) {
    EXPECT_NE(map, nullptr);
    EXPECT_EQ(map, seen[0]);
  }
}

TEST(TimeZoneMapSeaSearchTest, NearestLandWithinTheRadius) {
  using Cell = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint16_t>;
  constexpr std::uint32_t r = 1000, c = 3000;  // the sea cell asked about
  const struct {
    const char* name;
    std::vector<Cell> cells;  // row, first column, end column, zone
    std::optional<std::string> zone;
  } cases[] = {
      {"no land near", {}, "Etc/GMT"},
      {"land next door", {{r, c + 1, c + 2, kBerlin}}, "Europe/Berlin"},
      {"nearer wins though visited later",
       {{r - 2, c, c + 1, kParis}, {r + 1, c + 1, c + 2, kBerlin}},
       "Europe/Berlin"},
      {"north wins a tie",
       {{r - 1, c + 1, c + 2, kBerlin}, {r + 1, c - 1, c, kParis}},
       "Europe/Berlin"},
      {"west wins a tie in a row",
       {{r, c + 1, c + 2, kBerlin}, {r, c - 1, c, kParis}},
       "Europe/Paris"},
      {"on the radius counts", {{r + 2, c, c + 1, kParis}}, "Europe/Paris"},
      {"just beyond the radius",
       {{r + 2, c + 1, c + 2, kParis}, {r, c + 3, c + 4, kTokyo}},
       "Etc/GMT"},
      {"other sea zones are not land", {{r, c + 1, c + 2, kSeaWest}}, "Etc/GMT"},
      {"cells without a zone are skipped",
       {{r, c + 1, c + 2, kNoZone}, {r + 1, c + 1, c + 2, kParis}},
       "Europe/Paris"},
      {"a long run counts by its nearest cell",
       {{r - 1, c - 10, c, kParis}, {r, c + 2, c + 3, kBerlin}},
       "Europe/Paris"},
      {"a run across the whole window", {{r + 1, c - 20, c + 20, kBerlin}}, "Europe/Berlin"},
      {"land itself", {{r, c, c + 1, kTokyo}}, "Asia/Tokyo"},
      {"a cell without a zone has none",
       {{r, c, c + 1, kNoZone}, {r, c + 1, c + 2, kParis}},
       std::nullopt},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    TzGridBuilder grid = world();
    for (const auto& [row, from, to, zone] : test.cells) grid.set(row, from, to, zone);
    const TimeZoneMap map(grid.compressed());
    EXPECT_EQ(map.zoneName(latitudeOf(map, r), longitudeOf(map, c)), test.zone);
  }
}

TEST(TimeZoneMapSeaSearchTest, WrapsAroundTheDateLineAndStopsAtThePoles) {
  using Cell = std::pair<std::uint32_t, std::uint32_t>;
  const struct {
    const char* name;
    Cell sea, land;
    bool found;
  } cases[] = {
      {"west across -180", {500, 0}, {500, 7199}, true},
      {"east across +180", {500, 7199}, {500, 0}, true},
      {"diagonal across", {500, 7199}, {501, 0}, true},
      {"too far across", {500, 1}, {500, 7198}, false},
      {"top row looks south only", {0, 100}, {2, 100}, true},
      {"bottom row looks north only", {3599, 100}, {3597, 100}, true},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const TimeZoneMap map(world().set(test.land.first, test.land.second, kTokyo).compressed());
    EXPECT_EQ(map.zoneName(latitudeOf(map, test.sea.first), longitudeOf(map, test.sea.second)),
              test.found ? "Asia/Tokyo" : "Etc/GMT");
  }
}

TEST(TimeZoneMapSeaSearchTest, MatchesTheDefinitionOnAScatteredCoast) {
  // Land of several zones (and holes without a zone) scattered on both sides of longitude
  // 180, so ties, wrapping and long and short runs all occur.
  TzGridBuilder grid = world();
  std::mt19937 random(11);
  const std::uint16_t zones[] = {kParis, kBerlin, kTokyo, kNoZone, kSeaWest};
  for (std::uint32_t row = 200; row < 260; ++row) {
    for (std::uint32_t col : {7160u, 7170u, 7180u, 7190u, 0u, 10u, 20u}) {
      for (std::uint32_t i = 0; i < 10; ++i) {
        if (random() % 100 < 12) grid.set(row, col + i, zones[random() % 5]);
      }
    }
  }
  const TimeZoneMap map(grid.compressed());
  for (int row = 198; row < 262; ++row) {
    for (int col = -40; col < 30; ++col) {
      const double lat = latitudeOf(map, row), lon = longitudeOf(map, (col + 7200) % 7200);
      ASSERT_EQ(map.zoneName(lat, lon), definitionZoneName(map, lat, lon)) << row << " " << col;
    }
  }
}

TEST(TimeZoneMapTest, RowEdgesAndClampsOnASmallGrid) {
  // 0.1 degree: row 0 Tokyo, the last row Berlin, row 900 Paris at the western edge and
  // Berlin at the eastern one.
  TzGridBuilder grid(3600, 1800, 0.1, kNames, kSea);
  grid.set(0, 0, 3600, kTokyo).set(1799, 0, 3600, kBerlin);
  grid.set(900, 0, kParis).set(900, 3599, kBerlin).set(900, 1800, 1802, kMars);
  const TimeZoneMap map(grid.compressed());
  const struct {
    double lat, lon;
    std::optional<std::string> zone;
  } cases[] = {
      {90, 10, "Asia/Tokyo"},
      {89.9995, 10, "Asia/Tokyo"},
      {-89.95, 10, "Europe/Berlin"},
      {-90, 10, std::nullopt},
      {-0.05, -180, "Europe/Paris"},
      {-0.05, 180, "Europe/Paris"},
      {-0.05, 179.95, "Europe/Berlin"},
      {-0.05, 0.05, "Mars/Olympus_Mons"},
      {-0.05, 0.25, "Mars/Olympus_Mons"},  // sea, one cell from Mars
      {-0.05, 180.0001, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.lat) + " " + std::to_string(c.lon));
    EXPECT_EQ(map.zoneName(c.lat, c.lon), c.zone);
  }
  // A name the system's database doesn't know is a name but not a time zone.
  EXPECT_EQ(map.timeZone(-0.05, 0.05), std::nullopt);
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
  EXPECT_EQ(map.zoneIndex(-1, 0), std::nullopt);
  EXPECT_EQ(map.zoneIndex(2, 0), std::nullopt);
}

TEST(TimeZoneMapTest, InvalidUtf8InNamesIsReplaced) {
  const TimeZoneMap map(TzGridBuilder(36, 18, 10, {"Etc/GMT", "Bad/\xFF"}, 1).compressed());
  EXPECT_EQ(map.zoneName(0, 0), "Bad/\xEF\xBF\xBD");
}

// A grid written byte by byte: header, names, offsets, then `rows` as given.
Bytes rawGrid(std::uint32_t cols, std::vector<Bytes> rows, double resolution = 10,
              std::vector<std::string> names = {"Europe/Paris"}) {
  Bytes out = {'T', 'Z', 'G', '1'};
  auto put = [&](std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  };
  std::uint64_t bits = 0;
  std::memcpy(&bits, &resolution, sizeof bits);
  put(cols, 4);
  put(rows.size(), 4);
  put(bits, 8);
  put(names.size(), 2);
  for (const std::string& name : names) {
    out.push_back(static_cast<std::uint8_t>(name.size()));
    out.insert(out.end(), name.begin(), name.end());
  }
  std::uint32_t offset = 0;
  for (const Bytes& row : rows) put(offset, 4), offset += static_cast<std::uint32_t>(row.size());
  for (const Bytes& row : rows) out.insert(out.end(), row.begin(), row.end());
  return out;
}

TEST(TimeZoneMapTest, RejectsDamagedResources) {
  const Bytes shipped = testing::readFile(std::filesystem::path(QUILLMERE_SOURCE_DIR) /
                                          "resources" / TimeZoneMap::kFileName);
  const Bytes good = rawGrid(4, {{4, 0, 0}});
  auto with = [](Bytes bytes, std::size_t at, std::uint8_t value) {
    bytes.at(at) = value;
    return bytes;
  };
  auto head = [](const Bytes& bytes, std::size_t size) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
  };
  Bytes trailing = zlibCompress(good);
  trailing.push_back(0);
  const struct {
    const char* name;
    Bytes compressed;
  } cases[] = {
      {"empty", {}},
      {"not zlib at all", testing::toBytes("TZG1 but plain text, not compressed")},
      {"truncated", head(shipped, shipped.size() / 2)},
      {"one byte flipped", with(shipped, shipped.size() / 2, shipped[shipped.size() / 2] ^ 0x10)},
      {"bytes after the stream", trailing},
      {"wrong magic", zlibCompress(with(good, 3, '2'))},
      {"22 bytes", zlibCompress(head(good, 22))},
      {"names cut short", zlibCompress(head(good, 25))},
      {"row offsets cut short", zlibCompress(head(good, 22 + 13 + 2))},
      {"row offset past the end", zlibCompress(with(good, 22 + 13 + 3, 0x7F))},
      {"row cut short", zlibCompress(head(good, good.size() - 1))},
      {"runs short of the row", zlibCompress(rawGrid(4, {{3, 0, 0}}))},
      {"runs past the row", zlibCompress(rawGrid(4, {{5, 0, 0}}))},
      {"zone index beyond the names", zlibCompress(rawGrid(4, {{4, 1, 0}}))},
      {"endless varint", zlibCompress(rawGrid(4, {{0x80, 0x80, 0x80, 0x80, 0x80, 0x01, 0, 0}}))},
      {"no columns", zlibCompress(rawGrid(0, {{}}))},
      {"no rows", zlibCompress(rawGrid(4, {}))},
      {"resolution NaN", zlibCompress(rawGrid(4, {{4, 0, 0}}, kNaN))},
      {"resolution zero", zlibCompress(rawGrid(4, {{4, 0, 0}}, 0))},
      {"resolution negative", zlibCompress(rawGrid(4, {{4, 0, 0}}, -1))},
      {"resolution too fine to search", zlibCompress(rawGrid(4, {{4, 0, 0}}, 1e-9))},
  };
  EXPECT_NO_THROW(TimeZoneMap{zlibCompress(good)});
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    try {
      TimeZoneMap map(test.compressed);
      ADD_FAILURE() << "accepted";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::errc::illegal_byte_sequence);
    }
  }
}

TEST(TimeZoneMapTest, ZeroLengthRunsAndLongVarintsAreFine) {
  // An empty run, 128 cells (two varint bytes), one cell without a zone, and 71 cells
  // written with a needless second varint byte.
  const TimeZoneMap map(zlibCompress(
      rawGrid(200, {{0, 0, 0, 0x80, 0x01, 0, 0, 0x01, 0xFF, 0xFF, 0x80 | 71, 0x00, 0, 0}}, 1.8)));
  EXPECT_EQ(map.zoneIndex(0, 0), 0);
  EXPECT_EQ(map.zoneIndex(0, 127), 0);
  EXPECT_EQ(map.zoneIndex(0, 128), std::nullopt);
  EXPECT_EQ(map.zoneIndex(0, 199), 0);
}

TEST(TimeZoneMapTest, LoadReadsFilesAndReportsFailureAsNull) {
  testing::TempDir dir;
  testing::writeFile(dir / "good.zlib", world().compressed());
  Bytes truncated = world().compressed();
  truncated.resize(truncated.size() - 10);
  testing::writeFile(dir / "truncated.zlib", truncated);
  testing::writeFile(dir / "wrong-magic.zlib",
                     zlibCompress(testing::toBytes(std::string(40, 'x'))));
  std::filesystem::create_directory(dir / "folder.zlib");
  EXPECT_NE(TimeZoneMap::load(dir / "good.zlib"), nullptr);
  for (const char* name : {"missing.zlib", "truncated.zlib", "wrong-magic.zlib", "folder.zlib"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(TimeZoneMap::load(dir / name), nullptr);
  }
}

}  // namespace
}  // namespace quillmere
