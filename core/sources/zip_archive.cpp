#include "core/sources/zip_archive.h"

#include <zlib.h>

#include <algorithm>
#include <memory>

#include "core/sources/file_io.h"
#include "core/sources/quillmere_error.h"
#include "core/sources/unicode_text.h"

namespace quillmere {
namespace {

constexpr std::uint32_t kEndRecordSignature = 0x06054b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::uint32_t kZip64EndRecordSignature = 0x06064b50;
constexpr std::uint32_t kCentralRecordSignature = 0x02014b50;
constexpr std::uint32_t kLocalHeaderSignature = 0x04034b50;
constexpr std::uint64_t kEndRecordSize = 22;
constexpr std::uint64_t kMaxTail = kEndRecordSize + 65535;  // end record + longest comment
constexpr std::uint64_t kCentralRecordSize = 46;
constexpr std::uint64_t kLocalHeaderSize = 30;
constexpr std::uint32_t kMax32 = 0xFFFFFFFF;
constexpr std::size_t kMinOutput = 64 << 10;

// A scratch buffer that is not zeroed first: most entries are small, and clearing a whole
// mebibyte for each of them would cost more than reading them.
struct Scratch {
  explicit Scratch(std::size_t size)
      : data(std::make_unique_for_overwrite<std::uint8_t[]>(size)), size(size) {}
  std::unique_ptr<std::uint8_t[]> data;
  std::size_t size;
};

struct DirectoryLocation {
  std::uint64_t count = 0;
  std::uint64_t size = 0;
  std::uint64_t offset = 0;
};

// Owns a raw-DEFLATE decoder for the length of one extraction.
class InflateStream {
 public:
  InflateStream() { ok_ = inflateInit2(&stream_, -MAX_WBITS) == Z_OK; }
  ~InflateStream() {
    if (ok_) inflateEnd(&stream_);
  }
  InflateStream(const InflateStream&) = delete;
  InflateStream& operator=(const InflateStream&) = delete;
  bool ok() const { return ok_; }
  z_stream* get() { return &stream_; }

 private:
  z_stream stream_{};
  bool ok_ = false;
};

std::string decodeName(std::span<const std::uint8_t> bytes, std::uint16_t flags) {
  if (flags & 0x0800) return UnicodeText::repairUTF8(bytes);
  if (UnicodeText::isValidUTF8(bytes)) return {bytes.begin(), bytes.end()};
  return UnicodeText::fromLatin1(bytes);  // never code page 437
}

// Fills in the ZIP64 values of the extra field for whichever 32-bit fields were saturated.
void applyZip64Extra(const ByteView& extra, ZipArchive::Entry& entry, bool wideUncompressed,
                     bool wideCompressed, bool wideOffset) {
  std::uint64_t pos = 0;
  while (extra.contains(pos, 4)) {
    const std::uint16_t id = extra.u16le(pos);
    const std::uint16_t length = extra.u16le(pos + 2);
    pos += 4;
    if (!extra.contains(pos, length)) return;
    if (id == 0x0001) {
      const ByteView block(extra.sub(pos, length));
      std::uint64_t at = 0;
      auto next = [&](std::uint64_t& field) {
        if (!block.contains(at, 8)) return;
        field = block.u64le(at);
        at += 8;
      };
      if (wideUncompressed) next(entry.uncompressedSize);
      if (wideCompressed) next(entry.compressedSize);
      if (wideOffset) next(entry.localHeaderOffset);
    }
    pos += length;
  }
}

}  // namespace

std::uint32_t zipCrc32(std::uint32_t crc, std::span<const std::uint8_t> bytes) {
  return static_cast<std::uint32_t>(crc32_z(crc, bytes.data(), bytes.size()));
}

ZipArchive::ZipArchive(std::filesystem::path url)
    : url_(std::move(url)), file_(FileDescriptor::openForReading(url_)) {
  fileSize_ = file_.status().size;
  readCentralDirectory();
}

void ZipArchive::readInto(std::uint64_t offset, std::span<std::uint8_t> out) const {
  // Fewer bytes than asked: the file ended first.
  if (file_.preadFully(out, offset) < out.size()) throw QuillmereError::corruptZip(name());
}

Bytes ZipArchive::read(std::uint64_t offset, std::size_t count) const {
  if (offset > fileSize_ || count > fileSize_ - offset) throw QuillmereError::corruptZip(name());
  Bytes bytes(count);
  readInto(offset, bytes);
  return bytes;
}

void ZipArchive::readCentralDirectory() {
  if (fileSize_ < kEndRecordSize) throw QuillmereError::notAZip(name());
  const std::uint64_t tailSize = std::min(fileSize_, kMaxTail);
  const std::uint64_t tailStart = fileSize_ - tailSize;
  const Bytes tailBytes = read(tailStart, tailSize);
  const ByteView tail(tailBytes);

  // The last end record wins: a comment could itself contain the signature.
  std::uint64_t end = tailSize - kEndRecordSize + 1;
  bool found = false;
  while (end-- > 0) {
    if (tail.u32le(end) == kEndRecordSignature) {
      found = true;
      break;
    }
  }
  if (!found) throw QuillmereError::notAZip(name());

  DirectoryLocation dir{tail.u16le(end + 10), tail.u32le(end + 12), tail.u32le(end + 16)};
  if (dir.count == 0xFFFF || dir.size == kMax32 || dir.offset == kMax32) {
    if (end < 20 || tail.u32le(end - 20) != kZip64LocatorSignature) {
      throw QuillmereError::corruptZip(name());
    }
    const Bytes recordBytes = read(tail.u64le(end - 20 + 8), 56);
    const ByteView record(recordBytes);
    if (record.u32le(0) != kZip64EndRecordSignature) throw QuillmereError::corruptZip(name());
    dir = {record.u64le(32), record.u64le(40), record.u64le(48)};
  }
  if (dir.offset > fileSize_ || dir.size > fileSize_ - dir.offset) {
    throw QuillmereError::corruptZip(name());
  }

  const Bytes directoryBytes = read(dir.offset, dir.size);
  const ByteView directory(directoryBytes);
  entries_.reserve(std::min<std::uint64_t>(dir.count, 1'000'000));
  std::uint64_t pos = 0;
  for (std::uint64_t i = 0; i < dir.count; ++i) {
    if (!directory.contains(pos, kCentralRecordSize) ||
        directory.u32le(pos) != kCentralRecordSignature) {
      throw QuillmereError::corruptZip(name());
    }
    const std::uint16_t flags = directory.u16le(pos + 8);
    const std::uint64_t nameLength = directory.u16le(pos + 28);
    const std::uint64_t extraLength = directory.u16le(pos + 30);
    const std::uint64_t commentLength = directory.u16le(pos + 32);
    const std::uint64_t recordSize = kCentralRecordSize + nameLength + extraLength + commentLength;
    if (!directory.contains(pos, recordSize)) throw QuillmereError::corruptZip(name());

    Entry entry;
    entry.method = directory.u16le(pos + 10);
    entry.crc32 = directory.u32le(pos + 16);
    entry.compressedSize = directory.u32le(pos + 20);
    entry.uncompressedSize = directory.u32le(pos + 24);
    entry.localHeaderOffset = directory.u32le(pos + 42);
    entry.path = decodeName(directory.sub(pos + kCentralRecordSize, nameLength), flags);
    applyZip64Extra(ByteView(directory.sub(pos + kCentralRecordSize + nameLength, extraLength)),
                    entry, entry.uncompressedSize == kMax32, entry.compressedSize == kMax32,
                    entry.localHeaderOffset == kMax32);
    entries_.push_back(std::move(entry));
    pos += recordSize;
  }
}

void ZipArchive::extract(const Entry& entry, bool verifyChecksum, const Sink& sink) const {
  const Bytes headerBytes = read(entry.localHeaderOffset, kLocalHeaderSize);
  const ByteView header(headerBytes);
  if (header.u32le(0) != kLocalHeaderSignature) throw QuillmereError::corruptZip(name());
  // The local header's own lengths place the data; its sizes and CRC are not trusted.
  const std::uint64_t dataStart =
      entry.localHeaderOffset + kLocalHeaderSize + header.u16le(26) + header.u16le(28);
  if (dataStart > fileSize_ || entry.compressedSize > fileSize_ - dataStart) {
    throw QuillmereError::corruptZip(name());
  }

  // Content beyond the declared size is damage, or a zip bomb: none of it reaches the sink,
  // so a copy never grows past what the directory promised.
  std::uint64_t produced = 0;
  const Sink bounded = [&](std::span<const std::uint8_t> chunk) {
    const std::uint64_t room = entry.uncompressedSize - produced;
    if (chunk.size() > room) {
      if (room > 0 && !sink(chunk.first(static_cast<std::size_t>(room)))) return false;
      throw QuillmereError::corruptZip(name());
    }
    produced += chunk.size();
    return sink(chunk);
  };
  std::uint32_t crc = 0;
  bool complete;
  switch (entry.method) {
    case 0:
      complete = extractStored(entry, dataStart, crc, bounded);
      break;
    case 8:
      complete = extractDeflated(entry, dataStart, crc, bounded);
      break;
    default:
      throw QuillmereError::unsupportedCompression(entry.path, entry.method);
  }
  if (complete && produced != entry.uncompressedSize) throw QuillmereError::corruptZip(name());
  if (verifyChecksum && complete && crc != entry.crc32) {
    throw QuillmereError::checksumMismatch(entry.path);
  }
}

bool ZipArchive::extractStored(const Entry& entry, std::uint64_t dataStart, std::uint32_t& crc,
                               const Sink& sink) const {
  Bytes buffer(static_cast<std::size_t>(
      std::min<std::uint64_t>(entry.compressedSize, FileIO::kStreamChunk)));
  std::uint64_t remaining = entry.compressedSize;
  std::uint64_t offset = dataStart;
  while (remaining > 0) {
    const std::span<std::uint8_t> chunk(
        buffer.data(),
        static_cast<std::size_t>(std::min<std::uint64_t>(remaining, FileIO::kStreamChunk)));
    readInto(offset, chunk);
    offset += chunk.size();
    remaining -= chunk.size();
    crc = zipCrc32(crc, chunk);
    if (!sink(chunk)) return false;
  }
  return true;
}

bool ZipArchive::extractDeflated(const Entry& entry, std::uint64_t dataStart, std::uint32_t& crc,
                                 const Sink& sink) const {
  InflateStream inflater;
  if (!inflater.ok()) throw QuillmereError::corruptZip(name());
  z_stream* stream = inflater.get();
  const Scratch input(static_cast<std::size_t>(
      std::min<std::uint64_t>(entry.compressedSize, FileIO::kStreamChunk)));
  // Sized to the entry when it is small; the directory's size is only a hint here, a longer
  // stream simply takes more rounds.
  const Scratch output(static_cast<std::size_t>(
      std::clamp<std::uint64_t>(entry.uncompressedSize, kMinOutput, FileIO::kStreamChunk)));
  std::uint64_t remaining = entry.compressedSize;
  std::uint64_t offset = dataStart;
  for (;;) {
    if (stream->avail_in == 0) {
      if (remaining == 0) throw QuillmereError::corruptZip(name());  // stream cut short
      const std::size_t n =
          static_cast<std::size_t>(std::min<std::uint64_t>(remaining, FileIO::kStreamChunk));
      readInto(offset, std::span(input.data.get(), n));
      offset += n;
      remaining -= n;
      stream->next_in = input.data.get();
      stream->avail_in = static_cast<uInt>(n);
    }
    stream->next_out = output.data.get();
    stream->avail_out = static_cast<uInt>(output.size);
    const int status = inflate(stream, Z_NO_FLUSH);
    const std::size_t produced = output.size - stream->avail_out;
    if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR) {
      throw QuillmereError::corruptZip(name());
    }
    if (produced > 0) {
      const std::span<const std::uint8_t> chunk(output.data.get(), produced);
      crc = zipCrc32(crc, chunk);
      if (!sink(chunk)) return false;
    }
    if (status == Z_STREAM_END) return true;
    // Z_BUF_ERROR with input left means the decoder is stuck: the data is damaged.
    if (status == Z_BUF_ERROR && stream->avail_in > 0) throw QuillmereError::corruptZip(name());
  }
}

}  // namespace quillmere
