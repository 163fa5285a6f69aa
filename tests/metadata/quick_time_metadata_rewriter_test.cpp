#include "core/metadata/quick_time_metadata_rewriter.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "core/metadata/metadata_writer.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

// A small movie by ffmpeg with keys written by exiftool, so it has keys and items to disagree.
Bytes keyedMovie(const fs::path& dir, bool fastStart) {
  const fs::path file = dir / "made.mov";
  std::vector<std::string> command = {
      "ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=32x24:rate=5", "-t", "1"};
  if (fastStart) command.insert(command.end(), {"-movflags", "+faststart"});
  command.push_back(file.string());
  EXPECT_EQ(testing::runCommand(command).exitCode, 0);
  EXPECT_EQ(testing::runCommand({"exiftool", "-q", "-overwrite_original", "-Keys:Make=Quillmere",
                                 "-Keys:Model=Test", file.string()})
                .exitCode,
            0);
  Bytes bytes = readFile(file);
  fs::remove(file);
  return bytes;
}

std::size_t at(const Bytes& bytes, const std::string& type) {
  const auto found = std::search(bytes.begin(), bytes.end(), type.begin(), type.end());
  EXPECT_NE(found, bytes.end()) << type;
  return static_cast<std::size_t>(found - bytes.begin()) - 4;  // the atom's start
}

void setU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

MetadataPatch patch() {
  MetadataPatch patch;
  patch.dateUTC = 1614848700;
  patch.offsetSeconds = 3600;
  patch.caption = "caption";
  return patch;
}

std::vector<std::string> listing(const fs::path& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(QuickTimeMetadataRewriterTest, RefusesMalformedMoviesAndLeavesNothingBehind) {
  TempDir made;
  const Bytes last = keyedMovie(made.path(), false);
  const Bytes first = keyedMovie(made.path(), true);
  struct Case {
    std::string name;
    std::function<Bytes()> make;
  };
  const std::vector<Case> cases = {
      {"ends inside the media data", [&] { return Bytes(first.begin(), first.end() - 100); }},
      {"ends inside the movie atom", [&] { return Bytes(last.begin(), last.end() - 3); }},
      {"movie atom claims more than the file",
       [&] {
         Bytes b = last;
         setU32(b, at(b, "moov"), static_cast<std::uint32_t>(b.size()));
         return b;
       }},
      {"child atom larger than its parent",
       [&] {
         Bytes b = first;
         setU32(b, at(b, "trak"), 0x7FFFFFF0);
         return b;
       }},
      {"child atom shorter than a header",
       [&] {
         Bytes b = first;
         setU32(b, at(b, "mdia"), 3);
         return b;
       }},
      {"movie without header",
       [&] {
         Bytes b = first;
         b[at(b, "mvhd") + 7] = 'X';
         return b;
       }},
      {"item numbered past the keys",
       [&] {
         Bytes b = first;
         setU32(b, at(b, "ilst") + 8 + 4, 9);
         return b;
       }},
      {"keys counting more entries than they hold",
       [&] {
         Bytes b = first;
         setU32(b, at(b, "keys") + 12, 40);
         return b;
       }},
      {"chunk offsets counting more entries than they hold",
       [&] {
         Bytes b = first;
         setU32(b, at(b, "stco") + 12, 1000);
         return b;
       }},
      {"chunk offset into the movie atom",
       [&] {
         Bytes b = first;
         setU32(b, at(b, "stco") + 16, static_cast<std::uint32_t>(at(b, "moov") + 8));
         return b;
       }},
      {"two movie atoms",
       [&] {
         Bytes b = last;
         const std::size_t movie = at(b, "moov");
         b.insert(b.end(), b.begin() + static_cast<std::ptrdiff_t>(movie), b.end());
         return b;
       }},
      {"fragmented movie",
       [&] {
         Bytes b = first;
         std::copy_n("mvex", 4, b.begin() + at(b, "udta") + 4);
         return b;
       }},
      {"not a movie", [] { return Bytes(5000, 'x'); }},
      {"empty file", [] { return Bytes(); }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    TempDir dir;
    fs::create_directory(dir / "export");
    const Bytes bytes = test.make();
    writeFile(dir / "export" / "clip.mov", bytes);
    EXPECT_FALSE(MetadataWriter::writeVideo(patch(), dir / "export" / "clip.mov", dir / "out.mov"));
    EXPECT_EQ(readFile(dir / "export" / "clip.mov"), bytes);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"export"});
  }
}

TEST(QuickTimeMetadataRewriterTest, RefusesDestinationsThatCannotBeWritten) {
  TempDir dir;
  fs::create_directory(dir / "export");
  writeFile(dir / "export" / "clip.mov", keyedMovie(dir.path(), true));
  writeFile(dir / "file", {});
  EXPECT_FALSE(
      MetadataWriter::writeVideo(patch(), dir / "export" / "clip.mov", dir / "file" / "c.mov"));
  if (::geteuid() == 0) GTEST_SKIP() << "root writes into read-only folders";
  fs::create_directory(dir / "locked");
  fs::permissions(dir / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_FALSE(
      MetadataWriter::writeVideo(patch(), dir / "export" / "clip.mov", dir / "locked" / "c.mov"));
  fs::permissions(dir / "locked", fs::perms::owner_all);
  EXPECT_TRUE(listing(dir / "locked").empty());
}

TEST(QuickTimeMetadataRewriterTest, RefusesMissingFoldersItsOwnSourceAndOtherContainers) {
  TempDir dir;
  fs::create_directory(dir / "export");
  writeFile(dir / "export" / "clip.mov", keyedMovie(dir.path(), true));
  EXPECT_FALSE(
      MetadataWriter::writeVideo(patch(), dir / "export" / "clip.mov", dir / "gone" / "c.mov"));
  const Bytes movie = readFile(dir / "export" / "clip.mov");
  EXPECT_FALSE(MetadataWriter::writeVideo(patch(), dir / "export" / "clip.mov",
                                          dir / "export" / "." / "clip.mov"));
  EXPECT_EQ(readFile(dir / "export" / "clip.mov"), movie);
  fs::copy_file(dir / "export" / "clip.mov", dir / "export" / "clip.avi");
  EXPECT_FALSE(MetadataWriter::writeVideo(patch(), dir / "export" / "clip.avi", dir / "c.avi"));
  EXPECT_FALSE(fs::exists(dir / "c.avi"));
}

TEST(QuickTimeMetadataRewriterTest, DiskFillingUpMidWriteLeavesNothing) {
  TempDir dir;
  fs::create_directory(dir / "export");
  writeFile(dir / "export" / "clip.mov", keyedMovie(dir.path(), true));
  const auto size = fs::file_size(dir / "export" / "clip.mov");
  for (const rlim_t limit : {rlim_t{0}, rlim_t{100}, static_cast<rlim_t>(size / 2)}) {
    SCOPED_TRACE(limit);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      // Past the limit writes fail with EFBIG, as on a full disk, instead of killing the process.
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit fileSize{limit, limit};
      ::setrlimit(RLIMIT_FSIZE, &fileSize);
      const bool written =
          MetadataWriter::writeVideo(patch(), dir / "export" / "clip.mov", dir / "out.mov");
      ::_exit(written ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"export"});
  }
}

TEST(QuickTimeMetadataRewriterTest, HostileFilesNeverCrashOrLeaveFiles) {
  fs::path hostile;
  for (const fs::path& shared : {fs::path(QUILLMERE_SOURCE_DIR) / ".." / "shared",
                                 fs::path(QUILLMERE_SOURCE_DIR) / ".." / ".." / "shared"}) {
    if (fs::is_directory(shared / "samples" / "hostile")) hostile = shared / "samples" / "hostile";
  }
  if (hostile.empty()) GTEST_SKIP() << "no hostile samples beside the source folder";
  TempDir dir;
  QuickTimeMetadataEdit edit;
  edit.items = {{"com.apple.quicktime.description", "x"}};
  edit.creationTime = 1614848700;
  for (const auto& entry : fs::recursive_directory_iterator(hostile)) {
    if (!entry.is_regular_file()) continue;
    const fs::path out = dir / "out.mov";
    if (QuickTimeMetadataRewriter::rewrite(edit, entry.path(), out)) fs::remove(out);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{}) << entry.path();
  }
}

}  // namespace
}  // namespace quillmere

namespace quillmere {
namespace {

std::uint64_t getBE(const Bytes& bytes, std::size_t offset, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = (value << 8) | bytes[offset + i];
  return value;
}

TEST(QuickTimeMetadataRewriterTest, WidensChunkOffsetsThatWouldPassFourGiB) {
  TempDir dir;
  const Bytes file = keyedMovie(dir.path(), true);
  const std::size_t start = at(file, "moov");
  Bytes movie(file.begin() + static_cast<std::ptrdiff_t>(start),
              file.begin() + static_cast<std::ptrdiff_t>(start + getBE(file, start, 4)));
  // As if the movie atom ended just below 4 GiB with its media data right after it.
  constexpr std::uint64_t kData = 0xFFFFFFF0;
  const std::size_t table = at(movie, "stco");
  const std::uint64_t count = getBE(movie, table + 12, 4);
  ASSERT_GT(count, 0u);
  for (std::uint64_t i = 0; i < count; ++i)
    setU32(movie, table + 16 + 4 * i, static_cast<std::uint32_t>(kData + i));
  QuickTimeMetadataEdit edit;
  edit.items = {{"com.apple.quicktime.description", "a caption long enough to cross the line"}};
  const std::optional<Bytes> rewritten =
      QuickTimeMetadataRewriter::rewriteMovieAtom(movie, kData - movie.size(), edit);
  ASSERT_TRUE(rewritten);
  const std::uint64_t growth = rewritten->size() - movie.size();
  const std::size_t wide = at(*rewritten, "co64");
  EXPECT_EQ(getBE(*rewritten, wide + 12, 4), count);
  for (std::uint64_t i = 0; i < count; ++i) {
    EXPECT_EQ(getBE(*rewritten, wide + 16 + 8 * i, 8), kData + i + growth);
  }
  EXPECT_EQ(
      std::search(rewritten->begin(), rewritten->end(), std::begin("stco"), std::end("stco") - 1),
      rewritten->end());
  // Offsets before the movie atom stay where they are.
  const std::optional<Bytes> after =
      QuickTimeMetadataRewriter::rewriteMovieAtom(movie, kData + 16, edit);
  ASSERT_TRUE(after);
  EXPECT_NE(std::search(after->begin(), after->end(), std::begin("stco"), std::end("stco") - 1),
            after->end());
}

}  // namespace
}  // namespace quillmere
