#include "core/metadata/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <system_error>

namespace quillmere::AtomicFile {
namespace {

namespace fs = std::filesystem;

constexpr int kNameAttempts = 16;

[[noreturn]] void fail(const char* what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

fs::path temporaryBeside(const fs::path& target) {
  std::random_device random;
  char suffix[17];
  std::snprintf(suffix, sizeof suffix, "%08x%08x", random(), random());
  return target.parent_path() / ("." + target.filename().string() + "." + suffix + ".tmp");
}

// An open descriptor closed on every path out.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  // Closes now, reporting the error a delayed write may only show here.
  int close() {
    const int status = ::close(fd_);
    fd_ = -1;
    return status == 0 ? 0 : errno;
  }

 private:
  int fd_;
};

int writeAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return 0;
}

// Renames `from` to `to` unless `to` exists. Not every file system (FAT on a memory card, some
// network shares) knows the no-replace rename or hard links; there the check and the rename are
// two steps.
int renameExclusively(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
  if (::link(from.c_str(), to.c_str()) == 0) {
    ::unlink(from.c_str());
    return 0;
  }
  if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
  struct stat status;
  if (::lstat(to.c_str(), &status) == 0) return EEXIST;
  return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

void write(const fs::path& target, std::span<const std::uint8_t> bytes, bool exclusive) {
  fs::path temporary;
  int fd = -1;
  for (int attempt = 0; fd < 0 && attempt < kNameAttempts; ++attempt) {
    temporary = temporaryBeside(target);
    fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) fail("cannot create file", target, errno);
  }
  if (fd < 0) fail("cannot create file", target, EEXIST);
  Descriptor descriptor(fd);
  int error = writeAll(descriptor.get(), bytes);
  const int closeError = descriptor.close();
  if (error == 0) error = closeError;
  if (error == 0) {
    error = exclusive ? renameExclusively(temporary, target)
                      : (::rename(temporary.c_str(), target.c_str()) == 0 ? 0 : errno);
  }
  if (error != 0) {
    ::unlink(temporary.c_str());
    fail("cannot write file", target, error);
  }
}

void move(const fs::path& source, const fs::path& target) {
  std::error_code error;
  fs::rename(source, target, error);
  if (!error) return;
  if (error.value() != EXDEV) throw fs::filesystem_error("cannot move file", source, target, error);
  const fs::path temporary = temporaryBeside(target);
  try {
    fs::copy_file(source, temporary);
    fs::rename(temporary, target);
  } catch (const fs::filesystem_error&) {
    fs::remove(temporary, error);
    throw;
  }
  fs::remove(source);
}

void setTimes(const fs::path& file, double utc) {
  // Beyond what a 64-bit time_t holds in nanoseconds' company, and not a number at all.
  if (!std::isfinite(utc) || std::fabs(utc) > 9e15) fail("cannot set file times", file, EOVERFLOW);
  const double seconds = std::floor(utc);
  const long nanoseconds = std::min(999'999'999L, std::lround((utc - seconds) * 1e9));
  const struct timespec times[2] = {{static_cast<time_t>(seconds), nanoseconds},
                                    {static_cast<time_t>(seconds), nanoseconds}};
  if (::utimensat(AT_FDCWD, file.c_str(), times, 0) != 0) {
    fail("cannot set file times", file, errno);
  }
}

}  // namespace quillmere::AtomicFile
