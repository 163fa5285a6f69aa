#ifndef QUILLMERE_CORE_DATES_RESOURCE_FOLDER_H_
#define QUILLMERE_CORE_DATES_RESOURCE_FOLDER_H_

#include <filesystem>
#include <optional>
#include <vector>

namespace quillmere {

// Where the core's data files (the time zone grid and its notice) are installed.
namespace ResourceFolder {

// The folders to search, best first:
//   1. the folder named by the environment variable QUILLMERE_RESOURCES, when set and not empty;
//   2. a "resources" folder beside the running executable, or beside one of its parent
//      folders while those lie inside the source tree (so every build folder finds the
//      checked-out resources);
//   3. "../share/quillmere" relative to the executable's folder (a moved installation);
//   4. the share folder of the configured installation prefix;
//   5. the source tree's "resources" folder.
std::vector<std::filesystem::path> candidates();

// The first of `folders` that exists as a folder; absent if none does.
std::optional<std::filesystem::path> firstExisting(
    const std::vector<std::filesystem::path>& folders);

// The first existing folder of candidates(). When there is none, the installation is broken:
// prints "unable to find bundle named Quillmere_QuillmereCore" to stderr and aborts.
std::filesystem::path locate();

}  // namespace ResourceFolder

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_RESOURCE_FOLDER_H_
