// Writing date, place, caption and two keywords into photos, in this process: files per second
// and how many were written in place. bench/metadata_writer_bench.sh runs it over 1,000 JPEGs of
// about 3 MB and compares with exiftool in the same run; it then passes the photos in
// QUILLMERE_BENCH_PHOTOS (consumed: each is moved or deleted, as the repair does with its
// working files) and the folder for the copies in QUILLMERE_BENCH_OUT, for one pass. Without
// them it makes a smaller set of its own and copies it afresh before every pass (untimed).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/metadata/metadata_writer.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

constexpr double kFirstDate = 1'614'852'300;  // 2021-03-04 10:05:00 UTC

// Each photo gets its own date, a second apart.
MetadataPatch patchFor(std::size_t index) {
  MetadataPatch patch;
  patch.dateUTC = kFirstDate + static_cast<double>(index);
  patch.offsetSeconds = 3600;
  patch.location = GeoPoint{48.8577, 2.2945, 35.0};
  patch.caption = "Tour Eiffel, vue du Champ-de-Mars";
  patch.addKeywords = {"Paris", "Trip"};
  return patch;
}

struct Photos {
  fs::path base;  // copied into `in` before every pass; empty when `in` is given
  fs::path in;
  fs::path out;
};

Photos photos(const testing::TempDir& scratch) {
  const char* in = std::getenv("QUILLMERE_BENCH_PHOTOS");
  const char* out = std::getenv("QUILLMERE_BENCH_OUT");
  if (in != nullptr && out != nullptr) return {{}, in, out};
  const fs::path base = scratch / "base";
  fs::create_directories(base);
  const fs::path first = base / "IMG_1000.JPG";
  testing::makePhoto(first, testing::PhotoFormat::jpeg, 2400, 1700, /*noisy=*/true);
  testing::writeTags({first,
                      {"-DateTimeOriginal=2021:03:04 10:05:00", "-Make=Quillmere", "-Model=Bench",
                       "-IPTC:Keywords=Paris", "-XMP-dc:Subject=Paris"}});
  for (int i = 1; i < 50; ++i) {
    fs::copy_file(first, base / ("IMG_" + std::to_string(1000 + i) + ".JPG"));
  }
  return {base, scratch / "in", scratch / "out"};
}

void writePhotos(benchmark::State& state) {
  const testing::TempDir scratch;
  const Photos set = photos(scratch);
  std::int64_t written = 0, embedded = 0;
  for (auto _ : state) {
    state.PauseTiming();
    if (!set.base.empty()) {
      fs::remove_all(set.in);
      fs::remove_all(set.out);
      fs::copy(set.base, set.in);
    }
    fs::create_directories(set.out);
    const std::vector<fs::path> files = testing::filesIn(set.in);
    state.ResumeTiming();
    for (std::size_t i = 0; i < files.size(); ++i) {
      const WriteMethod method = MetadataWriter::write(patchFor(i), MediaKind::photo, files[i],
                                                       set.out / files[i].filename(), {"Paris"});
      embedded += method == WriteMethod::embedded ? 1 : 0;
      ++written;
    }
  }
  state.SetItemsProcessed(written);
  state.counters["embedded"] = static_cast<double>(embedded) / std::max<std::int64_t>(written, 1);
}

}  // namespace
}  // namespace quillmere

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // Photos handed over by the script are consumed by the one pass they get.
  const bool given = std::getenv("QUILLMERE_BENCH_PHOTOS") != nullptr;
  benchmark::RegisterBenchmark("BM_WritePhotos", quillmere::writePhotos)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime()
      ->Iterations(given ? 1 : 5);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
