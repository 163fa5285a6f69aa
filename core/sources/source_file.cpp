#include "core/sources/source_file.h"

namespace quillmere {

std::string SourceFile::fileName() const {
  const std::string_view path = logicalPath();
  const std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string SourceFile::logicalDirectory() const {
  const std::string_view path = logicalPath();
  const std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? std::string_view() : path.substr(0, slash));
}

}  // namespace quillmere
