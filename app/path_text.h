#ifndef QUILLMERE_APP_PATH_TEXT_H_
#define QUILLMERE_APP_PATH_TEXT_H_

#include <QDir>
#include <QFile>
#include <QString>
#include <filesystem>

namespace quillmere {

// Paths cross between Qt and the core in the file system's own encoding, so a name that isn't
// valid UTF-8 survives the round trip.
inline std::filesystem::path toPath(const QString& text) {
  return std::filesystem::path(QFile::encodeName(text).toStdString());
}

inline QString toQString(const std::filesystem::path& path) {
  return QFile::decodeName(QByteArray::fromStdString(path.native()));
}

// A path as shown to a person: inside the home folder as "~/…", as file managers write it.
inline QString displayPath(const std::filesystem::path& path) {
  const QString text = toQString(path);
  const QString home = QDir::homePath();
  if (home.isEmpty() || home == QDir::rootPath() || !text.startsWith(home + QLatin1Char('/'))) {
    return text;
  }
  return QStringLiteral("~") + text.mid(home.size());
}

}  // namespace quillmere

#endif  // QUILLMERE_APP_PATH_TEXT_H_
