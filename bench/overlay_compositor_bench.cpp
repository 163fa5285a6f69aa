// Merging a 1080 x 1920 Snapchat overlay onto a 12-megapixel JPEG stored sideways
// (4000 x 3000, orientation 6): time per photo and peak memory, against ImageMagick doing the
// same job (turn upright, fit and centre the overlay, save at quality 92 without metadata) in
// the same run. Targets: under 0.5 s and 200 MB a photo. The overlay is a caption and a
// sticker on a clear page, as most are; a drawing over the whole page is the slowest case.
#include <benchmark/benchmark.h>

#include "core/repair/overlay_compositor.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/process_usage.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

// Random pixels: the worst case for the JPEG decoder and encoder (about 9 MB a photo); and a
// photo with a phone's grain, about 4 MB as a phone saves 12 megapixels.
struct Inputs {
  fs::path photo = testing::processScratch() / "IMG_0001.jpg";
  fs::path phonePhoto = testing::processScratch() / "IMG_0002.jpg";
  fs::path overlay = testing::processScratch() / "IMG_0001-overlay.png";
  fs::path fullOverlay = testing::processScratch() / "IMG_0003-overlay.png";
};

const Inputs& inputs() {
  static const Inputs made = [] {
    Inputs inputs;
    testing::makePhoto(inputs.photo, testing::PhotoFormat::jpeg, 4000, 3000, /*noisy=*/true);
    testing::writeTags({inputs.photo, {"-n", "-Orientation=6"}});
    testing::runCommand({"convert", "-size", "4000x3000", "-seed", "1", "gradient:#d08030-#3050a0",
                         "-attenuate", "0.25", "+noise", "Gaussian", "-quality", "92",
                         inputs.phonePhoto.string()});
    testing::writeTags({inputs.phonePhoto, {"-n", "-Orientation=6"}});
    testing::runCommand({"convert", "-size", "1080x1920", "xc:none", "-fill",
                         "rgba(255,220,0,0.85)", "-draw", "rectangle 60,1400 1020,1560", "-fill",
                         "white", "-draw", "circle 540,400 540,600", inputs.overlay.string()});
    testing::runCommand({"convert", "-size", "1080x1920",
                         "gradient:rgba(255,0,0,0.2)-rgba(0,0,255,0.9)", "-fill", "white", "-draw",
                         "circle 540,400 540,600", inputs.fullOverlay.string()});
    return inputs;
  }();
  return made;
}

// Peak memory of one composite onto each photo, each in a child. Both are measured before the
// first composite in this process: a child forked after libvips has started its threads would
// inherit their locks held.
struct Usages {
  testing::ProcessUsage noisy;
  testing::ProcessUsage phone;
  testing::ProcessUsage fullPage;
};

const Usages& usages() {
  static const Usages measured = [] {
    const auto once = [](const fs::path& photo, const fs::path& overlay) {
      return testing::measureChild([&] {
        OverlayCompositor::composite(photo, overlay, testing::processScratch() / "measured.jpg");
      });
    };
    const Inputs& in = inputs();
    return Usages{once(in.photo, in.overlay), once(in.phonePhoto, in.overlay),
                  once(in.photo, in.fullOverlay)};
  }();
  return measured;
}

void composite(benchmark::State& state, const fs::path& photo, const fs::path& overlay,
               const testing::ProcessUsage& usage) {
  const fs::path to = testing::processScratch() / "merged.jpg";
  for (auto _ : state) {
    benchmark::DoNotOptimize(OverlayCompositor::composite(photo, overlay, to));
  }
  state.counters["peak_MB"] = usage.peakMegabytes;
  state.counters["child_cpu_s"] = usage.cpuSeconds;
}

void BM_CompositeOnto12MegapixelPhoto(benchmark::State& state) {
  composite(state, inputs().photo, inputs().overlay, usages().noisy);
}
BENCHMARK(BM_CompositeOnto12MegapixelPhoto)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_CompositeOntoPhoneLikePhoto(benchmark::State& state) {
  composite(state, inputs().phonePhoto, inputs().overlay, usages().phone);
}
BENCHMARK(BM_CompositeOntoPhoneLikePhoto)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_CompositeFullPageOverlay(benchmark::State& state) {
  composite(state, inputs().photo, inputs().fullOverlay, usages().fullPage);
}
BENCHMARK(BM_CompositeFullPageOverlay)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ImageMagickReference(benchmark::State& state) {
  const Inputs& in = inputs();
  const std::string to = (testing::processScratch() / "reference.jpg").string();
  testing::ProcessUsage usage;
  for (auto _ : state) {
    usage = testing::measureProgram({"convert", in.photo.string(), "-auto-orient", "(",
                                     in.overlay.string(), "-resize", "2250x4000", ")", "-gravity",
                                     "center", "-composite", "-strip", "-quality", "92", to});
    if (usage.exitCode != 0) state.SkipWithError("convert failed");
  }
  state.counters["peak_MB"] = usage.peakMegabytes;
  state.counters["child_cpu_s"] = usage.cpuSeconds;
}
BENCHMARK(BM_ImageMagickReference)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
