#include "cli/arguments.h"

#include <cstdio>
#include <system_error>

#include "cli/commands.h"

namespace quillmere::cli {

Arguments splitArguments(std::span<const std::string> args) {
  Arguments split;
  bool onlyInputs = false;
  for (const std::string& arg : args) {
    if (!onlyInputs && arg == "--") {
      onlyInputs = true;
    } else if (!onlyInputs && arg.size() > 1 && arg.front() == '-') {
      split.options.push_back(arg);
    } else {
      split.inputs.push_back(arg);
    }
  }
  return split;
}

int unknownOption(std::string_view command, const std::string& option) {
  std::fprintf(stderr,
               "quillmere-cli %.*s: unknown option '%s'\n"
               "Run 'quillmere-cli %.*s --help' for its options.\n",
               static_cast<int>(command.size()), command.data(), option.c_str(),
               static_cast<int>(command.size()), command.data());
  return kExitFailed;
}

bool allExist(const std::vector<std::filesystem::path>& inputs) {
  bool all = true;
  for (const std::filesystem::path& input : inputs) {
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(input, error))) continue;
    std::fprintf(stderr, "quillmere-cli: no such file or folder: %s\n", input.c_str());
    all = false;
  }
  return all;
}

}  // namespace quillmere::cli
