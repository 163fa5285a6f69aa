// The reader on real files made by ImageMagick, heif-enc and ffmpeg and tagged by exiftool,
// checked against the table of each fixture and against exiftool's own reading.
#include "core/metadata/embedded_metadata_reader.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/media_fixtures.h"
#include "tests/support/metadata_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using CaptureDate = EmbeddedMetadata::CaptureDate;
using testing::expectSameMetadata;
using testing::metadataFixtures;

const fs::path kFixtures = fs::path(QUILLMERE_TEST_DATA) / "metadata";

TEST(EmbeddedMetadataReaderTest, ReadsEveryFixtureAsTabledAndAsExiftoolDoes) {
  const auto before = testing::snapshotTree(kFixtures);
  for (const testing::MetadataFixture& fixture : metadataFixtures()) {
    SCOPED_TRACE(fixture.name);
    const fs::path path = kFixtures / fixture.name;
    const auto found = fixture.movie ? EmbeddedMetadataReader::readVideo(path)
                                     : EmbeddedMetadataReader::readPhoto(path);
    expectSameMetadata(found, fixture.expected);
    std::vector<std::pair<std::string, std::string>> order;  // libavformat's, for movies
    if (fixture.movie) order = testing::movieTags(path);
    const auto& tags = testing::exiftoolReadings(kFixtures).at(fixture.name);
    expectSameMetadata(testing::expectedFromExiftool(tags, fixture.movie, order), found);
    if (!fixture.movie) {
      expectSameMetadata(EmbeddedMetadataReader::readImage(testing::readFile(path)), found);
    }
  }
  // The content decides, not the extension.
  EXPECT_EQ(EmbeddedMetadataReader::readPhoto(kFixtures / "apple.mov"), std::nullopt);
  EXPECT_EQ(EmbeddedMetadataReader::readVideo(kFixtures / "jpeg-named.HEIC"), std::nullopt);
  EXPECT_EQ(testing::snapshotTree(kFixtures), before);
}

TEST(EmbeddedMetadataReaderTest, PrefixesThatHoldTheMetadataAreEnough) {
  // Photos far beyond the mebibyte a scanner reads of a zip entry, tagged near the start.
  testing::TempDir dir;
  for (const auto format : {testing::PhotoFormat::jpeg, testing::PhotoFormat::heic}) {
    const fs::path path = dir / (format == testing::PhotoFormat::jpeg ? "big.jpg" : "big.heic");
    SCOPED_TRACE(path);
    testing::makePhoto(path, format, 1800, 1350, /*noisy=*/true);
    testing::writeTags({path,
                        {"-DateTimeOriginal=2021:03:04 10:05:00", "-OffsetTimeOriginal=+02:00",
                         "-GPSLatitude=33.86", "-GPSLongitude=151.2", "-ImageDescription=Dusk"}});
    const Bytes whole = testing::readFile(path);
    ASSERT_GT(whole.size(), 5u << 18);  // well beyond the prefix
    const std::optional<EmbeddedMetadata> fromFile = EmbeddedMetadataReader::readPhoto(path);
    ASSERT_TRUE(fromFile && fromFile->captureDate && fromFile->location);
    EXPECT_EQ(fromFile->captureDate->offsetSeconds(), 7200);
    EXPECT_EQ(fromFile->caption, "Dusk");
    EXPECT_EQ(fromFile->pixelWidth, 1800);
    EXPECT_EQ(EmbeddedMetadataReader::readImage(std::span(whole).first(1 << 20)), fromFile);
  }
}

TEST(EmbeddedMetadataReaderTest, GarbageCutAndDamagedFilesNeverCrash) {
  testing::TempDir dir;
  // Noise, text, a folder or a missing file is neither a photo nor a movie.
  std::mt19937 random(11);
  Bytes noise(4096);
  std::generate(noise.begin(), noise.end(), random);
  testing::writeFile(dir / "noise", noise);
  testing::writeFile(dir / "text", testing::toBytes("<?xpacket begin=''?><x:xmpmeta/>"));
  fs::create_directory(dir / "folder");
  for (const char* name : {"noise", "text", "folder", "missing"}) {
    EXPECT_EQ(EmbeddedMetadataReader::readPhoto(dir / name), std::nullopt) << name;
    EXPECT_EQ(EmbeddedMetadataReader::readVideo(dir / name), std::nullopt) << name;
  }
  EXPECT_EQ(EmbeddedMetadataReader::readImage(noise), std::nullopt);
  EXPECT_EQ(EmbeddedMetadataReader::readImage({}), std::nullopt);
  // Every cut and random damage, read as photo and as movie: something or nothing comes back,
  // under the sanitizers.
  for (const char* name : {"full.jpg", "full.heic", "full.png", "full.tiff", "full.webp",
                           "xmp-offset.heic", "apple.mov", "fast-start.mp4", "user-data.mov"}) {
    SCOPED_TRACE(name);
    const Bytes whole = testing::readFile(kFixtures / name);
    for (std::size_t cut = 0, round = 0; cut < whole.size(); cut += 1 + cut / 32, ++round) {
      Bytes damaged = whole;
      for (std::size_t flips = 0; flips <= round % 8; ++flips) {
        damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
      }
      for (const Bytes& bytes : {Bytes(whole.begin(), whole.begin() + cut), damaged}) {
        testing::writeFile(dir / "file", bytes);
        EmbeddedMetadataReader::readPhoto(dir / "file");
        EmbeddedMetadataReader::readVideo(dir / "file");
        EmbeddedMetadataReader::readImage(bytes);
      }
    }
  }
}

TEST(EmbeddedMetadataReaderTest, MovieSizesComeFromTheTrackWhateverTheCodec) {
  // MPEG-4 Part 2 (older cameras, 3GP phones) and H.264, in every QuickTime-family container,
  // and every real movie of the shared samples, against exiftool's reading of the track.
  testing::TempDir dir;
  std::vector<fs::path> movies;
  for (const char* name : {"part2.mp4", "part2.mov", "part2.3gp", "h264.m4v"}) {
    const fs::path path = dir / name;
    const bool part2 = std::string_view(name).starts_with("part2");
    const std::string size = std::string_view(name).ends_with("3gp") ? "176x144" : "320x240";
    ASSERT_EQ(
        testing::runCommand({"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                             "testsrc=size=" + size + ":rate=10", "-t", "1", "-c:v",
                             part2 ? "mpeg4" : "libx264", "-pix_fmt", "yuv420p", path.string()})
            .exitCode,
        0);
    movies.push_back(path);
  }
  const fs::path samples = testing::sharedSamples() / "movies";
  if (fs::exists(samples)) {
    for (const auto& entry : fs::directory_iterator(samples)) movies.push_back(entry.path());
  }
  for (const fs::path& movie : movies) {
    SCOPED_TRACE(movie.filename().string());
    const std::optional<EmbeddedMetadata> found = EmbeddedMetadataReader::readVideo(movie);
    ASSERT_TRUE(found && found->pixelWidth && found->pixelHeight);
    const nlohmann::json tags = testing::exiftoolTags(movie);
    EXPECT_EQ(std::to_string(*found->pixelWidth) + " " + std::to_string(*found->pixelHeight),
              tags.value("Composite:ImageSize", ""));
  }
}

// The rules on properties as the libraries report them, for edges no fixture reaches.
TEST(EmbeddedMetadataRulesTest, CaptureDateNeedsTheShapeOnlyAndCaptionsAreTrimmed) {
  const std::string text = "2021:03:04 10:05:00", odd = "2021:13:04 10:05:00.1 x";
  const struct {
    ImagePropertyValue original;
    std::string xmp;
    std::optional<CaptureDate> expected;
  } cases[] = {
      {std::string("0000:03:04 10:05:00"), "", std::nullopt},  // year zero, even on a real day
      {odd, "", CaptureDate::local(odd, std::nullopt)},        // the planner copes with odd values
      {text, "2021-03-04T10:05:00.25+01:00", CaptureDate::local(text, 3600)},
      {text, "2021-03-04t10:05:00+02:00", CaptureDate::local(text, std::nullopt)},  // not "T"
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xmp);
    ImageProperties properties;
    properties.exif = {{"DateTimeOriginal", c.original}};
    if (!c.xmp.empty()) properties.xmp.emplace().emplace("photoshop:DateCreated", c.xmp);
    EXPECT_TRUE(EmbeddedMetadataReader::fromImageSource(properties).captureDate == c.expected);
  }
  ImageProperties described;
  described.tiff = {{"ImageDescription", std::string("\u00a0\u3000two\nlines\u2028\u0085")}};
  EXPECT_EQ(EmbeddedMetadataReader::fromImageSource(described).caption, "two\nlines");
}

}  // namespace
}  // namespace quillmere
