#include "core/metadata/random_access_bytes.h"

#include <system_error>
#include <utility>

#include "core/sources/file_io.h"

namespace quillmere {
namespace {

class MemoryBytes final : public RandomAccessBytes {
 public:
  explicit MemoryBytes(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::uint64_t size() const override { return bytes_.size(); }

  std::optional<Bytes> read(std::uint64_t offset, std::size_t count) const override {
    const ByteView view(bytes_);
    if (!view.contains(offset, count)) return std::nullopt;
    const std::span<const std::uint8_t> part = view.sub(offset, count);
    return Bytes(part.begin(), part.end());
  }

 private:
  std::span<const std::uint8_t> bytes_;
};

class FileBytes final : public RandomAccessBytes {
 public:
  FileBytes(FileDescriptor file, std::uint64_t size)
      : owned_(std::move(file)), file_(owned_), size_(size) {}
  FileBytes(const FileDescriptor* borrowed, std::uint64_t size) : file_(*borrowed), size_(size) {}

  std::uint64_t size() const override { return size_; }

  std::optional<Bytes> read(std::uint64_t offset, std::size_t count) const override {
    if (offset > size_ || count > size_ - offset) return std::nullopt;
    Bytes bytes(count);
    try {
      // Fewer bytes than asked: the file shrank under us.
      if (file_.preadFully(bytes, offset) < count) return std::nullopt;
    } catch (const std::system_error&) {
      return std::nullopt;
    }
    return bytes;
  }

 private:
  FileDescriptor owned_;  // unless borrowed
  const FileDescriptor& file_;
  std::uint64_t size_;
};

}  // namespace

std::unique_ptr<RandomAccessBytes> RandomAccessBytes::inMemory(
    std::span<const std::uint8_t> bytes) {
  return std::make_unique<MemoryBytes>(bytes);
}

std::unique_ptr<RandomAccessBytes> RandomAccessBytes::inFile(const std::filesystem::path& path) {
  try {
    FileDescriptor file = FileDescriptor::openForReading(path);
    const FileDescriptor::Status status = file.status();
    if (!status.regular) return nullptr;
    return std::make_unique<FileBytes>(std::move(file), status.size);
  } catch (const std::system_error&) {
    return nullptr;
  }
}

std::unique_ptr<RandomAccessBytes> RandomAccessBytes::inOpenFile(const FileDescriptor& file) {
  try {
    const FileDescriptor::Status status = file.status();
    if (!status.regular) return nullptr;
    return std::make_unique<FileBytes>(&file, status.size);
  } catch (const std::system_error&) {
    return nullptr;
  }
}

}  // namespace quillmere
