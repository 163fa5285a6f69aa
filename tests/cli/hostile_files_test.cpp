#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/iso_boxes.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

// Every real and hostile sample file, and HEIF files built to exhaust memory, read by inspect in
// a process of its own under a memory limit: none may crash, hang, trip a sanitizer or outgrow
// the budget.
namespace quillmere {
namespace {

namespace fs = std::filesystem;

constexpr int kMemoryBudgetMB = 768;
// A guard against hangs on a machine shared by many builds; a file normally takes a fraction of
// a second (the slowest batch's time a file is printed for a look).
constexpr double kHangSeconds = 10;

// Runs inspect on `files` under the memory budget: through the sanitizer's own limit in the
// sanitizer build (whose shadow memory rules out an address-space limit), else through ulimit.
testing::CommandResult inspectWithinBudget(const std::vector<fs::path>& files) {
  std::vector<std::string> argv = {QUILLMERE_CLI, "inspect", "--"};
  for (const fs::path& file : files) argv.push_back(file.string());
#if defined(__SANITIZE_ADDRESS__)
  // A distinct exit code tells a sanitizer's report from inspect's own 1.
  const std::string options = "hard_rss_limit_mb=" + std::to_string(kMemoryBudgetMB) +
                              ":exitcode=86:abort_on_error=0:detect_leaks=1";
  const ScopedEnvironment asan("ASAN_OPTIONS", options.c_str());
  return testing::runCommand(argv);
#else
  argv.insert(argv.begin(),
              {"sh", "-c",
               "ulimit -v " + std::to_string(kMemoryBudgetMB * 1024) + " && exec \"$@\"", "sh"});
  return testing::runCommand(argv);
#endif
}

// Checks inspect on each file, a few files a process (starting a sanitized process costs more
// than reading most files); a batch that fails is run again file by file to name the culprit.
// Returns how many files were read.
int expectEachReadSafely(const std::vector<fs::path>& files) {
  constexpr std::size_t kBatch = 12;
  double slowest = 0;
  for (std::size_t first = 0; first < files.size(); first += kBatch) {
    const std::vector<fs::path> batch(
        files.begin() + static_cast<std::ptrdiff_t>(first),
        files.begin() + static_cast<std::ptrdiff_t>(std::min(first + kBatch, files.size())));
    const auto start = std::chrono::steady_clock::now();
    const auto result = inspectWithinBudget(batch);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    slowest = std::max(slowest, seconds / static_cast<double>(batch.size()));
    const bool clean = result.exitCode == 0 && result.err.empty() &&
                       std::count(result.out.begin(), result.out.end(), '\n') ==
                           static_cast<std::ptrdiff_t>(batch.size());
    EXPECT_LT(seconds, kHangSeconds * static_cast<double>(batch.size())) << batch.front();
    if (clean) continue;
    for (const fs::path& file : batch) {
      SCOPED_TRACE(file.string());
      const auto alone = inspectWithinBudget({file});
      EXPECT_EQ(alone.exitCode, 0) << alone.err.substr(0, 2000);
      EXPECT_EQ(alone.err, "");
      EXPECT_TRUE(alone.out.starts_with("{\"file\":")) << alone.out;
    }
  }
  std::cout << files.size() << " files, at most " << slowest << " s a file on average\n";
  return static_cast<int>(files.size());
}

std::vector<fs::path> filesUnder(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& item : fs::recursive_directory_iterator(folder)) {
    if (item.is_regular_file() && item.path().filename() != "README.md") {
      files.push_back(item.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

class SampleFilesTest : public ::testing::TestWithParam<const char*> {};

TEST_P(SampleFilesTest, InspectReadsEachWithinItsBudget) {
  const fs::path folder = testing::sharedSamples() / GetParam();
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no shared samples at " << folder;
  const auto before = testing::snapshotTree(folder);
  EXPECT_GT(expectEachReadSafely(filesUnder(folder)), 0);
  EXPECT_EQ(testing::snapshotTree(folder), before);
}

INSTANTIATE_TEST_SUITE_P(Shared, SampleFilesTest,
                         ::testing::Values("hostile/exiv2", "hostile/libheif", "heif", "jpeg",
                                           "movies", "png", "raw", "tiff", "webp"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::replace(name.begin(), name.end(), '/', '_');
                           return name;
                         });

using testing::be;
using testing::box;
using testing::fullBox;

// A HEIC of about 20 KB whose item locations give 2,000 items 65,535 empty extents each: read
// as the table claims, it costs gigabytes.
std::string emptyExtentsHeic() {
  using namespace std::string_literals;
  std::string iloc = be(0, 2) + be(2001, 4);  // no field widths at all, 2,001 items
  for (int item = 100; item < 2100; ++item) iloc += be(item, 4) + be(0, 4) + be(0xFFFF, 2);
  iloc += be(1, 4) + be(0, 4) + be(1, 2);
  return box("ftyp", "heic" + be(0, 4) + "mif1heic") +
         fullBox("meta", 0,
                 fullBox("hdlr", 0, be(0, 4) + "pict" + be(0, 13)) + fullBox("pitm", 0, be(1, 2)) +
                     fullBox("iinf", 0,
                             be(1, 2) + fullBox("infe", 2, be(1, 2) + be(0, 2) + "Exif\0"s)) +
                     fullBox("iloc", 2, iloc));
}

TEST(HostileFilesTest, CountsAHeifFileClaimsCostNothingItsBytesDontHold) {
  testing::TempDir dir;
  const std::string heic = emptyExtentsHeic();
  ASSERT_LT(heic.size(), 25'000u);
  testing::writeFile(dir / "extents.heic", Bytes(heic.begin(), heic.end()));
  const auto before = testing::snapshotTree(dir.path());
  EXPECT_EQ(expectEachReadSafely({dir / "extents.heic"}), 1);
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
}

}  // namespace
}  // namespace quillmere
