#ifndef QUILLMERE_CORE_DATES_TIME_ZONE_MAP_H_
#define QUILLMERE_CORE_DATES_TIME_ZONE_MAP_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/dates/time_zone.h"
#include "core/sources/byte_view.h"

namespace quillmere {

// Which time zone lies at a latitude and longitude, from a world raster shipped with the
// program ("tzgrid.zlib" in the resource folder). Offline; a lookup decodes part of one
// run-length encoded row. Immutable once built, so one map may be read from any number of
// threads without locks.
//
// The grid, after zlib decompression, is little-endian: "TZG1", cols u32, rows u32,
// resolution f64 (degrees per cell), nameCount u16, the zone names (u8 length + UTF-8 each),
// one u32 offset per row (from the start of the row data), then the rows: runs of a base-128
// varint length and a u16 zone index (0xFFFF: no zone), west to east from longitude -180.
// Row 0 lies just south of latitude +90.
class TimeZoneMap {
 public:
  // The file name of the grid inside the resource folder.
  static constexpr const char* kFileName = "tzgrid.zlib";

  // The program's map, built on first use (safe when several threads ask at once) from
  // kFileName as ResourceFolder::find() locates it. Null when the file is missing, unreadable or
  // damaged; it then stays null for the rest of the run and sharedError() says why.
  static const TimeZoneMap* shared();
  // Why shared() is null, for the user: what is missing or damaged and where it was looked
  // for. Empty when the map loaded.
  static const std::string& sharedError();

  // Builds a map from the zlib-compressed grid. Throws std::system_error with
  // std::errc::illegal_byte_sequence when the bytes don't inflate, hold fewer than 23 bytes,
  // don't start with "TZG1", or don't hold a complete, consistent grid (a resolution from
  // 0.001 to 180 degrees, every table inside the data, every row's runs covering exactly
  // `cols` cells with known zone indices).
  explicit TimeZoneMap(std::span<const std::uint8_t> compressed);

  // Reads `file` and builds the map from it; null when the file can't be read or isn't a
  // valid grid.
  static std::unique_ptr<const TimeZoneMap> load(const std::filesystem::path& file);

  // The IANA identifier of the zone at the position, or absent:
  //  - absent for NaN, |latitude| > 90 or |longitude| > 180;
  //  - latitudes above 89.999 count as 89.999; longitude +180 counts as -180; latitude -90
  //    falls below the last row and finds nothing;
  //  - absent when the cell holds no zone;
  //  - in open sea (an "Etc/" cell) the nearest land zone within 0.1 degree wins (nearest by
  //    cell distance, the first in north-to-south, west-to-east order among equals), or
  //    else the cell's own "Etc/" zone.
  std::optional<std::string> zoneName(double latitude, double longitude) const;

  // The zone at the position as the system's tzdata knows it: zoneName() looked up by
  // TimeZone::named(); absent when either is absent.
  std::optional<TimeZone> timeZone(double latitude, double longitude) const;

  int cols() const { return cols_; }
  int rows() const { return rows_; }
  double resolution() const { return resolution_; }
  const std::vector<std::string>& names() const { return names_; }
  // Bytes held in memory: the decompressed grid and its row index.
  std::size_t byteSize() const;

  // The zone index of a cell: absent for rows off the grid and for cells without a zone.
  // Columns wrap around the globe. Indices refer to names().
  std::optional<std::uint16_t> zoneIndex(std::int64_t row, std::int64_t column) const;

 private:
  struct Run {
    std::int64_t start = 0;  // first column
    std::int64_t end = 0;    // one past the last column
    std::uint16_t zone = 0;
  };
  // A place to resume decoding a row: the run beginning at `column` starts at `offset`.
  struct Checkpoint {
    std::uint32_t column = 0;
    std::uint32_t offset = 0;  // from rowDataStart_
  };

  // Decodes every row once, checking it covers exactly cols_ cells with known zones, and
  // records a checkpoint every few runs so a lookup never decodes a long row from its start.
  void indexRows();
  // Calls visit(Run) for the runs of `row` (0 <= row < rows_) from the one covering
  // `column` (0 <= column < cols_) eastwards, until visit returns false or the row ends.
  template <typename Visit>
  void forEachRun(std::int64_t row, std::int64_t column, Visit visit) const;
  // The nearest land zone within the fallback radius of a sea cell, if any.
  std::optional<std::uint16_t> nearestLand(std::int64_t row, std::int64_t column) const;

  Bytes data_;
  int cols_ = 0;
  int rows_ = 0;
  double resolution_ = 0;
  int seaRadius_ = 0;  // round(0.1 degree / resolution), in cells
  std::vector<std::string> names_;
  std::vector<bool> isSea_;  // per name: begins with "Etc/"
  std::vector<std::uint32_t> rowOffsets_;
  std::size_t rowDataStart_ = 0;
  std::vector<Checkpoint> checkpoints_;
  std::vector<std::uint32_t> rowCheckpoints_;  // per row, its first checkpoint; plus an end
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_TIME_ZONE_MAP_H_
