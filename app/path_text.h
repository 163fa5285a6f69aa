#ifndef QUILLMERE_APP_PATH_TEXT_H_
#define QUILLMERE_APP_PATH_TEXT_H_

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

}  // namespace quillmere

#endif  // QUILLMERE_APP_PATH_TEXT_H_
