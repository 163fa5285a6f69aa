#include "tests/support/zip_builder.h"

#include <zlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "core/sources/zip_archive.h"

namespace quillmere::testing {
namespace {

constexpr std::uint32_t kMax32 = 0xFFFFFFFF;

void put16(Bytes& out, std::uint64_t v) {
  for (int i = 0; i < 2; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void put32(Bytes& out, std::uint64_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void put64(Bytes& out, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

struct Written {
  std::uint32_t crc;
  std::uint64_t compressedSize;
  std::uint64_t uncompressedSize;
  std::uint64_t offset;
};

void localHeader(Bytes& out, const ZipEntryDraft& e, const Written& w) {
  put32(out, 0x04034b50);
  put16(out, e.zip64 ? 45 : 20);
  put16(out, e.utf8Flag ? 0x0800 : 0);
  put16(out, e.method);
  put32(out, 0);  // time and date
  put32(out, w.crc);
  put32(out, e.zip64 ? kMax32 : w.compressedSize);
  put32(out, e.zip64 ? kMax32 : w.uncompressedSize);
  put16(out, e.name.size());
  put16(out, e.localExtra.size());
  append(out, e.name);
  append(out, e.localExtra);
}

void centralRecord(Bytes& out, const ZipEntryDraft& e, const Written& w) {
  Bytes extra;
  if (e.zip64) {
    put16(extra, 0x0001);
    put16(extra, 24);
    put64(extra, w.uncompressedSize);
    put64(extra, w.compressedSize);
    put64(extra, w.offset);
  }
  append(extra, e.centralExtra);
  put32(out, 0x02014b50);
  put16(out, 0x031e);  // made by: Unix
  put16(out, e.zip64 ? 45 : 20);
  put16(out, e.utf8Flag ? 0x0800 : 0);
  put16(out, e.method);
  put32(out, 0);
  put32(out, w.crc);
  put32(out, e.zip64 ? kMax32 : w.compressedSize);
  put32(out, e.zip64 ? kMax32 : w.uncompressedSize);
  put16(out, e.name.size());
  put16(out, extra.size());
  put16(out, 0);  // comment
  put16(out, 0);  // disk
  put16(out, 0);  // internal attributes
  put32(out, 0);  // external attributes
  put32(out, e.zip64 ? kMax32 : w.offset);
  append(out, e.name);
  append(out, extra);
}

// `base` is the file position at which `out` starts.
void endRecords(Bytes& out, std::uint64_t base, std::uint64_t count, std::uint64_t dirSize,
                std::uint64_t dirOffset, bool zip64, const Bytes& comment) {
  if (zip64) {
    const std::uint64_t zip64End = base + out.size();
    put32(out, 0x06064b50);
    put64(out, 44);
    put16(out, 45);
    put16(out, 45);
    put32(out, 0);
    put32(out, 0);
    put64(out, count);
    put64(out, count);
    put64(out, dirSize);
    put64(out, dirOffset);
    put32(out, 0x07064b50);
    put32(out, 0);
    put64(out, zip64End);
    put32(out, 1);
  }
  put32(out, 0x06054b50);
  put16(out, 0);
  put16(out, 0);
  put16(out, zip64 ? 0xFFFF : count);
  put16(out, zip64 ? 0xFFFF : count);
  put32(out, zip64 ? kMax32 : dirSize);
  put32(out, zip64 ? kMax32 : dirOffset);
  put16(out, comment.size());
  append(out, comment);
}

}  // namespace

Bytes toBytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes deflateRaw(const Bytes& content, int level) {
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
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
    const Written w{e.crc.value_or(zipCrc32(0, e.content)), data.size(), e.content.size(),
                    out.size()};
    localHeader(out, e, w);
    append(out, data);
    written.push_back(w);
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
  Bytes block(deflateBound(&stream, kBlock) + 64);
  stream.next_in = const_cast<Bytef*>(zeros.data());
  stream.avail_in = kBlock;
  stream.next_out = block.data();
  stream.avail_out = static_cast<uInt>(block.size());
  deflate(&stream, Z_FULL_FLUSH);
  block.resize(block.size() - stream.avail_out);
  Bytes tail(256);
  const std::uint64_t rest = size % kBlock;
  stream.next_in = const_cast<Bytef*>(zeros.data());
  stream.avail_in = static_cast<uInt>(rest);
  stream.next_out = tail.data();
  stream.avail_out = static_cast<uInt>(tail.size());
  deflate(&stream, Z_FINISH);
  tail.resize(tail.size() - stream.avail_out);
  deflateEnd(&stream);

  std::uint32_t crc = 0;
  for (std::uint64_t i = 0; i < size / kBlock; ++i) crc = zipCrc32(crc, zeros);
  crc = zipCrc32(crc, std::span(zeros.data(), rest));

  ZipEntryDraft draft;
  draft.name = toBytes(name);
  draft.zip64 = true;
  const Written w{crc, (size / kBlock) * block.size() + tail.size(), size, 0};
  std::ofstream file(path, std::ios::binary);
  Bytes header;
  localHeader(header, draft, w);
  file.write(reinterpret_cast<const char*>(header.data()), header.size());
  for (std::uint64_t i = 0; i < size / kBlock; ++i) {
    file.write(reinterpret_cast<const char*>(block.data()), block.size());
  }
  file.write(reinterpret_cast<const char*>(tail.data()), tail.size());
  const std::uint64_t dirOffset = header.size() + w.compressedSize;
  Bytes directory;
  centralRecord(directory, draft, w);
  endRecords(directory, dirOffset, 1, directory.size(), dirOffset, true, {});
  file.write(reinterpret_cast<const char*>(directory.data()), directory.size());
  if (!file) throw std::runtime_error("couldn't write " + path.string());
  return crc;
}

void writeFile(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file) throw std::runtime_error("couldn't write " + path.string());
}

Bytes readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("couldn't read " + path.string());
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace quillmere::testing
