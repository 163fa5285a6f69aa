#include "core/scan/packed_record.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace quillmere {

PackedRecord::PackedRecord(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("packed record over 4 GiB");
  }
  if (bytes.empty()) return;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  data_ = std::make_unique_for_overwrite<std::uint8_t[]>(sizeof size + bytes.size());
  std::memcpy(data_.get(), &size, sizeof size);
  std::copy(bytes.begin(), bytes.end(), data_.get() + sizeof size);
}

std::span<const std::uint8_t> PackedRecord::bytes() const {
  if (!data_) return {};
  std::uint32_t size = 0;
  std::memcpy(&size, data_.get(), sizeof size);
  return {data_.get() + sizeof size, size};
}

void PackedWriter::putDouble(double value) {
  std::uint8_t raw[sizeof value];
  std::memcpy(raw, &value, sizeof value);
  bytes_.insert(bytes_.end(), std::begin(raw), std::end(raw));
}

void PackedWriter::putCount(std::uint64_t value) {
  while (value >= 0x80) {
    bytes_.push_back(static_cast<std::uint8_t>(value | 0x80));
    value >>= 7;
  }
  bytes_.push_back(static_cast<std::uint8_t>(value));
}

void PackedWriter::putText(std::string_view text) {
  putCount(text.size());
  bytes_.insert(bytes_.end(), text.begin(), text.end());
}

void PackedWriter::putOptionalDouble(const std::optional<double>& value) {
  putByte(value.has_value());
  if (value) putDouble(*value);
}

void PackedWriter::putOptionalInt(const std::optional<int>& value) {
  putByte(value.has_value());
  // Zigzag keeps small negative offsets short.
  if (value) {
    const auto wide = static_cast<std::int64_t>(*value);
    putCount((static_cast<std::uint64_t>(wide) << 1) ^ static_cast<std::uint64_t>(wide >> 63));
  }
}

void PackedWriter::putOptionalText(const std::optional<std::string>& text) {
  putByte(text.has_value());
  if (text) putText(*text);
}

void PackedWriter::putTexts(const std::vector<std::string>& texts) {
  putCount(texts.size());
  for (const std::string& text : texts) putText(text);
}

PackedRecord PackedWriter::finish() const { return PackedRecord(bytes_); }

std::span<const std::uint8_t> PackedReader::take(std::size_t count) {
  if (count > bytes_.size()) throw std::out_of_range("read past the end of a packed record");
  const std::span<const std::uint8_t> taken = bytes_.first(count);
  bytes_ = bytes_.subspan(count);
  return taken;
}

std::uint8_t PackedReader::byte() { return take(1)[0]; }

double PackedReader::doubleValue() {
  double value = 0;
  std::memcpy(&value, take(sizeof value).data(), sizeof value);
  return value;
}

std::uint64_t PackedReader::count() {
  std::uint64_t value = 0;
  for (unsigned shift = 0; shift < 64; shift += 7) {
    const std::uint8_t next = byte();
    value |= static_cast<std::uint64_t>(next & 0x7F) << shift;
    if ((next & 0x80) == 0) return value;
  }
  throw std::out_of_range("count too long in a packed record");
}

std::string PackedReader::text() {
  const std::span<const std::uint8_t> chars = take(count());
  return std::string(chars.begin(), chars.end());
}

std::optional<double> PackedReader::optionalDouble() {
  if (byte() == 0) return std::nullopt;
  return doubleValue();
}

std::optional<int> PackedReader::optionalInt() {
  if (byte() == 0) return std::nullopt;
  const std::uint64_t zigzag = count();
  const auto wide = static_cast<std::int64_t>(zigzag >> 1) ^ -static_cast<std::int64_t>(zigzag & 1);
  return static_cast<int>(wide);
}

std::optional<std::string> PackedReader::optionalText() {
  if (byte() == 0) return std::nullopt;
  return text();
}

std::vector<std::string> PackedReader::texts() {
  const std::uint64_t n = count();
  std::vector<std::string> result;
  result.reserve(std::min<std::uint64_t>(n, bytes_.size()));
  for (std::uint64_t i = 0; i < n; ++i) result.push_back(text());
  return result;
}

}  // namespace quillmere
