#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands.h"
#include "core/sources/quillmere_version.h"

namespace {

using quillmere::cli::kExitFailed;
using quillmere::cli::kExitOk;

struct Command {
  std::string_view name;
  std::string_view summary;
  int (*run)(std::span<const std::string>);
};

constexpr Command kCommands[] = {
    {"list", "list every file of an export, optionally checking the download",
     quillmere::cli::runList},
    {"scan", "scan an export and tell what can be fixed", quillmere::cli::runScan},
    {"zone", "print the time zone at a position, and its offset at an instant",
     quillmere::cli::runZone},
    {"inspect", "show the dates, places, captions and sizes photos and movies carry",
     quillmere::cli::runInspect},
    {"import", "add a repair's copies to an Immich server", quillmere::cli::runImport},
};

void printUsage(std::FILE* out) {
  std::fputs(
      "Usage: quillmere-cli COMMAND [ARGUMENTS]\n"
      "Reads a Google Takeout or Snapchat export (zip parts and/or folders) without changing "
      "it.\n\nCommands:\n",
      out);
  for (const Command& command : kCommands) {
    std::fprintf(out, "  %-8.*s %.*s\n", static_cast<int>(command.name.size()), command.name.data(),
                 static_cast<int>(command.summary.size()), command.summary.data());
  }
  std::fputs(
      "\nRun 'quillmere-cli COMMAND --help' for a command's options.\n"
      "\nExit status, the same for every command:\n"
      "  0  all went well\n"
      "  1  some files had problems (missing, unreadable or damaged); the rest was done\n"
      "  2  the command could not run (bad usage, an export that can't be read, nothing\n"
      "     found, a missing data file)\n",
      out);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    printUsage(stderr);
    return kExitFailed;
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    printUsage(stdout);
    return kExitOk;
  }
  if (args[0] == "--version") {
    std::printf("quillmere-cli %.*s\n", static_cast<int>(quillmere::kQuillmereVersion.size()),
                quillmere::kQuillmereVersion.data());
    return kExitOk;
  }
  for (const Command& command : kCommands) {
    if (args[0] == command.name) return command.run(std::span(args).subspan(1));
  }
  std::fprintf(stderr, "quillmere-cli: unknown command '%s'\n\n", args[0].c_str());
  printUsage(stderr);
  return kExitFailed;
}
