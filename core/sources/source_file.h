#ifndef QUILLMERE_CORE_SOURCES_SOURCE_FILE_H_
#define QUILLMERE_CORE_SOURCES_SOURCE_FILE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "core/sources/byte_view.h"

namespace quillmere {

// One readable input file of an export, whether a plain file or a zip entry. Immutable after
// creation, shared by identity, and safe to read from several threads.
class SourceFile {
 public:
  using ChunkSink = std::function<void(std::span<const std::uint8_t>)>;

  virtual ~SourceFile() = default;

  // Where the file is, for reports and messages.
  virtual std::string displayLocation() const = 0;
  // The path inside the export, "/"-separated, wrapper folders removed. Whatever the export's
  // names, it is a harmless relative path: it never starts or ends with "/", its components
  // are never empty, "." or "..", and never hold NUL. Components are UTF-8 (invalid bytes of a
  // zip name replaced) but may be of any length, so a name built from one must still be
  // checked against the file system's limits (255 bytes a name on Linux).
  virtual std::string_view logicalPath() const = 0;
  // Content size in bytes (uncompressed for zip entries).
  virtual std::int64_t size() const = 0;
  // The whole content. Throws QuillmereError or std::system_error when it can't be read.
  virtual Bytes readAll() const = 0;
  // At most the first `count` bytes; fewer when the file is shorter. Never verifies a checksum.
  virtual Bytes readPrefix(std::size_t count) const = 0;
  // Writes the whole content to a new file at `to`; fails if `to` exists. A failed copy leaves
  // no file behind.
  virtual void copy(const std::filesystem::path& to) const = 0;
  // The file's own path on disk, or nullopt for a zip entry.
  virtual std::optional<std::filesystem::path> localURL() const = 0;
  // Hands the whole content to `sink` in chunks of at most 1 MiB, verifying a zip entry's
  // checksum at the end; memory use does not depend on the file's size. Throws like readAll.
  virtual void stream(const ChunkSink& sink) const = 0;

  // Last component of logicalPath().
  std::string fileName() const;
  // logicalPath() without its last component; empty at the top level.
  std::string logicalDirectory() const;
};

using SourceFilePtr = std::shared_ptr<const SourceFile>;

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_SOURCE_FILE_H_
