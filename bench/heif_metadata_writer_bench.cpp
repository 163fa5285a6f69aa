// Writing date, place, caption and keywords into HEIC photos, in this process, as the repair
// does: each file's Exif and XMP items are read, merged and written, either into the photo
// itself (BM_WriteHeicInPlace: the repair's working copies) or into a new copy (BM_WriteHeic).
// bench/heif_metadata_writer_bench.sh runs both over 1,000 12-megapixel photos and compares
// with exiftool in the same run; without QUILLMERE_BENCH_HEIC (and QUILLMERE_BENCH_HEIC_IN_PLACE)
// each makes 50 small photos of its own.
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

// The photos in the folder named by `variable`, or 50 small ones made in `made`.
std::vector<fs::path> photos(const char* variable, const std::string& made) {
  fs::path folder;
  if (const char* given = std::getenv(variable)) {
    folder = given;
  } else {
    folder = testing::processScratch() / made;
    fs::create_directories(folder);
    const fs::path base = testing::processScratch() / "base.heic";
    if (!fs::exists(base)) {
      testing::makePhoto(base, testing::PhotoFormat::heic, 640, 480, /*noisy=*/true);
    }
    for (int i = 0; i < 50; ++i)
      fs::copy_file(base, folder / ("IMG_" + std::to_string(i) + ".HEIC"));
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

MetadataWriter::PhotoTags benchTags() {
  MetadataPatch patch;
  patch.dateUTC = 1614845100;
  patch.offsetSeconds = 7200;
  patch.location = GeoPoint{48.8577, 2.2945, 35};
  patch.caption = "Tour Eiffel";
  patch.addKeywords = {"Paris", "Trip 2021"};
  return MetadataWriter::buildMetadata(patch, {});
}

template <typename Write>
void writeAll(benchmark::State& state, const std::vector<fs::path>& files, const Write& write) {
  const MetadataWriter::PhotoTags tags = benchTags();
  const auto merge = [&](const HeifMetadataRewriter::Items& items) {
    return Exiv2MetadataWriter::rewriteBlocks(items, tags);
  };
  std::int64_t written = 0;
  for (auto _ : state) {
    for (const fs::path& file : files) {
      written += write(file, merge) == HeifMetadataRewriter::Outcome::written;
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * files.size()));
  state.counters["files"] = static_cast<double>(files.size());
  state.counters["written"] = static_cast<double>(written);
}

void BM_WriteHeicInPlace(benchmark::State& state) {
  writeAll(state, photos("QUILLMERE_BENCH_HEIC_IN_PLACE", "in-place"),
           [](const fs::path& file, const HeifMetadataRewriter::Merge& merge) {
             return HeifMetadataRewriter::rewriteInPlace(file, merge);
           });
}
// Once: a second pass would find the photos already written.
BENCHMARK(BM_WriteHeicInPlace)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WriteHeic(benchmark::State& state) {
  const fs::path out = testing::processScratch() / "written";
  fs::create_directories(out);
  writeAll(state, photos("QUILLMERE_BENCH_HEIC", "photos"),
           [&](const fs::path& file, const HeifMetadataRewriter::Merge& merge) {
             return HeifMetadataRewriter::rewrite(file, out / file.filename(), merge);
           });
}
BENCHMARK(BM_WriteHeic)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
