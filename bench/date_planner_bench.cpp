// Deciding a date for each file of a large export: the index lookup and a whole decision.
#include <benchmark/benchmark.h>

#include <random>

#include "core/dates/date_planner.h"

namespace quillmere {
namespace {

// An index of `count` photos spread over ten years, a tenth of them in another zone.
OffsetIndex spreadIndex(int count) {
  OffsetIndex index;
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> when(1.3e9, 1.6e9);
  for (int i = 0; i < count; ++i) index.add(when(random), i % 10 == 0 ? -18000 : 3600);
  index.finalize();
  return index;
}

void BM_OffsetNear(benchmark::State& state) {
  const OffsetIndex index = spreadIndex(static_cast<int>(state.range(0)));
  double instant = 1.3e9;
  for (auto _ : state) {
    benchmark::DoNotOptimize(index.offset(instant));
    instant += 7919;
    if (instant > 1.6e9) instant = 1.3e9;
  }
}
BENCHMARK(BM_OffsetNear)->Arg(1'000)->Arg(100'000);

// A bare wall clock that disagrees with the export: the slowest row, through the index.
void BM_DecideOverride(benchmark::State& state) {
  const OffsetIndex index = spreadIndex(40'000);
  const auto date = EmbeddedMetadata::CaptureDate::local("2019:06:01 12:00:00", std::nullopt);
  for (auto _ : state) {
    benchmark::DoNotOptimize(DatePlanner::decide(date, 1.5e9, std::nullopt, index));
  }
}
BENCHMARK(BM_DecideOverride);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
