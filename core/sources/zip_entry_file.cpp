#include "core/sources/zip_entry_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <system_error>

#include "core/sources/quillmere_error.h"

namespace quillmere {
namespace {

// Bounds the up-front reservation; a lying directory must not cost memory before any data
// has been seen.
constexpr std::uint64_t kMaxReserve = 64 << 20;

// A newly created output file. Unless release() is called, the destructor closes and deletes
// it, so an interrupted copy leaves nothing behind.
class NewFile {
 public:
  explicit NewFile(std::filesystem::path path) : path_(std::move(path)) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd_ < 0) throw QuillmereError::cannotCreate(path_.string());
  }
  ~NewFile() {
    if (fd_ < 0) return;
    ::close(fd_);
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::span<const std::uint8_t> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) fail();
      done += static_cast<std::size_t>(n);
    }
  }
  // Closes the file and keeps it; a failing close still deletes it and throws.
  void keep() {
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) {
      const int error = errno;
      std::error_code ignored;
      std::filesystem::remove(path_, ignored);
      throw std::system_error(error, std::generic_category(), "Couldn't write " + path_.string());
    }
  }

 private:
  [[noreturn]] void fail() {
    throw std::system_error(errno, std::generic_category(), "Couldn't write " + path_.string());
  }
  std::filesystem::path path_;
  int fd_ = -1;
};

}  // namespace

std::string ZipEntryFile::displayLocation() const {
  return archive_->name() + " \u203A " + entry_.path;
}

std::int64_t ZipEntryFile::size() const {
  return static_cast<std::int64_t>(
      std::min<std::uint64_t>(entry_.uncompressedSize, std::numeric_limits<std::int64_t>::max()));
}

Bytes ZipEntryFile::readAll() const {
  Bytes bytes;
  bytes.reserve(static_cast<std::size_t>(std::min(entry_.uncompressedSize, kMaxReserve)));
  archive_->extract(entry_, true, [&](std::span<const std::uint8_t> chunk) {
    if (chunk.size() > entry_.uncompressedSize - bytes.size()) {
      throw QuillmereError::corruptZip(archive_->name());
    }
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    return true;
  });
  return bytes;
}

Bytes ZipEntryFile::readPrefix(std::size_t count) const {
  Bytes bytes;
  if (count == 0) return bytes;
  bytes.reserve(static_cast<std::size_t>(
      std::min<std::uint64_t>({count, entry_.uncompressedSize, kMaxReserve})));
  archive_->extract(entry_, false, [&](std::span<const std::uint8_t> chunk) {
    const std::size_t take = std::min(chunk.size(), count - bytes.size());
    bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(take));
    return bytes.size() < count;
  });
  return bytes;
}

void ZipEntryFile::stream(const ChunkSink& sink) const {
  archive_->extract(entry_, true, [&](std::span<const std::uint8_t> chunk) {
    sink(chunk);
    return true;
  });
}

void ZipEntryFile::copy(const std::filesystem::path& to) const {
  NewFile file(to);
  archive_->extract(entry_, true, [&](std::span<const std::uint8_t> chunk) {
    file.write(chunk);
    return true;
  });
  file.keep();
}

}  // namespace quillmere
