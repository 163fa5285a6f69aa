#ifndef QUILLMERE_CORE_SCAN_PACKED_RECORD_H_
#define QUILLMERE_CORE_SCAN_PACKED_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere {

// A value's fields laid end to end in one heap block of exactly their size, for records that
// exist once per file of an export: a struct of optionals and strings costs several times its
// content. Only this process reads the bytes back, in the order they were put.
class PackedRecord {
 public:
  PackedRecord() = default;
  explicit PackedRecord(std::span<const std::uint8_t> bytes);
  PackedRecord(PackedRecord&&) noexcept = default;
  PackedRecord& operator=(PackedRecord&&) noexcept = default;

  bool empty() const { return data_ == nullptr; }
  std::span<const std::uint8_t> bytes() const;

 private:
  // The size, then the bytes: one pointer per record, as a file holds several.
  std::unique_ptr<std::uint8_t[]> data_;  // null when empty
};

// Appends fields. Texts and counts are length-prefixed, so any value reads back whole.
class PackedWriter {
 public:
  void putByte(std::uint8_t value) { bytes_.push_back(value); }
  void putDouble(double value);
  void putCount(std::uint64_t value);  // 1 byte below 128
  void putText(std::string_view text);
  void putOptionalDouble(const std::optional<double>& value);
  void putOptionalInt(const std::optional<int>& value);
  void putOptionalText(const std::optional<std::string>& text);
  void putTexts(const std::vector<std::string>& texts);

  // Throws std::length_error beyond 4 GiB, which no record of a file comes near.
  PackedRecord finish() const;

 private:
  std::vector<std::uint8_t> bytes_;
};

// Reads fields back in the order PackedWriter put them. Reading past the end throws
// std::out_of_range: the reader and the writer disagree, a programming error.
class PackedReader {
 public:
  explicit PackedReader(const PackedRecord& record) : bytes_(record.bytes()) {}

  std::uint8_t byte();
  double doubleValue();
  std::uint64_t count();
  std::string text();
  std::optional<double> optionalDouble();
  std::optional<int> optionalInt();
  std::optional<std::string> optionalText();
  std::vector<std::string> texts();

 private:
  std::span<const std::uint8_t> take(std::size_t count);

  std::span<const std::uint8_t> bytes_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_PACKED_RECORD_H_
