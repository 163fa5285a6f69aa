
#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "cli/change_log.h"
#include "cli/commands.h"
#include "cli/number_format.h"
#include "cli/progress_bar.h"
#include "cli/stop_signals.h"
#include "core/photos/immich_library.h"

namespace quillmere::cli {
namespace {

constexpr const char* kImportHelp =
    "Usage: quillmere-cli import [--server URL] [--key KEY] [--json] [--quiet] RUN_FOLDER\n"
    "\n"
    "Adds the repaired copies of an earlier repair (its \"Quillmere Repair ...\" folder) to an\n"
    "Immich server: one album per export album plus one with every item, Live Photos paired,\n"
    "dates and places as the copies carry them. What was added is remembered in\n"
    "Report/photos-import.json, so running it again adds only what is missing.\n"
    "\n"
    "  --server URL  the Immich server (with or without /api); else IMMICH_INSTANCE_URL,\n"
    "                else the url in ~/.config/immich/auth.yml\n"
    "  --key KEY     an API key with the asset and album permissions; else IMMICH_API_KEY,\n"
    "                else the key in ~/.config/immich/auth.yml\n"
    "  --json        print the import summary as JSON\n"
    "  --quiet       no progress on stderr\n"
    "\n"
    "Ctrl-C stops before the next item and still fills the albums.\n"
    "Exit status: 0 everything was added, 1 some items couldn't be added, 2 the import couldn't\n"
    "run, 130 stopped.\n";

std::string items(std::int64_t count) {
  return groupedCount(count) + " " + std::string(plural(count, "item", "items"));
}

std::string livePhotos(std::int64_t count) {
  return groupedCount(count) + " " + std::string(plural(count, "Live Photo", "Live Photos"));
}

// The import status in words, as the result screen shows it.
std::string summaryText(const ImportSummary& summary, const std::string& library) {
  std::string text = "Added " + items(summary.imported) + " to " + library +
                     ", in the folder \u201c" + summary.folderTitle + "\u201d\n";
  if (summary.livePhotos >= 1) text += livePhotos(summary.livePhotos) + " re-paired\n";
  if (summary.livePhotosSplit >= 1) {
    text += livePhotos(summary.livePhotosSplit) + " added as separate photo and video\n";
  }
  if (summary.alreadyImported >= 1) {
    text += items(summary.alreadyImported) + " already added earlier, skipped\n";
  }
  if (summary.failed >= 1) {
    text += items(summary.failed) + " couldn't be added (see Report/photos-import.csv)\n";
  }
  return text;
}

}  // namespace

bool takeImportOption(std::span<const std::string> args, std::size_t& at, ImportOptions& options) {
  const std::string& name = args[at];
  if (name != "--server" && name != "--key") return false;
  if (at + 1 >= args.size() || args[at + 1].starts_with("--")) {
    throw std::invalid_argument(name + " needs a value");
  }
  (name == "--server" ? options.server : options.key) = args[++at];
  return true;
}

int importRepairResult(const RepairResult& result, ExportKind kind, const ImportOptions& options) {
  ImportSummary summary;
  std::string library;
  {
    ProgressBar bar(options.quiet);
    const StopSignals signals("\nStopping before the next item\xE2\x80\xA6\n");
    try {
      ImmichLibrary immich(ImmichCredentials::find(options.server, options.key));
      library = immich.name();
      summary = PhotosImporter::run(
          result, kind, immich,
          [&](const WorkProgress& p) { bar.update(p.phase, p.done, p.total); },
          [] { return stopRequested(); });
    } catch (const PhotosImportError& error) {
      bar.finish();
      // The message alone: it already says what to check.
      std::fprintf(stderr, "%s\n", error.what());
      return kExitFailed;
    } catch (const std::exception& error) {
      bar.finish();
      std::fprintf(stderr, "%s\n", error.what());
      return kExitFailed;
    }
  }
  if (options.json) {
    std::printf("%s\n", nlohmann::ordered_json(summary).dump(2).c_str());
  } else {
    std::fputs(summaryText(summary, library).c_str(), stdout);
  }
  if (stopRequested()) return kExitStopped;
  return summary.failed > 0 ? kExitDamaged : kExitOk;
}

int runImport(std::span<const std::string> args) {
  ImportOptions options;
  std::optional<std::filesystem::path> runFolder;
  try {
    for (std::size_t i = 0; i < args.size(); ++i) {
      const std::string& arg = args[i];
      if (arg == "--help" || arg == "-h") {
        std::fputs(kImportHelp, stdout);
        return kExitOk;
      } else if (arg == "--json") {
        options.json = true;
      } else if (arg == "--quiet") {
        options.quiet = true;
      } else if (takeImportOption(args, i, options)) {
      } else if (arg.starts_with("--") || runFolder) {
        throw std::invalid_argument("unexpected argument '" + arg + "'");
      } else {
        runFolder = arg;
      }
    }
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "quillmere-cli import: %s\n\n%s", error.what(), kImportHelp);
    return kExitFailed;
  }
  if (!runFolder) {
    std::fputs(kImportHelp, stderr);
    return kExitFailed;
  }
  RepairResultPtr result;
  try {
    result = readChangeLog(*runFolder);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return kExitFailed;
  }
  return importRepairResult(*result, runExportKind(*runFolder), options);
}

}  // namespace quillmere::cli
