#include "core/sources/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

#include "core/sources/quillmere_error.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

// Whole seconds and nanoseconds of a time in seconds since 1970; fractions round down, so a
// time before 1970 keeps its nanoseconds positive as utimensat wants them.
timespec toTimespec(double seconds) {
  if (!std::isfinite(seconds)) return {0, UTIME_OMIT};
  // Far beyond what any file system stores, and beyond what time_t converts without overflow.
  if (std::fabs(seconds) > 9e15) {
    throw std::system_error(EOVERFLOW, std::generic_category(), "Couldn't set file times");
  }
  const double whole = std::floor(seconds);
  long nanos = std::lround((seconds - whole) * 1e9);
  time_t secs = static_cast<time_t>(whole);
  if (nanos >= 1'000'000'000) {
    nanos -= 1'000'000'000;
    ++secs;
  }
  return {secs, nanos};
}

// A name no other writer picks: hidden, beside the final file, unique per process and call.
fs::path temporaryBeside(const fs::path& path, unsigned attempt) {
  static std::atomic<unsigned> counter{0};
  const std::string tag =
      std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" + std::to_string(attempt);
  return path.parent_path() / ("." + path.filename().string() + ".quillmere-" + tag);
}

// Flushes a folder's entries (a rename into it) to disk. Best effort: some file systems refuse
// to open or sync folders, and the content itself is already safe by then.
void syncFolder(const fs::path& folder) {
  const int fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

// Moves `from` to `to` unless something is at `to`; EEXIST then. File systems without an
// atomic no-replace rename (some network and FAT file systems) fall back to a hard link, and
// failing that to a check before an ordinary rename.
int renameNoReplace(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
  if (::link(from.c_str(), to.c_str()) == 0) {
    ::unlink(from.c_str());
    return 0;
  }
  if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
  struct stat existing {};
  if (::lstat(to.c_str(), &existing) == 0) return EEXIST;
  return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) ::close(fd_);
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), path_(std::move(other.path_)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = std::exchange(other.fd_, -1);
    path_ = std::move(other.path_);
  }
  return *this;
}

FileDescriptor FileDescriptor::openForReading(const fs::path& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC), path);
  if (!file) file.fail("open");
  return file;
}

FileDescriptor FileDescriptor::createExclusive(const fs::path& path, mode_t mode) {
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode), path);
  if (!file) file.fail("create");
  return file;
}

FileDescriptor FileDescriptor::openForUpdate(const fs::path& path) {
  FileDescriptor file(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC), path);
  if (!file) file.fail("open");
  return file;
}

void FileDescriptor::fail(const char* verb) const {
  throw std::system_error(errno, std::generic_category(),
                          std::string("Couldn't ") + verb + " " + path_.string());
}

FileDescriptor::Status FileDescriptor::status() const {
  struct stat info {};
  if (::fstat(fd_, &info) != 0) fail("read");
  return {S_ISREG(info.st_mode), static_cast<std::uint64_t>(std::max<off_t>(info.st_size, 0))};
}

std::size_t FileDescriptor::readFully(std::span<std::uint8_t> out) const {
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t n = ::read(fd_, out.data() + done, out.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("read");
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

std::size_t FileDescriptor::preadFully(std::span<std::uint8_t> out, std::uint64_t offset) const {
  return FileIO::preadAll(fd_, out, offset, ("Couldn't read " + path_.string()).c_str());
}

void FileDescriptor::writeFully(std::span<const std::uint8_t> bytes) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("write");
    done += static_cast<std::size_t>(n);
  }
}

void FileDescriptor::truncate(std::uint64_t size) const {
  if (size > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
    errno = EFBIG;
    fail("write");
  }
  while (::ftruncate(fd_, static_cast<off_t>(size)) != 0) {
    if (errno != EINTR) fail("write");
  }
}

void FileDescriptor::sync() const {
  if (::fsync(fd_) != 0) fail("write");
}

void FileDescriptor::setTimes(double accessed, double modified) const {
  const timespec times[2] = {toTimespec(accessed), toTimespec(modified)};
  if (::futimens(fd_, times) != 0) fail("set the times of");
}

void FileDescriptor::close() {
  const int fd = std::exchange(fd_, -1);
  // Linux releases the descriptor even when close fails, so it is never retried.
  if (fd >= 0 && ::close(fd) != 0) fail("write");
}

AtomicFile::AtomicFile(fs::path path, Options options) : path_(std::move(path)), options_(options) {
  std::error_code error;
  if (!options_.replace && fs::exists(fs::symlink_status(path_, error))) {
    throw QuillmereError::cannotCreate(path_.string());
  }
  for (unsigned attempt = 0; attempt < 100; ++attempt) {
    temporary_ = temporaryBeside(path_, attempt);
    const int fd =
        ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, options_.mode);
    if (fd >= 0) {
      file_ = FileDescriptor(fd, path_);
      return;
    }
    if (errno != EEXIST) break;
  }
  throw QuillmereError::cannotCreate(path_.string());
}

AtomicFile::~AtomicFile() {
  if (temporary_.empty()) return;
  file_ = FileDescriptor();
  ::unlink(temporary_.c_str());
}

void AtomicFile::commit() {
  if (options_.durable) file_.sync();
  file_.close();
  const int error = options_.replace
                        ? (::rename(temporary_.c_str(), path_.c_str()) == 0 ? 0 : errno)
                        : renameNoReplace(temporary_, path_);
  if (error == EEXIST) throw QuillmereError::cannotCreate(path_.string());
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), "Couldn't write " + path_.string());
  }
  temporary_.clear();
  if (options_.durable) syncFolder(path_.parent_path());
}

namespace FileIO {

Bytes readFile(const fs::path& path, std::uint64_t maxBytes) {
  const FileDescriptor file = FileDescriptor::openForReading(path);
  const auto tooLarge = [&] {
    throw std::system_error(std::make_error_code(std::errc::file_too_large),
                            "Couldn't read " + path.string());
  };
  const std::uint64_t size = file.status().size;
  if (size > maxBytes) tooLarge();
  Bytes bytes(static_cast<std::size_t>(size));
  const std::size_t held = file.readFully(bytes);
  if (held < bytes.size()) {  // it shrank since
    bytes.resize(held);
    return bytes;
  }
  // It may have grown since: read on in steps, still within maxBytes.
  Bytes more(1 << 16);
  for (;;) {
    const std::size_t n = file.readFully(more);
    if (n == 0) return bytes;
    if (n > maxBytes - bytes.size()) tooLarge();
    bytes.insert(bytes.end(), more.begin(), more.begin() + static_cast<std::ptrdiff_t>(n));
  }
}

void setFileTimes(const fs::path& path, double accessed, double modified) {
  const timespec times[2] = {toTimespec(accessed), toTimespec(modified)};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            "Couldn't set the times of " + path.string());
  }
}

std::size_t preadAll(int fd, std::span<std::uint8_t> out, std::uint64_t offset, const char* what) {
  constexpr auto kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  std::size_t done = 0;
  while (done < out.size()) {
    // Past the largest offset the system can address, the file has certainly ended.
    if (offset > kMaxOffset || done > kMaxOffset - offset) break;
    const ssize_t n =
        ::pread(fd, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw std::system_error(errno, std::generic_category(), what);
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

void pwriteAll(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset,
               const char* what) {
  constexpr auto kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  std::size_t done = 0;
  while (done < bytes.size()) {
    if (offset > kMaxOffset || done > kMaxOffset - offset) {
      throw std::system_error(EFBIG, std::generic_category(), what);
    }
    const ssize_t n =
        ::pwrite(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw std::system_error(errno, std::generic_category(), what);
    if (n == 0) throw std::system_error(ENOSPC, std::generic_category(), what);
    done += static_cast<std::size_t>(n);
  }
}

void copyRange(int source, std::uint64_t from, int target, std::uint64_t to, std::uint64_t count,
               const char* what) {
  constexpr auto kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  if (from > kMaxOffset || to > kMaxOffset || count > kMaxOffset - std::max(from, to)) {
    throw std::system_error(EFBIG, std::generic_category(), what);
  }
  while (count > 0) {
    auto in = static_cast<off_t>(from);
    auto out = static_cast<off_t>(to);
    const ssize_t copied = ::copy_file_range(source, &in, target, &out, count, 0);
    if (copied < 0 && errno == EINTR) continue;
    if (copied < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL ||
                       errno == EOPNOTSUPP || errno == EBADF)) {
      break;  // not between these files: copy by hand
    }
    if (copied < 0) throw std::system_error(errno, std::generic_category(), what);
    if (copied == 0) throw std::system_error(EIO, std::generic_category(), what);
    from += static_cast<std::uint64_t>(copied);
    to += static_cast<std::uint64_t>(copied);
    count -= static_cast<std::uint64_t>(copied);
  }
  constexpr std::uint64_t kBufferSize = 1 << 20;
  Bytes buffer(static_cast<std::size_t>(std::min(count, kBufferSize)));
  while (count > 0) {
    const std::span<std::uint8_t> chunk(buffer.data(),
                                        static_cast<std::size_t>(std::min(count, kBufferSize)));
    if (preadAll(source, chunk, from, what) < chunk.size()) {
      throw std::system_error(EIO, std::generic_category(), what);
    }
    pwriteAll(target, chunk, to, what);
    from += chunk.size();
    to += chunk.size();
    count -= chunk.size();
  }
}

[[noreturn]] void failWith(const char* what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

void writeFile(const fs::path& target, std::span<const std::uint8_t> bytes, bool exclusive) {
  fs::path temporary;
  FileDescriptor file;
  for (unsigned attempt = 0; !file && attempt < 100; ++attempt) {
    temporary = temporaryBeside(target, attempt);
    file = FileDescriptor(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666),
                          target);
    if (!file && errno != EEXIST) failWith("cannot create file", target, errno);
  }
  if (!file) failWith("cannot create file", target, EEXIST);
  int error = 0;
  try {
    file.writeFully(bytes);
    file.close();
  } catch (const std::system_error& failure) {
    error = failure.code().value();
  }
  if (error == 0) {
    error = exclusive ? renameNoReplace(temporary, target)
                      : (::rename(temporary.c_str(), target.c_str()) == 0 ? 0 : errno);
  }
  if (error != 0) {
    ::unlink(temporary.c_str());
    failWith("cannot write file", target, error);
  }
}

void moveFile(const fs::path& source, const fs::path& target) {
  std::error_code error;
  fs::rename(source, target, error);
  if (!error) return;
  if (error.value() != EXDEV) throw fs::filesystem_error("cannot move file", source, target, error);
  const fs::path temporary = temporaryBeside(target, 0);
  try {
    fs::copy_file(source, temporary);
    fs::rename(temporary, target);
  } catch (const fs::filesystem_error&) {
    fs::remove(temporary, error);
    throw;
  }
  fs::remove(source);
}

}  // namespace FileIO
}  // namespace quillmere
