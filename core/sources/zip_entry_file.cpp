#include "core/sources/zip_entry_file.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>

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
    : archive_(std::move(archive)),
      compressedSize_(entry.compressedSize),
      uncompressedSize_(entry.uncompressedSize),
      localHeaderOffset_(entry.localHeaderOffset),
      crc32_(entry.crc32),
      method_(entry.method) {
  // Wrapper folders removed leave a tail of the entry's own path: share its text.
  ownLogicalPath_ = !std::string_view(entry.path).ends_with(logicalPath);
  const std::size_t textLength = entry.path.size() + (ownLogicalPath_ ? logicalPath.size() : 0);
  if (textLength > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("zip entry path over 4 GiB");
  }
  pathLength_ = static_cast<std::uint32_t>(entry.path.size());
  logicalLength_ = static_cast<std::uint32_t>(logicalPath.size());
  text_ = std::make_unique_for_overwrite<char[]>(std::max<std::size_t>(textLength, 1));
  std::copy(entry.path.begin(), entry.path.end(), text_.get());
  if (ownLogicalPath_) std::copy(logicalPath.begin(), logicalPath.end(), text_.get() + pathLength_);
}

ZipArchive::Entry ZipEntryFile::entry() const {
  ZipArchive::Entry entry;
  entry.path = std::string(path());
  entry.method = method_;
  entry.crc32 = crc32_;
  entry.compressedSize = compressedSize_;
  entry.uncompressedSize = uncompressedSize_;
  entry.localHeaderOffset = localHeaderOffset_;
  return entry;
}

std::string_view ZipEntryFile::logicalPath() const {
  const std::size_t end = pathLength_ + (ownLogicalPath_ ? logicalLength_ : 0);
  return std::string_view(text_.get(), end).substr(end - logicalLength_);
}

std::string ZipEntryFile::displayLocation() const {
  return archive_->name() + " \u203A " + std::string(path());
}

std::int64_t ZipEntryFile::size() const {
  return static_cast<std::int64_t>(
      std::min<std::uint64_t>(uncompressedSize_, std::numeric_limits<std::int64_t>::max()));
}

Bytes ZipEntryFile::readAll() const {
  Bytes bytes;
  bytes.reserve(static_cast<std::size_t>(std::min(uncompressedSize_, kMaxReserve)));
  archive_->extract(entry(), true, [&](std::span<const std::uint8_t> chunk) {
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    return true;
  });
  return bytes;
}

Bytes ZipEntryFile::readPrefix(std::size_t count) const {
  Bytes bytes;
  if (count == 0) return bytes;
  bytes.reserve(
      static_cast<std::size_t>(std::min<std::uint64_t>({count, uncompressedSize_, kMaxReserve})));
  archive_->extract(entry(), false, [&](std::span<const std::uint8_t> chunk) {
    const std::size_t take = std::min(chunk.size(), count - bytes.size());
    bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(take));
    return bytes.size() < count;
  });
  return bytes;
}

void ZipEntryFile::stream(const ChunkSink& sink) const {
  archive_->extract(entry(), true, [&](std::span<const std::uint8_t> chunk) {
    sink(chunk);
    return true;
  });
}

void ZipEntryFile::copy(const std::filesystem::path& to) const {
  // Bulk copies are redone by a new run, so they skip the flush to disk.
  AtomicFile file(to, {.durable = false});
  archive_->extract(entry(), true, [&](std::span<const std::uint8_t> chunk) {
    file.write(chunk);
    return true;
  });
  file.commit();
}

}  // namespace quillmere
