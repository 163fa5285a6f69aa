// Opening a part with 100,000 entries, and head-of-entry reads against full extraction.
#include <benchmark/benchmark.h>

#include <random>

#include "core/sources/source_collector.h"
#include "core/sources/zip_archive.h"
#include "core/sources/zip_entry_file.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

// Names shaped like a real export's, so the directory has a realistic size.
const std::filesystem::path& manyEntriesZip() {
  static const std::filesystem::path path = [] {
    const auto path = testing::processScratch() / "many.zip";
    testing::ZipBuilder builder;
    for (int i = 0; i < 100000; ++i) {
      builder.add("Takeout/Google Photos/Photos from 20" + std::to_string(10 + i % 14) + "/IMG_" +
                      std::to_string(20000000 + i) + ".JPG.supplemental-metadata.json",
                  "{}", 0);
    }
    builder.write(path);
    return path;
  }();
  return path;
}

// 1,000 entries of 3 MiB, compressible like camera raw data rather than constant.
const std::filesystem::path& largeEntriesZip() {
  static const std::filesystem::path path = [] {
    const auto path = testing::processScratch() / "large.zip";
    std::mt19937 random(1);
    Bytes content(3 << 20);
    for (std::size_t i = 0; i < content.size(); ++i) {
      content[i] = static_cast<std::uint8_t>((i / 64) % 251 + (random() % 8));
    }
    testing::ZipBuilder builder;
    for (int i = 0; i < 1000; ++i) {
      testing::ZipEntryDraft draft;
      draft.name = testing::toBytes("Photos/IMG_" + std::to_string(i) + ".JPG");
      content[i] ^= 0xFF;  // every entry differs
      draft.content = content;
      builder.add(std::move(draft));
    }
    builder.write(path);
    return path;
  }();
  return path;
}

void BM_OpenPartWith100000Entries(benchmark::State& state) {
  const auto& path = manyEntriesZip();
  for (auto _ : state) {
    const ZipArchive zip(path);
    benchmark::DoNotOptimize(zip.entries().size());
  }
}
BENCHMARK(BM_OpenPartWith100000Entries)->Unit(benchmark::kMillisecond);

void BM_ReadPrefix1MiBOf1000Entries(benchmark::State& state) {
  const auto files = SourceCollector::collect({largeEntriesZip()});
  std::int64_t bytes = 0;
  for (auto _ : state) {
    for (const auto& file : files)
      bytes += static_cast<std::int64_t>(file->readPrefix(1 << 20).size());
  }
  state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_ReadPrefix1MiBOf1000Entries)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_FullExtractionOf1000Entries(benchmark::State& state) {
  const auto files = SourceCollector::collect({largeEntriesZip()});
  std::int64_t bytes = 0;
  for (auto _ : state) {
    for (const auto& file : files) {
      file->stream([&](std::span<const std::uint8_t> chunk) {
        bytes += static_cast<std::int64_t>(chunk.size());
      });
    }
  }
  state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_FullExtractionOf1000Entries)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
