#ifndef QUILLMERE_CLI_COMMANDS_H_
#define QUILLMERE_CLI_COMMANDS_H_

#include <span>
#include <string>

namespace quillmere::cli {

// Exit codes shared by every subcommand.
inline constexpr int kExitOk = 0;
inline constexpr int kExitDamaged = 1;    // the run worked but found damage
inline constexpr int kExitFailed = 2;     // run-level failure or bad usage
inline constexpr int kExitStopped = 130;  // stopped by Ctrl-C or SIGTERM

// Each subcommand receives the arguments after its own name.
int runRepair(std::span<const std::string> args);
int runList(std::span<const std::string> args);
int runScan(std::span<const std::string> args);
int runZone(std::span<const std::string> args);
int runInspect(std::span<const std::string> args);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_COMMANDS_H_
