#include "tests/support/zip_builder.h"

#include <zlib.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>

#include "core/sources/zip_archive.h"

namespace quillmere::testing {
namespace {

constexpr std::uint32_t kMax32 = 0xFFFFFFFF;

// Little-endian fields of `width` bytes each, as zip records store them.
void put(Bytes& out, int width, std::initializer_list<std::uint64_t> values) {
  for (const std::uint64_t value : values) {
    for (int i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}
void put16(Bytes& out, std::initializer_list<std::uint64_t> values) { put(out, 2, values); }
void put32(Bytes& out, std::initializer_list<std::uint64_t> values) { put(out, 4, values); }
void put64(Bytes& out, std::initializer_list<std::uint64_t> values) { put(out, 8, values); }
void append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

struct Written {
  std::uint32_t crc;
  std::uint64_t compressedSize;
  std::uint64_t uncompressedSize;
  std::uint64_t offset;
};

// Version needed, flags, method, time and date, CRC, sizes and name length: the fields both
// headers share.
void commonFields(Bytes& out, const ZipEntryDraft& e, const Written& w) {
  put16(out, {e.zip64 ? 45u : 20u, e.utf8Flag ? 0x0800u : 0u, e.method});
  put32(out,
        {0, w.crc, e.zip64 ? kMax32 : w.compressedSize, e.zip64 ? kMax32 : w.uncompressedSize});
  put16(out, {e.name.size()});
}

void localHeader(Bytes& out, const ZipEntryDraft& e, const Written& w) {
  put32(out, {0x04034b50});
  commonFields(out, e, w);
  put16(out, {e.localExtra.size()});
  append(out, e.name);
  append(out, e.localExtra);
}

void centralRecord(Bytes& out, const ZipEntryDraft& e, const Written& w) {
  Bytes extra;
  if (e.zip64) {
    put16(extra, {0x0001, 24});
    put64(extra, {w.uncompressedSize, w.compressedSize, w.offset});
  }
  put32(out, {0x02014b50});
  put16(out, {0x031e});  // made by Unix
  commonFields(out, e, w);
  put16(out, {extra.size(), 0, 0, 0});  // no comment, disk 0, no internal attributes
  put32(out, {0, e.zip64 ? kMax32 : w.offset});
  append(out, e.name);
  append(out, extra);
}

// `base` is the file position at which `out` starts.
void endRecords(Bytes& out, std::uint64_t base, std::uint64_t count, std::uint64_t dirSize,
                std::uint64_t dirOffset, bool zip64, const Bytes& comment) {
  if (zip64) {
    const std::uint64_t zip64End = base + out.size();
    put32(out, {0x06064b50});
    put64(out, {44});
    put16(out, {45, 45});
    put32(out, {0, 0});
    put64(out, {count, count, dirSize, dirOffset});
    put32(out, {0x07064b50, 0});
    put64(out, {zip64End});
    put32(out, {1});
  }
  put32(out, {0x06054b50});
  put16(out, {0, 0, zip64 ? 0xFFFF : count, zip64 ? 0xFFFF : count});
  put32(out, {zip64 ? kMax32 : dirSize, zip64 ? kMax32 : dirOffset});
  put16(out, {comment.size()});
  append(out, comment);
}

// Raw DEFLATE (no zlib header), as zip entries store it.
Bytes deflateRaw(const Bytes& content) {
  z_stream stream{};
  if (deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  Bytes out(deflateBound(&stream, content.size()));
  stream.next_in = const_cast<Bytef*>(content.data());
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (status != Z_STREAM_END) throw std::runtime_error("deflate failed");
  return out;
}

void write(std::ofstream& file, const Bytes& bytes) {
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

Bytes toBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

ZipBuilder& ZipBuilder::add(std::string_view name, std::string_view content, std::uint16_t method) {
  ZipEntryDraft draft;
  draft.name = toBytes(name);
  draft.content = toBytes(content);
  draft.method = method;
  return add(std::move(draft));
}

ZipBuilder& ZipBuilder::add(ZipEntryDraft draft) {
  entries_.push_back(std::move(draft));
  return *this;
}

ZipBuilder& ZipBuilder::comment(Bytes comment) {
  comment_ = std::move(comment);
  return *this;
}

ZipBuilder& ZipBuilder::zip64Directory() {
  zip64Directory_ = true;
  return *this;
}

Bytes ZipBuilder::build() const {
  Bytes out;
  std::vector<Written> written;
  for (const ZipEntryDraft& e : entries_) {
    const Bytes data = e.method == 8 ? deflateRaw(e.content) : e.content;
    written.push_back(
        {e.crc.value_or(zipCrc32(0, e.content)), data.size(), e.content.size(), out.size()});
    localHeader(out, e, written.back());
    append(out, data);
  }
  const std::uint64_t dirOffset = out.size();
  for (std::size_t i = 0; i < entries_.size(); ++i) centralRecord(out, entries_[i], written[i]);
  const bool zip64 = zip64Directory_ || entries_.size() >= 0xFFFF;
  endRecords(out, 0, entries_.size(), out.size() - dirOffset, dirOffset, zip64, comment_);
  return out;
}

void ZipBuilder::write(const std::filesystem::path& path) const { writeFile(path, build()); }

std::uint32_t writeZeroEntryZip(const std::filesystem::path& path, std::string_view name,
                                std::uint64_t size) {
  constexpr std::size_t kBlock = 1 << 20;
  const Bytes zeros(kBlock, 0);
  // A full flush resets the compressor, so every block of zeros compresses to the same bytes.
  z_stream stream{};
  deflateInit2(&stream, 1, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  auto compress = [&](std::size_t count, int flush) {
    Bytes out(deflateBound(&stream, count) + 64);
    stream.next_in = const_cast<Bytef*>(zeros.data());
    stream.avail_in = static_cast<uInt>(count);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, flush);
    out.resize(out.size() - stream.avail_out);
    return out;
  };
  const std::uint64_t blocks = size / kBlock;
  const Bytes block = compress(kBlock, Z_FULL_FLUSH);
  const Bytes tail = compress(size % kBlock, Z_FINISH);
  deflateEnd(&stream);
  std::uint32_t crc = 0;
  for (std::uint64_t i = 0; i < blocks; ++i) crc = zipCrc32(crc, zeros);
  crc = zipCrc32(crc, std::span(zeros.data(), size % kBlock));

  ZipEntryDraft draft;
  draft.name = toBytes(name);
  draft.zip64 = true;
  const Written w{crc, blocks * block.size() + tail.size(), size, 0};
  Bytes header;
  localHeader(header, draft, w);
  Bytes directory;
  centralRecord(directory, draft, w);
  const std::uint64_t dirOffset = header.size() + w.compressedSize;
  endRecords(directory, dirOffset, 1, directory.size(), dirOffset, true, {});
  std::ofstream file(path, std::ios::binary);
  write(file, header);
  for (std::uint64_t i = 0; i < blocks; ++i) write(file, block);
  write(file, tail);
  write(file, directory);
  if (!file) throw std::runtime_error("couldn't write " + path.string());
  return crc;
}

void writeFile(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  write(file, bytes);
  if (!file) throw std::runtime_error("couldn't write " + path.string());
}

Bytes readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("couldn't read " + path.string());
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace quillmere::testing
