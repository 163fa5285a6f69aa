// Importing 2,000 repaired photos into the stand-in Immich server over loopback: items per
// second and HTTP requests per item, against curl (the reference tool) uploading the same files
// over one kept-alive connection in the same run.

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "core/photos/immich_library.h"
#include "tests/support/immich_standin.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace quillmere;
using Clock = std::chrono::steady_clock;

constexpr int kItems = 2000;
constexpr int kAlbums = 4;

double seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// `count` distinct JPEGs (one picture, a different tail after its end marker each, so each has
// its own checksum) and the rows a repair would have made for them.
RepairResultPtr makeRun(const fs::path& root, int count) {
  const fs::path month = root / "Photos/2019/2019-07";
  fs::create_directories(month);
  fs::create_directories(root / "Report");
  const fs::path model = root / "model.jpg";
  testing::makePhoto(model, testing::PhotoFormat::jpeg, 320, 240);
  std::ifstream in(model, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  auto result = std::make_shared<RepairResult>(root);
  for (int i = 0; i < count; ++i) {
    const std::string name = "IMG_" + std::to_string(10000 + i) + ".jpg";
    std::ofstream(month / name, std::ios::binary) << bytes << "tail " << i;
    RepairRow row;
    row.item = i + 1;
    row.output = "Photos/2019/2019-07/" + name;
    row.status = RepairRow::Status::fixed;
    row.captureUTC = 1562247000.0 + i;
    row.albums = {"Album " + std::to_string(i % kAlbums)};
    result->rows.push_back(std::move(row));
  }
  return result;
}

}  // namespace

int main() {
  testing::TempDir work;
  const RepairResultPtr run = makeRun(work / "run", kItems);
  std::uintmax_t total = 0;
  for (const auto& row : run->rows) total += fs::file_size(run->outputFolder() / row.output);
  std::printf("run: %d photos, %.1f MB\n", kItems, static_cast<double>(total) / 1e6);

  double importSeconds = 0;
  std::int64_t requests = 0;
  {
    testing::ImmichStandIn server;
    ImmichLibrary library({server.url(), testing::ImmichStandIn::key});
    const auto start = Clock::now();
    const ImportSummary summary = PhotosImporter::run(*run, ExportKind::googleTakeout, library);
    importSeconds = seconds(start);
    requests = library.requestCount();
    std::printf(
        "quillmere import        %6.2f s  %7.1f items/s  %.4f requests/item  "
        "(%lld imported, %lld albums)\n",
        importSeconds, kItems / importSeconds, static_cast<double>(requests) / kItems,
        static_cast<long long>(summary.imported), static_cast<long long>(summary.albums));
  }
  {
    // The same uploads by curl: one process, one connection, the same fields and file.
    testing::ImmichStandIn server;
    const fs::path config = work / "curl.cfg";
    {
      std::ofstream out(config);
      for (std::size_t i = 0; i < run->rows.size(); ++i) {
        if (i > 0) out << "next\n";
        out << "url = \"" << server.url() << "/api/assets\"\n"
            << "header = \"x-api-key: test-key\"\nheader = \"Expect:\"\nsilent\n"
            << "output = \"/dev/null\"\n"
            << "form = \"fileCreatedAt=2019-07-04T13:30:00+00:00\"\n"
            << "form = \"fileModifiedAt=2019-07-04T13:30:00+00:00\"\n"
            << "form = \"assetData=@" << (run->outputFolder() / run->rows[i].output).string()
            << "\"\n";
      }
    }
    const auto start = Clock::now();
    const auto result = testing::runCommand({"curl", "-K", config.string()});
    const double curlSeconds = seconds(start);
    std::printf("curl, uploads only      %6.2f s  %7.1f items/s  (exit %d)\n", curlSeconds,
                kItems / curlSeconds, result.exitCode);
    std::printf(
        "import time / curl upload time: %.2f  (target: close to 1; one upload per file, "
        "one album call per 500 assets)\n",
        importSeconds / curlSeconds);
  }
  return 0;
}
