#ifndef QUILLMERE_CLI_ARGUMENTS_H_
#define QUILLMERE_CLI_ARGUMENTS_H_

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere::cli {

// A command's arguments split into options and inputs. Anything beginning with "-" is an
// option (so a mistyped "-q" or "--jsn" is never taken for a path), except "-" itself and
// everything after "--".
struct Arguments {
  std::vector<std::string> options;
  std::vector<std::string> inputs;
};
Arguments splitArguments(std::span<const std::string> args);

// Prints "quillmere-cli COMMAND: unknown option 'OPTION'" and where to find the options, on
// stderr; returns the exit code for bad usage.
int unknownOption(std::string_view command, const std::string& option);

// Prints "quillmere-cli: no such file or folder: PATH" on stderr for each input that doesn't
// exist. True when all exist.
bool allExist(const std::vector<std::filesystem::path>& inputs);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_ARGUMENTS_H_
