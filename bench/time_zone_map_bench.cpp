// Lookup speed, first-use cost and memory of the shipped time zone map.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <random>
#include <vector>

#include "core/dates/resource_folder.h"
#include "core/dates/time_zone_map.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

struct Point {
  double lat, lon;
};

const TimeZoneMap& map() { return *TimeZoneMap::shared(); }

long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

// The program's real first use, registered first so nothing else has touched the heap yet:
// finding the resource folder, reading, decompressing, validating and indexing. Reports the
// resident memory the loaded map added and the bytes it holds by its own count.
void BM_FirstUseShared(benchmark::State& state) {
  double added = 0;
  for (auto _ : state) {
    const long before = residentBytes();
    benchmark::DoNotOptimize(TimeZoneMap::shared());
    added = static_cast<double>(residentBytes() - before);
  }
  state.counters["resident_MB"] = added / (1 << 20);
  state.counters["held_MB"] = static_cast<double>(map().byteSize()) / (1 << 20);
}
BENCHMARK(BM_FirstUseShared)->Iterations(1)->Unit(benchmark::kMillisecond);

// Uniform over the sphere, as photos of the whole world would not be, but as a fair mix of
// land, coast and open sea.
std::vector<Point> uniformPoints(std::size_t count) {
  std::mt19937_64 random(42);
  std::uniform_real_distribution<double> unit(0, 1);
  std::vector<Point> points;
  for (std::size_t i = 0; i < count; ++i) {
    points.push_back({std::asin(2 * unit(random) - 1) * 180 / M_PI, unit(random) * 360 - 180});
  }
  return points;
}

// Uniform points, split by what the map answers: land, sea resolved to land, open sea.
std::vector<Point> pointsOfKind(int kind) {
  std::vector<Point> chosen;
  for (const Point& p : uniformPoints(400000)) {
    const auto row = static_cast<std::int64_t>(std::floor((90 - p.lat) / map().resolution()));
    const auto col = static_cast<std::int64_t>(std::floor((p.lon + 180) / map().resolution()));
    const bool seaCell = map().names()[map().zoneIndex(row, col).value()].starts_with("Etc/");
    const bool seaAnswer = map().zoneName(p.lat, p.lon)->starts_with("Etc/");
    const int pointKind = !seaCell ? 0 : (seaAnswer ? 2 : 1);
    if (pointKind == kind) chosen.push_back(p);
  }
  return chosen;
}

void lookUpAll(benchmark::State& state, const std::vector<Point>& points) {
  std::size_t i = 0;
  for (auto _ : state) {
    const Point& p = points[i++ % points.size()];
    benchmark::DoNotOptimize(map().zoneName(p.lat, p.lon));
  }
}

void BM_ZoneNameUniform(benchmark::State& state) {
  static const std::vector<Point> points = uniformPoints(1 << 16);
  lookUpAll(state, points);
}
BENCHMARK(BM_ZoneNameUniform)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_ZoneNameLand(benchmark::State& state) {
  static const std::vector<Point> points = pointsOfKind(0);
  lookUpAll(state, points);
}
BENCHMARK(BM_ZoneNameLand)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_ZoneNameSeaNearLand(benchmark::State& state) {
  static const std::vector<Point> points = pointsOfKind(1);
  lookUpAll(state, points);
}
BENCHMARK(BM_ZoneNameSeaNearLand)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_ZoneNameOpenSea(benchmark::State& state) {
  static const std::vector<Point> points = pointsOfKind(2);
  lookUpAll(state, points);
}
BENCHMARK(BM_ZoneNameOpenSea)->Repetitions(5)->ReportAggregatesOnly(true);

// Each call timed on its own over uniform points: the median and the 99th percentile of a
// single lookup (clock overhead included).
void BM_ZoneNamePerCallMedian(benchmark::State& state) {
  static const std::vector<Point> points = uniformPoints(1 << 16);
  std::vector<double> nanoseconds;
  nanoseconds.reserve(points.size());
  for (auto _ : state) {
    nanoseconds.clear();
    for (const Point& p : points) {
      const auto start = std::chrono::steady_clock::now();
      benchmark::DoNotOptimize(map().zoneName(p.lat, p.lon));
      nanoseconds.push_back(
          std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start)
              .count());
    }
  }
  std::sort(nanoseconds.begin(), nanoseconds.end());
  state.counters["median_ns"] = nanoseconds[nanoseconds.size() / 2];
  state.counters["p99_ns"] = nanoseconds[nanoseconds.size() * 99 / 100];
  state.counters["max_ns"] = nanoseconds.back();
}
BENCHMARK(BM_ZoneNamePerCallMedian)->Iterations(3)->Unit(benchmark::kMillisecond);

Bytes shippedBytes() {
  return testing::readFile(ResourceFolder::find(TimeZoneMap::kFileName).file.value());
}

// First use: decompress, validate and index the grid already read into memory.
void BM_FirstUseFromBytes(benchmark::State& state) {
  const Bytes compressed = shippedBytes();
  for (auto _ : state) {
    TimeZoneMap built(compressed);
    benchmark::DoNotOptimize(built.cols());
  }
}
BENCHMARK(BM_FirstUseFromBytes)->Unit(benchmark::kMillisecond)->Iterations(20);

// First use including reading the file.
void BM_FirstUseFromFile(benchmark::State& state) {
  const auto file = ResourceFolder::find(TimeZoneMap::kFileName).file.value();
  for (auto _ : state) benchmark::DoNotOptimize(TimeZoneMap::load(file));
}
BENCHMARK(BM_FirstUseFromFile)->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
