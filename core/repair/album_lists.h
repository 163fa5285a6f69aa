#ifndef QUILLMERE_CORE_REPAIR_ALBUM_LISTS_H_
#define QUILLMERE_CORE_REPAIR_ALBUM_LISTS_H_

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere::RepairEngine {

// Album name → the run-relative paths of its copies, in the order they were written.
using AlbumLists = std::map<std::string, std::vector<std::string>>;

// The list file names ("Trip- 2019-2020.txt") for the albums of `lists` that have entries, in
// ascending order of album name: "/" and ":" become "-", a leading "." gets a "_" in front, a
// name too long for the file system is cut short, and a name already given out (ignoring
// letter case) gets " (2)", " (3)", ...
std::vector<std::pair<std::string, std::string>> albumFileNames(const AlbumLists& lists);

// The text of one list: "# " + the album's name as it is, then each path prefixed with "../",
// one a line.
std::string albumListText(std::string_view album, const std::vector<std::string>& paths);

// Writes one list per album with entries into runFolder/"Albums", each atomically (staged in
// the run's ".work" folder, then renamed into place). Writes nothing, not even the folder, when
// no album has an entry. Throws the file system's error on the first failure.
void writeAlbums(const AlbumLists& lists, const std::filesystem::path& runFolder);

}  // namespace quillmere::RepairEngine

#endif  // QUILLMERE_CORE_REPAIR_ALBUM_LISTS_H_
