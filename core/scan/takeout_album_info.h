#ifndef QUILLMERE_CORE_SCAN_TAKEOUT_ALBUM_INFO_H_
#define QUILLMERE_CORE_SCAN_TAKEOUT_ALBUM_INFO_H_

#include <optional>
#include <string>

namespace quillmere {

// Metadata of the album whose folder holds the JSON file it came from.
struct TakeoutAlbumInfo {
  std::string title;
  // Kept exactly as written, but absent when blank (only white space and line breaks).
  std::optional<std::string> description;

  bool operator==(const TakeoutAlbumInfo&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_TAKEOUT_ALBUM_INFO_H_
