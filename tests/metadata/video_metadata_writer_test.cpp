#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/metadata/metadata_writer.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using testing::TempDir;

fs::path sampleMovies() { return testing::sharedSamples() / "movies"; }

// Date 2021-03-04T10:05:00+01:00, a place with an altitude, a caption beyond ASCII, two albums.
MetadataPatch fullPatch() {
  MetadataPatch patch;
  patch.dateUTC = 1614848700;
  patch.offsetSeconds = 3600;
  patch.location = GeoPoint{-33.8688, 151.2093, 12.5};
  patch.caption = "Café — 東京 🎉";
  patch.addKeywords = {"Summer 2021", "Family"};
  return patch;
}

std::string run(const std::vector<std::string>& command) {
  const testing::CommandResult result = runCommand(command);
  EXPECT_EQ(result.exitCode, 0) << command.front() << ": " << result.err;
  return result.out;
}

// One second of video and sound from ffmpeg, with `arguments` before the output name.
void makeMovie(const fs::path& file, const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"ffmpeg",
                                      "-v",
                                      "error",
                                      "-f",
                                      "lavfi",
                                      "-i",
                                      "testsrc=size=64x48:rate=10",
                                      "-f",
                                      "lavfi",
                                      "-i",
                                      "sine=frequency=440:sample_rate=8000",
                                      "-t",
                                      "1",
                                      "-pix_fmt",
                                      "yuv420p",
                                      "-c:a",
                                      "aac"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command.push_back(file.string());
  run(command);
}

// Every packet of every stream with its timing, size, flags and a hash of its bytes.
std::string packets(const fs::path& file) {
  return run({"ffprobe", "-v", "error", "-show_entries",
              "packet=stream_index,pts,dts,duration,size,flags,data_hash", "-show_data_hash",
              "SHA256", "-of", "csv", file.string()});
}

std::string streams(const fs::path& file) {
  return run({"ffprobe", "-v", "error", "-show_entries",
              "stream=index,codec_type,codec_tag_string,nb_frames,duration_ts:stream_tags", "-of",
              "csv", file.string()});
}

nlohmann::json exiftool(const fs::path& file) {
  const std::string out =
      run({"exiftool", "-a", "-G1", "-n", "-json", "-api", "largefilesupport=1", file.string()});
  return nlohmann::json::parse(out).at(0);
}

nlohmann::json inspect(const fs::path& file) {
  return nlohmann::json::parse(run({QUILLMERE_CLI, "inspect", file.string()})).at("metadata");
}

// Tags the rewrite may change or remove: what it writes, the older user-data forms of the same
// facts, and what follows from the file's new size and layout.
bool mayChange(const std::string& tag) {
  static const std::set<std::string> kChanging = {
      "QuickTime:CreateDate",       "QuickTime:MediaDataOffset",
      "QuickTime:HandlerType",      "QuickTime:HandlerVendorID",
      "Keys:CreationDate",          "Keys:GPSCoordinates",
      "Keys:Description",           "Keys:Keywords",
      "Keys:DateTimeOriginal",      "Keys:Location",
      "UserData:ContentCreateDate", "UserData:DateTimeOriginal",
      "UserData:GPSCoordinates",    "UserData:LocationInformation",
      "UserData:Description",       "ItemList:ContentCreateDate",
      "ItemList:Description",       "ItemList:GPSCoordinates",
      "Composite:GPSLatitude",      "Composite:GPSLongitude",
      "Composite:GPSAltitude",      "Composite:GPSAltitudeRef",
      "Composite:GPSPosition"};
  return tag == "SourceFile" || tag.starts_with("File:") || tag.starts_with("System:") ||
         tag.starts_with("ExifTool:") || kChanging.contains(tag);
}

// Checks a written copy with independent readers: the new items, every packet and every other
// tag as before, and our own reader finding what was written.
void expectRewritten(const fs::path& before, const fs::path& after) {
  EXPECT_EQ(packets(after), packets(before));
  EXPECT_EQ(streams(after), streams(before));
  const nlohmann::json old = exiftool(before);
  const nlohmann::json written = exiftool(after);
  EXPECT_EQ(written.value("Keys:CreationDate", ""), "2021:03:04 10:05:00+01:00");
  // The text exactly as written: exiftool only splits it into numbers when the latitude has two
  // integer digits, which ISO6709::format does not give.
  EXPECT_EQ(written.value("Keys:GPSCoordinates", ""), "-033.8688+0151.2093+12.500/");
  EXPECT_EQ(written.value("Keys:Description", ""), "Café — 東京 🎉");
  EXPECT_EQ(written.value("Keys:Keywords", ""), "Summer 2021, Family");
  EXPECT_EQ(written.value("QuickTime:CreateDate", ""), "2021:03:04 09:05:00");
  for (const auto& [tag, value] : old.items()) {
    if (mayChange(tag)) continue;
    EXPECT_EQ(written.value(tag, nlohmann::json()), value) << tag;
  }
  // The command line takes ".qt" for no movie at all; it reads the same bytes named ".mov".
  fs::path readable = after;
  if (after.extension() == ".qt") {
    readable.replace_extension(".mov");
    fs::copy_file(after, readable);
  }
  const nlohmann::json metadata = inspect(readable);
  if (readable != after) fs::remove(readable);
  SCOPED_TRACE(metadata.dump());
  ASSERT_TRUE(metadata.is_object() && metadata["location"].is_object());
  EXPECT_EQ(metadata["captureDate"],
            (nlohmann::json{{"absolute", "2021-03-04T09:05:00Z"}, {"offsetSeconds", 3600}}));
  EXPECT_NEAR(metadata["location"].value("latitude", 0.0), -33.8688, 1e-6);
  EXPECT_NEAR(metadata["location"].value("longitude", 0.0), 151.2093, 1e-6);
  EXPECT_EQ(metadata["caption"], "Café — 東京 🎉");
}

std::uint64_t getBE(const Bytes& bytes, std::size_t offset, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = (value << 8) | bytes[offset + i];
  return value;
}

void putBE(Bytes& out, std::uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void setBE(Bytes& bytes, std::size_t offset, std::uint64_t value, int width) {
  for (int i = 0; i < width; ++i)
    bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
}

std::size_t atomAt(const Bytes& bytes, const std::string& type, std::size_t from = 0) {
  const auto found = std::search(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(),
                                 type.begin(), type.end());
  if (found == bytes.end()) throw std::runtime_error("no " + type);
  return static_cast<std::size_t>(found - bytes.begin()) - 4;
}

// Fixture surgery where no tool writes the layout on demand. A movie-last file gets a
// version-1 movie header (64-bit times, as long recordings have); nothing else moves.
void widenMovieHeader(const fs::path& file) {
  Bytes bytes = testing::readFile(file);
  const std::size_t movie = atomAt(bytes, "moov");
  const std::size_t header = atomAt(bytes, "mvhd", movie);
  ASSERT_EQ(bytes[header + 8], 0);
  Bytes widened;
  putBE(widened, getBE(bytes, header, 4) + 12, 4);
  widened.insert(widened.end(), {'m', 'v', 'h', 'd', 1, 0, 0, 0});
  putBE(widened, getBE(bytes, header + 12, 4), 8);  // created
  putBE(widened, getBE(bytes, header + 16, 4), 8);  // modified
  putBE(widened, getBE(bytes, header + 20, 4), 4);  // time scale
  putBE(widened, getBE(bytes, header + 24, 4), 8);  // duration
  const std::size_t end = header + getBE(bytes, header, 4);
  widened.insert(widened.end(), bytes.begin() + static_cast<std::ptrdiff_t>(header + 28),
                 bytes.begin() + static_cast<std::ptrdiff_t>(end));
  bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(header),
              bytes.begin() + static_cast<std::ptrdiff_t>(end));
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(header), widened.begin(), widened.end());
  setBE(bytes, movie, getBE(bytes, movie, 4) + 12, 4);
  const std::string before = packets(file);
  testing::writeFile(file, bytes);
  ASSERT_EQ(packets(file), before);
  ASSERT_EQ(exiftool(file).value("QuickTime:MovieHeaderVersion", 0), 1);
}

// A fast-start file whose 32-bit chunk offset tables become 64-bit ones (as files past 4 GiB
// have): the movie atom grows, so every offset moves by that growth.
Bytes withWideChunkOffsets(const Bytes& bytes, std::size_t start, std::size_t end,
                           std::uint64_t growth) {
  static const std::set<std::string> kPath = {"moov", "trak", "mdia", "minf", "stbl"};
  Bytes out;
  for (std::size_t at = start; at < end;) {
    const std::size_t size = getBE(bytes, at, 4);
    const std::string type(bytes.begin() + static_cast<std::ptrdiff_t>(at + 4),
                           bytes.begin() + static_cast<std::ptrdiff_t>(at + 8));
    if (type == "stco") {
      const std::uint64_t count = getBE(bytes, at + 12, 4);
      putBE(out, 16 + 8 * count, 4);
      out.insert(out.end(), {'c', 'o', '6', '4'});
      putBE(out, getBE(bytes, at + 8, 4), 4);
      putBE(out, count, 4);
      for (std::uint64_t i = 0; i < count; ++i)
        putBE(out, getBE(bytes, at + 16 + 4 * i, 4) + growth, 8);
    } else if (kPath.contains(type)) {
      const Bytes inner = withWideChunkOffsets(bytes, at + 8, at + size, growth);
      putBE(out, inner.size() + 8, 4);
      out.insert(out.end(), type.begin(), type.end());
      out.insert(out.end(), inner.begin(), inner.end());
    } else {
      out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                 bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
    }
    at += size;
  }
  return out;
}

void widenChunkOffsets(const fs::path& file) {
  const Bytes bytes = testing::readFile(file);
  const Bytes probe = withWideChunkOffsets(bytes, 0, bytes.size(), 0);
  ASSERT_GT(probe.size(), bytes.size());
  const std::string before = packets(file);
  testing::writeFile(file,
                     withWideChunkOffsets(bytes, 0, bytes.size(), probe.size() - bytes.size()));
  ASSERT_EQ(packets(file), before);
}

struct MovieCase {
  std::string name;
  std::string fileName;
  std::vector<std::string> ffmpegArguments;
  std::vector<std::string> exiftoolArguments;  // tags written afterwards, when any
  std::function<void(const fs::path&)> reshape = nullptr;
};

TEST(VideoMetadataWriterTest, WritesItemsIntoMoviesMadeByFfmpeg) {
  const std::vector<std::string> oldFacts = {
      "-metadata", "creation_time=2015-01-01T00:00:00Z", "-metadata", "date=2015-01-01T00:00:00",
      "-metadata", "location=+10.0000+020.0000/",        "-metadata", "description=old"};
  auto with = [&](std::vector<std::string> extra) {
    std::vector<std::string> arguments = oldFacts;
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return arguments;
  };
  const std::vector<MovieCase> cases = {
      {"mov, movie last", "clip.mov", {}, {}},
      {"mov, movie first, old user data", "clip.mov", with({"-movflags", "+faststart"}), {}},
      {"mp4, movie last, iTunes items and 3GPP place", "clip.mp4", with({}), {}},
      {"mp4, movie first", "clip.mp4", with({"-movflags", "+faststart"}), {}},
      {"m4v, movie first", "clip.m4v", with({"-f", "mp4", "-movflags", "+faststart"}), {}},
      {"qt, movie last", "clip.qt", with({"-f", "mov"}), {}},
      // With a Live Photo pairing key, which every reader must still find afterwards.
      {"mov with keys in user data",
       "clip.mov",
       with({"-metadata",
             "com.apple.quicktime.content.identifier=6F2B1E0C-3C1A-4F7E-9D55-0A8C2E7B4D11",
             "-movflags", "+faststart+use_metadata_tags"}),
       {}},
      {"mov with a timecode track",
       "clip.mov",
       with({"-timecode", "01:00:00:00", "-movflags", "+faststart"}),
       {}},
      {"mov with keys by exiftool, movie first",
       "clip.mov",
       {"-movflags", "+faststart"},
       {"-Keys:CreationDate=2015:01:01 00:00:00+02:00", "-Keys:GPSCoordinates=10, 20",
        "-Keys:Make=Quillmere", "-Keys:Description=old", "-Keys:Keywords=x"}},
      {"mov with a version-1 movie header", "clip.mov", with({}), {}, widenMovieHeader},
      {"mp4 with 64-bit chunk offsets, movie first",
       "clip.mp4",
       with({"-movflags", "+faststart"}),
       {},
       widenChunkOffsets},
  };
  for (const MovieCase& test : cases) {
    SCOPED_TRACE(test.name);
    TempDir dir;
    fs::create_directory(dir / "export");
    const fs::path source = dir / "export" / test.fileName;
    makeMovie(source, test.ffmpegArguments);
    if (!test.exiftoolArguments.empty()) {
      std::vector<std::string> command = {"exiftool", "-q", "-overwrite_original"};
      command.insert(command.end(), test.exiftoolArguments.begin(), test.exiftoolArguments.end());
      command.push_back(source.string());
      run(command);
    }
    if (test.reshape) test.reshape(source);
    const std::string identifier = exiftool(source).value("Keys:ContentIdentifier", "");
    const auto exported = testing::snapshotTree(dir / "export");
    const fs::path destination = dir / ("copy-" + test.fileName);
    ASSERT_TRUE(MetadataWriter::writeVideo(fullPatch(), source, destination));
    EXPECT_EQ(testing::snapshotTree(dir / "export"), exported);
    expectRewritten(source, destination);
    EXPECT_EQ(exiftool(destination).value("Keys:ContentIdentifier", ""), identifier);
    if (!test.exiftoolArguments.empty()) {
      EXPECT_EQ(exiftool(destination).value("Keys:Make", ""), "Quillmere");
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 2);
  }
}

TEST(VideoMetadataWriterTest, WritesItemsIntoRealCameraAndPhoneMovies) {
  const fs::path kSampleMovies = sampleMovies();
  if (!fs::is_directory(kSampleMovies)) GTEST_SKIP() << "no sample movies at " << kSampleMovies;
  const auto samples = testing::snapshotTree(kSampleMovies);
  for (const fs::directory_entry& entry : fs::directory_iterator(kSampleMovies)) {
    const fs::path source = entry.path();
    SCOPED_TRACE(source.filename().string());
    TempDir dir;
    const fs::path destination = dir / source.filename().string();
    const bool written = MetadataWriter::writeVideo(fullPatch(), source, destination);
    if (source.extension() == ".3gp") {
      EXPECT_FALSE(written);
      EXPECT_FALSE(fs::exists(destination));
      continue;
    }
    ASSERT_TRUE(written);
    expectRewritten(source, destination);
    const nlohmann::json before = exiftool(source);
    const nlohmann::json after = exiftool(destination);
    // Apple's own keys (the Live Photo identifier among them) and the device's stay.
    for (const auto& [tag, value] : before.items()) {
      if (tag.starts_with("Keys:") && !mayChange(tag)) {
        EXPECT_EQ(after.value(tag, nlohmann::json()), value) << tag;
      }
    }
  }
  EXPECT_EQ(testing::snapshotTree(kSampleMovies), samples);
}

}  // namespace
}  // namespace quillmere
