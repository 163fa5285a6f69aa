#ifndef QUILLMERE_CLI_COMMANDS_H_
#define QUILLMERE_CLI_COMMANDS_H_

#include <span>
#include <string>

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

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_COMMANDS_H_
