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
  const ZipArchive::Entry& entry() const { return entry_; }

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
  std::shared_ptr<const ZipArchive> archive_;
  ZipArchive::Entry entry_;
  std::unique_ptr<const std::string> ownLogicalPath_;  // null when it is a tail of entry_.path
  std::uint32_t logicalStart_ = 0;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_
