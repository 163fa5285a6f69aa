#ifndef QUILLMERE_CLI_COMMANDS_H_
#define QUILLMERE_CLI_COMMANDS_H_

#include <optional>
#include <span>
#include <string>

#include "core/repair/repair_result.h"
#include "core/scan/export_kind.h"

namespace quillmere::cli {

// Exit codes, the same in every command.
inline constexpr int kExitOk = 0;       // all went well
inline constexpr int kExitDamaged = 1;  // some files had problems; the rest was done
inline constexpr int kExitFailed = 2;   // the command could not run (usage, export, resources)

// Each subcommand receives the arguments after its own name.
int runList(std::span<const std::string> args);
int runScan(std::span<const std::string> args);
int runZone(std::span<const std::string> args);
int runInspect(std::span<const std::string> args);
int runImport(std::span<const std::string> args);

inline constexpr int kExitStopped = 130;  // stopped with Ctrl-C

// How to reach the photo library, and how to report an import.
struct ImportOptions {
  std::optional<std::string> server;  // else IMMICH_INSTANCE_URL, else Immich's auth.yml
  std::optional<std::string> key;     // else IMMICH_API_KEY, else Immich's auth.yml
  bool json = false;                  // print the ImportSummary as JSON
  bool quiet = false;                 // no progress on stderr
};

// Reads "--server URL" or "--key KEY" at args[at], moving `at` onto the value. False when
// args[at] is neither; throws std::invalid_argument when the value is missing.
bool takeImportOption(std::span<const std::string> args, std::size_t& at, ImportOptions& options);

// Adds the copies of `result` to Immich and prints the outcome (the summary in words, or its
// JSON). Ctrl-C stops before the next item; the albums are still filled. Returns kExitOk,
// kExitDamaged when some items failed, kExitFailed when the import couldn't run (the message
// alone on stderr) or kExitStopped.
int importRepairResult(const RepairResult& result, ExportKind kind, const ImportOptions& options);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_COMMANDS_H_
