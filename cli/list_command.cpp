#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

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
    "Exit status: 0 all well, 1 damaged files found (with --check), 2 the export couldn't\n"
    "be read.\n";

struct ListOptions {
  bool check = false;
  bool quiet = false;
  std::vector<std::filesystem::path> inputs;
};

// Reads every file in full; prints one line per damaged file and a closing count.
int checkFiles(const std::vector<SourceFilePtr>& files, bool quiet) {
  std::int64_t total = 0;
  for (const SourceFilePtr& file : files) total += file->size();
  ProgressBar progress(quiet);
  std::int64_t done = 0;
  int damaged = 0;
  for (const SourceFilePtr& file : files) {
    const std::int64_t before = done;
    try {
      file->stream([&](std::span<const std::uint8_t> chunk) {
        done += static_cast<std::int64_t>(chunk.size());
        progress.update("Checking", done, total, ProgressBar::Unit::bytes);
      });
    } catch (const std::exception& error) {
      progress.finish();
      std::fprintf(stderr, "%s: %s\n", file->displayLocation().c_str(), error.what());
      ++damaged;
    }
    done = before + file->size();
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
  for (const std::string& arg : args) {
    if (arg == "--help" || arg == "-h") {
      std::fputs(kListHelp, stdout);
      return kExitOk;
    } else if (arg == "--check") {
      options.check = true;
    } else if (arg == "--quiet") {
      options.quiet = true;
    } else if (arg.starts_with("--")) {
      std::fprintf(stderr, "quillmere-cli list: unknown option '%s'\n\n%s", arg.c_str(), kListHelp);
      return kExitFailed;
    } else {
      options.inputs.emplace_back(arg);
    }
  }
  if (options.inputs.empty()) {
    std::fputs(kListHelp, stderr);
    return kExitFailed;
  }
  std::vector<SourceFilePtr> files;
  try {
    files = SourceCollector::collect(options.inputs);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return kExitFailed;
  }
  for (const SourceFilePtr& file : files) {
    std::printf("%s\t%lld\t%s\n", file->logicalPath().c_str(), static_cast<long long>(file->size()),
                file->displayLocation().c_str());
  }
  std::fflush(stdout);
  return options.check ? checkFiles(files, options.quiet) : kExitOk;
}

}  // namespace quillmere::cli
