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
  for (std::uint32_t row = 0; row < rows_; ++row) {
    putLE(out, rowData.size(), 4);
    // Walks only the set cells and the gaps between them, merging equal neighbours.
    std::uint32_t runLength = 0;
    std::uint16_t runZone = background_;
    auto extend = [&](std::uint16_t zone, std::uint32_t length) {
      if (length == 0) return;
      if (zone != runZone && runLength > 0) {
        putRun(rowData, runLength, runZone);
        runLength = 0;
      }
      runZone = zone;
      runLength += length;
    };
    std::uint32_t col = 0;
    for (const auto& [setCol, zone] : cells_[row]) {
      if (setCol >= cols_) break;
      extend(background_, setCol - col);
      extend(zone, 1);
      col = setCol + 1;
    }
    extend(background_, cols_ - col);
    putRun(rowData, runLength, runZone);
  }
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
