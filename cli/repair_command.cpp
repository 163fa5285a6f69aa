#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/progress_bar.h"
#include "cli/repair_result_text.h"
#include "cli/stop_signals.h"
#include "core/photos/immich_library.h"
#include "core/repair/repair_engine.h"
#include "core/scan/export_scanner.h"
#include "core/sources/quillmere_error.h"

namespace quillmere::cli {
namespace {

constexpr const char* kRepairHelp =
    "Usage: quillmere-cli repair --out DIR [--no-album-keywords] [--json] [--quiet]\n"
    "                            [--add-to-immich [--server URL] [--key KEY]] EXPORT...\n"
    "\n"
    "Scans a Google Takeout or Snapchat export (zip parts and/or unzipped folders, as\n"
    "downloaded) and writes repaired copies into a new folder \"Quillmere Repair <date time>\"\n"
    "inside DIR: capture dates with their time zones, places, captions and album names written\n"
    "into the files (or XMP sidecars), filed by month in Photos/YYYY/YYYY-MM, Snapchat overlays\n"
    "merged, one list per album in Albums/, and a report of every change in Report/. The export\n"
    "itself is only read.\n"
    "\n"
    "  --out DIR            where to make the run folder (created if missing; not inside the\n"
    "                       export)\n"
    "  --no-album-keywords  don't add album names to the files' keywords\n"
    "  --json               print one JSON object instead: outputFolder, scan and repair counters\n"
    "  --quiet              no progress on stderr\n"
    "  --add-to-immich      then add the copies to an Immich server, as `import` does (with\n"
    "                       --json, its summary follows as a second JSON object)\n"
    "  --server URL, --key KEY  the Immich server and API key (see `import --help`)\n"
    "\n"
    "Ctrl-C stops after the item in progress; the report then covers the items reached.\n"
    "\n"
    "Exit status: 0 every file was repaired or copied, 1 some files failed (listed in\n"
    "Report/couldnt-fix.csv), 2 the repair couldn't start or couldn't finish its report,\n"
    "130 stopped.\n";

struct RepairArguments {
  std::filesystem::path out;
  bool albumKeywords = true;
  bool json = false;
  bool quiet = false;
  bool addToImmich = false;
  ImportOptions immich;
  std::vector<std::filesystem::path> inputs;
};

// Parses `args`; returns an exit status when the command is done already (help, bad usage).
std::optional<int> parse(std::span<const std::string> args, RepairArguments& parsed) try {
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kRepairHelp, stdout);
      return kExitOk;
    } else if (arg == "--out" && i + 1 < args.size()) {
      parsed.out = args[++i];
    } else if (arg.starts_with("--out=")) {
      parsed.out = arg.substr(6);
    } else if (arg == "--no-album-keywords") {
      parsed.albumKeywords = false;
    } else if (arg == "--json") {
      parsed.json = true;
    } else if (arg == "--quiet") {
      parsed.quiet = true;
    } else if (arg == "--add-to-immich") {
      parsed.addToImmich = true;
    } else if (takeImportOption(args, i, parsed.immich)) {
    } else if (arg.starts_with("-") && arg != "-") {
      return unknownOption("repair", arg);
    } else {
      // Absolute, so the report names every source file by its full path.
      parsed.inputs.push_back(std::filesystem::absolute(arg));
    }
  }
  if (parsed.inputs.empty() || parsed.out.empty()) {
    std::fputs(kRepairHelp, stderr);
    return kExitFailed;
  }
  if (!parsed.addToImmich && (parsed.immich.server || parsed.immich.key)) {
    throw std::invalid_argument("--server and --key go with --add-to-immich");
  }
  return std::nullopt;
} catch (const std::invalid_argument& error) {
  std::fprintf(stderr, "quillmere-cli repair: %s\n\n%s", error.what(), kRepairHelp);
  return kExitFailed;
}

nlohmann::json resultJson(const ScanResult& scan, const RepairResult& result, bool stopped) {
  nlohmann::json json;
  json["outputFolder"] = result.outputFolder().string();
  json["scan"] = scan.summary;
  json["repair"] = result.summary;
  json["stopped"] = stopped;
  return json;
}

}  // namespace

int runRepair(std::span<const std::string> args) {
  RepairArguments arguments;
  if (const auto done = parse(args, arguments)) return *done;
  if (arguments.addToImmich) {
    // A missing server address or key is known now; say so before the repair, not after it.
    try {
      ImmichCredentials::find(arguments.immich.server, arguments.immich.key);
    } catch (const PhotoLibraryError& error) {
      std::fprintf(stderr, "%s\n", error.what());
      return kExitFailed;
    }
  }
  const StopSignals signals("\nStopping after the item in progress\xE2\x80\xA6\n");
  const bool allThere = allExist(arguments.inputs);
  ScanResultPtr scan;
  RepairResultPtr result;
  {
    ProgressBar bar(arguments.quiet);
    const auto show = [&](const WorkProgress& p) { bar.update(p.phase, p.done, p.total); };
    try {
      scan = ExportScanner::scan(arguments.inputs, show);
      // A scan can't be stopped, but a stop asked for during it still counts.
      if (stopRequested()) {
        bar.finish();
        std::fputs("Stopped before the repair started; nothing was written.\n", stderr);
        return kExitStopped;
      }
      // Rows are kept only for the import; otherwise the report files hold them and memory
      // stays flat however large the export.
      const RepairOptions options{std::filesystem::absolute(arguments.out), arguments.albumKeywords,
                                  arguments.addToImmich};
      result = RepairEngine::run(*scan, options, show, [] { return stopRequested(); });
    } catch (const std::exception& error) {
      bar.finish();
      std::fprintf(stderr, "%s\n", error.what());
      return kExitFailed;
    }
  }
  const bool stopped = stopRequested();
  if (arguments.json) {
    std::printf("%s\n", resultJson(*scan, *result, stopped).dump(2).c_str());
  } else {
    std::fputs(repairResultText(*result).c_str(), stdout);
  }
  if (stopped) {
    std::fprintf(stderr, "Stopped after %lld of %lld items; the report covers those.\n",
                 static_cast<long long>(result->itemsReached),
                 static_cast<long long>(result->summary.items));
    return kExitStopped;
  }
  const int repairStatus = result->summary.failed == 0 && allThere ? kExitOk : kExitDamaged;
  if (!arguments.addToImmich) return repairStatus;
  arguments.immich.json = arguments.json;
  arguments.immich.quiet = arguments.quiet;
  if (!arguments.json) std::fputs("\n", stdout);
  const int importStatus = importRepairResult(*result, scan->kind, arguments.immich);
  return importStatus == kExitOk ? repairStatus : importStatus;
}

}  // namespace quillmere::cli
