#ifndef QUILLMERE_CORE_SOURCES_FILE_IO_H_
#define QUILLMERE_CORE_SOURCES_FILE_IO_H_

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <span>

#include "core/sources/byte_view.h"

namespace quillmere {

// The one place the core talks to POSIX file descriptors. Every read and write here retries
// interrupted and short calls, so callers see only "done", "the file ended" or an exception.
// File-system failures throw std::system_error carrying errno and a message naming the path
// ("Couldn't read /a/b.jpg"); nothing here throws QuillmereError except AtomicFile, whose
// failure to create is the user-facing "Couldn't create PATH.".

// An owned descriptor, closed when destroyed (an error while closing is then ignored; call
// close() to see it). Move-only. The path is kept for messages only.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  // Takes ownership of `fd` (which may be -1 for "none").
  FileDescriptor(int fd, std::filesystem::path path) noexcept : fd_(fd), path_(std::move(path)) {}
  ~FileDescriptor();
  FileDescriptor(FileDescriptor&& other) noexcept;
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  // Opens an existing file read-only. Throws std::system_error ("Couldn't open PATH").
  static FileDescriptor openForReading(const std::filesystem::path& path);
  // Creates a new file write-only; fails if anything exists at `path` (the error's code is then
  // std::errc::file_exists). Links at `path` are not followed.
  static FileDescriptor createExclusive(const std::filesystem::path& path, mode_t mode = 0644);
  // Opens an existing regular file for reading and writing in place; a link at `path` is not
  // followed (it fails with ELOOP). Throws std::system_error ("Couldn't open PATH").
  static FileDescriptor openForUpdate(const std::filesystem::path& path);

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  const std::filesystem::path& path() const { return path_; }

  struct Status {
    bool regular = false;  // a regular file (not a folder, device or pipe)
    std::uint64_t size = 0;
  };
  Status status() const;

  // Reads from the current position until `out` is full or the file ends; returns the count
  // read, which is smaller than out.size() only at the end of the file.
  std::size_t readFully(std::span<std::uint8_t> out) const;
  // Like readFully, at `offset`, without moving the position: safe from several threads at once.
  std::size_t preadFully(std::span<std::uint8_t> out, std::uint64_t offset) const;
  // Writes all of `bytes` at the current position ("Couldn't write PATH" on failure).
  void writeFully(std::span<const std::uint8_t> bytes) const;
  // Cuts or extends the file to `size` bytes ("Couldn't write PATH" on failure).
  void truncate(std::uint64_t size) const;
  // Flushes the file's content and size to the disk (fsync).
  void sync() const;
  // Sets the file's access and modification times, in seconds since 1970-01-01 UTC.
  void setTimes(double accessed, double modified) const;
  // Closes now, reporting a failure (a late write error shows up here).
  void close();

 private:
  [[noreturn]] void fail(const char* verb) const;

  int fd_ = -1;
  std::filesystem::path path_;
};

// A new file that appears at its final path complete or not at all: it is written under a
// hidden temporary name in the same folder and renamed into place by commit(). Destroyed
// without a successful commit(), it closes and removes the temporary file.
class AtomicFile {
 public:
  struct Options {
    // Replace a file already at the path; otherwise commit() refuses to touch it.
    bool replace = false;
    // Flush the content and the folder entry to disk on commit. Off is faster for bulk copies
    // that can be redone; keep it on for records a later run relies on.
    bool durable = true;
    mode_t mode = 0644;
  };

  // Creates the temporary file beside `path`. Throws QuillmereError::cannotCreate(path) when
  // it can't be created (missing folder, no permission) or, without `replace`, when something
  // is already at `path`.
  explicit AtomicFile(std::filesystem::path path) : AtomicFile(std::move(path), Options()) {}
  AtomicFile(std::filesystem::path path, Options options);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // The temporary file, for writing or setting its times before commit().
  const FileDescriptor& file() const { return file_; }
  void write(std::span<const std::uint8_t> bytes) const { file_.writeFully(bytes); }

  // Closes the file and moves it to path(). Throws QuillmereError::cannotCreate(path) when,
  // without `replace`, something appeared at the path meanwhile, std::system_error for other
  // failures; either way the temporary file is gone and nothing is left at path().
  void commit();

 private:
  std::filesystem::path path_;
  std::filesystem::path temporary_;
  Options options_;
  FileDescriptor file_;
};

namespace FileIO {

// How much a stream of file content holds in memory at once.
inline constexpr std::size_t kStreamChunk = 1 << 20;

// The whole content of the file at `path`. Throws std::system_error when it can't be read, or
// with std::errc::file_too_large when it holds more than `maxBytes`.
Bytes readFile(const std::filesystem::path& path, std::uint64_t maxBytes);

// Sets the access and modification times of the file at `path` (seconds since 1970-01-01 UTC,
// fractions kept to the nanosecond). Follows links. Throws std::system_error (EOVERFLOW for a
// time no file system can hold).
void setFileTimes(const std::filesystem::path& path, double accessed, double modified);

// Reads up to `out.size()` bytes at `offset` of a descriptor the caller owns, retrying
// interrupted calls; fewer only at the end of the file. Throws std::system_error with `what`.
std::size_t preadAll(int fd, std::span<std::uint8_t> out, std::uint64_t offset, const char* what);

// Writes all of `bytes` at `offset` of a descriptor the caller owns, retrying interrupted and
// short writes. Throws std::system_error with `what` (ENOSPC also for a write that makes no
// progress).
void pwriteAll(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset, const char* what);

// Copies `count` bytes at `from` of descriptor `source` to `to` of descriptor `target`, both
// the caller's: inside the kernel where the file systems allow it (no trip through this
// process's memory), else through a bounded buffer. Throws std::system_error with `what`, with
// EIO when the source ends early.
void copyRange(int source, std::uint64_t from, int target, std::uint64_t to, std::uint64_t count,
               const char* what);

// Writes `bytes` to `target` under a temporary name beside it, then renames it into place,
// replacing what is there; with `exclusive`, an existing target fails with EEXIST ("File
// exists") and is left alone. Nothing is flushed to disk. Throws
// std::filesystem::filesystem_error with the system's error, after removing the temporary file.
void writeFile(const std::filesystem::path& target, std::span<const std::uint8_t> bytes,
               bool exclusive);

// Moves `source` to `target`, replacing it: a rename, or across file systems a copy under a
// temporary name, a rename and the removal of `source`. Throws
// std::filesystem::filesystem_error.
void moveFile(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace FileIO
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_FILE_IO_H_
