#ifndef QUILLMERE_CORE_DATES_RESOURCE_FOLDER_H_
#define QUILLMERE_CORE_DATES_RESOURCE_FOLDER_H_

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere {

// Where the core's data files (the time zone grid and its notice) are installed. The library
// only reports a missing file; the command line and the app decide whether that ends the run.
namespace ResourceFolder {

// The folders to search, best first. When the environment variable QUILLMERE_RESOURCES is set
// and not empty, it names the only folder: an explicit choice is never second-guessed.
// Otherwise:
//   1. a "resources" folder beside the running executable, or beside one of its parent
//      folders while those lie inside the source tree (so every build folder finds the
//      checked-out resources);
//   2. "../share/quillmere" relative to the executable's folder (a moved installation);
//   3. the share folder of the configured installation prefix;
//   4. the source tree's "resources" folder.
std::vector<std::filesystem::path> candidates();

// Where a resource was found, or why it wasn't.
struct Lookup {
  std::optional<std::filesystem::path> file;  // the resource, when found
  std::string error;  // otherwise what is missing, every folder looked in, and what to do

  bool operator==(const Lookup&) const = default;
};

// The regular file `fileName` in the first of `folders` that holds one.
Lookup find(std::string_view fileName, const std::vector<std::filesystem::path>& folders);
inline Lookup find(std::string_view fileName) { return find(fileName, candidates()); }

}  // namespace ResourceFolder

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_RESOURCE_FOLDER_H_
