#include "core/metadata/random_access_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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
  FileBytes(int descriptor, std::uint64_t size) : descriptor_(descriptor), size_(size) {}
  ~FileBytes() override { ::close(descriptor_); }
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  std::uint64_t size() const override { return size_; }

  std::optional<Bytes> read(std::uint64_t offset, std::size_t count) const override {
    if (offset > size_ || count > size_ - offset) return std::nullopt;
    Bytes bytes(count);
    std::size_t done = 0;
    while (done < count) {
      const ssize_t n = ::pread(descriptor_, bytes.data() + done, count - done,
                                static_cast<off_t>(offset + done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return std::nullopt;  // an error, or the file shrank under us
      done += static_cast<std::size_t>(n);
    }
    return bytes;
  }

 private:
  int descriptor_;
  std::uint64_t size_;
};

}  // namespace

std::unique_ptr<RandomAccessBytes> RandomAccessBytes::inMemory(
    std::span<const std::uint8_t> bytes) {
  return std::make_unique<MemoryBytes>(bytes);
}

std::unique_ptr<RandomAccessBytes> RandomAccessBytes::inFile(const std::filesystem::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  struct stat status;
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor);
    return nullptr;
  }
  return std::make_unique<FileBytes>(descriptor, static_cast<std::uint64_t>(status.st_size));
}

}  // namespace quillmere
