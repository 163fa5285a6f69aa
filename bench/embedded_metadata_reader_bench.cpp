// Reading what photos and movies carry, in this process: files per second and bytes read from
// disk per file (the reader must not read whole photos). bench/metadata_reader_bench.sh runs it
// over 5,000 photos and 1,000 movies and compares with exiftool in the same run; without
// QUILLMERE_BENCH_PHOTOS / QUILLMERE_BENCH_MOVIES it makes a smaller set of its own.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "core/metadata/embedded_metadata_reader.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

// Bytes this process has read through read(2) and its kin, page cache hits included.
std::int64_t bytesReadSoFar() {
  std::ifstream io("/proc/self/io");
  std::string key;
  std::int64_t value = 0;
  while (io >> key >> value) {
    if (key == "rchar:") return value;
  }
  return 0;
}

// `count` copies of `base` in a new folder of the scratch folder.
fs::path copies(const fs::path& base, const std::string& folder, int count) {
  const fs::path out = testing::processScratch() / folder;
  fs::create_directories(out);
  for (int i = 0; i < count; ++i) {
    fs::copy_file(base, out / ("IMG_" + std::to_string(1000 + i) + base.extension().string()));
  }
  return out;
}

std::vector<fs::path> photos() {
  if (const char* folder = std::getenv("QUILLMERE_BENCH_PHOTOS")) return testing::filesIn(folder);
  static const fs::path folder = [] {
    const fs::path base = testing::processScratch() / "base.jpg";
    testing::makePhoto(base, testing::PhotoFormat::jpeg, 2400, 1700, /*noisy=*/true);
    testing::writeTags({base,
                        {"-DateTimeOriginal=2021:03:04 10:05:00", "-OffsetTimeOriginal=+02:00",
                         "-GPSLatitude=48.8577", "-GPSLatitudeRef=N", "-GPSLongitude=2.2945",
                         "-GPSLongitudeRef=E", "-ImageDescription=Tour Eiffel",
                         "-IPTC:Keywords=Paris", "-Make=Quillmere", "-Model=Bench"}});
    return copies(base, "photos", 200);
  }();
  return testing::filesIn(folder);
}

std::vector<fs::path> movies() {
  if (const char* folder = std::getenv("QUILLMERE_BENCH_MOVIES")) return testing::filesIn(folder);
  static const fs::path folder = [] {
    const fs::path base = testing::processScratch() / "base.mp4";
    testing::makeMovie(base, 640, 480, {{"creation_time", "2021-03-04T10:05:00Z"}});
    testing::writeTags(
        {base,
         {"-Keys:CreationDate=2021-03-04T10:05:00+0100", "-Keys:GPSCoordinates=48.8577, 2.2945"}});
    return copies(base, "movies", 100);
  }();
  return testing::filesIn(folder);
}

void readAll(benchmark::State& state, const std::vector<fs::path>& files, bool movie) {
  std::int64_t found = 0;
  const std::int64_t before = bytesReadSoFar();
  for (auto _ : state) {
    for (const fs::path& file : files) {
      const auto metadata =
          movie ? EmbeddedMetadataReader::readVideo(file) : EmbeddedMetadataReader::readPhoto(file);
      found += metadata && metadata->captureDate ? 1 : 0;
    }
  }
  const double reads = static_cast<double>(state.iterations()) * files.size();
  state.SetItemsProcessed(static_cast<std::int64_t>(reads));
  state.counters["files"] = static_cast<double>(files.size());
  state.counters["bytes_read_per_file"] =
      static_cast<double>(bytesReadSoFar() - before) / std::max(reads, 1.0);
  state.counters["dated"] = static_cast<double>(found) / std::max(reads, 1.0);
}

void BM_ReadPhotos(benchmark::State& state) {
  const std::vector<fs::path> files = photos();
  readAll(state, files, false);
}
BENCHMARK(BM_ReadPhotos)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_ReadMovies(benchmark::State& state) {
  const std::vector<fs::path> files = movies();
  readAll(state, files, true);
}
BENCHMARK(BM_ReadMovies)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
