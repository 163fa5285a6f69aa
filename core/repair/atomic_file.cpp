#include "core/repair/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <random>
#include <string>
#include <system_error>

namespace quillmere {

namespace {

// Closes the descriptor and removes the temporary file unless the write went through.
class PendingFile {
 public:
  explicit PendingFile(std::filesystem::path path) : path_(std::move(path)) {}
  ~PendingFile() {
    if (fd_ >= 0) ::close(fd_);
    if (!committed_) ::unlink(path_.c_str());
  }
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  // 0666 less the umask, like any other file the user's programs create.
  bool open() {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return fd_ >= 0;
  }
  bool writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }
  bool close() {
    const bool synced = ::fsync(fd_) == 0;
    const bool closed = ::close(fd_) == 0;
    fd_ = -1;
    return synced && closed;
  }
  void commit() { committed_ = true; }

 private:
  std::filesystem::path path_;
  int fd_ = -1;
  bool committed_ = false;
};

[[noreturn]] void fail(const char* what, const std::filesystem::path& target) {
  const int error = errno;
  throw std::filesystem::filesystem_error(what, target,
                                          std::error_code(error, std::system_category()));
}

}  // namespace

std::filesystem::path AtomicFile::temporarySibling(const std::filesystem::path& target) {
  static std::atomic<unsigned> counter{0};
  thread_local std::mt19937 random{std::random_device{}()};
  // A prefix of the name is enough to tell whose file it is, and keeps long names within the
  // file system's limit.
  const std::string name = "." + target.filename().string().substr(0, 120) + ".tmp-" +
                           std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
                           std::to_string(random() % 1000000);
  return target.parent_path() / name;
}

void AtomicFile::write(const std::filesystem::path& target, std::string_view bytes) {
  const std::filesystem::path temporary = temporarySibling(target);
  PendingFile file(temporary);
  if (!file.open()) fail("Couldn't create a file next to", target);
  if (!file.writeAll(bytes)) fail("Couldn't write", target);
  if (!file.close()) fail("Couldn't write", target);
  if (::rename(temporary.c_str(), target.c_str()) != 0) fail("Couldn't save", target);
  file.commit();
}

}  // namespace quillmere
