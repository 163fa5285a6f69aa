// Rewriting the metadata of a 1 GB movie whose movie atom lies before its media data (so every
// chunk offset moves) against `cp` of the same file, in the same run. Target: at most 1.2x cp.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "core/metadata/metadata_writer.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

// About 1 GB of uncompressed 720p frames, moov first.
const std::filesystem::path& largeMovie() {
  static const std::filesystem::path path = [] {
    const auto path = testing::processScratch() / "large.mov";
    const testing::CommandResult made = testing::runCommand(
        {"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1280x720:rate=30",
         "-frames:v", "760", "-c:v", "rawvideo", "-pix_fmt", "yuv420p", "-movflags", "+faststart",
         path.string()});
    if (made.exitCode != 0) throw std::runtime_error("ffmpeg: " + made.err);
    return path;
  }();
  return path;
}

double seconds(const std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_RewriteLargeMovieAgainstCp(benchmark::State& state) {
  const auto& source = largeMovie();
  const auto copied = testing::processScratch() / "cp.mov";
  const auto written = testing::processScratch() / "written.mov";
  MetadataPatch patch;
  patch.dateUTC = 1614848700;
  patch.offsetSeconds = 3600;
  patch.location = GeoPoint{48.8584, 2.2945, 35};
  patch.caption = "Eiffel Tower";
  patch.addKeywords = {"Paris", "Holidays"};
  double cpTotal = 0;
  double rewriteTotal = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto start = std::chrono::steady_clock::now();
    if (testing::runCommand({"cp", source.string(), copied.string()}).exitCode != 0) {
      state.SkipWithError("cp failed");
      break;
    }
    cpTotal += seconds(start);
    std::filesystem::remove(copied);
    state.ResumeTiming();
    start = std::chrono::steady_clock::now();
    if (!MetadataWriter::writeVideo(patch, source, written)) {
      state.SkipWithError("writeVideo refused the movie");
      break;
    }
    rewriteTotal += seconds(start);
    state.PauseTiming();
    std::filesystem::remove(written);
    state.ResumeTiming();
  }
  state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(source));
  state.counters["cp_s"] = cpTotal / static_cast<double>(state.iterations());
  state.counters["rewrite_s"] = rewriteTotal / static_cast<double>(state.iterations());
  state.counters["ratio_vs_cp"] = cpTotal > 0 ? rewriteTotal / cpTotal : 0;
}
BENCHMARK(BM_RewriteLargeMovieAgainstCp)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->UseRealTime();

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
