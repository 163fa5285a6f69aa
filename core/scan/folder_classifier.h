#ifndef QUILLMERE_CORE_SCAN_FOLDER_CLASSIFIER_H_
#define QUILLMERE_CORE_SCAN_FOLDER_CLASSIFIER_H_

#include <optional>
#include <string>
#include <string_view>

#include "core/scan/takeout_album_info.h"

namespace quillmere {

// What a folder of a Takeout export is.
struct FolderRole {
  enum class Kind { album, special, year, root };
  Kind kind = Kind::root;
  std::string name;  // album title or special folder as written; empty for year and root

  static FolderRole album(std::string name) { return {Kind::album, std::move(name)}; }
  static FolderRole special(std::string name) { return {Kind::special, std::move(name)}; }
  static FolderRole year() { return {Kind::year, {}}; }
  static FolderRole root() { return {Kind::root, {}}; }
  bool operator==(const FolderRole&) const = default;
};

namespace FolderClassifier {

// The role of a folder (a logical directory): root when empty; an album titled by its album
// metadata when there is some; a year folder ("2019", "Photos from 2019", "Fotos von 2019", …);
// a special folder when the whole folder string, lower-cased, is a trash or archive name in
// one of several languages; otherwise an album named after its last component.
FolderRole classify(std::string_view folder, const std::optional<TakeoutAlbumInfo>& albumInfo);

// True when the folder's last component is a known year prefix followed by a year from 1800
// to 2100.
bool isYearFolder(std::string_view folder);

}  // namespace FolderClassifier
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_FOLDER_CLASSIFIER_H_
