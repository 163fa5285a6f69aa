#ifndef QUILLMERE_TESTS_SUPPORT_TZ_GRID_BUILDER_H_
#define QUILLMERE_TESTS_SUPPORT_TZ_GRID_BUILDER_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/sources/byte_view.h"

namespace quillmere::testing {

// Writes time zone grids in the layout TimeZoneMap reads, for fixtures small or world-sized:
// every cell holds `background` unless set otherwise, and rows are stored sparsely.
class TzGridBuilder {
 public:
  static constexpr std::uint16_t kNoZone = 0xFFFF;

  TzGridBuilder(std::uint32_t cols, std::uint32_t rows, double resolution,
                std::vector<std::string> names, std::uint16_t background = 0);

  // Sets cells [fromCol, toCol) of `row` to `zone` (an index into the names, or kNoZone).
  TzGridBuilder& set(std::uint32_t row, std::uint32_t fromCol, std::uint32_t toCol,
                     std::uint16_t zone);
  TzGridBuilder& set(std::uint32_t row, std::uint32_t col, std::uint16_t zone) {
    return set(row, col, col + 1, zone);
  }

  // The uncompressed grid: header, names, row offsets, run-length rows.
  Bytes encode() const;
  // The same, zlib-compressed as the shipped file is.
  Bytes compressed() const;

 private:
  std::uint32_t cols_;
  std::uint32_t rows_;
  double resolution_;
  std::vector<std::string> names_;
  std::uint16_t background_;
  std::vector<std::map<std::uint32_t, std::uint16_t>> cells_;  // per row: column -> zone
};

// zlib-compresses `bytes` (with the zlib header and checksum).
Bytes zlibCompress(const Bytes& bytes);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_TZ_GRID_BUILDER_H_
