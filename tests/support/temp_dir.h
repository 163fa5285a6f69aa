#ifndef QUILLMERE_TESTS_SUPPORT_TEMP_DIR_H_
#define QUILLMERE_TESTS_SUPPORT_TEMP_DIR_H_

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace quillmere::testing {

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// The regular files directly in `folder`, sorted by path.
std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder);

// Every file below `root` (hidden ones too) mapped to the SHA-256 of its content, plus every
// folder mapped to "dir". Comparing two snapshots proves a tree was left byte for byte as it was.
std::map<std::string, std::string> snapshotTree(const std::filesystem::path& root);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_TEMP_DIR_H_
