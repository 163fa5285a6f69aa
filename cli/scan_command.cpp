#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>

#include "cli/arguments.h"
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
    "An input that doesn't exist is named on stderr and the others are scanned (exit\n"
    "status 1); an export that can't be read or holds no photos or videos gives 2.\n";

nlohmann::json scanJson(const ScanResult& result) {
  nlohmann::json inputs = nlohmann::json::array();
  for (const auto& input : result.inputs) inputs.push_back(input.string());
  return {{"kind", result.kind}, {"inputs", inputs}, {"summary", result.summary}};
}

}  // namespace

int runScan(std::span<const std::string> args) {
  bool json = false, quiet = false;
  const Arguments split = splitArguments(args);
  for (const std::string& option : split.options) {
    if (option == "--help" || option == "-h") {
      std::fputs(kScanHelp, stdout);
      return kExitOk;
    } else if (option == "--json") {
      json = true;
    } else if (option == "--quiet") {
      quiet = true;
    } else {
      return unknownOption("scan", option);
    }
  }
  const std::vector<std::filesystem::path> inputs(split.inputs.begin(), split.inputs.end());
  if (inputs.empty()) {
    std::fputs(kScanHelp, stderr);
    return kExitFailed;
  }
  const bool allThere = allExist(inputs);
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
  return allThere ? kExitOk : kExitDamaged;
}

}  // namespace quillmere::cli
