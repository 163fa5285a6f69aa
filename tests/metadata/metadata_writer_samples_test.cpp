// The writer on the real camera and phone photos of the shared samples and on the hostile files
// made to break readers, checked by exiftool and ImageMagick: the patch reads back, every other
// tag and every pixel stays, and what cannot be rewritten keeps its bytes beside a sidecar.
#include <gtest/gtest.h>

#include <algorithm>

#include "core/metadata/embedded_metadata_reader.h"
#include "core/metadata/metadata_writer.h"
#include "tests/support/photo_checks.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

const fs::path kSamples = testing::sharedSamples();

// 2024-07-14 18:30:00 UTC, in Santiago de Chile's winter time.
MetadataPatch samplePatch() {
  MetadataPatch patch;
  patch.dateUTC = 1'720'981'800;
  patch.offsetSeconds = -4 * 3600;
  patch.location = GeoPoint{-33.45, -70.66, 570.5};
  patch.caption = "Café — 東京 🎉";
  patch.addKeywords = {"Chile", "Trip"};
  return patch;
}

std::vector<fs::path> samplePhotos() {
  std::vector<fs::path> photos;
  for (const char* folder : {"jpeg", "png", "webp", "tiff", "raw", "heif"}) {
    for (const auto& entry : fs::directory_iterator(kSamples / folder)) {
      photos.push_back(entry.path());
    }
  }
  std::sort(photos.begin(), photos.end());
  return photos;
}

// Checks what exiftool reads from a copy written in place.
void expectPatchInside(const nlohmann::json& tags) {
  const MetadataPatch patch = samplePatch();
  EXPECT_EQ(tags.value("ExifIFD:DateTimeOriginal", ""), "2024:07:14 14:30:00");
  EXPECT_EQ(tags.value("ExifIFD:OffsetTimeOriginal", ""), "-04:00");
  EXPECT_EQ(tags.value("XMP-photoshop:DateCreated", ""), "2024:07:14 14:30:00-04:00");
  EXPECT_NEAR(tags.value("Composite:GPSLatitude", 0.0), -33.45, 1e-7);
  EXPECT_NEAR(tags.value("Composite:GPSLongitude", 0.0), -70.66, 1e-7);
  EXPECT_NEAR(tags.value("GPS:GPSAltitude", 0.0), 570.5, 1e-3);
  EXPECT_EQ(tags.value("IFD0:ImageDescription", ""), *patch.caption);
  if (tags.contains("IPTC:Caption-Abstract")) {
    EXPECT_EQ(tags.value("IPTC:Caption-Abstract", ""), *patch.caption);
    EXPECT_EQ(tags.value("IPTC:CodedCharacterSet", ""), "\x1b%G");
    EXPECT_TRUE(tags.contains("IPTC:Keywords"));
  } else {
    EXPECT_EQ(tags.value("XMP-dc:Description", ""), *patch.caption);
    EXPECT_TRUE(tags.contains("XMP-dc:Subject"));
  }
}

TEST(MetadataWriterSamplesTest, EveryRealPhotoIsWrittenLosslesslyOrKeptBesideItsSidecar) {
  if (!fs::exists(kSamples)) GTEST_SKIP() << "no shared samples at " << kSamples;
  const auto before = testing::snapshotTree(kSamples);
  testing::TempDir dir;
  std::vector<std::string> embedded, sidecars;
  for (const fs::path& sample : samplePhotos()) {
    SCOPED_TRACE(sample.filename().string());
    const fs::path work = dir / "work", destination = dir / sample.filename().string();
    fs::copy_file(sample, work);
    const nlohmann::json tagsBefore = testing::exiftoolTags(sample);
    const std::optional<EmbeddedMetadata> own = EmbeddedMetadataReader::readPhoto(sample);
    const std::vector<std::string> keywords = own ? own->keywords : std::vector<std::string>{};
    const WriteMethod method =
        MetadataWriter::write(samplePatch(), MediaKind::photo, work, destination, keywords);
    EXPECT_FALSE(fs::exists(work));
    if (method == WriteMethod::embedded) {
      embedded.push_back(sample.filename().string());
      const nlohmann::json tagsAfter = testing::exiftoolTags(destination);
      expectPatchInside(tagsAfter);
      EXPECT_EQ(testing::changedTags(tagsBefore, tagsAfter, testing::writtenTagNames()),
                std::vector<std::string>{});
      EXPECT_EQ(testing::pixelHash(destination), testing::pixelHash(sample));
      EXPECT_EQ(testing::imageDataHashes(destination), testing::imageDataHashes(sample));
      EXPECT_EQ(
          MetadataWriter::verify(samplePatch(), EmbeddedMetadataReader::readPhoto(destination)),
          MetadataWriter::Verification{});
    } else {
      ASSERT_EQ(method, WriteMethod::xmpSidecar);
      sidecars.push_back(sample.filename().string());
      EXPECT_EQ(testing::readFile(destination), testing::readFile(sample));
      const nlohmann::json sidecar = testing::exiftoolTags(destination.string() + ".xmp");
      EXPECT_EQ(sidecar.value("XMP-photoshop:DateCreated", ""), "2024:07:14 14:30:00-04:00");
      EXPECT_EQ(sidecar.value("XMP-dc:Description", ""), "Café — 東京 🎉");
      EXPECT_NEAR(sidecar.value("XMP-exif:GPSLatitude", 0.0), -33.45, 1e-7);
    }
    fs::remove_all(dir.path());
    fs::create_directory(dir.path());
  }
  std::string list;
  for (const auto& name : embedded) list += " " + name;
  std::cout << "written in place:" << list << "\n";
  list.clear();
  for (const auto& name : sidecars) list += " " + name;
  std::cout << "XMP sidecar:" << list << "\n";
  EXPECT_EQ(testing::snapshotTree(kSamples), before);
}

TEST(MetadataWriterSamplesTest, HostileFilesNeverCrashTheWriterOrLeaveHalfWrittenFiles) {
  if (!fs::exists(kSamples / "hostile")) GTEST_SKIP() << "no hostile samples at " << kSamples;
  const auto before = testing::snapshotTree(kSamples / "hostile");
  testing::TempDir dir;
  int embedded = 0, sidecars = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kSamples / "hostile")) {
    if (!entry.is_regular_file()) continue;
    SCOPED_TRACE(entry.path().string());
    const fs::path folder = dir / "out", destination = folder / entry.path().filename();
    fs::create_directory(folder);
    fs::copy_file(entry.path(), dir / "work");
    const WriteMethod method =
        MetadataWriter::write(samplePatch(), MediaKind::photo, dir / "work", destination, {});
    EXPECT_FALSE(fs::exists(dir / "work"));
    std::vector<fs::path> left;
    for (const auto& file : fs::directory_iterator(folder)) left.push_back(file.path());
    std::sort(left.begin(), left.end());
    if (method == WriteMethod::embedded) {
      ++embedded;
      EXPECT_EQ(left, std::vector<fs::path>{destination});
      EmbeddedMetadataReader::readPhoto(destination);
    } else {
      ++sidecars;
      EXPECT_EQ(testing::readFile(destination), testing::readFile(entry.path()));
      EXPECT_EQ(left, (std::vector<fs::path>{destination, destination.string() + ".xmp"}));
    }
    fs::remove_all(folder);
  }
  std::cout << "hostile files written in place: " << embedded << ", sidecars: " << sidecars << "\n";
  EXPECT_EQ(testing::snapshotTree(kSamples / "hostile"), before);
}

}  // namespace
}  // namespace quillmere
