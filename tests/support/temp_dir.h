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

// One folder for the whole process (benchmarks' inputs, made once and shared by their cases),
// removed when the process ends.
const TempDir& processScratch();

// The regular files directly in `folder`, sorted by path.
std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder);

// Every file below `root` (hidden ones too) mapped to the SHA-256 of its content, plus every
// folder mapped to "dir". Comparing two snapshots proves a tree was left byte for byte as it was.
std::map<std::string, std::string> snapshotTree(const std::filesystem::path& root);

// The one entry of `folder` (such as the run folder a repair made in its destination); adds a
// test failure and returns an empty path when there are none or several.
std::filesystem::path onlyEntry(const std::filesystem::path& folder);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_TEMP_DIR_H_
