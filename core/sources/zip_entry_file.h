#ifndef QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_
#define QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_

#include <memory>

#include "core/sources/source_file.h"
#include "core/sources/zip_archive.h"

namespace quillmere {

// One entry of a zip part, read through the part's shared archive. Reads throw the archive's
// QuillmereError cases (corruptZip, unsupportedCompression, checksumMismatch).
class ZipEntryFile final : public SourceFile {
 public:
  // An entry of `archive`'s own directory is referred to, not copied: an export holds hundreds
  // of thousands of them. Any other entry (such as a test's altered copy) is kept by value.
  ZipEntryFile(std::shared_ptr<const ZipArchive> archive, const ZipArchive::Entry& entry,
               std::string logicalPath);

  const ZipArchive& archive() const { return *archive_; }
  const ZipArchive::Entry& entry() const { return *entry_; }

  // The zip's file name, " › ", then the entry's full path inside the zip.
  std::string displayLocation() const override;
  const std::string& logicalPath() const override { return logicalPath_; }
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
  std::unique_ptr<const ZipArchive::Entry> ownEntry_;  // only for an entry not in the archive
  const ZipArchive::Entry* entry_;
  std::string logicalPath_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_ZIP_ENTRY_FILE_H_
