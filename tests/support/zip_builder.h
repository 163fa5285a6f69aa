#ifndef QUILLMERE_TESTS_SUPPORT_ZIP_BUILDER_H_
#define QUILLMERE_TESTS_SUPPORT_ZIP_BUILDER_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/sources/byte_view.h"

namespace quillmere::testing {

Bytes toBytes(std::string_view text);

// One entry to write. Every field that a damaged or unusual zip needs can be set.
struct ZipEntryDraft {
  // Every field has a default, so a draft may name just the fields it varies.
  Bytes name{};  // raw name bytes, written as they are
  Bytes content{};
  std::uint16_t method = 8;  // 0 stored, 8 DEFLATE; any other: content stored as is
  bool utf8Flag = false;
  bool zip64 = false;  // 32-bit size and offset fields saturated, values in a ZIP64 extra
  Bytes localExtra{};
  std::optional<std::uint32_t> crc{};  // written instead of the real CRC-32
};

// Writes zip files in memory with zlib, the way common archivers lay them out.
class ZipBuilder {
 public:
  ZipBuilder& add(std::string_view name, std::string_view content, std::uint16_t method = 8);
  ZipBuilder& add(ZipEntryDraft draft);
  ZipBuilder& comment(Bytes comment);
  // Writes ZIP64 end records and saturates the classic end record's fields.
  ZipBuilder& zip64Directory();

  Bytes build() const;
  void write(const std::filesystem::path& path) const;

 private:
  std::vector<ZipEntryDraft> entries_;
  Bytes comment_;
  bool zip64Directory_ = false;
};

// Writes a zip with a single DEFLATE entry of `size` zero bytes without holding it in memory
// (the compressed stream repeats one flushed block). Returns the entry's CRC-32.
std::uint32_t writeZeroEntryZip(const std::filesystem::path& path, std::string_view name,
                                std::uint64_t size);

void writeFile(const std::filesystem::path& path, const Bytes& bytes);
Bytes readFile(const std::filesystem::path& path);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_ZIP_BUILDER_H_
