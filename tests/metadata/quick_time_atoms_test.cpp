#include "core/metadata/quick_time_atoms.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using testing::readFile;
using testing::writeFile;

void put(Bytes& out, std::uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes atom(const std::string& type, const Bytes& payload, bool large = false) {
  Bytes out;
  if (large) {
    put(out, 1, 4);
    out.insert(out.end(), type.begin(), type.end());
    put(out, payload.size() + 16, 8);
  } else {
    put(out, payload.size() + 8, 4);
    out.insert(out.end(), type.begin(), type.end());
  }
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

// A movie header as QuickTime lays it out: times 32 bits wide in version 0, 64 in version 1.
Bytes movieHeader(int version, std::uint64_t created) {
  Bytes payload;
  put(payload, static_cast<std::uint64_t>(version) << 24, 4);
  const int width = version == 1 ? 8 : 4;
  put(payload, created, width);
  put(payload, created, width);  // modified
  put(payload, 1000, 4);         // time scale
  put(payload, 5000, width);     // duration
  put(payload, 0x00010000, 4);   // rate 1.0
  put(payload, 0x0100, 2);       // volume 1.0
  payload.insert(payload.end(), 10, 0);
  for (const std::uint32_t value : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) {
    put(payload, value, 4);
  }
  payload.insert(payload.end(), 24, 0);
  put(payload, 2, 4);  // next track
  return atom("mvhd", payload);
}

Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

const Bytes kFileType = atom("ftyp", {'q', 't', ' ', ' ', 0, 0, 2, 0, 'q', 't', ' ', ' '});

// ffprobe's reading of the movie header's creation time ("" when it states none).
std::string probedCreationTime(const std::filesystem::path& file) {
  const testing::CommandResult result =
      testing::runCommand({"ffprobe", "-v", "error", "-show_entries", "format_tags=creation_time",
                           "-of", "default=nw=1:nk=1", file.string()});
  std::string text = result.out;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

constexpr double k2021 = 1614848700;  // 2021-03-04T09:05:00Z
constexpr double k2041 = 2241696300;  // 2041-01-13T13:25:00Z

TEST(QuickTimeAtomsTest, StampsTheMovieHeaderOrLeavesTheFileAlone) {
  const Bytes mediaData = atom("mdat", Bytes(64, 0xAB));
  struct Case {
    std::string name;
    Bytes file;
    double date;
    std::string expected;  // ffprobe's creation_time afterwards; "" when the file must not change
  };
  const std::vector<Case> cases = {
      {"version 0 header", concat({kFileType, mediaData, atom("moov", movieHeader(0, 0))}), k2021,
       "2021-03-04T09:05:00.000000Z"},
      {"version 1 header takes 2041",
       concat({kFileType, atom("moov", movieHeader(1, 0)), mediaData}), k2041,
       "2041-01-13T13:25:00.000000Z"},
      {"64-bit media data before the movie",
       concat({kFileType, atom("mdat", Bytes(64, 1), true), atom("moov", movieHeader(0, 0))}),
       k2021, "2021-03-04T09:05:00.000000Z"},
      {"version 0 header can't hold 2041",
       concat({kFileType, atom("moov", movieHeader(0, 100)), mediaData}), k2041, ""},
      {"date before 1904", concat({kFileType, atom("moov", movieHeader(1, 100)), mediaData}),
       -2208988800.0 /* 1900 */, ""},
      {"no movie", concat({kFileType, mediaData}), k2021, ""},
      {"movie without header", concat({kFileType, atom("moov", atom("free", {})), mediaData}),
       k2021, ""},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    testing::TempDir dir;
    const auto file = dir / "movie.mov";
    writeFile(file, test.file);
    QuickTimeAtoms::setMovieCreationTime(test.date, file);
    if (test.expected.empty()) {
      EXPECT_EQ(readFile(file), test.file);
    } else {
      EXPECT_EQ(readFile(file).size(), test.file.size());
      EXPECT_EQ(probedCreationTime(file), test.expected);
    }
  }
}

TEST(QuickTimeAtomsTest, SizesThatEndTheSearchLeaveTheFileAlone) {
  const Bytes header = atom("moov", movieHeader(0, 7));
  Bytes truncated = concat({kFileType, header});
  truncated.resize(truncated.size() - 10);  // the movie atom claims more than the file holds
  Bytes sizeZero = concat({kFileType, atom("mdat", header)});
  sizeZero[kFileType.size() + 3] = 0;  // mdat runs to the end, hiding the movie inside it
  Bytes tooShort = concat({kFileType, header});
  tooShort[kFileType.size() + 3] = 4;
  Bytes largeTooShort = concat({kFileType, atom("moov", movieHeader(0, 7), true)});
  largeTooShort[kFileType.size() + 15] = 8;  // a 64-bit size below the 16-byte header
  for (const Bytes& bytes : {truncated, sizeZero, tooShort, largeTooShort}) {
    testing::TempDir dir;
    const auto file = dir / "movie.mov";
    writeFile(file, bytes);
    EXPECT_NO_THROW(QuickTimeAtoms::setMovieCreationTime(k2021, file));
    EXPECT_EQ(readFile(file), bytes);
  }
}

TEST(QuickTimeAtomsTest, FindHonoursSizeZeroAndLargeSizes) {
  testing::TempDir dir;
  const auto file = dir / "movie.mov";
  const Bytes large = atom("mdat", Bytes(40, 0), true);
  Bytes bytes = concat({kFileType, large, atom("free", Bytes(20, 0))});
  bytes[kFileType.size() + large.size() + 3] = 0;  // free runs to the end
  writeFile(file, bytes);
  const int descriptor = ::open(file.c_str(), O_RDONLY);
  ASSERT_GE(descriptor, 0);
  const auto mediaData = QuickTimeAtoms::find("mdat", descriptor, 0, bytes.size());
  ASSERT_TRUE(mediaData);
  EXPECT_EQ(*mediaData, (QuickTimeAtoms::Atom{kFileType.size(), large.size(), 16}));
  const auto free = QuickTimeAtoms::find("free", descriptor, 0, bytes.size() + 100);
  ASSERT_TRUE(free);
  EXPECT_EQ(free->end(), bytes.size() + 100);  // size 0 reaches the end of the range searched
  EXPECT_FALSE(QuickTimeAtoms::find("moov", descriptor, 0, bytes.size()));
  EXPECT_FALSE(QuickTimeAtoms::find("mdat", descriptor, 0, kFileType.size() + 20));
  ::close(descriptor);
}

TEST(QuickTimeAtomsTest, RealMovieGetsItsCreationTimeAndNothingElse) {
  testing::TempDir dir;
  const auto file = dir / "clip.mov";
  ASSERT_EQ(testing::runCommand({"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                                 "testsrc=size=64x48:rate=10", "-t", "1", "-metadata",
                                 "creation_time=2015-01-01T00:00:00Z", file.string()})
                .exitCode,
            0);
  const Bytes before = readFile(file);
  QuickTimeAtoms::setMovieCreationTime(k2021, file);
  const Bytes after = readFile(file);
  EXPECT_EQ(probedCreationTime(file), "2021-03-04T09:05:00.000000Z");
  ASSERT_EQ(after.size(), before.size());
  std::size_t changed = 0;
  for (std::size_t i = 0; i < after.size(); ++i) changed += after[i] != before[i] ? 1 : 0;
  EXPECT_LE(changed, 4u);
  const testing::CommandResult exif =
      testing::runCommand({"exiftool", "-s3", "-QuickTime:CreateDate", "-QuickTime:ModifyDate",
                           "-Track1:TrackCreateDate", file.string()});
  EXPECT_EQ(exif.out, "2021:03:04 09:05:00\n2015:01:01 00:00:00\n2015:01:01 00:00:00\n");
}

TEST(QuickTimeAtomsTest, UnopenableFileThrows) {
  testing::TempDir dir;
  EXPECT_THROW(QuickTimeAtoms::setMovieCreationTime(k2021, dir / "missing.mov"), std::system_error);
}

}  // namespace
}  // namespace quillmere
