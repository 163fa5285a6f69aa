#ifndef QUILLMERE_CORE_METADATA_MOVIE_PROPERTIES_H_
#define QUILLMERE_CORE_METADATA_MOVIE_PROPERTIES_H_

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillmere {

// What a movie container states, as the movie library lists it.
struct MovieProperties {
  // One metadata item: the container's key ("com.apple.quicktime.creationdate", "location",
  // "description", ...) and its text.
  struct Item {
    std::string identifier;
    std::string stringValue;  // UTF-8
    bool operator==(const Item&) const = default;
  };
  struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
  };

  std::vector<Item> items;             // in the order the container lists them
  std::optional<double> creationDate;  // the movie header's creation time, seconds since epoch
  std::optional<Size> videoSize;       // first video track's size as stored, rotation not applied

  bool operator==(const MovieProperties&) const = default;
};

// Reads movie properties with libavformat: the container is opened and its header parsed, no
// frame is decoded. Never throws and never logs.
namespace MoviePropertyReader {

// Absent when the file cannot be opened as a movie container (MP4, QuickTime, Matroska/WebM,
// AVI, MPEG program and transport streams, ASF/WMV, FLV).
std::optional<MovieProperties> readFile(const std::filesystem::path& file);

}  // namespace MoviePropertyReader
}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_MOVIE_PROPERTIES_H_
