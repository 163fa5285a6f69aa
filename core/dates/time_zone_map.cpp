#include "core/dates/time_zone_map.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <exception>
#include <iterator>
#include <system_error>

#include "core/dates/resource_folder.h"
#include "core/sources/file_io.h"
#include "core/sources/unicode_text.h"

namespace quillmere {
namespace {

constexpr std::size_t kHeaderSize = 22;
constexpr std::size_t kMinimumSize = 23;
// Far above any grid worth shipping; stops a damaged or hostile file from exhausting memory.
constexpr std::size_t kMaxGridBytes = std::size_t{256} << 20;
constexpr std::uintmax_t kMaxFileBytes = std::uintmax_t{64} << 20;
// Finer grids would make the sea search (0.1 degree in cells) needlessly wide.
constexpr double kFinestResolution = 0.001;
constexpr double kSeaSearchDegrees = 0.1;
constexpr int kRunsPerCheckpoint = 8;
constexpr std::uint16_t kNoZone = 0xFFFF;

[[noreturn]] void corrupt(const char* what) {
  throw std::system_error(std::make_error_code(std::errc::illegal_byte_sequence),
                          std::string("time zone grid: ") + what);
}

Bytes inflateGrid(std::span<const std::uint8_t> compressed) {
  if (compressed.size() > UINT_MAX) corrupt("file too large");
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) corrupt("cannot start decompression");
  struct End {
    z_stream* stream;
    ~End() { inflateEnd(stream); }
  } end{&stream};
  stream.next_in = const_cast<Bytef*>(compressed.data());
  stream.avail_in = static_cast<uInt>(compressed.size());
  Bytes out;
  std::size_t produced = 0;
  for (;;) {
    if (produced == out.size()) {
      if (out.size() >= kMaxGridBytes) corrupt("decompresses to too much data");
      out.resize(std::min(kMaxGridBytes, std::max<std::size_t>(out.size() * 2, 1 << 20)));
    }
    stream.next_out = out.data() + produced;
    stream.avail_out = static_cast<uInt>(out.size() - produced);
    const int status = inflate(&stream, Z_NO_FLUSH);
    produced = out.size() - stream.avail_out;
    if (status == Z_STREAM_END) break;
    // Z_BUF_ERROR with room to spare means the input ended early: a truncated file.
    if (status != Z_OK) corrupt("cannot be decompressed");
  }
  if (stream.avail_in != 0) corrupt("trailing bytes after the compressed data");
  out.resize(produced);
  out.shrink_to_fit();
  return out;
}

// A base-128 varint at `position` (bounds-checked); absent when it runs past the data or
// past 32 bits.
std::optional<std::uint32_t> readVarint(const Bytes& data, std::size_t& position) {
  std::uint64_t value = 0;
  for (int shift = 0; shift < 35; shift += 7) {
    if (position >= data.size()) return std::nullopt;
    const std::uint8_t byte = data[position++];
    value |= std::uint64_t{byte & 0x7Fu} << shift;
    if ((byte & 0x80) == 0) {
      if (value > UINT32_MAX) return std::nullopt;
      return static_cast<std::uint32_t>(value);
    }
  }
  return std::nullopt;
}

std::int64_t wrap(std::int64_t column, std::int64_t cols) {
  return ((column % cols) + cols) % cols;
}

}  // namespace

namespace {

struct SharedMap {
  std::unique_ptr<const TimeZoneMap> map;
  std::string error;
};

const SharedMap& sharedMap() {
  // A function-local static: built once, and concurrent first callers wait for it.
  static const SharedMap shared = [] {
    SharedMap result;
    const ResourceFolder::Lookup lookup = ResourceFolder::find(TimeZoneMap::kFileName);
    if (!lookup.file) {
      result.error = lookup.error;
    } else if (!(result.map = TimeZoneMap::load(*lookup.file))) {
      result.error = "Quillmere's time zone grid " + lookup.file->string() +
                     " can't be read or is damaged. Reinstall Quillmere.";
    }
    return result;
  }();
  return shared;
}

}  // namespace

const TimeZoneMap* TimeZoneMap::shared() { return sharedMap().map.get(); }

const std::string& TimeZoneMap::sharedError() { return sharedMap().error; }

std::unique_ptr<const TimeZoneMap> TimeZoneMap::load(const std::filesystem::path& file) {
  try {
    return std::make_unique<const TimeZoneMap>(FileIO::readFile(file, kMaxFileBytes));
  } catch (const std::exception&) {
    return nullptr;
  }
}

TimeZoneMap::TimeZoneMap(std::span<const std::uint8_t> compressed)
    : data_(inflateGrid(compressed)) {
  if (data_.size() < kMinimumSize) corrupt("too short");
  if (!std::equal(data_.begin(), data_.begin() + 4, "TZG1")) corrupt("not a time zone grid");
  const ByteView view(data_);
  const std::uint32_t cols = view.u32le(4);
  const std::uint32_t rows = view.u32le(8);
  const std::uint64_t resolutionBits = view.u64le(12);
  const std::uint16_t nameCount = view.u16le(20);
  if (cols == 0 || rows == 0 || cols > INT_MAX || rows > INT_MAX) corrupt("bad dimensions");
  std::memcpy(&resolution_, &resolutionBits, sizeof resolution_);
  if (!std::isfinite(resolution_) || resolution_ < kFinestResolution || resolution_ > 180) {
    corrupt("bad resolution");
  }
  cols_ = static_cast<int>(cols);
  rows_ = static_cast<int>(rows);
  seaRadius_ = static_cast<int>(std::lround(kSeaSearchDegrees / resolution_));

  std::size_t position = kHeaderSize;
  names_.reserve(nameCount);
  for (int i = 0; i < nameCount; ++i) {
    if (!view.contains(position, 1)) corrupt("names cut short");
    const std::size_t length = data_[position++];
    if (!view.contains(position, length)) corrupt("names cut short");
    names_.push_back(UnicodeText::repairUTF8(view.sub(position, length)));
    isSea_.push_back(names_.back().starts_with("Etc/"));
    position += length;
  }
  if (!view.contains(position, std::uint64_t{4} * rows)) corrupt("row offsets cut short");
  rowOffsets_.reserve(rows);
  for (std::uint32_t row = 0; row < rows; ++row)
    rowOffsets_.push_back(view.u32le(position + 4 * row));
  rowDataStart_ = position + std::size_t{4} * rows;
  indexRows();
}

void TimeZoneMap::indexRows() {
  rowCheckpoints_.reserve(static_cast<std::size_t>(rows_) + 1);
  for (int row = 0; row < rows_; ++row) {
    rowCheckpoints_.push_back(static_cast<std::uint32_t>(checkpoints_.size()));
    if (rowOffsets_[row] > data_.size() - rowDataStart_) corrupt("row offset past the end");
    std::size_t position = rowDataStart_ + rowOffsets_[row];
    std::uint64_t end = 0;
    for (int runs = 0; end < static_cast<std::uint64_t>(cols_); ++runs) {
      if (runs % kRunsPerCheckpoint == 0) {
        checkpoints_.push_back({static_cast<std::uint32_t>(end),
                                static_cast<std::uint32_t>(position - rowDataStart_)});
      }
      const std::optional<std::uint32_t> length = readVarint(data_, position);
      if (!length || position + 2 > data_.size()) corrupt("row cut short");
      const std::uint16_t zone =
          static_cast<std::uint16_t>(data_[position] | data_[position + 1] << 8);
      position += 2;
      if (zone != kNoZone && zone >= names_.size()) corrupt("unknown zone index");
      end += *length;
      if (end > static_cast<std::uint64_t>(cols_)) corrupt("row longer than the grid");
    }
  }
  rowCheckpoints_.push_back(static_cast<std::uint32_t>(checkpoints_.size()));
  checkpoints_.shrink_to_fit();
}

std::size_t TimeZoneMap::byteSize() const {
  return data_.size() + checkpoints_.size() * sizeof(Checkpoint) +
         rowCheckpoints_.size() * sizeof(std::uint32_t) +
         rowOffsets_.size() * sizeof(std::uint32_t);
}

template <typename Visit>
void TimeZoneMap::forEachRun(std::int64_t row, std::int64_t column, Visit visit) const {
  // The last checkpoint at or before the column; indexRows() proved every row well formed,
  // so decoding from it stays inside the data and ends at cols_.
  const auto first = checkpoints_.begin() + rowCheckpoints_[row];
  const auto last = checkpoints_.begin() + rowCheckpoints_[row + 1];
  const auto at = std::prev(std::upper_bound(
      first, last, column, [](std::int64_t c, const Checkpoint& p) { return c < p.column; }));
  const std::uint8_t* p = data_.data() + rowDataStart_ + at->offset;
  Run run;
  run.end = at->column;
  while (run.end < cols_) {
    std::uint32_t length = 0;
    for (int shift = 0;; shift += 7) {
      const std::uint8_t byte = *p++;
      length |= static_cast<std::uint32_t>(byte & 0x7F) << shift;
      if ((byte & 0x80) == 0) break;
    }
    run.zone = static_cast<std::uint16_t>(p[0] | p[1] << 8);
    p += 2;
    run.start = run.end;
    run.end += length;
    if (column < run.end && !visit(run)) return;
  }
}

std::optional<std::uint16_t> TimeZoneMap::zoneIndex(std::int64_t row, std::int64_t column) const {
  if (row < 0 || row >= rows_) return std::nullopt;
  std::optional<std::uint16_t> found;
  forEachRun(row, wrap(column, cols_), [&](const Run& run) {
    if (run.zone != kNoZone) found = run.zone;
    return false;
  });
  return found;
}

std::optional<std::uint16_t> TimeZoneMap::nearestLand(std::int64_t row, std::int64_t column) const {
  // Equivalent to visiting every offset (dr, dc) within the radius, north to south and west
  // to east, and keeping a land cell only when strictly nearer than the best so far; but
  // each row of the window is decoded once, run by run, instead of cell by cell.
  const std::int64_t radius = seaRadius_;
  std::optional<std::uint16_t> best;
  std::int64_t bestDistance = 0;
  for (std::int64_t dr = -radius; dr <= radius; ++dr) {
    const std::int64_t r = row + dr;
    if (r < 0 || r >= rows_) continue;
    std::int64_t half = 0;  // the widest dc with dr² + dc² <= radius²
    while ((half + 1) * (half + 1) + dr * dr <= radius * radius) ++half;
    if (2 * half + 1 > cols_) {
      // A window wider than the globe: visit cell by cell, as the definition reads.
      for (std::int64_t dc = -half; dc <= half; ++dc) {
        if (dr == 0 && dc == 0) continue;
        const std::optional<std::uint16_t> zone = zoneIndex(r, column + dc);
        const std::int64_t distance = dr * dr + dc * dc;
        if (zone && !isSea_[*zone] && (!best || distance < bestDistance)) {
          best = zone;
          bestDistance = distance;
        }
      }
      continue;
    }
    // Walk the window's columns west to east; `offset` maps a run's column to its dc.
    std::int64_t from = wrap(column - half, cols_);
    std::int64_t done = -half;  // dc of the next cell to visit
    while (done <= half) {
      const std::int64_t offset = done - from;
      forEachRun(r, from, [&](const Run& run) {
        const std::int64_t a = std::max(run.start + offset, done);
        const std::int64_t b = std::min(run.end - 1 + offset, half);
        done = b + 1;
        if (run.zone != kNoZone && !isSea_[run.zone]) {
          // The cell of this run nearest the centre; the westmost on a tie comes first.
          const std::int64_t dc = b < 0 ? b : (a > 0 ? a : 0);
          const std::int64_t distance = dr * dr + dc * dc;
          if ((dr != 0 || dc != 0) && (!best || distance < bestDistance)) {
            best = run.zone;
            bestDistance = distance;
          }
        }
        return done <= half && run.end < cols_;
      });
      from = 0;  // the window continues east of longitude -180
    }
  }
  return best;
}

std::optional<std::string> TimeZoneMap::zoneName(double latitude, double longitude) const {
  if (!(std::fabs(latitude) <= 90) || !(std::fabs(longitude) <= 180)) return std::nullopt;
  latitude = std::min(latitude, 89.999);
  if (longitude == 180) longitude = -180;
  const double rowPosition = std::floor((90 - latitude) / resolution_);
  const double columnPosition = std::floor((longitude + 180) / resolution_);
  // The resolution is bounded, so both fit easily; rows outside the grid find nothing.
  const auto row = static_cast<std::int64_t>(rowPosition);
  const auto column = static_cast<std::int64_t>(columnPosition);
  const std::optional<std::uint16_t> zone = zoneIndex(row, column);
  if (!zone) return std::nullopt;
  if (!isSea_[*zone]) return names_[*zone];
  const std::optional<std::uint16_t> land = nearestLand(row, column);
  return names_[land ? *land : *zone];
}

std::optional<TimeZone> TimeZoneMap::timeZone(double latitude, double longitude) const {
  const std::optional<std::string> name = zoneName(latitude, longitude);
  return name ? TimeZone::named(*name) : std::nullopt;
}

}  // namespace quillmere
