#include "core/sources/zip_entry_file.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>

#include "core/sources/file_io.h"
#include "core/sources/quillmere_error.h"

namespace quillmere {
namespace {

// Bounds the up-front reservation; a lying directory must not cost memory before any data
// has been seen.
constexpr std::uint64_t kMaxReserve = 64 << 20;

}  // namespace

ZipEntryFile::ZipEntryFile(std::shared_ptr<const ZipArchive> archive, ZipArchive::Entry entry,
                           std::string_view logicalPath)
    : archive_(std::move(archive)), entry_(std::move(entry)) {
  // Wrapper folders removed leave a tail of the entry's own path: share its text.
  const std::size_t start = entry_.path.size() - logicalPath.size();
  if (entry_.path.ends_with(logicalPath) && start <= std::numeric_limits<std::uint32_t>::max()) {
    logicalStart_ = static_cast<std::uint32_t>(start);
  } else {
    ownLogicalPath_ = std::make_unique<const std::string>(logicalPath);
  }
}

std::string_view ZipEntryFile::logicalPath() const {
  if (ownLogicalPath_) return *ownLogicalPath_;
  return std::string_view(entry_.path).substr(logicalStart_);
}

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
  // Bulk copies are redone by a new run, so they skip the flush to disk.
  AtomicFile file(to, {.durable = false});
  archive_->extract(entry_, true, [&](std::span<const std::uint8_t> chunk) {
    file.write(chunk);
    return true;
  });
  file.commit();
}

}  // namespace quillmere
