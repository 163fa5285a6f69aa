// The reader on real files made by ImageMagick, heif-enc and ffmpeg and tagged by exiftool,
// checked against the table of each fixture and against exiftool's own reading.
#include "core/metadata/embedded_metadata_reader.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/media_fixtures.h"
#include "tests/support/metadata_fixtures.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::expectSameMetadata;
using testing::metadataFixtures;

const fs::path kFixtures = fs::path(QUILLMERE_TEST_DATA) / "metadata";

std::optional<EmbeddedMetadata> read(const fs::path& path, bool movie) {
  return movie ? EmbeddedMetadataReader::readVideo(path) : EmbeddedMetadataReader::readPhoto(path);
}

TEST(EmbeddedMetadataReaderTest, ReadsEveryFixtureAsTabledAndAsExiftoolDoes) {
  const auto before = testing::snapshotTree(kFixtures);
  for (const testing::MetadataFixture& fixture : metadataFixtures()) {
    SCOPED_TRACE(fixture.name);
    const fs::path path = kFixtures / fixture.name;
    const auto found = read(path, fixture.movie);
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
  EXPECT_EQ(EmbeddedMetadataReader::readVideo(kFixtures / "full.jpg"), std::nullopt);
  EXPECT_EQ(EmbeddedMetadataReader::readVideo(kFixtures / "jpeg-named.HEIC"), std::nullopt);
  EXPECT_EQ(testing::snapshotTree(kFixtures), before);
}

TEST(EmbeddedMetadataReaderTest, PrefixesThatHoldTheMetadataAreEnough) {
  // Photos far larger than the first mebibyte of a zip entry that the scanners read, with their
  // metadata near the start, as cameras and phones write them.
  testing::TempDir dir;
  for (const auto format : {testing::PhotoFormat::jpeg, testing::PhotoFormat::heic}) {
    const fs::path path = dir / (format == testing::PhotoFormat::jpeg ? "big.jpg" : "big.heic");
    SCOPED_TRACE(path);
    testing::makePhoto(path, format, 1800, 1350, /*noisy=*/true);
    testing::writeTags({path,
                        {"-DateTimeOriginal=2021:03:04 10:05:00", "-OffsetTimeOriginal=+02:00",
                         "-GPSLatitude=33.86", "-GPSLatitudeRef=S", "-GPSLongitude=151.2",
                         "-GPSLongitudeRef=E", "-ImageDescription=Harbour at dusk"}});
    const Bytes whole = testing::readFile(path);
    ASSERT_GT(whole.size(), 5u << 18);  // well beyond the prefix
    const std::optional<EmbeddedMetadata> fromFile = EmbeddedMetadataReader::readPhoto(path);
    ASSERT_TRUE(fromFile && fromFile->captureDate && fromFile->location);
    EXPECT_EQ(fromFile->captureDate->offsetSeconds(), 7200);
    EXPECT_EQ(fromFile->caption, "Harbour at dusk");
    EXPECT_EQ(fromFile->pixelWidth, 1800);
    EXPECT_EQ(EmbeddedMetadataReader::readImage(std::span(whole).first(1 << 20)), fromFile);
  }
}

TEST(EmbeddedMetadataReaderTest, GarbageCutAndDamagedFilesNeverCrash) {
  testing::TempDir dir;
  std::mt19937 random(11);
  Bytes noise(4096);
  for (auto& byte : noise) byte = static_cast<std::uint8_t>(random());
  testing::writeFile(dir / "noise", noise);
  testing::writeFile(dir / "empty", {});
  testing::writeFile(dir / "text", testing::toBytes("<?xpacket begin=''?><x:xmpmeta/>"));
  fs::create_directory(dir / "folder");
  for (const char* name : {"noise", "empty", "text", "folder", "missing"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(EmbeddedMetadataReader::readPhoto(dir / name), std::nullopt);
    EXPECT_EQ(EmbeddedMetadataReader::readVideo(dir / name), std::nullopt);
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

}  // namespace
}  // namespace quillmere
