#ifndef QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_
#define QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/sources/source_file.h"
#include "core/sources/zip_archive.h"

namespace quillmere {

// One entry of a zip part, read through the part's shared archive. Reads throw the archive's
// QuillmereError cases (corruptZip, unsupportedCompression, checksumMismatch).
class ZipEntryFile final : public SourceFile {
 public:
  // `entry` is a record of `archive`'s directory (possibly altered, as tests do). The logical
  // path shares the entry's path text when it is a tail of it, as it nearly always is: an
  // export holds hundreds of thousands of entries.
  ZipEntryFile(std::shared_ptr<const ZipArchive> archive, ZipArchive::Entry entry,
               std::string_view logicalPath);

  const ZipArchive& archive() const { return *archive_; }
  // The directory record this file reads by, rebuilt from what the file keeps.
  ZipArchive::Entry entry() const;

  // The zip's file name, " › ", then the entry's full path inside the zip.
  std::string displayLocation() const override;
  std::string_view logicalPath() const override;
  std::int64_t size() const override;
  // Verifies the checksum. Content longer than the directory's uncompressed size is damage
  // (corruptZip), so a lying directory can't make this, stream() or copy() grow without bound.
  Bytes readAll() const override;
  // Inflates only as far as needed; no checksum.
  Bytes readPrefix(std::size_t count) const override;
  // Throws QuillmereError::cannotCreate when `to` can't be created (or exists).
  void copy(const std::filesystem::path& to) const override;
  std::optional<std::filesystem::path> localURL() const override { return std::nullopt; }
  void stream(const ChunkSink& sink) const override;

 private:
  std::string_view path() const { return {text_.get(), pathLength_}; }

  // One record per file of an export, so the entry's fields are kept unpadded and its texts in
  // one exact-size block: the entry's path, then the logical path when it is not a tail of it.
  std::shared_ptr<const ZipArchive> archive_;
  std::unique_ptr<char[]> text_;
  std::uint64_t compressedSize_ = 0;
  std::uint64_t uncompressedSize_ = 0;
  std::uint64_t localHeaderOffset_ = 0;
  std::uint32_t crc32_ = 0;
  std::uint32_t pathLength_ = 0;
  std::uint32_t logicalLength_ = 0;
  std::uint16_t method_ = 0;
  bool ownLogicalPath_ = false;  // whether the logical path follows the entry's path
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_
