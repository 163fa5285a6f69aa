#ifndef QUILLMERE_APP_COMMAND_LINE_H_
#define QUILLMERE_APP_COMMAND_LINE_H_

#include <QStringList>
#include <filesystem>
#include <optional>
#include <vector>

namespace quillmere {

// What the app was started with: "--scan PATHS…" (up to the next argument that begins with
// "--") and "--out FOLDER" (the argument after the first "--out", whatever it is). Relative
// paths are made absolute against the current folder; nothing is checked for existence.
struct CommandLine {
  std::vector<std::filesystem::path> scan;   // empty: start no scan
  std::optional<std::filesystem::path> out;  // absent: leave the destination alone
  // Files the desktop opens with the app: given alone (no "--" option), as paths or file URLs.
  std::vector<std::filesystem::path> openedFiles;

  bool operator==(const CommandLine&) const = default;

  // `arguments` includes the program at index 0. Without "--scan", "--out" is not looked at.
  static CommandLine parse(const QStringList& arguments);
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_COMMAND_LINE_H_
