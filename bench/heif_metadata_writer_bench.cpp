// Writing date, place, caption and keywords into HEIC photos, in this process: each file's
// Exif and XMP items are read, merged and written into a new copy, as the repair does.
// bench/heif_metadata_writer_bench.sh runs it over 1,000 12-megapixel photos and compares
// with exiftool in the same run; without QUILLMERE_BENCH_HEIC it makes 50 small photos.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "core/metadata/exiv2_metadata_writer.h"
#include "core/metadata/heif_metadata_rewriter.h"
#include "core/metadata/metadata_writer.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> photos() {
  fs::path folder;
  if (const char* given = std::getenv("QUILLMERE_BENCH_HEIC")) {
    folder = given;
  } else {
    folder = testing::processScratch() / "photos";
    fs::create_directories(folder);
    const fs::path base = testing::processScratch() / "base.heic";
    testing::makePhoto(base, testing::PhotoFormat::heic, 640, 480, /*noisy=*/true);
    for (int i = 0; i < 50; ++i)
      fs::copy_file(base, folder / ("IMG_" + std::to_string(i) + ".HEIC"));
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

void BM_WriteHeic(benchmark::State& state) {
  const std::vector<fs::path> files = photos();
  const fs::path out = testing::processScratch() / "written";
  fs::create_directories(out);
  MetadataPatch patch;
  patch.dateUTC = 1614845100;
  patch.offsetSeconds = 7200;
  patch.location = GeoPoint{48.8577, 2.2945, 35};
  patch.caption = "Tour Eiffel";
  patch.addKeywords = {"Paris", "Trip 2021"};
  const MetadataWriter::PhotoTags tags = MetadataWriter::buildMetadata(patch, {});
  std::int64_t written = 0;
  for (auto _ : state) {
    for (const fs::path& file : files) {
      const auto merge = [&](const HeifMetadataRewriter::Items& items) {
        return Exiv2MetadataWriter::rewriteBlocks(items, tags);
      };
      written += HeifMetadataRewriter::rewrite(file, out / file.filename(), merge) ==
                 HeifMetadataRewriter::Outcome::written;
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * files.size()));
  state.counters["files"] = static_cast<double>(files.size());
  state.counters["written"] = static_cast<double>(written);
}
BENCHMARK(BM_WriteHeic)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
