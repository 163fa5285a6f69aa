#include "core/sources/zip_archive.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "core/sources/quillmere_error.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

// Drafts name only the fields a case varies.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace quillmere {
namespace {

using testing::TempDir;
using testing::toBytes;
using testing::ZipBuilder;

const std::string kNotAZip = "x.zip isn't a zip file.";
const std::string kCorrupt = "x.zip looks damaged or incomplete. Try downloading that part again.";
const std::string kChecksum =
    " failed its checksum. The zip may be damaged; try downloading it again.";

Bytes randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
  return bytes;
}

// Text that compresses like real metadata: repetitive but not constant.
Bytes textBytes(std::size_t size) {
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) text += std::to_string(i * 7919 % 100003) + ",";
  return toBytes(text.substr(0, size));
}

Bytes extractAll(const ZipArchive& zip, const ZipArchive::Entry& entry, bool verify = true) {
  Bytes out;
  zip.extract(entry, verify, [&](std::span<const std::uint8_t> chunk) {
    out.insert(out.end(), chunk.begin(), chunk.end());
    return true;
  });
  return out;
}

// The message of the QuillmereError `action` throws; empty when it throws none.
std::string failure(const std::function<void()>& action) {
  try {
    action();
  } catch (const QuillmereError& error) {
    return error.what();
  }
  return "";
}

// Writes `bytes` as x.zip and opens it; the message opening fails with, if any.
std::string openFailure(const TempDir& dir, const Bytes& bytes) {
  testing::writeFile(dir / "x.zip", bytes);
  return failure([&] { ZipArchive zip(dir / "x.zip"); });
}

std::uint64_t findLast(const Bytes& bytes, std::uint32_t signature) {
  for (std::size_t i = bytes.size() - 4; i-- > 0;) {
    if (ByteView(bytes).u32le(i) == signature) return i;
  }
  return 0;
}

void put32(Bytes& bytes, std::uint64_t at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

TEST(ZipArchiveTest, RoundTripsEntriesOfEverySizeAndName) {
  TempDir dir;
  // Sizes around the 1 MiB chunk boundary catch off-by-one errors in the streaming loops.
  const std::size_t sizes[] = {0, 1, 1000, (1 << 20) - 1, 1 << 20, (1 << 20) + 1, 3 << 20};
  ZipBuilder builder;
  std::vector<Bytes> contents;
  for (std::size_t size : sizes) {
    for (std::uint16_t method : {0, 8}) {
      contents.push_back(size % 2 ? randomBytes(size, size) : textBytes(size));
      builder.add(
          {.name = toBytes(std::to_string(size)), .content = contents.back(), .method = method});
    }
  }
  // Names without the UTF-8 flag are UTF-8 when valid, else Latin-1; with it, repaired.
  builder.add({.name = toBytes("M\xC3\xBCnchen/\xE5\x86\x99.jpg")})
      .add({.name = toBytes("M\xFCnchen.jpg")})
      .add({.name = toBytes("M\xFCnchen.jpg"), .utf8Flag = true})
      .write(dir / "a.zip");
  const ZipArchive zip(dir / "a.zip");
  ASSERT_EQ(zip.entries().size(), contents.size() + 3);
  // Four threads share the archive: reads are positioned, so they never see each other's data.
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t i = t; i < t + contents.size(); ++i) {
        const auto& entry = zip.entries()[i % contents.size()];
        EXPECT_TRUE(extractAll(zip, entry) == contents[i % contents.size()]) << entry.path;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const auto name = [&](std::size_t fromEnd) { return zip.entries().rbegin()[fromEnd].path; };
  EXPECT_EQ(name(2), "M\xC3\xBCnchen/\xE5\x86\x99.jpg");
  EXPECT_EQ(name(1), "M\xC3\xBCnchen.jpg");
  EXPECT_EQ(name(0), "M\xEF\xBF\xBDnchen.jpg");
}

TEST(ZipArchiveTest, ReadsZip64CountsSizesAndOffsets) {
  TempDir dir;
  ZipBuilder many;
  for (int i = 0; i < 70000; ++i) many.add(std::to_string(i), std::to_string(i * 3), 0);
  many.write(dir / "many.zip");
  const ZipArchive manyZip(dir / "many.zip");
  ASSERT_EQ(manyZip.entries().size(), 70000u);
  EXPECT_EQ(extractAll(manyZip, manyZip.entries()[69999]), toBytes(std::to_string(69999 * 3)));

  ZipBuilder()
      .add("first.txt", "abc", 0)
      .add({.name = toBytes("wide.bin"), .content = textBytes(5000), .zip64 = true})
      .zip64Directory()
      .write(dir / "wide.zip");
  const ZipArchive wide(dir / "wide.zip");
  ASSERT_EQ(wide.entries().size(), 2u);
  EXPECT_EQ(wide.entries()[1].localHeaderOffset, 30u + 9 + 3);
  EXPECT_EQ(wide.entries()[1].uncompressedSize, 5000u);
  EXPECT_EQ(extractAll(wide, wide.entries()[1]), textBytes(5000));
}

TEST(ZipArchiveTest, DamagedDirectoriesAndEndRecordsFailWithTheRightMessage) {
  TempDir dir;
  const Bytes plain = ZipBuilder().add("a.txt", "hello").add("b.txt", "world").build();
  const Bytes zip64 = ZipBuilder().add("a", "b").zip64Directory().build();
  const std::uint64_t record = findLast(plain, 0x02014b50);  // the second entry's
  const std::uint64_t locator = findLast(zip64, 0x07064b50);
  const std::uint64_t end64 = findLast(zip64, 0x06064b50);
  const struct {
    const char* name;
    const Bytes& good;
    std::uint64_t at;
    std::uint32_t value;  // little-endian; the fields after a 16-bit one are zero already
  } cases[] = {
      {"record signature", plain, record, 0x12345678},
      {"name runs past the directory", plain, record + 28, 0xFF},
      {"extra runs past the directory", plain, record + 30, 0x4000},
      {"comment runs past the directory", plain, record + 32, 0x4000},
      {"ZIP64 locator signature", zip64, locator, 0},
      {"ZIP64 record signature", zip64, end64, 0},
      {"ZIP64 record beyond the file", zip64, locator + 8, 0x7FFFFFF0},
      {"directory beyond the file", zip64, end64 + 48, 0x7FFFFFF0},
      {"count beyond the records", zip64, end64 + 32, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes bad = c.good;
    put32(bad, c.at, c.value);
    EXPECT_EQ(openFailure(dir, bad), kCorrupt);
  }
  // The end record is found behind the longest comment, and not one byte further.
  Bytes commented = ZipBuilder().add("a.txt", "hello").comment(Bytes(65535, 'c')).build();
  EXPECT_EQ(openFailure(dir, commented), "");
  commented.push_back('x');
  EXPECT_EQ(openFailure(dir, commented), kNotAZip);
  EXPECT_THROW(ZipArchive(dir / "missing.zip"), std::system_error);
}

TEST(ZipArchiveTest, TruncatedPartsFailWithTheRightMessage) {
  TempDir dir;
  const Bytes good = ZipBuilder()
                         .add({.name = toBytes("a.txt"), .content = textBytes(3000)})
                         .add("b.txt", "second")
                         .build();
  // Every cut that loses the end record: not a zip at all.
  for (std::size_t keep = 0; keep < good.size(); ++keep) {
    SCOPED_TRACE(keep);
    ASSERT_EQ(openFailure(dir, Bytes(good.begin(), good.begin() + keep)), kNotAZip);
  }
  // The end record survives but the bytes before it were lost: the directory is gone.
  EXPECT_EQ(openFailure(dir, Bytes(good.begin() + 200, good.end())), kCorrupt);
  // Only entry data is missing: opens, then fails on extraction.
  Bytes gap(good.begin(), good.begin() + 100);
  gap.insert(gap.end(), good.begin() + findLast(good, 0x02014b50) - 46 - 5, good.end());
  put32(gap, findLast(gap, 0x06054b50) + 16, 100);  // the directory starts right after
  ASSERT_EQ(openFailure(dir, gap), "");
  const ZipArchive zip(dir / "x.zip");
  for (const auto& entry : zip.entries()) {
    EXPECT_EQ(failure([&] { extractAll(zip, entry); }), kCorrupt);
  }
}

TEST(ZipArchiveTest, ChecksumIsVerifiedOnFullReadsOnly) {
  TempDir dir;
  Bytes stored = ZipBuilder().add("T/IMG_1.JPG", "0123456789", 0).build();
  stored[30 + 11 + 4] ^= 0x01;  // one byte of the stored data
  testing::writeFile(dir / "flip.zip", stored);
  const ZipArchive flip(dir / "flip.zip");
  EXPECT_EQ(failure([&] { extractAll(flip, flip.entries()[0]); }), "T/IMG_1.JPG" + kChecksum);
  EXPECT_EQ(extractAll(flip, flip.entries()[0], /*verify=*/false).size(), 10u);

  // A prefix read stops inflating early, so damage far into the data is never reached.
  const Bytes content = randomBytes(8 << 20, 3);
  Bytes big = ZipBuilder().add({.name = toBytes("big.bin"), .content = content}).build();
  for (std::size_t i = 6 << 20; i < (6 << 20) + 4096; ++i) big[i] ^= 0x5A;
  ASSERT_EQ(openFailure(dir, big), "");
  const ZipArchive zip(dir / "x.zip");
  int calls = 0;
  Bytes head;
  zip.extract(zip.entries()[0], true, [&](std::span<const std::uint8_t> chunk) {
    ++calls;
    head.assign(chunk.begin(), chunk.end());
    return false;
  });
  EXPECT_EQ(calls, 1);
  ASSERT_LE(head.size(), std::size_t{1} << 20);
  EXPECT_TRUE(std::equal(head.begin(), head.end(), content.begin()));
  EXPECT_NE(failure([&] { extractAll(zip, zip.entries()[0]); }), "");
}

TEST(ZipArchiveTest, FailuresLeaveTheArchiveUsable) {
  TempDir dir;
  const Bytes unknownBlock = {0x34, 0x12, 6, 0, 1, 2, 3, 4, 5, 6};  // in the local header only
  Bytes bytes =
      ZipBuilder()
          .add({.name = toBytes("broken.bin"), .content = textBytes(10000)})
          .add({.name = toBytes("T/x.jpg"), .content = toBytes("bzip2"), .method = 12})
          .add({.name = toBytes("crc.txt"), .content = toBytes("c"), .crc = 0xDEADBEEF})
          .add({.name = toBytes("ok.txt"), .content = toBytes("fine"), .localExtra = unknownBlock})
          .build();
  for (std::size_t i = 30 + 10 + 5; i < 30 + 10 + 25; ++i) bytes[i] = 0xFF;  // invalid DEFLATE
  ASSERT_EQ(openFailure(dir, bytes), "");
  const ZipArchive zip(dir / "x.zip");
  const auto& e = zip.entries();
  ZipArchive::Entry pastTheEnd = e[3];
  pastTheEnd.compressedSize = zip.fileSize();
  ZipArchive::Entry notAHeader = e[3];
  notAHeader.localHeaderOffset = 4;
  EXPECT_EQ(failure([&] { extractAll(zip, e[0]); }), kCorrupt);
  EXPECT_EQ(failure([&] { extractAll(zip, e[1]); }),
            "T/x.jpg uses a compression method Quillmere can't read (12).");
  EXPECT_EQ(failure([&] { extractAll(zip, e[2]); }), "crc.txt" + kChecksum);
  EXPECT_EQ(failure([&] { extractAll(zip, pastTheEnd); }), kCorrupt);
  EXPECT_EQ(failure([&] { extractAll(zip, notAHeader); }), kCorrupt);
  EXPECT_THROW(zip.extract(e[3], true, [](auto) -> bool { throw std::runtime_error("sink"); }),
               std::runtime_error);
  EXPECT_EQ(extractAll(zip, e[3]), toBytes("fine"));
}

// Archives by an independent writer: Info-ZIP with forced ZIP64 records, and an entry over
// 4 GiB that must stream through in constant memory with its checksum checked.
TEST(ZipArchiveTest, ReadsInfoZipArchivesAndEntriesOver4GiB) {
  TempDir dir;
  std::filesystem::create_directories(dir / "src/Takeout");
  testing::writeFile(dir / "src/Takeout/a.json", textBytes(20000));
  const auto made = testing::runCommand(
      {"sh", "-c", "cd '" + (dir / "src").string() + "' && zip -q -r -fz ../info.zip Takeout"});
  ASSERT_EQ(made.exitCode, 0) << made.err;
  const ZipArchive info(dir / "info.zip");
  ASSERT_EQ(info.entries().back().path, "Takeout/a.json");
  EXPECT_EQ(extractAll(info, info.entries().back()), textBytes(20000));

  const std::uint64_t size = (std::uint64_t{4} << 30) + 12345;
  const std::uint32_t crc = testing::writeZeroEntryZip(dir / "huge.zip", "huge.bin", size);
  const ZipArchive zip(dir / "huge.zip");
  ASSERT_EQ(zip.entries().size(), 1u);
  EXPECT_EQ(zip.entries()[0].uncompressedSize, size);
  EXPECT_EQ(zip.entries()[0].crc32, crc);
  std::uint64_t total = 0;  // the checksum is verified at the end
  zip.extract(zip.entries()[0], true, [&](std::span<const std::uint8_t> chunk) {
    total += chunk.size();
    return true;
  });
  EXPECT_EQ(total, size);
}

}  // namespace
}  // namespace quillmere
