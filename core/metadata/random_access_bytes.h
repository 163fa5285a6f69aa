#ifndef QUILLMERE_CORE_METADATA_RANDOM_ACCESS_BYTES_H_
#define QUILLMERE_CORE_METADATA_RANDOM_ACCESS_BYTES_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "core/sources/byte_view.h"
#include "core/sources/file_io.h"

namespace quillmere {

// Random access to the bytes of a file or a buffer, for readers that jump around a container
// instead of reading it from start to end. Safe to read from one thread at a time.
class RandomAccessBytes {
 public:
  virtual ~RandomAccessBytes() = default;

  // Total size in bytes.
  virtual std::uint64_t size() const = 0;
  // Exactly `count` bytes from `offset`; absent when they are not all there or can't be read.
  virtual std::optional<Bytes> read(std::uint64_t offset, std::size_t count) const = 0;

  // A view of `bytes`, which must outlive it.
  static std::unique_ptr<RandomAccessBytes> inMemory(std::span<const std::uint8_t> bytes);
  // The file at `path`, opened for reading now and closed with the object; null if it can't be
  // opened.
  static std::unique_ptr<RandomAccessBytes> inFile(const std::filesystem::path& path);
  // The file open at `file`, which must outlive the view (for a caller that also copies from the
  // descriptor); null unless it is a regular file.
  static std::unique_ptr<RandomAccessBytes> inOpenFile(const FileDescriptor& file);
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_RANDOM_ACCESS_BYTES_H_
