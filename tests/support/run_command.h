#ifndef QUILLMERE_TESTS_SUPPORT_RUN_COMMAND_H_
#define QUILLMERE_TESTS_SUPPORT_RUN_COMMAND_H_

#include <string>
#include <vector>

namespace quillmere::testing {

struct CommandResult {
  int exitCode = -1;  // -1 when the program didn't exit normally
  std::string out;
  std::string err;
};

// Runs `argv` (argv[0] is a path or a name looked up in PATH) with no input and waits for it.
CommandResult runCommand(const std::vector<std::string>& argv);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_RUN_COMMAND_H_
