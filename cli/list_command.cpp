#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/progress_bar.h"
#include "core/sources/source_collector.h"

namespace quillmere::cli {
namespace {

constexpr const char* kListHelp =
    "Usage: quillmere-cli list [--check] [--quiet] EXPORT...\n"
    "\n"
    "Lists every file of an export: zip parts and/or unzipped folders, as downloaded.\n"
    "Prints one line per file, tab-separated: the path inside the export, the size in\n"
    "bytes, and where the file is (\"part.zip \u203A path in zip\" for zip entries).\n"
    "Nothing is unzipped or changed.\n"
    "\n"
    "  --check   also read every file in full and verify every zip entry's checksum, like\n"
    "            a download check; damaged files are reported on stderr\n"
    "  --quiet   no progress while checking\n"
    "\n"
    "Damaged files (with --check) and inputs that don't exist are named on stderr and give\n"
    "exit status 1; an export that can't be read gives 2.\n";

struct ListOptions {
  bool check = false;
  bool quiet = false;
  std::vector<std::filesystem::path> inputs;
};

// Reads every file in full; prints one line per damaged file and a closing count.
int checkFiles(const std::vector<SourceFilePtr>& files, bool quiet) {
  // Sizes come from the export and may lie: every sum saturates.
  std::int64_t total = 0;
  for (const SourceFilePtr& file : files) total = saturatingAdd(total, file->size());
  ProgressBar progress(quiet);
  std::int64_t done = 0;
  int damaged = 0;
  for (const SourceFilePtr& file : files) {
    const std::int64_t before = done;
    try {
      file->stream([&](std::span<const std::uint8_t> chunk) {
        done = saturatingAdd(done, static_cast<std::int64_t>(chunk.size()));
        progress.update("Checking", done, total, ProgressBar::Unit::bytes);
      });
    } catch (const std::exception& error) {
      progress.finish();
      std::fprintf(stderr, "%s: %s\n", file->displayLocation().c_str(), error.what());
      ++damaged;
    }
    done = saturatingAdd(before, file->size());
  }
  progress.finish();
  const std::size_t count = files.size();
  if (damaged == 0) {
    std::fprintf(stderr, "Checked %zu %s (%s): all intact.\n", count, count == 1 ? "file" : "files",
                 formatBytes(total).c_str());
    return kExitOk;
  }
  std::fprintf(stderr, "Checked %zu %s (%s): %d damaged.\n", count, count == 1 ? "file" : "files",
               formatBytes(total).c_str(), damaged);
  return kExitDamaged;
}

}  // namespace

int runList(std::span<const std::string> args) {
  ListOptions options;
  const Arguments split = splitArguments(args);
  for (const std::string& option : split.options) {
    if (option == "--help" || option == "-h") {
      std::fputs(kListHelp, stdout);
      return kExitOk;
    } else if (option == "--check") {
      options.check = true;
    } else if (option == "--quiet") {
      options.quiet = true;
    } else {
      return unknownOption("list", option);
    }
  }
  options.inputs.assign(split.inputs.begin(), split.inputs.end());
  if (options.inputs.empty()) {
    std::fputs(kListHelp, stderr);
    return kExitFailed;
  }
  const bool allThere = allExist(options.inputs);
  std::vector<SourceFilePtr> files;
  try {
    files = SourceCollector::collect(options.inputs);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return kExitFailed;
  }
  for (const SourceFilePtr& file : files) {
    const std::string_view path = file->logicalPath();
    std::printf("%.*s\t%lld\t%s\n", static_cast<int>(path.size()), path.data(),
                static_cast<long long>(file->size()), file->displayLocation().c_str());
  }
  std::fflush(stdout);
  const int status = options.check ? checkFiles(files, options.quiet) : kExitOk;
  return allThere ? status : std::max(status, kExitDamaged);
}

}  // namespace quillmere::cli
