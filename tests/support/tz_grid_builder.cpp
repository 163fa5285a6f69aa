#include "tests/support/tz_grid_builder.h"

#include <zlib.h>

#include <cstring>
#include <stdexcept>

namespace quillmere::testing {
namespace {

void putLE(Bytes& out, std::uint64_t value, int width) {
  for (int i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void putRun(Bytes& out, std::uint32_t length, std::uint16_t zone) {
  while (length >= 0x80) {
    out.push_back(static_cast<std::uint8_t>((length & 0x7F) | 0x80));
    length >>= 7;
  }
  out.push_back(static_cast<std::uint8_t>(length));
  putLE(out, zone, 2);
}

}  // namespace

TzGridBuilder::TzGridBuilder(std::uint32_t cols, std::uint32_t rows, double resolution,
                             std::vector<std::string> names, std::uint16_t background)
    : cols_(cols),
      rows_(rows),
      resolution_(resolution),
      names_(std::move(names)),
      background_(background),
      cells_(rows) {}

TzGridBuilder& TzGridBuilder::set(std::uint32_t row, std::uint32_t fromCol, std::uint32_t toCol,
                                  std::uint16_t zone) {
  for (std::uint32_t col = fromCol; col < toCol; ++col) cells_.at(row)[col] = zone;
  return *this;
}

std::size_t TzGridBuilder::rowOffsetsStart() const {
  std::size_t position = 22;
  for (const std::string& name : names_) position += 1 + name.size();
  return position;
}

Bytes TzGridBuilder::encode() const {
  Bytes out = {'T', 'Z', 'G', '1'};
  putLE(out, cols_, 4);
  putLE(out, rows_, 4);
  std::uint64_t resolutionBits = 0;
  std::memcpy(&resolutionBits, &resolution_, sizeof resolutionBits);
  putLE(out, resolutionBits, 8);
  putLE(out, names_.size(), 2);
  for (const std::string& name : names_) {
    out.push_back(static_cast<std::uint8_t>(name.size()));
    out.insert(out.end(), name.begin(), name.end());
  }
  Bytes rowData;
  Bytes offsets;
  for (std::uint32_t row = 0; row < rows_; ++row) {
    putLE(offsets, rowData.size(), 4);
    std::uint32_t col = 0;
    std::uint32_t runStart = 0;
    std::uint16_t runZone = background_;
    auto zoneAt = [&](std::uint32_t c) {
      const auto found = cells_[row].find(c);
      return found == cells_[row].end() ? background_ : found->second;
    };
    // Walks only the set cells and the gaps between them, merging equal neighbours.
    auto next = cells_[row].begin();
    while (col < cols_) {
      std::uint32_t end = next == cells_[row].end() ? cols_ : next->first;
      if (col < end) {  // a stretch of background
        if (runZone != background_) {
          putRun(rowData, col - runStart, runZone);
          runStart = col;
          runZone = background_;
        }
        col = end;
        continue;
      }
      const std::uint16_t zone = zoneAt(col);
      if (zone != runZone) {
        if (col > runStart) putRun(rowData, col - runStart, runZone);
        runStart = col;
        runZone = zone;
      }
      ++col;
      ++next;
    }
    putRun(rowData, cols_ - runStart, runZone);
  }
  out.insert(out.end(), offsets.begin(), offsets.end());
  out.insert(out.end(), rowData.begin(), rowData.end());
  return out;
}

Bytes TzGridBuilder::compressed() const { return zlibCompress(encode()); }

Bytes zlibCompress(const Bytes& bytes) {
  uLongf size = compressBound(bytes.size());
  Bytes out(size);
  if (compress2(out.data(), &size, bytes.data(), bytes.size(), 6) != Z_OK) {
    throw std::runtime_error("compress2 failed");
  }
  out.resize(size);
  return out;
}

}  // namespace quillmere::testing
