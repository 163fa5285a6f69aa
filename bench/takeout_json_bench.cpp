// Parsing throughput of Google's per-photo JSON files: 100,000 typical sidecars of about 1 KB,
// as a year-spanning Takeout export holds them. Target: at least 50,000 files per second.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "core/scan/takeout_json.h"

namespace quillmere {
namespace {

constexpr int kFiles = 100000;

std::string timestampObject(long long seconds) {
  return "{\n    \"timestamp\": \"" + std::to_string(seconds) +
         "\",\n    \"formatted\": \"14 Jul 2019, 16:30:12 UTC\"\n  }";
}

std::string geoObject(double latitude, double longitude, double altitude) {
  char buffer[200];
  std::snprintf(buffer, sizeof buffer,
                "{\n    \"latitude\": %.7f,\n    \"longitude\": %.7f,\n    \"altitude\": %.1f,\n"
                "    \"latitudeSpan\": 0.0,\n    \"longitudeSpan\": 0.0\n  }",
                latitude, longitude, altitude);
  return buffer;
}

// Pretty-printed like Google's files, with the members they carry and varying content.
std::string sidecar(int i, std::mt19937& random) {
  std::uniform_real_distribution<double> latitude(-60, 70);
  std::uniform_real_distribution<double> longitude(-180, 180);
  const long long taken = 1262304000LL + static_cast<long long>(random() % 400000000);
  const bool placed = i % 3 != 0;
  const double lat = placed ? latitude(random) : 0;
  const double lon = placed ? longitude(random) : 0;
  const std::string title = "PXL_2019" + std::to_string(1000000 + i) + "_183012345.jpg";
  std::string text = "{\n  \"title\": \"" + title + "\",\n";
  text += "  \"description\": \"" +
          std::string(i % 5 == 0 ? "Abendessen am See mit der ganzen Familie" : "") + "\",\n";
  text += "  \"imageViews\": \"" + std::to_string(i % 97) + "\",\n";
  text += "  \"creationTime\": " + timestampObject(taken + 86400) + ",\n";
  text += "  \"photoTakenTime\": " + timestampObject(taken) + ",\n";
  text += "  \"geoData\": " + geoObject(lat, lon, placed ? 120.5 : 0) + ",\n";
  text += "  \"geoDataExif\": " + geoObject(lat, lon, placed ? 120.5 : 0) + ",\n";
  if (i % 4 == 0)
    text += "  \"people\": [{\n    \"name\": \"Anna\"\n  }, {\n    \"name\": \"Jörg\"\n  }],\n";
  text += "  \"url\": \"https://photos.google.com/photo/AF1QipN" + std::to_string(i * 7919) +
          "xYzAbCdEfGhIjKlMnOpQrStUv\",\n";
  text +=
      "  \"googlePhotosOrigin\": {\n    \"mobileUpload\": {\n      \"deviceFolder\": {\n"
      "        \"localFolderName\": \"\"\n      },\n      \"deviceType\": \"ANDROID_PHONE\"\n"
      "    }\n  },\n";
  text += "  \"photoLastModifiedTime\": " + timestampObject(taken + 172800);
  if (i % 10 == 0) text += ",\n  \"favorited\": true";
  text += "\n}";
  return text;
}

void BM_ParseSidecars(benchmark::State& state) {
  std::mt19937 random(1563121812);
  std::vector<std::string> files;
  files.reserve(kFiles);
  std::size_t bytes = 0;
  for (int i = 0; i < kFiles; ++i) {
    files.push_back(sidecar(i, random));
    bytes += files.back().size();
  }
  std::size_t photos = 0;
  for (auto _ : state) {
    photos = 0;
    for (const std::string& file : files) {
      const TakeoutJSON parsed = TakeoutJSON::parse(file);
      photos += parsed.photo() != nullptr;
      benchmark::DoNotOptimize(parsed);
    }
  }
  if (photos != files.size()) state.SkipWithError("a generated sidecar did not parse");
  state.counters["files"] = kFiles;
  state.counters["avgBytes"] = static_cast<double>(bytes) / kFiles;
  state.SetItemsProcessed(state.iterations() * kFiles);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

BENCHMARK(BM_ParseSidecars)->Unit(benchmark::kMillisecond)->MinTime(3);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
