#include "app/command_line.h"

#include <QUrl>
#include <algorithm>

#include "app/path_text.h"

namespace quillmere {
namespace {

std::filesystem::path absolute(const QString& text) {
  const std::filesystem::path path = toPath(text);
  if (path.empty()) return path;
  std::error_code ignored;
  std::filesystem::path made = std::filesystem::absolute(path, ignored);
  return made.empty() ? path : made;
}

// The desktop hands files over as paths or as file URLs (the %U of a .desktop file).
std::filesystem::path openedFile(const QString& text) {
  if (text.startsWith(QStringLiteral("file:"))) return absolute(QUrl(text).toLocalFile());
  return absolute(text);
}

}  // namespace

CommandLine CommandLine::parse(const QStringList& arguments) {
  CommandLine line;
  const qsizetype scanAt = arguments.indexOf(QStringLiteral("--scan"));
  if (scanAt < 0) {
    // Only a plain list of files is what the desktop opens with the app; any option makes the
    // command line one that asks for nothing.
    const QStringList files = arguments.mid(1);
    const bool plain = std::none_of(files.begin(), files.end(), [](const QString& argument) {
      return argument.startsWith(QStringLiteral("--"));
    });
    if (plain) {
      for (const QString& file : files) line.openedFiles.push_back(openedFile(file));
    }
    return line;
  }
  for (qsizetype i = scanAt + 1; i < arguments.size(); ++i) {
    if (arguments[i].startsWith(QStringLiteral("--"))) break;
    line.scan.push_back(absolute(arguments[i]));
  }
  const qsizetype outAt = arguments.indexOf(QStringLiteral("--out"));
  if (outAt >= 0 && outAt + 1 < arguments.size()) line.out = absolute(arguments[outAt + 1]);
  return line;
}

}  // namespace quillmere
