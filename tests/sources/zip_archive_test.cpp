#include "core/sources/zip_archive.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "core/sources/quillmere_error.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::TempDir;
using testing::toBytes;
using testing::ZipBuilder;
using testing::ZipEntryDraft;
using Kind = QuillmereError::Kind;

Bytes randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
  return bytes;
}

// Text that compresses like real metadata: repetitive but not constant.
Bytes textBytes(std::size_t size) {
  Bytes bytes;
  for (std::size_t i = 0; bytes.size() < size; ++i) {
    const std::string line = "line " + std::to_string(i * 7919 % 100003) + " of the export\n";
    bytes.insert(bytes.end(), line.begin(), line.end());
  }
  bytes.resize(size);
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

Kind errorKindOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const QuillmereError& error) {
    return error.kind();
  }
  ADD_FAILURE() << "no QuillmereError was thrown";
  return Kind::nothingToRepair;
}

ZipEntryDraft entry(std::string_view name, Bytes content, std::uint16_t method) {
  ZipEntryDraft draft;
  draft.name = toBytes(name);
  draft.content = std::move(content);
  draft.method = method;
  return draft;
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

struct Damage {
  const char* name;
  std::function<void(Bytes&)> damage;
};

// Each damaged copy of `good` must fail to open as a damaged zip.
void expectEachDamageIsCorrupt(const Bytes& good, std::span<const Damage> cases) {
  TempDir dir;
  for (const Damage& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes bad = good;
    c.damage(bad);
    testing::writeFile(dir / "bad.zip", bad);
    EXPECT_EQ(errorKindOf([&] { ZipArchive zip(dir / "bad.zip"); }), Kind::corruptZip);
  }
}

TEST(QuillmereErrorTest, MessagesAreExact) {
  const struct {
    QuillmereError error;
    const char* message;
  } cases[] = {
      {QuillmereError::notAZip("a.zip"), "a.zip isn't a zip file."},
      {QuillmereError::corruptZip("a.zip"),
       "a.zip looks damaged or incomplete. Try downloading that part again."},
      {QuillmereError::unsupportedCompression("T/x.jpg", 12),
       "T/x.jpg uses a compression method Quillmere can't read (12)."},
      {QuillmereError::checksumMismatch("Takeout/Google Photos/Trip/IMG_1.JPG"),
       "Takeout/Google Photos/Trip/IMG_1.JPG failed its checksum. The zip may be damaged; try "
       "downloading it again."},
      {QuillmereError::cannotCreate("/out/x"), "Couldn't create /out/x."},
      {QuillmereError::outputInsideSource("/e/out"),
       "The output folder /e/out is inside the export. Pick a folder outside it so originals "
       "stay untouched."},
      {QuillmereError::cannotComposite("a.jpg"), "Couldn't merge the overlay onto a.jpg."},
      {QuillmereError::nothingToRepair(), "No photos or videos were found in the selected export."},
  };
  for (const auto& c : cases) EXPECT_STREQ(c.error.what(), c.message);
}

TEST(ZipArchiveTest, RoundTripsStoredAndDeflatedEntriesOfEverySize) {
  TempDir dir;
  // Sizes around the 1 MiB chunk boundary catch off-by-one errors in the streaming loops.
  const std::size_t sizes[] = {0, 1, 1000, (1 << 20) - 1, 1 << 20, (1 << 20) + 1, 3 << 20};
  ZipBuilder builder;
  std::vector<Bytes> contents;
  for (std::size_t size : sizes) {
    for (std::uint16_t method : {0, 8}) {
      contents.push_back(size % 2 ? randomBytes(size, static_cast<unsigned>(size))
                                  : textBytes(size));
      builder.add(entry("e" + std::to_string(size) + "-" + std::to_string(method), contents.back(),
                        method));
    }
  }
  builder.write(dir / "a.zip");
  const ZipArchive zip(dir / "a.zip");
  ASSERT_EQ(zip.entries().size(), contents.size());
  for (std::size_t i = 0; i < contents.size(); ++i) {
    SCOPED_TRACE(zip.entries()[i].path);
    EXPECT_EQ(zip.entries()[i].uncompressedSize, contents[i].size());
    EXPECT_EQ(extractAll(zip, zip.entries()[i]), contents[i]);
  }
  EXPECT_EQ(zip.entries()[0].crc32, 0u);  // an empty entry's CRC
}

TEST(ZipArchiveTest, RejectsFilesThatAreNotZips) {
  TempDir dir;
  const struct {
    const char* name;
    Bytes bytes;
  } cases[] = {
      {"empty", {}},
      {"21 bytes", Bytes(21, 0)},
      {"22 zero bytes", Bytes(22, 0)},
      {"a JPEG",
       [] {
         Bytes b = randomBytes(5000, 7);
         b[0] = 0xFF, b[1] = 0xD8;
         return b;
       }()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::writeFile(dir / "x.zip", c.bytes);
    EXPECT_EQ(errorKindOf([&] { ZipArchive zip(dir / "x.zip"); }), Kind::notAZip);
  }
  try {
    ZipArchive zip(dir / "x.zip");
  } catch (const QuillmereError& error) {
    EXPECT_STREQ(error.what(), "x.zip isn't a zip file.");
  }
  EXPECT_THROW(ZipArchive(dir / "missing.zip"), std::system_error);
}

TEST(ZipArchiveTest, FindsTheEndRecordBehindTheLongestComment) {
  TempDir dir;
  ZipBuilder().add("a.txt", "hello").comment(Bytes(65535, 'c')).write(dir / "long.zip");
  const ZipArchive zip(dir / "long.zip");
  ASSERT_EQ(zip.entries().size(), 1u);
  EXPECT_EQ(extractAll(zip, zip.entries()[0]), toBytes("hello"));

  // One more byte of trailing data puts the end record out of reach.
  Bytes tooFar = ZipBuilder().add("a.txt", "hello").comment(Bytes(65535, 'c')).build();
  tooFar.push_back('x');
  testing::writeFile(dir / "far.zip", tooFar);
  EXPECT_EQ(errorKindOf([&] { ZipArchive zip(dir / "far.zip"); }), Kind::notAZip);
}

TEST(ZipArchiveTest, DecodesNamesAsUtf8OrLatin1) {
  TempDir dir;
  const struct {
    Bytes name;
    bool utf8Flag;
    std::string expected;
  } cases[] = {
      {toBytes("Fotos/M\xC3\xBCnchen.jpg"), false, "Fotos/M\xC3\xBCnchen.jpg"},
      {toBytes("Fotos/M\xFCnchen.jpg"), false, "Fotos/M\xC3\xBCnchen.jpg"},     // Latin-1
      {toBytes("Fotos/M\xFCnchen.jpg"), true, "Fotos/M\xEF\xBF\xBDnchen.jpg"},  // U+FFFD
      {toBytes("\xE6\x97\xA5\xE6\x9C\xAC/\xE5\x86\x99\xE7\x9C\x9F.jpg"), true,
       "\xE6\x97\xA5\xE6\x9C\xAC/\xE5\x86\x99\xE7\x9C\x9F.jpg"},
  };
  ZipBuilder builder;
  for (const auto& c : cases) {
    ZipEntryDraft draft = entry("", toBytes("x"), 0);
    draft.name = c.name;
    draft.utf8Flag = c.utf8Flag;
    builder.add(draft);
  }
  builder.write(dir / "names.zip");
  const ZipArchive zip(dir / "names.zip");
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(zip.entries()[i].path, cases[i].expected);
  }
}

TEST(ZipArchiveTest, ReadsZip64CountsSizesAndOffsets) {
  TempDir dir;
  ZipBuilder many;
  for (int i = 0; i < 70000; ++i) many.add("f/" + std::to_string(i), std::to_string(i * 3), 0);
  many.write(dir / "many.zip");
  const ZipArchive manyZip(dir / "many.zip");
  ASSERT_EQ(manyZip.entries().size(), 70000u);
  EXPECT_EQ(extractAll(manyZip, manyZip.entries()[69999]), toBytes(std::to_string(69999 * 3)));

  ZipEntryDraft wide = entry("wide.bin", textBytes(5000), 8);
  wide.zip64 = true;
  ZipBuilder().add("first.txt", "abc").add(wide).zip64Directory().write(dir / "wide.zip");
  const ZipArchive wideZip(dir / "wide.zip");
  ASSERT_EQ(wideZip.entries().size(), 2u);
  EXPECT_GT(wideZip.entries()[1].localHeaderOffset, 0u);
  EXPECT_EQ(wideZip.entries()[1].uncompressedSize, 5000u);
  EXPECT_EQ(extractAll(wideZip, wideZip.entries()[1]), textBytes(5000));
}

TEST(ZipArchiveTest, RejectsLyingZip64Records) {
  const Bytes good = ZipBuilder().add("a", "b").zip64Directory().build();
  const std::uint64_t locator = findLast(good, 0x07064b50);
  const std::uint64_t record = findLast(good, 0x06064b50);
  const Damage cases[] = {
      {"locator signature", [&](Bytes& b) { put32(b, locator, 0); }},
      {"record signature", [&](Bytes& b) { put32(b, record, 0); }},
      {"record beyond the file", [&](Bytes& b) { put32(b, locator + 8, 0x7FFFFFF0); }},
      {"directory beyond the file", [&](Bytes& b) { put32(b, record + 48, 0x7FFFFFF0); }},
      {"count beyond the records", [&](Bytes& b) { put32(b, record + 32, 2); }},
  };
  expectEachDamageIsCorrupt(good, cases);
}

TEST(ZipArchiveTest, RejectsDamagedCentralDirectories) {
  const Bytes good = ZipBuilder().add("a.txt", "hello").add("b.txt", "world").build();
  const std::uint64_t directory = findLast(good, 0x02014b50);  // the second record
  const Damage cases[] = {
      {"record signature", [&](Bytes& b) { put32(b, directory, 0x12345678); }},
      {"name runs past the directory", [&](Bytes& b) { b[directory + 28] = 0xFF; }},
      {"extra runs past the directory", [&](Bytes& b) { b[directory + 31] = 0x40; }},
      {"comment runs past the directory", [&](Bytes& b) { b[directory + 33] = 0x40; }},
  };
  expectEachDamageIsCorrupt(good, cases);
}

TEST(ZipArchiveTest, TruncatedPartsFailWithTheRightMessage) {
  TempDir dir;
  const Bytes good =
      ZipBuilder().add(entry("a.txt", textBytes(3000), 8)).add("b.txt", "second").build();
  const std::uint64_t directory = findLast(good, 0x02014b50) - 46 - 5;  // first record
  // Every cut that loses the end record: not a zip at all.
  for (std::size_t keep = 0; keep < good.size(); ++keep) {
    SCOPED_TRACE(keep);
    testing::writeFile(dir / "cut.zip", Bytes(good.begin(), good.begin() + keep));
    EXPECT_EQ(errorKindOf([&] { ZipArchive zip(dir / "cut.zip"); }), Kind::notAZip);
  }
  // The end record survives but the bytes before it were lost: the directory is gone.
  testing::writeFile(dir / "front.zip", Bytes(good.begin() + 200, good.end()));
  EXPECT_EQ(errorKindOf([&] { ZipArchive zip(dir / "front.zip"); }), Kind::corruptZip);
  // Only entry data is missing: opens, then fails on extraction.
  Bytes gap(good.begin(), good.begin() + 100);
  gap.insert(gap.end(), good.begin() + static_cast<std::ptrdiff_t>(directory), good.end());
  const std::uint64_t end = findLast(gap, 0x06054b50);
  put32(gap, end + 16, 100);  // the directory now starts right after the surviving bytes
  testing::writeFile(dir / "gap.zip", gap);
  const ZipArchive zip(dir / "gap.zip");
  EXPECT_EQ(errorKindOf([&] { extractAll(zip, zip.entries()[0]); }), Kind::corruptZip);
  EXPECT_EQ(errorKindOf([&] { extractAll(zip, zip.entries()[1]); }), Kind::corruptZip);
}

TEST(ZipArchiveTest, ChecksumIsVerifiedOnFullReadsOnly) {
  TempDir dir;
  Bytes bytes = ZipBuilder().add("T/IMG_1.JPG", "0123456789", 0).build();
  bytes[30 + 11 + 4] ^= 0x01;  // one byte of the stored data
  testing::writeFile(dir / "flip.zip", bytes);
  const ZipArchive zip(dir / "flip.zip");
  try {
    extractAll(zip, zip.entries()[0]);
    FAIL() << "checksum not verified";
  } catch (const QuillmereError& error) {
    EXPECT_STREQ(error.what(),
                 "T/IMG_1.JPG failed its checksum. The zip may be damaged; try downloading it "
                 "again.");
  }
  EXPECT_EQ(extractAll(zip, zip.entries()[0], /*verify=*/false).size(), 10u);
}

TEST(ZipArchiveTest, StopsInflatingWhenTheSinkHasEnough) {
  TempDir dir;
  // Damage far into the compressed data is never reached by an early stop.
  const Bytes content = randomBytes(8 << 20, 3);
  Bytes bytes = ZipBuilder().add(entry("big.bin", content, 8)).build();
  for (std::size_t i = 6 << 20; i < (6 << 20) + 4096; ++i) bytes[i] ^= 0x5A;
  testing::writeFile(dir / "big.zip", bytes);
  const ZipArchive zip(dir / "big.zip");
  int calls = 0;
  Bytes head;
  zip.extract(zip.entries()[0], true, [&](std::span<const std::uint8_t> chunk) {
    ++calls;
    head.insert(head.end(), chunk.begin(), chunk.end());
    return false;
  });
  EXPECT_EQ(calls, 1);
  ASSERT_LE(head.size(), std::size_t{1} << 20);
  EXPECT_TRUE(std::equal(head.begin(), head.end(), content.begin()));
  EXPECT_NE(errorKindOf([&] { extractAll(zip, zip.entries()[0]); }), Kind::nothingToRepair);
}

TEST(ZipArchiveTest, FailuresLeaveTheArchiveUsable) {
  TempDir dir;
  ZipEntryDraft broken = entry("broken.bin", textBytes(10000), 8);
  ZipEntryDraft method12 = entry("T/x.jpg", toBytes("bzip2 data"), 12);
  ZipEntryDraft crc = entry("crc.txt", toBytes("content"), 0);
  crc.crc = 0xDEADBEEF;
  Bytes bytes = ZipBuilder().add(broken).add(method12).add(crc).add("ok.txt", "fine").build();
  for (std::size_t i = 30 + 10 + 5; i < 30 + 10 + 25; ++i) bytes[i] = 0xFF;  // invalid DEFLATE
  testing::writeFile(dir / "mixed.zip", bytes);
  const ZipArchive zip(dir / "mixed.zip");
  const auto& e = zip.entries();
  EXPECT_EQ(errorKindOf([&] { extractAll(zip, e[0]); }), Kind::corruptZip);
  EXPECT_EQ(errorKindOf([&] { extractAll(zip, e[1]); }), Kind::unsupportedCompression);
  try {
    extractAll(zip, e[1]);
  } catch (const QuillmereError& error) {
    EXPECT_TRUE(std::string(error.what()).ends_with("can't read (12).")) << error.what();
  }
  EXPECT_EQ(errorKindOf([&] { extractAll(zip, e[2]); }), Kind::checksumMismatch);
  EXPECT_THROW(zip.extract(e[3], true, [](auto) -> bool { throw std::runtime_error("sink"); }),
               std::runtime_error);
  EXPECT_EQ(extractAll(zip, e[3]), toBytes("fine"));
}

TEST(ZipArchiveTest, UsesTheLocalHeadersOwnLengthsAndRejectsDataPastTheEnd) {
  TempDir dir;
  ZipEntryDraft padded = entry("padded.txt", toBytes("payload"), 8);
  padded.localExtra = Bytes{0x34, 0x12, 6, 0, 1, 2, 3, 4, 5, 6};  // unknown block, 10 bytes
  ZipBuilder().add(padded).write(dir / "padded.zip");
  const ZipArchive paddedZip(dir / "padded.zip");
  EXPECT_EQ(extractAll(paddedZip, paddedZip.entries()[0]), toBytes("payload"));

  ZipArchive::Entry beyond = paddedZip.entries()[0];
  beyond.compressedSize = paddedZip.fileSize();
  EXPECT_EQ(errorKindOf([&] { extractAll(paddedZip, beyond); }), Kind::corruptZip);
  ZipArchive::Entry notAHeader = paddedZip.entries()[0];
  notAHeader.localHeaderOffset = 4;
  EXPECT_EQ(errorKindOf([&] { extractAll(paddedZip, notAHeader); }), Kind::corruptZip);
}

TEST(ZipArchiveTest, ConcurrentExtractionsOfOneArchiveAgree) {
  TempDir dir;
  ZipBuilder builder;
  std::vector<Bytes> contents;
  for (int i = 0; i < 8; ++i) {
    contents.push_back(randomBytes(600000 + i, static_cast<unsigned>(i)));
    builder.add(entry("f" + std::to_string(i), contents.back(), i % 2 ? 8 : 0));
  }
  builder.write(dir / "shared.zip");
  const ZipArchive zip(dir / "shared.zip");
  std::vector<int> wrong(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 5; ++round) {
        for (std::size_t i = 0; i < contents.size(); ++i) {
          if (extractAll(zip, zip.entries()[(i + t) % 8]) != contents[(i + t) % 8]) ++wrong[t];
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

// An archive written by Info-ZIP, an independent writer, with forced ZIP64 records.
TEST(ZipArchiveTest, ReadsArchivesWrittenByInfoZip) {
  TempDir dir;
  std::filesystem::create_directories(dir / "src/Takeout/Google Photos");
  testing::writeFile(dir / "src/Takeout/Google Photos/a.json", textBytes(20000));
  testing::writeFile(dir / "src/Takeout/Google Photos/b.bin", randomBytes(3000, 9));
  const auto made = testing::runCommand(
      {"sh", "-c", "cd '" + (dir / "src").string() + "' && zip -q -r -fz ../info.zip Takeout"});
  ASSERT_EQ(made.exitCode, 0) << made.err;
  const ZipArchive zip(dir / "info.zip");
  std::map<std::string, Bytes> files;
  for (const auto& e : zip.entries()) {
    if (!e.isDirectory()) files[e.path] = extractAll(zip, e);
  }
  EXPECT_EQ(files["Takeout/Google Photos/a.json"], textBytes(20000));
  EXPECT_EQ(files["Takeout/Google Photos/b.bin"], randomBytes(3000, 9));
}

// An entry over 4 GiB streams through in constant memory with its checksum checked.
TEST(ZipArchiveTest, ExtractsAnEntryLargerThan4GiB) {
  TempDir dir;
  const std::uint64_t size = (std::uint64_t{4} << 30) + 12345;
  const std::uint32_t crc = testing::writeZeroEntryZip(dir / "huge.zip", "huge.bin", size);
  const ZipArchive zip(dir / "huge.zip");
  ASSERT_EQ(zip.entries().size(), 1u);
  EXPECT_EQ(zip.entries()[0].uncompressedSize, size);
  EXPECT_EQ(zip.entries()[0].crc32, crc);
  std::uint64_t total = 0;
  bool allZero = true;
  zip.extract(zip.entries()[0], true, [&](std::span<const std::uint8_t> chunk) {
    total += chunk.size();
    allZero = allZero && chunk.front() == 0 && chunk.back() == 0;
    return true;
  });
  EXPECT_EQ(total, size);
  EXPECT_TRUE(allZero);
}

}  // namespace
}  // namespace quillmere
