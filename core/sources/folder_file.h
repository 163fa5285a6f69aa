#ifndef QUILLMERE_CORE_SOURCES_FOLDER_FILE_H_
#define QUILLMERE_CORE_SOURCES_FOLDER_FILE_H_

#include "core/sources/source_file.h"

namespace quillmere {

// A plain file on disk. Every read opens its own descriptor and closes it afterwards.
// Read failures throw std::system_error.
class FolderFile final : public SourceFile {
 public:
  FolderFile(std::filesystem::path url, std::string logicalPath, std::int64_t size)
      : url_(std::move(url)), logicalPath_(std::move(logicalPath)), size_(size) {}

  const std::filesystem::path& url() const { return url_; }

  std::string displayLocation() const override { return url_.string(); }
  std::string_view logicalPath() const override { return logicalPath_; }
  std::int64_t size() const override { return size_; }
  Bytes readAll() const override;
  Bytes readPrefix(std::size_t count) const override;
  // Throws QuillmereError::cannotCreate when `to` can't be created (or exists).
  void copy(const std::filesystem::path& to) const override;
  std::optional<std::filesystem::path> localURL() const override { return url_; }
  void stream(const ChunkSink& sink) const override;

 private:
  std::filesystem::path url_;
  std::string logicalPath_;
  std::int64_t size_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_FOLDER_FILE_H_
