// Matching every media file of one big year folder (5,000 media files, 5,000 JSON names) to its
// JSON file: one call per media file with all the folder's JSON names, as given, taken apart
// once, or indexed as the Takeout scanner does. Target: the whole folder in under 2 seconds.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "core/scan/sidecar_matcher.h"
#include "core/sources/unicode_text.h"

namespace quillmere {
namespace {

struct Folder {
  std::vector<std::string> media;
  std::vector<std::string> jsonNames;
};

// A folder shaped like a phone's year: Live Photo pairs sharing the still's JSON, Pixel shots,
// duplicates with markers, edited copies without JSON of their own, long names cut short, and
// every JSON naming style. `stemOf` makes the names (ASCII or not).
template <typename StemOf>
Folder makeFolder(StemOf stemOf) {
  constexpr int kMedia = 5000;
  Folder folder;
  std::mt19937 random(20190714);
  int i = 0;
  while (static_cast<int>(folder.media.size()) < kMedia) {
    const std::string stem = stemOf(i++);
    switch (i % 10) {
      case 0:
      case 1: {  // Live Photo: the movie shares the still's JSON
        folder.media.push_back(stem + ".HEIC");
        folder.media.push_back(stem + ".MOV");
        folder.jsonNames.push_back(stem + ".HEIC.supplemental-metadata.json");
        break;
      }
      case 2:  // duplicate marker moved to the end of the JSON name
        folder.media.push_back(stem + "(1).jpg");
        folder.jsonNames.push_back(stem + ".jpg.supplemental-metadata(1).json");
        break;
      case 3:  // edited copy next to its original
        folder.media.push_back(stem + ".jpg");
        folder.media.push_back(stem + "-edited.jpg");
        folder.jsonNames.push_back(stem + ".jpg.supplemental-metadata.json");
        break;
      case 4:  // older exports: ".json" alone
        folder.media.push_back(stem + ".jpg");
        folder.jsonNames.push_back(stem + ".jpg.json");
        break;
      case 5: {  // a long name cut short by the service
        const std::string name = stem + "_Screenshot_com.example.longappname.jpg";
        folder.media.push_back(name);
        // Cut after 46 characters, not bytes.
        const std::size_t characters = UnicodeText::graphemeCount(name);
        const std::string_view tail = UnicodeText::lastGraphemes(name, characters - 46);
        folder.jsonNames.push_back(name.substr(0, name.size() - tail.size()) + ".json");
        break;
      }
      case 6:  // suffix cut short
        folder.media.push_back(stem + ".jpg");
        folder.jsonNames.push_back(stem + ".jpg.supplemental-me.json");
        break;
      case 7:  // a JSON nobody uses
        folder.media.push_back(stem + ".png");
        folder.jsonNames.push_back(stem + ".png.supplemental-metadata.json");
        folder.jsonNames.push_back(stem + "_deleted.jpg.supplemental-metadata.json");
        break;
      default:
        folder.media.push_back(stem + ".jpg");
        folder.jsonNames.push_back(stem + ".jpg.supplemental-metadata.json");
    }
  }
  folder.media.resize(kMedia);
  folder.jsonNames.resize(std::min<std::size_t>(folder.jsonNames.size(), kMedia));
  while (folder.jsonNames.size() < kMedia) {
    folder.jsonNames.push_back(stemOf(i++) + ".mp4.supplemental-metadata.json");
  }
  // The scanner's per-folder table has no defined order.
  std::shuffle(folder.jsonNames.begin(), folder.jsonNames.end(), random);
  return folder;
}

std::string asciiStem(int i) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "PXL_20190714_%09d", 183012000 + i * 7);
  return buffer;
}

// Names a Japanese user gave: every character three bytes, case and normalisation via utf8proc.
std::string japaneseStem(int i) { return "夏休みの写真_京都_" + std::to_string(100000 + i); }

void report(benchmark::State& state, const Folder& folder, int matched) {
  state.counters["media"] = static_cast<double>(folder.media.size());
  state.counters["json"] = static_cast<double>(folder.jsonNames.size());
  state.counters["matched"] = matched;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(folder.media.size()));
}

// How a folder's JSON names are handed to the matcher.
enum class Names { asGiven, prepared, indexed };

// Matches every media name of a folder; `prepared` splits and folds the JSON names once per
// folder first instead of once per media name; `indexed` also sorts them, as the scanner does.
template <typename StemOf>
void matchFolder(benchmark::State& state, StemOf stemOf, Names names = Names::asGiven) {
  const Folder folder = makeFolder(stemOf);
  int matched = 0;
  for (auto _ : state) {
    matched = 0;
    const auto candidates = names == Names::prepared ? SidecarMatcher::candidates(folder.jsonNames)
                                                     : std::vector<SidecarMatcher::Candidate>{};
    const SidecarMatcher::FolderIndex index(names == Names::indexed ? folder.jsonNames
                                                                    : std::vector<std::string>{});
    for (const std::string& media : folder.media) {
      const auto found = names == Names::indexed ? index.match(media)
                         : names == Names::prepared
                             ? SidecarMatcher::match(media, candidates)
                             : SidecarMatcher::match(media, folder.jsonNames);
      matched += found.has_value();
      benchmark::DoNotOptimize(found);
    }
  }
  report(state, folder, matched);
}

void BM_MatchFolder(benchmark::State& state) { matchFolder(state, asciiStem); }
void BM_MatchFolderPrepared(benchmark::State& state) {
  matchFolder(state, asciiStem, Names::prepared);
}
void BM_MatchFolderIndexed(benchmark::State& state) {
  matchFolder(state, asciiStem, Names::indexed);
}
void BM_MatchFolderJapanese(benchmark::State& state) { matchFolder(state, japaneseStem); }
void BM_MatchFolderJapanesePrepared(benchmark::State& state) {
  matchFolder(state, japaneseStem, Names::prepared);
}
void BM_MatchFolderJapaneseIndexed(benchmark::State& state) {
  matchFolder(state, japaneseStem, Names::indexed);
}

BENCHMARK(BM_MatchFolder)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK(BM_MatchFolderPrepared)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK(BM_MatchFolderIndexed)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK(BM_MatchFolderJapanese)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_MatchFolderJapanesePrepared)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK(BM_MatchFolderJapaneseIndexed)->Unit(benchmark::kMillisecond)->MinTime(3);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
