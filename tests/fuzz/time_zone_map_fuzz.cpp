// Builds a time zone map from arbitrary grid bytes and looks up positions all over it.
// The input is the decompressed grid (compressed here), so the fuzzer explores the layout
// rather than zlib. Any outcome but a crash, hang or leak is fine: a bad grid must be
// refused by an exception at construction, and lookups on an accepted one must stay in it.
#include <zlib.h>

#include <system_error>

#include "core/dates/time_zone_map.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  uLongf compressedSize = compressBound(size);
  std::vector<std::uint8_t> compressed(compressedSize);
  if (compress2(compressed.data(), &compressedSize, data, size, 1) != Z_OK) return 0;
  compressed.resize(compressedSize);
  try {
    const quillmere::TimeZoneMap map(compressed);
    for (double lat = -90; lat <= 90; lat += 7.5) {  // the edges included
      for (double lon = -180; lon <= 180; lon += 12) (void)map.zoneName(lat, lon);
    }
    for (std::int64_t row = -1; row <= std::min<std::int64_t>(map.rows(), 65); ++row) {
      (void)map.zoneIndex(row, -1);
      (void)map.zoneIndex(row, map.cols());
    }
  } catch (const std::system_error&) {
  }
  return 0;
}
