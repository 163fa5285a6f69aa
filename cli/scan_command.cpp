#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/progress_bar.h"
#include "cli/scan_summary_text.h"
#include "core/scan/export_scanner.h"
#include "core/sources/quillmere_error.h"

namespace quillmere::cli {
namespace {

constexpr const char* kScanHelp =
    "Usage: quillmere-cli scan [--json] [--quiet] EXPORT...\n"
    "\n"
    "Scans a Google Takeout or Snapchat export (zip parts and/or unzipped folders, as\n"
    "downloaded) without changing it, and tells what Quillmere found and can fix: items,\n"
    "albums and copies, photos missing a date or a place, and how many of those the\n"
    "service's own metadata can restore.\n"
    "\n"
    "  --json    print one JSON object instead: kind, inputs and every counter\n"
    "  --quiet   no progress on stderr\n"
    "\n"
    "Exit status: 0 media were found, 2 the export couldn't be read or holds no photos or\n"
    "videos.\n";

nlohmann::json scanJson(const ScanResult& result) {
  nlohmann::json inputs = nlohmann::json::array();
  for (const auto& input : result.inputs) inputs.push_back(input.string());
  return {{"kind", result.kind}, {"inputs", inputs}, {"summary", result.summary}};
}

}  // namespace

int runScan(std::span<const std::string> args) {
  bool json = false, quiet = false;
  std::vector<std::filesystem::path> inputs;
  for (const std::string& arg : args) {
    if (arg == "--help" || arg == "-h") {
      std::fputs(kScanHelp, stdout);
      return kExitOk;
    } else if (arg == "--json") {
      json = true;
    } else if (arg == "--quiet") {
      quiet = true;
    } else if (arg.starts_with("--")) {
      std::fprintf(stderr, "quillmere-cli scan: unknown option '%s'\n\n%s", arg.c_str(), kScanHelp);
      return kExitFailed;
    } else {
      inputs.emplace_back(arg);
    }
  }
  if (inputs.empty()) {
    std::fputs(kScanHelp, stderr);
    return kExitFailed;
  }
  ScanResultPtr result;
  {
    ProgressBar bar(quiet);
    try {
      result = ExportScanner::scan(
          inputs, [&](const WorkProgress& p) { bar.update(p.phase, p.done, p.total); });
    } catch (const std::exception& error) {
      bar.finish();
      std::fprintf(stderr, "%s\n", error.what());
      return kExitFailed;
    }
  }
  if (result->files.empty()) {
    std::fprintf(stderr, "%s\n", QuillmereError::nothingToRepair().what());
    return kExitFailed;
  }
  if (json) {
    std::printf("%s\n", scanJson(*result).dump(2).c_str());
  } else {
    std::fputs(scanSummaryText(*result).c_str(), stdout);
  }
  return kExitOk;
}

}  // namespace quillmere::cli
