// The metadata writer on photos made by ImageMagick and heif-enc and tagged by exiftool, read
// back by exiftool; its sidecars, file times, failures and the read-back verification.
#include "core/metadata/metadata_writer.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/metadata/embedded_metadata_reader.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::PhotoFormat;

constexpr double kJuly14 = 1'720'981'800;  // 2024-07-14 18:30:00 UTC

MetadataPatch fullPatch() {
  MetadataPatch patch;
  patch.dateUTC = kJuly14;
  patch.offsetSeconds = -4 * 3600;
  patch.location = GeoPoint{-33.86, -70.6, 0.0};
  patch.caption = "Café — 東京 🎉";
  patch.addKeywords = {"B", "C"};
  return patch;
}

double modificationTime(const fs::path& file) {
  struct stat status {};
  EXPECT_EQ(::stat(file.c_str(), &status), 0);
  return static_cast<double>(status.st_mtim.tv_sec) + status.st_mtim.tv_nsec / 1e9;
}

// The names of the files in `folder`, sorted.
std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const fs::path& file : testing::filesIn(folder)) names.push_back(file.filename());
  return names;
}

std::vector<std::string> texts(const nlohmann::json& value) {
  if (value.is_array()) return value.get<std::vector<std::string>>();
  return {value.get<std::string>()};
}

TEST(MetadataWriterTest, BuildsWhatAPatchPutsIntoAPhoto) {
  EXPECT_EQ(label(WriteMethod::xmpSidecar), "XMP sidecar + file dates");
  for (const WriteMethod method :
       {WriteMethod::unchanged, WriteMethod::embedded, WriteMethod::xmpSidecar}) {
    EXPECT_EQ(writeMethodFromLabel(label(method)), method);
  }
  EXPECT_EQ(writeMethodFromLabel("Written into file"), std::nullopt);

  const MetadataWriter::PhotoTags tags = MetadataWriter::buildMetadata(fullPatch(), {"A", "B"});
  EXPECT_EQ(tags.localDate, "2024:07:14 14:30:00");
  EXPECT_EQ(tags.offset, "-04:00");
  EXPECT_EQ(tags.xmpDate, "2024-07-14T14:30:00-04:00");
  EXPECT_EQ(tags.location, (GeoPoint{-33.86, -70.6, std::nullopt}));  // altitude 0 is not written
  EXPECT_EQ(tags.keywords, (std::vector<std::string>{"A", "B", "C"}));

  MetadataPatch undated = fullPatch();
  undated.offsetSeconds.reset();  // an instant without its offset only reaches the file times
  undated.addKeywords.clear();    // and keywords stay untouched
  const MetadataWriter::PhotoTags plain = MetadataWriter::buildMetadata(undated, {"A"});
  EXPECT_FALSE(plain.localDate || plain.xmpDate || plain.keywords);
  MetadataPatch offsetOnly;
  offsetOnly.offsetSeconds = 3600;
  EXPECT_TRUE(offsetOnly.isEmpty());
  EXPECT_TRUE(MetadataWriter::buildMetadata(offsetOnly, {"A"}).isEmpty());
}

// Every rewritable format, made by the real tools with existing tags in every block (Latin-1
// IPTC without a character set, XMP counterparts of each fact), written and read back.
TEST(MetadataWriterTest, WritesEveryRewritableFormatAndExiftoolReadsItBack) {
  testing::TempDir dir;
  fs::create_directory(dir / "export");
  const struct {
    const char* name;
    PhotoFormat format;
    bool iptc;
  } cases[] = {{"photo.jpg", PhotoFormat::jpeg, true},
               {"photo.png", PhotoFormat::png, true},
               {"photo.tif", PhotoFormat::tiff, true},
               {"photo.webp", PhotoFormat::webp, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path original = dir / "export" / c.name;
    testing::makePhoto(original, c.format, 64, 48);
    std::vector<std::string> edit = {"-Make=Quillmere",
                                     "-DateTimeOriginal=2001:01:01 00:00:00",
                                     "-XMP-exif:DateTimeOriginal=2001:01:01 00:00:00",
                                     "-XMP-dc:Description=Old",
                                     "-XMP-dc:Subject=A",
                                     "-XMP-exif:GPSLatitude=10",
                                     "-XMP-exif:GPSLatitudeRef=N"};
    if (c.iptc) {
      edit.insert(edit.end(), {"-charset", "iptc=Latin", "-IPTC:Keywords=A", "-IPTC:Keywords=B",
                               "-IPTC:ObjectName=Crème"});
    }
    testing::writeTags({original, edit});
    const auto exportBefore = testing::snapshotTree(dir / "export");
    const nlohmann::json before = testing::exiftoolTags(original);
    const fs::path work = dir / "work", destination = dir / "out" / c.name;
    fs::create_directory(dir / "out");
    fs::copy_file(original, work);

    const std::vector<std::string> own =
        c.iptc ? std::vector<std::string>{"A", "B"} : std::vector<std::string>{};
    ASSERT_EQ(MetadataWriter::write(fullPatch(), MediaKind::photo, work, destination, own),
              WriteMethod::embedded);
    EXPECT_FALSE(fs::exists(work));
    EXPECT_EQ(namesIn(dir / "out"), std::vector<std::string>{c.name});
    EXPECT_DOUBLE_EQ(modificationTime(destination), kJuly14);

    const nlohmann::json after = testing::exiftoolTags(destination);
    EXPECT_EQ(after.value("ExifIFD:DateTimeOriginal", ""), "2024:07:14 14:30:00");
    EXPECT_EQ(after.value("ExifIFD:CreateDate", ""), "2024:07:14 14:30:00");
    EXPECT_EQ(after.value("ExifIFD:OffsetTimeDigitized", ""), "-04:00");
    EXPECT_EQ(after.value("XMP-photoshop:DateCreated", ""), "2024:07:14 14:30:00-04:00");
    EXPECT_EQ(after.value("XMP-exif:DateTimeOriginal", ""), "2024:07:14 14:30:00-04:00");
    EXPECT_EQ(after.value("GPS:GPSLatitudeRef", ""), "S");
    EXPECT_EQ(after.value("GPS:GPSLongitudeRef", ""), "W");
    EXPECT_FALSE(after.contains("GPS:GPSAltitude"));
    EXPECT_NEAR(after.value("XMP-exif:GPSLatitude", 0.0), -33.86, 1e-6);
    EXPECT_EQ(after.value("IFD0:ImageDescription", ""), "Café — 東京 🎉");
    EXPECT_EQ(after.value("XMP-dc:Description", ""), "Café — 東京 🎉");
    EXPECT_EQ(texts(after.at("XMP-dc:Subject")), (std::vector<std::string>{"A", "B", "C"}));
    if (c.iptc) {
      EXPECT_EQ(after.value("IPTC:Caption-Abstract", ""), "Café — 東京 🎉");
      EXPECT_EQ(texts(after.at("IPTC:Keywords")), (std::vector<std::string>{"A", "B", "C"}));
      EXPECT_EQ(after.value("IPTC:ObjectName", ""), "Crème");  // converted, still readable
    }
    EXPECT_EQ(after.value("IFD0:Make", ""), "Quillmere");
    EXPECT_EQ(testing::pixelHash(destination), testing::pixelHash(original));
    EXPECT_EQ(testing::changedTags(before, after, testing::writtenTagNames()),
              std::vector<std::string>{});
    const std::optional<EmbeddedMetadata> reread = EmbeddedMetadataReader::readPhoto(destination);
    EXPECT_EQ(MetadataWriter::verify(fullPatch(), reread), MetadataWriter::Verification{});
    EXPECT_EQ(testing::snapshotTree(dir / "export"), exportBefore);
    fs::remove_all(dir / "out");
  }
}

TEST(MetadataWriterTest, WhatCannotBeRewrittenKeepsItsBytesBesideAnExclusiveSidecar) {
  testing::TempDir dir;
  // GIF has no lossless place for Exif; HEIF photos are rewritten in place since they can be.
  const fs::path gif = dir / "photo.gif";
  ASSERT_EQ(testing::runCommand({"convert", "-size", "64x48", "gradient:", gif.string()}).exitCode,
            0);
  const Bytes original = testing::readFile(gif);
  testing::writeFile(dir / "clip.avi", testing::toBytes("RIFF....AVI "));
  const struct {
    const char* name;
    MediaKind kind;
  } cases[] = {{"photo.gif", MediaKind::photo}, {"clip.avi", MediaKind::video}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path destination = dir / ("copy-" + std::string(c.name));
    const Bytes bytes = testing::readFile(dir / c.name);
    EXPECT_EQ(MetadataWriter::write(fullPatch(), c.kind, dir / c.name, destination, {"A"}),
              WriteMethod::xmpSidecar);
    EXPECT_EQ(testing::readFile(destination), bytes);
    EXPECT_DOUBLE_EQ(modificationTime(destination), kJuly14);
    const nlohmann::json sidecar = testing::exiftoolTags(destination.string() + ".xmp");
    EXPECT_EQ(sidecar.value("XMP-photoshop:DateCreated", ""), "2024:07:14 14:30:00-04:00");
    EXPECT_EQ(sidecar.value("XMP-exif:DateTimeOriginal", ""), "2024:07:14 14:30:00-04:00");
    EXPECT_NEAR(sidecar.value("XMP-exif:GPSLatitude", 0.0), -33.86, 1e-6);
    EXPECT_NEAR(sidecar.value("XMP-exif:GPSLongitude", 0.0), -70.6, 1e-6);
    EXPECT_FALSE(sidecar.contains("XMP-exif:GPSAltitude"));
    EXPECT_EQ(sidecar.value("XMP-dc:Description", ""), "Café — 東京 🎉");
    EXPECT_EQ(texts(sidecar.at("XMP-dc:Subject")), (std::vector<std::string>{"A", "B", "C"}));
    // A second attempt finds the sidecar and fails with the system's error, changing nothing.
    const Bytes sidecarBytes = testing::readFile(destination.string() + ".xmp");
    try {
      MetadataWriter::writeXMPSidecar(fullPatch(), destination, {});
      ADD_FAILURE() << "overwrote the sidecar";
    } catch (const fs::filesystem_error& error) {
      EXPECT_EQ(error.code(), std::errc::file_exists);
    }
    EXPECT_EQ(testing::readFile(destination.string() + ".xmp"), sidecarBytes);
  }
  EXPECT_EQ(testing::readFile(dir / "copy-photo.gif"), original);
  EXPECT_EQ(namesIn(dir.path()),
            (std::vector<std::string>{"copy-clip.avi", "copy-clip.avi.xmp", "copy-photo.gif",
                                      "copy-photo.gif.xmp"}));
}

TEST(MetadataWriterTest, EmptyPatchesMoveTheFileAndUndatedOnesOnlySetItsTimes) {
  testing::TempDir dir;
  testing::makePhoto(dir / "a.jpg", PhotoFormat::jpeg, 32, 32);
  const Bytes original = testing::readFile(dir / "a.jpg");
  fs::copy_file(dir / "a.jpg", dir / "b.jpg");
  const double before = modificationTime(dir / "a.jpg");
  MetadataPatch offsetOnly;
  offsetOnly.offsetSeconds = 7200;
  EXPECT_EQ(MetadataWriter::write(offsetOnly, MediaKind::photo, dir / "a.jpg", dir / "a2.jpg", {}),
            WriteMethod::unchanged);
  EXPECT_EQ(testing::readFile(dir / "a2.jpg"), original);
  EXPECT_DOUBLE_EQ(modificationTime(dir / "a2.jpg"), before);

  MetadataPatch undated;
  undated.dateUTC = kJuly14 + 0.25;
  EXPECT_EQ(MetadataWriter::write(undated, MediaKind::photo, dir / "b.jpg", dir / "b2.jpg", {}),
            WriteMethod::embedded);
  EXPECT_EQ(testing::readFile(dir / "b2.jpg"), original);  // no Exif date without an offset
  EXPECT_DOUBLE_EQ(modificationTime(dir / "b2.jpg"), kJuly14 + 0.25);
  EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{"a2.jpg", "b2.jpg"}));
}

// The copy made from memory is the one made from a working file: same bytes, method, sidecar and
// times, for every way through the writer.
TEST(MetadataWriterTest, WritingFromMemoryMakesTheSameCopyAsFromAFile) {
  testing::TempDir dir;
  fs::create_directory(dir / "export");
  testing::makePhoto(dir / "export" / "photo.jpg", PhotoFormat::jpeg, 64, 48);
  testing::makePhoto(dir / "export" / "photo.png", PhotoFormat::png, 64, 48);
  testing::makePhoto(dir / "export" / "photo.heic", PhotoFormat::heic, 64, 48);
  ASSERT_EQ(testing::runCommand(
                {"convert", "-size", "64x48", "gradient:", (dir / "export" / "photo.gif").string()})
                .exitCode,
            0);
  const auto exportBefore = testing::snapshotTree(dir / "export");
  MetadataPatch undated;
  undated.dateUTC = kJuly14;
  const struct {
    const char* name;
    MetadataPatch patch;
    WriteMethod method;
  } cases[] = {{"photo.jpg", fullPatch(), WriteMethod::embedded},
               {"photo.png", fullPatch(), WriteMethod::embedded},
               {"photo.jpg", undated, WriteMethod::embedded},
               {"photo.jpg", MetadataPatch{}, WriteMethod::unchanged},
               {"photo.gif", fullPatch(), WriteMethod::xmpSidecar}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " " + std::string(label(c.method)));
    const Bytes bytes = testing::readFile(dir / "export" / c.name);
    ASSERT_TRUE(MetadataWriter::writesFromMemory(MediaKind::photo, bytes));
    for (const char* folder : {"file", "memory"}) fs::create_directory(dir / folder);
    fs::copy_file(dir / "export" / c.name, dir / "work");
    const fs::path fromFile = dir / "file" / c.name, fromMemory = dir / "memory" / c.name;
    EXPECT_EQ(MetadataWriter::write(c.patch, MediaKind::photo, dir / "work", fromFile, {"A"}),
              c.method);
    const auto prepared = MetadataWriter::prepare(c.patch, bytes, c.name, {"A"});
    EXPECT_EQ(MetadataWriter::writePrepared(prepared, c.patch, bytes, fromMemory, {"A"}), c.method);
    EXPECT_EQ(testing::readFile(fromMemory), testing::readFile(fromFile));
    EXPECT_EQ(namesIn(dir / "memory"), namesIn(dir / "file"));
    EXPECT_DOUBLE_EQ(modificationTime(fromMemory),
                     c.patch.dateUTC ? *c.patch.dateUTC : modificationTime(fromMemory));
    if (c.method == WriteMethod::xmpSidecar) {
      EXPECT_EQ(testing::readFile(fromMemory.string() + ".xmp"),
                testing::readFile(fromFile.string() + ".xmp"));
    }
    if (c.method == WriteMethod::embedded && c.patch.caption) {
      EXPECT_EQ(testing::exiftoolTags(fromMemory).value("IFD0:ImageDescription", ""),
                *c.patch.caption);
    }
    for (const char* folder : {"file", "memory"}) fs::remove_all(dir / folder);
  }
  // HEIC, HEIF and AVIF are rewritten from a file, and nothing else is taken from memory.
  EXPECT_FALSE(MetadataWriter::writesFromMemory(MediaKind::photo,
                                                testing::readFile(dir / "export" / "photo.heic")));
  EXPECT_FALSE(MetadataWriter::writesFromMemory(MediaKind::video,
                                                testing::readFile(dir / "export" / "photo.jpg")));
  EXPECT_EQ(testing::snapshotTree(dir / "export"), exportBefore);
}

TEST(MetadataWriterTest, RefusingFoldersAndFullDisksNeverLeaveHalfWrittenFiles) {
  testing::TempDir dir;
  const fs::path photo = dir / "export" / "big.jpg";
  fs::create_directory(dir / "export");
  testing::makePhoto(photo, PhotoFormat::jpeg, 600, 400, /*noisy=*/true);
  const auto exportBefore = testing::snapshotTree(dir / "export");

  // A destination folder that cannot hold files: the error is thrown, the working file stays.
  fs::copy_file(photo, dir / "work.jpg");
  testing::writeFile(dir / "not-a-folder", {});
  EXPECT_THROW(MetadataWriter::write(fullPatch(), MediaKind::photo, dir / "work.jpg",
                                     dir / "not-a-folder" / "x.jpg", {}),
               fs::filesystem_error);
  if (::geteuid() != 0) {  // permissions do not bind root
    fs::create_directory(dir / "locked");
    fs::permissions(dir / "locked", fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_THROW(MetadataWriter::write(fullPatch(), MediaKind::photo, dir / "work.jpg",
                                       dir / "locked" / "x.jpg", {}),
                 fs::filesystem_error);
    EXPECT_TRUE(fs::is_empty(dir / "locked"));
  }
  EXPECT_EQ(testing::readFile(dir / "work.jpg"), testing::readFile(photo));

  // A disk that fills up mid-write (a file size limit in a child process): the rewrite fails,
  // and the copy falls back to the untouched bytes and a small sidecar.
  fs::create_directory(dir / "full");
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{64 * 1024, 64 * 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    try {
      const WriteMethod method = MetadataWriter::write(
          fullPatch(), MediaKind::photo, dir / "work.jpg", dir / "full" / "x.jpg", {});
      ::_exit(method == WriteMethod::xmpSidecar ? 0 : 1);
    } catch (...) {
      ::_exit(2);
    }
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(namesIn(dir / "full"), (std::vector<std::string>{"x.jpg", "x.jpg.xmp"}));
  EXPECT_EQ(testing::readFile(dir / "full" / "x.jpg"), testing::readFile(photo));
  EXPECT_EQ(testing::snapshotTree(dir / "export"), exportBefore);
}

TEST(MetadataWriterTest, VerifiesTheCopyAsReadBack) {
  using CaptureDate = EmbeddedMetadata::CaptureDate;
  MetadataPatch patch;
  patch.dateUTC = kJuly14;
  patch.offsetSeconds = -4 * 3600;
  patch.location = GeoPoint{-33.86, -70.6, std::nullopt};
  const auto read = [](std::optional<CaptureDate> date, std::optional<GeoPoint> place) {
    EmbeddedMetadata metadata;
    metadata.captureDate = std::move(date);
    metadata.location = place;
    return std::optional<EmbeddedMetadata>(metadata);
  };
  const GeoPoint here{-33.86, -70.6, std::nullopt};
  const GeoPoint fiftyMetresOff{-33.86 + 50.01 / 111'195, -70.6, std::nullopt};
  const std::string dateProblem = "Date didn't verify after writing";
  const std::string placeProblem = "Location didn't verify after writing";
  const std::string note = "This file type can't store a time zone; the local time is correct";
  const struct {
    const char* what;
    std::optional<EmbeddedMetadata> reread;
    MetadataWriter::Verification expected;
  } cases[] = {
      {"nothing read", std::nullopt, {"Couldn't re-read the written file", std::nullopt}},
      {"local with offset", read(CaptureDate::local("2024:07:14 14:30:00", -14400), here), {}},
      {"local without offset",
       read(CaptureDate::local("2024:07:14 14:30:00.25", std::nullopt), here),
       {std::nullopt, note}},
      {"3 s off",
       read(CaptureDate::local("2024:07:14 14:30:03", -14400), here),
       {dateProblem, std::nullopt}},
      {"2 s off", read(CaptureDate::absolute(kJuly14 + 2, std::nullopt), here), {}},
      {"other wall clock",
       read(CaptureDate::local("2024:07:14 18:30:00", std::nullopt), here),
       {dateProblem, std::nullopt}},
      {"no date", read(std::nullopt, here), {dateProblem, std::nullopt}},
      {"50 m off",
       read(CaptureDate::absolute(kJuly14, 0), fiftyMetresOff),
       {placeProblem, std::nullopt}},
      {"no place",
       read(CaptureDate::absolute(kJuly14, 0), std::nullopt),
       {placeProblem, std::nullopt}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(MetadataWriter::verify(patch, c.reread), c.expected);
  }
}

}  // namespace
}  // namespace quillmere
