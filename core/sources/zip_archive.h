#ifndef QUILLMERE_CORE_SOURCES_ZIP_ARCHIVE_H_
#define QUILLMERE_CORE_SOURCES_ZIP_ARCHIVE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/sources/byte_view.h"
#include "core/sources/file_io.h"

namespace quillmere {

// One zip part, read in place. Opening reads only the tail of the file and the central
// directory; entries are streamed on demand. Supports stored and DEFLATE entries and ZIP64.
// Never writes. Shared by all entries of the part; every method is safe to call from several
// threads at once (reads are positioned, so they never interleave on the shared descriptor).
class ZipArchive {
 public:
  // One central-directory record.
  struct Entry {
    std::string path;  // full path inside the zip, decoded to UTF-8
    std::uint16_t method = 0;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint64_t localHeaderOffset = 0;

    bool isDirectory() const { return !path.empty() && path.back() == '/'; }
    bool operator==(const Entry&) const = default;
  };

  // Receives one chunk of content, valid only during the call. Returns false to stop early.
  // May throw; the exception leaves extract() unchanged.
  using Sink = std::function<bool(std::span<const std::uint8_t>)>;

  // Opens `url` and reads its central directory.
  // Throws std::system_error when the file can't be opened or read, QuillmereError::notAZip
  // when no end record is found, QuillmereError::corruptZip when the directory is damaged.
  explicit ZipArchive(std::filesystem::path url);
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  const std::filesystem::path& url() const { return url_; }
  // The file name shown in messages: the last component of the zip's path.
  std::string name() const { return url_.filename().string(); }
  const std::vector<Entry>& entries() const { return entries_; }
  // Hands the directory over to the caller, leaving entries() empty. An export's parts hold
  // hundreds of thousands of records; whoever turns them into files keeps only those it needs.
  std::vector<Entry> takeEntries() { return std::exchange(entries_, {}); }
  std::uint64_t fileSize() const { return fileSize_; }

  // Exactly `count` bytes from `offset`. Throws corruptZip when the file ends first.
  Bytes read(std::uint64_t offset, std::size_t count) const;

  // Streams `entry`'s uncompressed content to `sink` in chunks of at most 1 MiB. Returns when
  // the content is complete or `sink` returned false. With `verifyChecksum`, a fully read entry
  // must match its CRC-32 (an early stop skips the check). Content that runs past the entry's
  // uncompressed size, or ends short of it, is damage: the sink never receives a byte past that
  // size, and extraction then fails with corruptZip. Throws corruptZip,
  // unsupportedCompression or checksumMismatch, or whatever `sink` throws; the archive stays
  // usable either way.
  void extract(const Entry& entry, bool verifyChecksum, const Sink& sink) const;

 private:
  void readInto(std::uint64_t offset, std::span<std::uint8_t> out) const;
  void readCentralDirectory();
  bool extractStored(const Entry& entry, std::uint64_t dataStart, std::uint32_t& crc,
                     const Sink& sink) const;
  bool extractDeflated(const Entry& entry, std::uint64_t dataStart, std::uint32_t& crc,
                       const Sink& sink) const;

  std::filesystem::path url_;
  FileDescriptor file_;
  std::uint64_t fileSize_ = 0;
  std::vector<Entry> entries_;
};

// The zip format's CRC-32 of `bytes`, continuing from `crc` (0 to start).
std::uint32_t zipCrc32(std::uint32_t crc, std::span<const std::uint8_t> bytes);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_ZIP_ARCHIVE_H_
