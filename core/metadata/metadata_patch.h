#ifndef QUILLMERE_CORE_METADATA_METADATA_PATCH_H_
#define QUILLMERE_CORE_METADATA_METADATA_PATCH_H_

#include <optional>
#include <string>
#include <vector>

#include "core/dates/geo_point.h"

namespace quillmere {

// What the repair asks the writer to put into one copy. A plain value.
struct MetadataPatch {
  std::optional<double> dateUTC;         // capture instant, seconds since the Unix epoch
  std::optional<int> offsetSeconds;      // UTC offset to write with it, seconds east
  std::optional<GeoPoint> location;      // position to write
  std::optional<std::string> caption;    // UTF-8
  std::vector<std::string> addKeywords;  // album names to add to the file's keywords

  // True when there is no date, no position, no caption and no keyword to add. An offset
  // alone writes nothing, so it does not count.
  bool isEmpty() const { return !dateUTC && !location && !caption && addKeywords.empty(); }

  bool operator==(const MetadataPatch&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_METADATA_PATCH_H_
