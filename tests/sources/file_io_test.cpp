#include "core/sources/file_io.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "core/sources/quillmere_error.h"
#include "tests/support/run_command.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;
using testing::toBytes;

// Every name in `folder`, hidden ones too.
std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& item : fs::directory_iterator(folder)) names.push_back(item.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::string messageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

TEST(AtomicFileTest, AppearsCompleteOnCommitAndLeavesNothingOtherwise) {
  TempDir dir;
  const fs::path path = dir / "report.csv";
  {
    AtomicFile file(path);
    file.write(toBytes("half"));
    EXPECT_EQ(namesIn(dir.path()).size(), 1u);  // only the hidden temporary name
    EXPECT_FALSE(fs::exists(path));
  }  // abandoned: a failure before commit
  EXPECT_TRUE(namesIn(dir.path()).empty());

  AtomicFile file(path);
  file.write(toBytes("a,b\n"));
  file.write(toBytes("1,2\n"));
  file.commit();
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"report.csv"});
  EXPECT_EQ(testing::readFile(path), toBytes("a,b\n1,2\n"));
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644 & ~::umask(::umask(0)));
}

TEST(AtomicFileTest, NeverOverwritesUnlessAskedAndNamesThePathItCouldNotCreate) {
  TempDir dir;
  const fs::path path = dir / "IMG_1.jpg";
  testing::writeFile(path, toBytes("original"));
  const std::string cannot = "Couldn't create " + path.string() + ".";
  EXPECT_EQ(messageOf([&] { AtomicFile file(path); }), cannot);
  // Something appearing at the path while the file is written wins; the copy is dropped.
  fs::remove(path);
  {
    AtomicFile file(path);
    file.write(toBytes("copy"));
    testing::writeFile(path, toBytes("raced"));
    EXPECT_EQ(messageOf([&] { file.commit(); }), cannot);
  }
  EXPECT_EQ(testing::readFile(path), toBytes("raced"));
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"IMG_1.jpg"});
  // A link at the path counts as something there, and is not followed.
  fs::create_symlink(dir / "elsewhere", dir / "link");
  EXPECT_EQ(messageOf([&] { AtomicFile file(dir / "link"); }),
            "Couldn't create " + (dir / "link").string() + ".");
  EXPECT_FALSE(fs::exists(dir / "elsewhere"));

  AtomicFile replacing(path, {.replace = true});
  replacing.write(toBytes("new"));
  replacing.commit();
  EXPECT_EQ(testing::readFile(path), toBytes("new"));
  // A missing folder fails at once, before anything is written.
  EXPECT_EQ(messageOf([&] { AtomicFile file(dir / "no/such/x.jpg"); }),
            "Couldn't create " + (dir / "no/such/x.jpg").string() + ".");
}

TEST(FileDescriptorTest, ReadsAndWritesFullyAndReportsTheEndOfTheFile) {
  TempDir dir;
  const fs::path path = dir / "data";
  {
    const FileDescriptor out = FileDescriptor::createExclusive(path);
    Bytes big(3 << 20);
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 7);
    out.writeFully(big);
    out.sync();
  }
  try {
    FileDescriptor::createExclusive(path);
    ADD_FAILURE() << "an existing file was opened for creation";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_exists);
  }
  FileDescriptor in = FileDescriptor::openForReading(path);
  EXPECT_EQ(in.status().size, 3u << 20);
  EXPECT_TRUE(in.status().regular);
  Bytes head(10);
  EXPECT_EQ(in.readFully(head), 10u);
  EXPECT_EQ(head[9], 63);
  // Positioned reads from several threads at once, the last of them past the end.
  std::vector<std::thread> threads;
  std::vector<std::size_t> got(4);
  for (std::size_t t = 0; t < got.size(); ++t) {
    threads.emplace_back([&, t] {
      Bytes chunk(1 << 20);
      got[t] = in.preadFully(chunk, t * (1 << 20) + 5);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(got, (std::vector<std::size_t>{1 << 20, 1 << 20, (1 << 20) - 5, 0}));
  Bytes none(8);
  EXPECT_EQ(in.preadFully(none, UINT64_MAX - 2), 0u);  // never wraps around
  in.close();
  EXPECT_FALSE(in);
  EXPECT_THAT(messageOf([&] { FileDescriptor::openForReading(dir / "missing"); }),
              ::testing::StartsWith("Couldn't open " + (dir / "missing").string()));
}

// Ranges copied between descriptors land byte for byte where asked, whether the kernel copies
// them or, where it refuses (a target opened for appending), the buffered loop does.
TEST(FileIOTest, CopyRangeCopiesInTheKernelOrThroughABufferAndReportsAShortSource) {
  TempDir dir;
  const fs::path from = dir / "from";
  Bytes data((3 << 20) + 17);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 13 + 1);
  FileDescriptor::createExclusive(from).writeFully(data);
  const FileDescriptor source = FileDescriptor::openForReading(from);
  for (const int flags : {O_WRONLY, O_WRONLY | O_APPEND}) {
    SCOPED_TRACE(flags);
    const fs::path to = dir / ("to" + std::to_string(flags));
    const FileDescriptor target(::open(to.c_str(), flags | O_CREAT | O_EXCL | O_CLOEXEC, 0644), to);
    ASSERT_TRUE(target);
    FileIO::copyRange(source.get(), 5, target.get(), 0, data.size() - 5, "copy");
    Bytes copied(data.size());
    EXPECT_EQ(FileDescriptor::openForReading(to).readFully(copied), data.size() - 5);
    copied.resize(data.size() - 5);
    EXPECT_TRUE(std::equal(copied.begin(), copied.end(), data.begin() + 5));
    try {
      FileIO::copyRange(source.get(), data.size() - 4, target.get(), 0, 8, "Couldn't copy");
      ADD_FAILURE() << "a range past the end of the source was copied";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), EIO);
      EXPECT_THAT(error.what(), ::testing::StartsWith("Couldn't copy"));
    }
  }
}

TEST(FileIOTest, ReadFileIsBoundedAndTimesAreSetAsExiftoolReadsThem) {
  TempDir dir;
  testing::writeFile(dir / "small", toBytes("0123456789"));
  EXPECT_EQ(FileIO::readFile(dir / "small", 10), toBytes("0123456789"));
  try {
    FileIO::readFile(dir / "small", 9);
    ADD_FAILURE() << "a file over the limit was read";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_too_large);
  }
  EXPECT_EQ(FileIO::readFile(dir / "small", 0 - 1ull).size(), 10u);

  // 2019-07-14 18:30:12.25 UTC, set by path, and before 1970 through a descriptor.
  FileIO::setFileTimes(dir / "small", 1563129012.25, 1563129012.25);
  struct stat info {};
  ASSERT_EQ(::stat((dir / "small").c_str(), &info), 0);
  EXPECT_EQ(info.st_mtim.tv_sec, 1563129012);
  EXPECT_EQ(info.st_mtim.tv_nsec, 250'000'000);
  const ScopedEnvironment utc("TZ", "UTC");
  const auto exiftool = testing::runCommand(
      {"exiftool", "-s3", "-d", "%Y-%m-%d %H:%M:%S", "-FileModifyDate", (dir / "small").string()});
  ASSERT_EQ(exiftool.exitCode, 0) << exiftool.err;
  EXPECT_EQ(exiftool.out, "2019-07-14 18:30:12\n");
  {
    AtomicFile file(dir / "old.jpg");
    file.file().setTimes(-86400.5, -86400.5);
    file.commit();
  }
  ASSERT_EQ(::stat((dir / "old.jpg").c_str(), &info), 0);
  EXPECT_EQ(info.st_mtim.tv_sec, -86401);
  EXPECT_EQ(info.st_mtim.tv_nsec, 500'000'000);
  EXPECT_THROW(FileIO::setFileTimes(dir / "missing", 0, 0), std::system_error);
}

}  // namespace
}  // namespace quillmere
