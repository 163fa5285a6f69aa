#include "core/sources/zip_archive.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <thread>

#include "core/sources/quillmere_error.h"
#include "core/sources/zip_entry_file.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;
using testing::toBytes;
using testing::ZipBuilder;

const std::string kNotAZip = "x.zip isn't a zip file.";
const std::string kCorrupt = "x.zip looks damaged or incomplete. Try downloading that part again.";

// Random bytes below `alphabet`: 256 can't be compressed, 4 compresses like text.
Bytes randomBytes(std::size_t size, unsigned seed, unsigned alphabet = 256) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& b : bytes) b = static_cast<std::uint8_t>(random() % alphabet);
  return bytes;
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

std::uint64_t findLast(const Bytes& b, std::string_view sig) {
  return std::find_end(b.begin(), b.end(), sig.begin(), sig.end()) - b.begin();
}

TEST(ZipArchiveTest, RoundTripsEntriesOfEverySizeNameAndCountInZip64Records) {
  TempDir dir;
  // Sizes around the 1 MiB chunk boundary catch off-by-one errors in the streaming loops. Odd
  // sizes don't compress; stored entries keep their sizes and offset in a ZIP64 extra.
  ZipBuilder builder;
  std::vector<Bytes> contents;
  for (std::size_t size : {0, 1, 1000, (1 << 20) - 1, 1 << 20, (1 << 20) + 1, 3 << 20}) {
    for (std::uint16_t method : {0, 8}) {
      contents.push_back(randomBytes(size, size, size % 2 ? 256 : 4));
      builder.add({.name = {'e'}, .content = contents.back(), .method = method, .zip64 = !method});
    }
  }
  // Names without the UTF-8 flag are UTF-8 when valid, else Latin-1; with it, repaired.
  builder.add({.name = toBytes("M\xC3\xBCnchen/\xE5\x86\x99.jpg")})
      .add({.name = toBytes("M\xFCnchen.jpg")})
      .add({.name = toBytes("M\xFCnchen.jpg"), .utf8Flag = true})
      .zip64Directory()
      .write(dir / "a.zip");
  const ZipArchive zip(dir / "a.zip");
  ASSERT_EQ(zip.entries().size(), contents.size() + 3);
  for (std::size_t i = 0; i < contents.size(); ++i) {
    EXPECT_EQ(zip.entries()[i].uncompressedSize, contents[i].size()) << i;
    EXPECT_TRUE(extractAll(zip, zip.entries()[i]) == contents[i]) << i;
  }
  // After two empty entries, the second deflated to 2 bytes; read from the ZIP64 extra.
  EXPECT_EQ(zip.entries()[2].localHeaderOffset, 2 * (30u + 1) + 2);
  EXPECT_EQ(zip.entries().rbegin()[2].path, "M\xC3\xBCnchen/\xE5\x86\x99.jpg");
  EXPECT_EQ(zip.entries().rbegin()[1].path, "M\xC3\xBCnchen.jpg");
  EXPECT_EQ(zip.entries().rbegin()[0].path, "M\xEF\xBF\xBDnchen.jpg");
  // More entries than the classic end record can count.
  ZipBuilder many;
  for (int i = 0; i < 70000; ++i) many.add(std::to_string(i), std::to_string(i * 3), 0);
  many.write(dir / "many.zip");
  const ZipArchive manyZip(dir / "many.zip");
  ASSERT_EQ(manyZip.entries().size(), 70000u);
  EXPECT_EQ(extractAll(manyZip, manyZip.entries()[69999]), toBytes(std::to_string(69999 * 3)));
  // An entry over 4 GiB streams through in constant memory with its checksum checked.
  const std::uint64_t size = (std::uint64_t{4} << 30) + 12345;
  const std::uint32_t crc = testing::writeZeroEntryZip(dir / "huge.zip", "huge.bin", size);
  const ZipArchive huge(dir / "huge.zip");
  EXPECT_EQ(huge.entries().at(0).uncompressedSize, size);
  EXPECT_EQ(huge.entries()[0].crc32, crc);
  std::uint64_t total = 0;
  huge.extract(huge.entries()[0], true, [&](std::span<const std::uint8_t> chunk) {
    total += chunk.size();
    return true;
  });
  EXPECT_EQ(total, size);
}

TEST(ZipArchiveTest, DamageFailsWithTheRightMessageAndLeavesTheArchiveUsable) {
  TempDir dir;
  const Bytes plain = ZipBuilder().add("a.txt", "hello").add("b.txt", "world").build();
  const Bytes zip64 = ZipBuilder().add("a", "b").zip64Directory().build();
  const std::uint64_t record = findLast(plain, "PK\1\2");  // the second entry's
  const std::uint64_t locator = findLast(zip64, "PK\6\7"), end64 = findLast(zip64, "PK\6\6");
  // Writes `value` (little-endian) over the 4 bytes at `at` of a copy, and opens that.
  const auto damaged = [&](Bytes bytes, std::uint64_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    return openFailure(dir, bytes);
  };
  EXPECT_EQ(damaged(plain, record, 0x12345678), kCorrupt);       // a record's signature
  EXPECT_EQ(damaged(plain, record + 28, 0xFF), kCorrupt);        // its name runs past the directory
  EXPECT_EQ(damaged(zip64, locator, 0), kCorrupt);               // the ZIP64 locator's signature
  EXPECT_EQ(damaged(zip64, locator + 8, 0x7FFFFFF0), kCorrupt);  // the record beyond the file
  EXPECT_EQ(damaged(zip64, end64 + 48, 0x7FFFFFF0), kCorrupt);   // the directory beyond it
  EXPECT_EQ(damaged(zip64, end64 + 32, 2), kCorrupt);            // a count beyond the records
  // Every cut that loses the end record: not a zip at all.
  for (std::size_t keep = 0; keep < plain.size(); ++keep) {
    SCOPED_TRACE(keep);
    ASSERT_EQ(openFailure(dir, Bytes(plain.begin(), plain.begin() + keep)), kNotAZip);
  }
  // The end record survives but the bytes before it were lost: the directory is gone.
  EXPECT_EQ(openFailure(dir, Bytes(plain.begin() + 40, plain.end())), kCorrupt);
  // The end record is found behind the longest comment, and not one byte further.
  Bytes commented = ZipBuilder().add("a.txt", "hello").comment(Bytes(65535, 'c')).build();
  EXPECT_EQ(openFailure(dir, commented), "");
  commented.push_back('x');
  EXPECT_EQ(openFailure(dir, commented), kNotAZip);
  EXPECT_THROW(ZipArchive(dir / "missing.zip"), std::system_error);

  // Failed extractions leave the archive usable.
  const Bytes unknownBlock = {0x34, 0x12, 6, 0, 1, 2, 3, 4, 5, 6};  // in the local header only
  Bytes bytes =
      ZipBuilder()
          .add({.name = toBytes("broken.bin"), .content = randomBytes(10000, 1, 4)})
          .add({.name = toBytes("T/x.jpg"), .content = toBytes("bzip2"), .method = 12})
          .add({.name = toBytes("T/IMG_1.JPG"), .content = toBytes("0123456789"), .method = 0})
          .add({.name = toBytes("ok.txt"), .content = toBytes("fine"), .localExtra = unknownBlock})
          .build();
  for (std::size_t i = 30 + 10 + 5; i < 30 + 10 + 25; ++i) bytes[i] = 0xFF;  // invalid DEFLATE
  bytes[findLast(bytes, "PK\3\4") - 1] ^= 0x01;  // the last byte of IMG_1.JPG
  ASSERT_EQ(openFailure(dir, bytes), "");
  const ZipArchive zip(dir / "x.zip");
  const auto& e = zip.entries();
  ZipArchive::Entry pastTheEnd = e[3], notAHeader = e[3];
  pastTheEnd.compressedSize = zip.fileSize();
  notAHeader.localHeaderOffset = 4;
  EXPECT_EQ(failure([&] { extractAll(zip, e[0]); }), kCorrupt);
  EXPECT_EQ(failure([&] { extractAll(zip, e[1]); }),
            "T/x.jpg uses a compression method Quillmere can't read (12).");
  EXPECT_EQ(failure([&] { extractAll(zip, pastTheEnd); }), kCorrupt);
  EXPECT_EQ(failure([&] { extractAll(zip, notAHeader); }), kCorrupt);
  // The checksum is verified on full reads only: not unasked, nor after an early stop.
  EXPECT_EQ(failure([&] { extractAll(zip, e[2]); }),
            "T/IMG_1.JPG failed its checksum. The zip may be damaged; try downloading it again.");
  EXPECT_EQ(extractAll(zip, e[2], /*verify=*/false), toBytes("0123456788"));
  EXPECT_NO_THROW(zip.extract(e[2], true, [](auto) { return false; }));
  EXPECT_THROW(zip.extract(e[3], true, [](auto) -> bool { throw std::runtime_error("sink"); }),
               std::runtime_error);
  EXPECT_EQ(extractAll(zip, e[3]), toBytes("fine"));
}

TEST(ZipArchiveTest, ContentPastItsDeclaredSizeNeverReachesADestination) {
  TempDir dir;
  const Bytes zeros(3 << 20, 0);
  Bytes bytes =
      ZipBuilder()
          .add({.name = toBytes("bomb.bin"), .content = zeros})
          .add({.name = toBytes("long.jpg"), .content = toBytes("0123456789"), .method = 0})
          .add({.name = toBytes("short.jpg"), .content = toBytes("0123456789"), .method = 0})
          .add({.name = toBytes("honest.bin"), .content = zeros})
          .build();
  // The directory's uncompressed sizes lie: 1,000 bytes for 3 MiB, 5 for 10, 20 for 10.
  std::uint64_t record = 0;
  for (const std::uint32_t size : {1000u, 5u, 20u}) {
    record = std::search(bytes.begin() + record + 1, bytes.end(), "PK\1\2", "PK\1\2" + 4) -
             bytes.begin();
    for (int i = 0; i < 4; ++i) bytes[record + 24 + i] = static_cast<std::uint8_t>(size >> (8 * i));
  }
  testing::writeFile(dir / "x.zip", bytes);
  const auto archive = std::make_shared<const ZipArchive>(dir / "x.zip");
  const auto& entries = archive->entries();
  ASSERT_EQ(entries.size(), 4u);
  const auto before = testing::snapshotTree(dir.path());
  for (std::size_t i = 0; i < 3; ++i) {
    const ZipEntryFile file(archive, entries[i], entries[i].path);
    SCOPED_TRACE(file.logicalPath());
    std::uint64_t streamed = 0;
    EXPECT_EQ(failure([&] {
                file.stream([&](std::span<const std::uint8_t> chunk) { streamed += chunk.size(); });
              }),
              kCorrupt);
    EXPECT_LE(streamed, entries[i].uncompressedSize);
    EXPECT_EQ(failure([&] { file.copy(dir / "copy"); }), kCorrupt);
    EXPECT_FALSE(fs::exists(dir / "copy"));
    EXPECT_EQ(failure([&] { file.readAll(); }), kCorrupt);
    EXPECT_EQ(file.readPrefix(3).size(), 3u);  // a head can still be looked at
  }
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
  ZipEntryFile(archive, entries[3], "honest.bin").copy(dir / "honest.bin");
  EXPECT_EQ(testing::readFile(dir / "honest.bin"), zeros);
}

// Info-ZIP is an independent writer (here with forced ZIP64 records); one opened archive is read
// by several threads at once, as the scanner's workers do.
TEST(ZipArchiveTest, ReadsInfoZipArchivesFromSeveralThreadsAtOnce) {
  TempDir dir;
  std::map<std::string, Bytes> written;
  std::filesystem::create_directories(dir / "src/Takeout/Google Photos");
  for (int i = 0; i < 6; ++i) {
    const std::string path = "Takeout/Google Photos/f" + std::to_string(i);
    written[path] = randomBytes(300000 + i, i, i % 2 ? 256 : 4);
    testing::writeFile(dir / "src" / path, written[path]);
  }
  const auto made = testing::runCommand(
      {"sh", "-c", "cd '" + (dir / "src").string() + "' && zip -q -r -fz ../info.zip Takeout"});
  ASSERT_EQ(made.exitCode, 0) << made.err;
  const ZipArchive zip(dir / "info.zip");
  std::vector<int> wrong(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 3; ++round) {
        for (const auto& e : zip.entries()) {
          if (!e.isDirectory() && extractAll(zip, e) != written.at(e.path)) ++wrong[t];
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace quillmere
