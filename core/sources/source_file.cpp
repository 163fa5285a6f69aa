#include "core/sources/source_file.h"

namespace quillmere {

std::string SourceFile::fileName() const {
  const std::string& path = logicalPath();
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string SourceFile::logicalDirectory() const {
  const std::string& path = logicalPath();
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace quillmere
