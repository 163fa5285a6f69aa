// The reader on real files made by ImageMagick, heif-enc and ffmpeg and tagged by exiftool,
// checked against the table of each fixture and against exiftool's own reading.
#include "core/metadata/embedded_metadata_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <thread>

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

Bytes readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

std::optional<EmbeddedMetadata> readFixture(const testing::MetadataFixture& fixture) {
  const fs::path path = kFixtures / fixture.name;
  return fixture.movie ? EmbeddedMetadataReader::readVideo(path)
                       : EmbeddedMetadataReader::readPhoto(path);
}

class EmbeddedMetadataFilesTest : public ::testing::Test {
 protected:
  // Reading never changes a file.
  void SetUp() override { before_ = testing::snapshotTree(kFixtures); }
  void TearDown() override { EXPECT_EQ(testing::snapshotTree(kFixtures), before_); }

  std::map<std::string, std::string> before_;
};

TEST_F(EmbeddedMetadataFilesTest, EveryFixtureReadsAsTabled) {
  for (const testing::MetadataFixture& fixture : metadataFixtures()) {
    SCOPED_TRACE(fixture.name);
    expectSameMetadata(readFixture(fixture), fixture.expected);
  }
}

TEST_F(EmbeddedMetadataFilesTest, ExiftoolReadsTheSameFromEveryFixture) {
  for (const testing::MetadataFixture& fixture : metadataFixtures()) {
    SCOPED_TRACE(fixture.name);
    const fs::path path = kFixtures / fixture.name;
    const auto order = fixture.movie ? testing::movieTags(path)
                                     : std::vector<std::pair<std::string, std::string>>{};
    expectSameMetadata(
        testing::expectedFromExiftool(testing::exiftoolReadings(kFixtures).at(fixture.name),
                                      fixture.movie, order),
        readFixture(fixture));
  }
}

TEST_F(EmbeddedMetadataFilesTest, PhotosReadTheSameFromMemory) {
  for (const testing::MetadataFixture& fixture : metadataFixtures()) {
    if (fixture.movie) continue;
    SCOPED_TRACE(fixture.name);
    const Bytes bytes = readFile(kFixtures / fixture.name);
    expectSameMetadata(EmbeddedMetadataReader::readImage(bytes), fixture.expected);
  }
}

TEST(EmbeddedMetadataPrefixTest, PrefixesThatHoldTheMetadataAreEnough) {
  // Photos far larger than the prefix, with their metadata near the start, as cameras and
  // phones write them: a 64 KiB prefix of a JPEG, and the first mebibyte of a HEIC (what the
  // scanners read of a zip entry).
  testing::TempDir dir;
  const std::vector<std::string> tags = {"-DateTimeOriginal=2021:03:04 10:05:00",
                                         "-OffsetTimeOriginal=+02:00",
                                         "-GPSLatitude=33.86",
                                         "-GPSLatitudeRef=S",
                                         "-GPSLongitude=151.2",
                                         "-GPSLongitudeRef=E",
                                         "-ImageDescription=Harbour at dusk",
                                         "-IPTC:Keywords=harbour"};
  const struct {
    const char* name;
    testing::PhotoFormat format;
    int width, height;
    std::size_t prefix;
  } kCases[] = {
      {"big.jpg", testing::PhotoFormat::jpeg, 600, 400, 64 << 10},
      {"big.heic", testing::PhotoFormat::heic, 1800, 1350, 1 << 20},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const fs::path path = dir / c.name;
    testing::makePhoto(path, c.format, c.width, c.height, /*noisy=*/true);
    testing::writeTags({path, tags});
    const Bytes whole = readFile(path);
    ASSERT_GT(whole.size(), c.prefix * 5 / 4) << "the photo should be well beyond the prefix";
    const std::optional<EmbeddedMetadata> fromFile = EmbeddedMetadataReader::readPhoto(path);
    ASSERT_TRUE(fromFile.has_value());
    ASSERT_TRUE(fromFile->captureDate.has_value());
    EXPECT_EQ(fromFile->captureDate->offsetSeconds(), 7200);
    EXPECT_EQ(fromFile->caption, "Harbour at dusk");
    EXPECT_EQ(fromFile->pixelWidth, c.width);
    const Bytes prefix(whole.begin(), whole.begin() + c.prefix);
    EXPECT_EQ(EmbeddedMetadataReader::readImage(prefix), fromFile);
  }
}

TEST_F(EmbeddedMetadataFilesTest, ExtensionsDoNotDecide) {
  // A movie read as a photo, and a photo read as a movie, are not what they claim.
  EXPECT_EQ(EmbeddedMetadataReader::readPhoto(kFixtures / "apple.mov"), std::nullopt);
  EXPECT_EQ(EmbeddedMetadataReader::readVideo(kFixtures / "full.jpg"), std::nullopt);
  EXPECT_EQ(EmbeddedMetadataReader::readVideo(kFixtures / "jpeg-named.HEIC"), std::nullopt);
}

TEST_F(EmbeddedMetadataFilesTest, ManyThreadsReadAtOnce) {
  std::vector<std::optional<EmbeddedMetadata>> sequential;
  for (const auto& fixture : metadataFixtures()) sequential.push_back(readFixture(fixture));
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < metadataFixtures().size(); ++i) {
          const auto& fixture = metadataFixtures()[(i + t * 7) % metadataFixtures().size()];
          const std::size_t index = &fixture - metadataFixtures().data();
          if (readFixture(fixture) != sequential[index]) ++mismatches[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
}

TEST(EmbeddedMetadataDamageTest, WhatIsNotAnImageOrMovieIsAbsent) {
  testing::TempDir dir;
  std::mt19937 random(7);
  Bytes noise(4096);
  for (auto& byte : noise) byte = static_cast<std::uint8_t>(random());
  testing::writeFile(dir / "noise.jpg", noise);
  testing::writeFile(dir / "empty.jpg", {});
  testing::writeFile(dir / "text.jpg", testing::toBytes("just some text, not a photo\n"));
  testing::writeFile(dir / "sidecar.jpg",
                     testing::toBytes("<?xpacket begin=''?><x:xmpmeta xmlns:x='adobe:ns:meta/'>"
                                      "</x:xmpmeta><?xpacket end='w'?>"));
  testing::writeFile(dir / "noise.mp4", noise);
  testing::writeFile(dir / "empty.mp4", {});
  fs::create_directory(dir / "folder.jpg");
  for (const char* name :
       {"noise.jpg", "empty.jpg", "text.jpg", "sidecar.jpg", "folder.jpg", "missing.jpg"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(EmbeddedMetadataReader::readPhoto(dir / name), std::nullopt);
  }
  for (const char* name : {"noise.mp4", "empty.mp4", "missing.mp4", "text.jpg"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(EmbeddedMetadataReader::readVideo(dir / name), std::nullopt);
  }
  EXPECT_EQ(EmbeddedMetadataReader::readImage(noise), std::nullopt);
  EXPECT_EQ(EmbeddedMetadataReader::readImage({}), std::nullopt);
}

TEST(EmbeddedMetadataDamageTest, CutAndDamagedPhotosNeverCrash) {
  // Every cut point of the small fixtures, and random damage to them: the reader must come
  // back (under the sanitizers) with something or nothing, and a cut after the metadata
  // keeps it.
  std::mt19937 random(11);
  for (const char* name : {"full.jpg", "full.heic", "full.png", "full.tiff", "full.webp",
                           "iptc-utf8.jpg", "xmp-offset.heic"}) {
    SCOPED_TRACE(name);
    const Bytes whole = readFile(kFixtures / name);
    for (std::size_t cut = 0; cut < whole.size(); cut += 1 + cut / 64) {
      const Bytes prefix(whole.begin(), whole.begin() + cut);
      EmbeddedMetadataReader::readImage(prefix);
    }
    for (int round = 0; round < 300; ++round) {
      Bytes damaged = whole;
      for (int flips = 0; flips < 1 + round % 8; ++flips) {
        damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
      }
      EmbeddedMetadataReader::readImage(damaged);
    }
  }
}

TEST(EmbeddedMetadataDamageTest, CutAndDamagedMoviesNeverCrash) {
  testing::TempDir dir;
  std::mt19937 random(13);
  for (const char* name : {"apple.mov", "fast-start.mp4", "user-data.mov"}) {
    SCOPED_TRACE(name);
    const Bytes whole = readFile(kFixtures / name);
    for (std::size_t cut = 0; cut < whole.size(); cut += 1 + cut / 16) {
      testing::writeFile(dir / "cut.mov", Bytes(whole.begin(), whole.begin() + cut));
      EmbeddedMetadataReader::readVideo(dir / "cut.mov");
    }
    for (int round = 0; round < 100; ++round) {
      Bytes damaged = whole;
      for (int flips = 0; flips < 1 + round % 8; ++flips) {
        damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
      }
      testing::writeFile(dir / "damaged.mov", damaged);
      EmbeddedMetadataReader::readVideo(dir / "damaged.mov");
    }
  }
}

}  // namespace
}  // namespace quillmere
