#include "core/sources/folder_file.h"

#include <algorithm>

#include "core/sources/file_io.h"

namespace quillmere {
namespace {

constexpr std::int64_t kMaxReserve = 64 << 20;

}  // namespace

Bytes FolderFile::readAll() const {
  Bytes bytes;
  // The listed size is only a hint: the file may have changed since it was listed.
  bytes.reserve(static_cast<std::size_t>(std::clamp<std::int64_t>(size_, 0, kMaxReserve)));
  stream([&](std::span<const std::uint8_t> chunk) {
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  });
  return bytes;
}

Bytes FolderFile::readPrefix(std::size_t count) const {
  const FileDescriptor file = FileDescriptor::openForReading(url_);
  Bytes bytes;
  // Sized to the file, not to `count`: scans ask for a mebibyte of files far smaller. One byte
  // more than the listed size ends the loop at once unless the file has grown since.
  std::size_t step =
      std::min(count, static_cast<std::size_t>(std::max<std::int64_t>(size_, 0)) + 1);
  while (bytes.size() < count) {
    const std::size_t before = bytes.size();
    const std::size_t want = std::min(step, count - before);
    bytes.resize(before + want);
    const std::size_t got = file.readFully(std::span(bytes).subspan(before));
    bytes.resize(before + got);
    if (got < want) break;
    step = FileIO::kStreamChunk;
  }
  return bytes;
}

void FolderFile::stream(const ChunkSink& sink) const {
  const FileDescriptor file = FileDescriptor::openForReading(url_);
  Bytes buffer(FileIO::kStreamChunk);
  for (;;) {
    const std::size_t n = file.readFully(buffer);
    if (n > 0) sink(std::span<const std::uint8_t>(buffer.data(), n));
    if (n < buffer.size()) return;
  }
}

void FolderFile::copy(const std::filesystem::path& to) const {
  // Bulk copies are redone by a new run, so they skip the flush to disk.
  AtomicFile file(to, {.durable = false});
  stream([&](std::span<const std::uint8_t> chunk) { file.write(chunk); });
  file.commit();
}

}  // namespace quillmere
