#include "core/sources/folder_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace quillmere {
namespace {

constexpr std::size_t kChunk = 1 << 20;

// A read-only descriptor closed on scope exit; errors while closing are ignored.
class ReadDescriptor {
 public:
  explicit ReadDescriptor(const std::filesystem::path& path)
      : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) fail(path);
  }
  ~ReadDescriptor() { ::close(fd_); }
  ReadDescriptor(const ReadDescriptor&) = delete;
  ReadDescriptor& operator=(const ReadDescriptor&) = delete;

  // Reads up to out.size() bytes; fewer only at the end of the file.
  std::size_t read(std::span<std::uint8_t> out, const std::filesystem::path& path) {
    std::size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = ::read(fd_, out.data() + done, out.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) fail(path);
      if (n == 0) break;
      done += static_cast<std::size_t>(n);
    }
    return done;
  }

 private:
  [[noreturn]] static void fail(const std::filesystem::path& path) {
    throw std::system_error(errno, std::generic_category(), "Couldn't read " + path.string());
  }
  int fd_;
};

}  // namespace

Bytes FolderFile::readAll() const {
  Bytes bytes;
  bytes.reserve(static_cast<std::size_t>(std::max<std::int64_t>(size_, 0)));
  stream([&](std::span<const std::uint8_t> chunk) {
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  });
  return bytes;
}

Bytes FolderFile::readPrefix(std::size_t count) const {
  ReadDescriptor file(url_);
  Bytes bytes;
  // Sized to the file, not to `count`: scans ask for a mebibyte of files far smaller. One byte
  // more than the listed size ends the loop at once unless the file has grown since.
  std::size_t step =
      std::min(count, static_cast<std::size_t>(std::max<std::int64_t>(size_, 0)) + 1);
  while (bytes.size() < count) {
    const std::size_t before = bytes.size();
    const std::size_t want = std::min(step, count - before);
    bytes.resize(before + want);
    const std::size_t got = file.read(std::span(bytes).subspan(before), url_);
    bytes.resize(before + got);
    if (got < want) break;
    step = kChunk;
  }
  return bytes;
}

void FolderFile::stream(const ChunkSink& sink) const {
  ReadDescriptor file(url_);
  Bytes buffer(kChunk);
  for (;;) {
    const std::size_t n = file.read(buffer, url_);
    if (n > 0) sink(std::span<const std::uint8_t>(buffer.data(), n));
    if (n < buffer.size()) return;
  }
}

void FolderFile::copy(const std::filesystem::path& to) const {
  std::error_code error;
  std::filesystem::copy_file(url_, to, std::filesystem::copy_options::none, error);
  if (!error) return;
  // copy_file refuses an existing destination before writing; anything else may have left
  // a partial file, which must not survive.
  if (error != std::errc::file_exists) {
    std::error_code ignored;
    std::filesystem::remove(to, ignored);
  }
  throw std::filesystem::filesystem_error("Couldn't copy " + url_.string(), url_, to, error);
}

}  // namespace quillmere
