#include "core/metadata/heif_metadata_rewriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "core/metadata/embedded_metadata_reader.h"
#include "core/metadata/exiv2_metadata_writer.h"
#include "core/metadata/metadata_writer.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using testing::TempDir;

const fs::path kSamples = testing::sharedSamples() / "heif";

// 2021-03-04 10:05:00 at +02:00, south and west, with a caption and two keywords.
MetadataPatch repairPatch() {
  MetadataPatch fields;
  fields.dateUTC = 1614845100;
  fields.offsetSeconds = 7200;
  fields.location = GeoPoint{-33.86, -70.6, 512.5};
  fields.caption = "Birthday at the beach";
  fields.addKeywords = {"Summer 2021", "Family"};
  return fields;
}

Bytes fileBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

// The repair's write: merge into what the file has, then rewrite.
bool writeFields(const fs::path& source, const fs::path& destination,
                 const MetadataPatch& patch = repairPatch()) {
  const auto merge = [&](const HeifMetadataRewriter::Items& items) {
    return Exiv2MetadataWriter::rewriteBlocks(items, MetadataWriter::buildMetadata(patch, {}));
  };
  return HeifMetadataRewriter::rewrite(source, destination, merge) ==
         HeifMetadataRewriter::Outcome::written;
}

// A rewrite with exactly `items`, whatever the file holds.
bool writeItems(const fs::path& source, const fs::path& destination,
                const HeifMetadataRewriter::Items& items) {
  const auto given = [&](const HeifMetadataRewriter::Items&) { return std::optional(items); };
  return HeifMetadataRewriter::rewrite(source, destination, given) ==
         HeifMetadataRewriter::Outcome::written;
}

// exiftool's lines "[Group] Tag: value" (as text, so that duplicates and binary blocks compare),
// less those that describe the file rather than its content, and those the write sets.
std::multiset<std::string> exiftoolLines(const fs::path& file, bool keepWritten = false) {
  const auto result = runCommand({"exiftool", "-a", "-G1", "-n", "-s", "-m", file.string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  static const char* const kFileLevel[] = {
      "[System]", "[ExifTool]", "[Composite]", "[File]          FileType", "MediaDataSize",
      "MediaDataOffset",
      // Where the thumbnail lies inside the Exif, and who serialised the XMP packet and how:
      // these change with any rewrite of those blocks.
      "ThumbnailOffset", "XMPToolkit", "[XMP-rdf]"};
  static const char* const kWritten[] = {"DateTimeOriginal",    "CreateDate", "OffsetTimeOriginal",
                                         "OffsetTimeDigitized", "[GPS]",      "ImageDescription",
                                         "DateCreated",         "[XMP-dc]"};
  std::multiset<std::string> lines;
  std::istringstream in(result.out);
  for (std::string line; std::getline(in, line);) {
    const auto has = [&](const char* part) { return line.find(part) != std::string::npos; };
    if (std::any_of(std::begin(kFileLevel), std::end(kFileLevel), has)) continue;
    if (!keepWritten && std::any_of(std::begin(kWritten), std::end(kWritten), has)) continue;
    lines.insert(line);
  }
  return lines;
}

std::map<std::string, std::string> exiftoolValues(const fs::path& file) {
  std::map<std::string, std::string> tags;
  for (const std::string& line : exiftoolLines(file, true)) {
    const auto colon = line.find(": ");
    if (colon == std::string::npos) continue;
    std::string key = line.substr(0, colon);
    key.erase(std::remove(key.begin(), key.end(), ' '), key.end());
    tags[key] = line.substr(colon + 2);
  }
  return tags;
}

// heif-info's images (number, size, auxiliary channels) and its list of metadata.
std::pair<std::string, std::string> heifInfo(const fs::path& file) {
  const auto result = runCommand({"heif-info", file.string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  const auto split = result.out.find("metadata:");
  return {result.out.substr(0, split), split == std::string::npos ? "" : result.out.substr(split)};
}

void expectWritten(const fs::path& source, const fs::path& written) {
  // Pixels: decoded the same, byte for byte.
  const std::string before = testing::heifPixels(source);
  // libheif 1.15 decodes every sample but an image sequence ('msf1' brand only).
  EXPECT_EQ(before.starts_with("not decoded"), source.filename() == "bird_burst.heic") << before;
  EXPECT_EQ(testing::heifPixels(written), before);
  // Every tag the original had, untouched unless the write names it.
  const auto original = exiftoolLines(source);
  const auto now = exiftoolLines(written);
  for (const std::string& line : original) {
    EXPECT_TRUE(now.contains(line)) << "lost: " << line;
  }
  const auto tags = exiftoolValues(written);
  EXPECT_EQ(tags.at("[ExifIFD]DateTimeOriginal"), "2021:03:04 10:05:00");
  EXPECT_EQ(tags.at("[ExifIFD]CreateDate"), "2021:03:04 10:05:00");
  EXPECT_EQ(tags.at("[ExifIFD]OffsetTimeOriginal"), "+02:00");
  EXPECT_EQ(tags.at("[XMP-photoshop]DateCreated"), "2021:03:04 10:05:00+02:00");
  EXPECT_EQ(tags.at("[GPS]GPSLatitudeRef"), "S");
  EXPECT_NEAR(std::stod(tags.at("[GPS]GPSLatitude")), 33.86, 1e-7);
  EXPECT_EQ(tags.at("[GPS]GPSLongitudeRef"), "W");
  EXPECT_NEAR(std::stod(tags.at("[GPS]GPSLongitude")), 70.6, 1e-7);
  EXPECT_EQ(tags.at("[GPS]GPSAltitude"), "512.5");
  EXPECT_EQ(tags.at("[IFD0]ImageDescription"), "Birthday at the beach");
  EXPECT_EQ(tags.at("[XMP-dc]Description"), "Birthday at the beach");
  EXPECT_TRUE(tags.at("[XMP-dc]Subject").ends_with("Summer 2021, Family"))
      << tags.at("[XMP-dc]Subject");
  // The same images, now with both metadata items.
  const auto [imagesBefore, metadataBefore] = heifInfo(source);
  const auto [imagesAfter, metadataAfter] = heifInfo(written);
  EXPECT_EQ(imagesAfter, imagesBefore);
  EXPECT_NE(metadataAfter.find("Exif:"), std::string::npos) << metadataAfter;
  EXPECT_NE(metadataAfter.find("XMP:"), std::string::npos) << metadataAfter;
  // Our own reader, as the repair's verification reads it.
  const auto read = EmbeddedMetadataReader::readPhoto(written);
  ASSERT_TRUE(read && read->captureDate);
  EXPECT_EQ(*read->captureDate,
            (EmbeddedMetadata::CaptureDate::local("2021:03:04 10:05:00", 7200)));
  ASSERT_TRUE(read->location);
  EXPECT_NEAR(read->location->latitude, -33.86, 1e-7);
  EXPECT_EQ(read->caption, "Birthday at the beach");
  // And as the command line prints it, from its own process.
  const auto inspected = runCommand({QUILLMERE_CLI, "inspect", written.string()});
  ASSERT_EQ(inspected.exitCode, 0) << inspected.err;
  const nlohmann::json printed = nlohmann::json::parse(inspected.out).at("metadata");
  EXPECT_EQ(printed.at("captureDate"),
            (nlohmann::json{{"local", "2021:03:04 10:05:00"}, {"offsetSeconds", 7200}}));
  EXPECT_NEAR(printed.at("location").at("latitude").get<double>(), -33.86, 1e-7);
  EXPECT_NEAR(printed.at("location").at("longitude").get<double>(), -70.6, 1e-7);
  EXPECT_EQ(printed.at("caption"), "Birthday at the beach");
}

// Samples this rewriter leaves to the sidecar, and why.
const std::map<std::string, std::string> kRefusedSamples = {
    // Item infos come in version 0 (a 16-bit count) and 1 (a 32-bit count) only; a box of
    // another version is one a reader must skip, which leaves this file without items.
    {"QuickTime.heic", "its 'iinf' box has version 2, which no reader may interpret"},
};

// One test a sample, so that each decodes in its own time.
class HeifSampleTest : public ::testing::TestWithParam<const char*> {};

TEST_P(HeifSampleTest, WritesLosslesslyTwiceAlikeAndLeavesTheSamplesAlone) {
  const fs::path sample = kSamples / GetParam();
  if (!fs::exists(sample)) GTEST_SKIP() << "no sample at " << sample;
  const auto snapshot = testing::snapshotTree(kSamples);
  TempDir scratch;
  const fs::path once = scratch / "once.heic";
  const bool refused = kRefusedSamples.contains(GetParam());
  ASSERT_TRUE(HeifMetadataRewriter::isHeif(sample));
  EXPECT_EQ(writeFields(sample, once), !refused);
  if (refused || !fs::exists(once)) {
    EXPECT_TRUE(fs::is_empty(scratch.path()));
  } else {
    expectWritten(sample, once);
    // Writing the written file again, with what the merge makes of it, changes nothing.
    const fs::path twice = scratch / "twice.heic";
    EXPECT_TRUE(writeFields(once, twice));
    EXPECT_TRUE(fileBytes(twice) == fileBytes(once));
  }
  EXPECT_EQ(testing::snapshotTree(kSamples), snapshot);
}

INSTANTIATE_TEST_SUITE_P(Samples, HeifSampleTest, ::testing::ValuesIn(testing::kHeifSamples),
                         [](const auto& info) { return testing::testName(info.param); });

// Files made here with libheif's encoder (from 8-bit PNGs: its AV1 encoder asserts on 16-bit ones)
// (and one tagged by exiftool first): a plain HEIC, one with a thumbnail, one with alpha, two
// images in one file, and an AVIF.
TEST(HeifMetadataRewriterTest, WritesFilesMadeByHeifEnc) {
  TempDir scratch;
  const fs::path plain = scratch / "plain.png";
  const fs::path alpha = scratch / "alpha.png";
  ASSERT_EQ(
      runCommand({"convert", "-size", "64x48", "gradient:red-blue", "-depth", "8", plain.string()})
          .exitCode,
      0);
  ASSERT_EQ(runCommand({"convert", "-size", "40x40", "gradient:green-yellow", "-alpha", "set",
                        "-channel", "A", "-evaluate", "set", "50%", "-depth", "8", alpha.string()})
                .exitCode,
            0);
  const struct {
    const char* name;
    std::vector<std::string> arguments;
  } cases[] = {
      {"plain.heic", {plain.string()}},       {"thumbnail.heic", {"-t", "16", plain.string()}},
      {"alpha.heic", {alpha.string()}},       {"two.heic", {plain.string(), alpha.string()}},
      {"plain.avif", {"-A", plain.string()}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir work;
    const fs::path made = work / c.name;
    std::vector<std::string> command = {"heif-enc", "-q", "50", "-o", made.string()};
    command.insert(command.end(), c.arguments.begin(), c.arguments.end());
    ASSERT_EQ(runCommand(command).exitCode, 0);
    const Bytes original = fileBytes(made);
    const fs::path written = work / "written.heic";
    ASSERT_TRUE(writeFields(made, written));
    expectWritten(made, written);
    EXPECT_TRUE(fileBytes(made) == original);
  }
}

// Keywords: the file's own first, then the added ones not among them, compared exactly; every
// other tag exiftool wrote stays.
TEST(HeifMetadataRewriterTest, MergesIntoWhatExiftoolWrote) {
  TempDir scratch;
  const fs::path made = scratch / "tagged.heic";
  testing::makePhoto(made, testing::PhotoFormat::heic, 64, 48);
  testing::writeTags(
      {made,
       {"-XMP-dc:Subject=A", "-XMP-dc:Subject=B", "-Make=Quillmere", "-Orientation#=6",
        "-LensModel=Test lens", "-Exif:DateTimeOriginal=2019:01:01 00:00:00"}});
  MetadataPatch patch;
  patch.addKeywords = {"B", "C", "b"};
  patch.caption = "Caption only";
  const fs::path written = scratch / "written.heic";
  ASSERT_TRUE(writeFields(made, written, patch));
  const auto tags = exiftoolValues(written);
  EXPECT_EQ(tags.at("[XMP-dc]Subject"), "A, B, C, b");
  EXPECT_EQ(tags.at("[IFD0]ImageDescription"), "Caption only");
  EXPECT_EQ(tags.at("[IFD0]Make"), "Quillmere");
  EXPECT_EQ(tags.at("[IFD0]Orientation"), "6");
  EXPECT_EQ(tags.at("[ExifIFD]LensModel"), "Test lens");
  EXPECT_EQ(tags.at("[ExifIFD]DateTimeOriginal"), "2019:01:01 00:00:00");  // no date patched
  EXPECT_FALSE(tags.contains("[GPS]GPSLatitude"));
  // Only the Exif item changes when only Exif fields are written: the packet stays as it was.
  MetadataPatch place;
  place.location = GeoPoint{48.8577, 2.2945, 0};
  const fs::path placed = scratch / "placed.heic";
  ASSERT_TRUE(writeFields(written, placed, place));
  EXPECT_EQ(HeifMetadataRewriter::readItems(placed)->xmp,
            HeifMetadataRewriter::readItems(written)->xmp);
  const auto placedTags = exiftoolValues(placed);
  EXPECT_EQ(placedTags.at("[GPS]GPSLatitudeRef"), "N");
  EXPECT_FALSE(placedTags.contains("[GPS]GPSAltitude"));  // an altitude of 0 is not written
}

// Offsets of a byte pattern in a file, for damaging one field of a real file.
std::size_t find(const Bytes& bytes, const std::string& pattern) {
  const auto at = std::search(bytes.begin(), bytes.end(), pattern.begin(), pattern.end());
  return static_cast<std::size_t>(at - bytes.begin());
}

void writeBytes(const fs::path& file, const Bytes& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// What the rewriter does not fully understand is refused, with nothing left behind.
TEST(HeifMetadataRewriterTest, RefusesWhatItDoesNotUnderstandAndLeavesNothing) {
  TempDir scratch;
  const fs::path made = scratch / "made.heic";
  testing::makePhoto(made, testing::PhotoFormat::heic, 32, 32);
  const Bytes good = fileBytes(made);
  const std::size_t iloc = find(good, "iloc");
  const std::size_t infe = find(good, "infe");
  ASSERT_LT(iloc + 16, good.size());
  ASSERT_LT(infe + 16, good.size());
  const auto damaged = [&](std::size_t at, std::uint8_t value) {
    Bytes bytes = good;
    bytes[at] = value;
    return bytes;
  };
  const struct {
    const char* name;
    Bytes bytes;
  } cases[] = {
      {"iloc version 3", damaged(iloc + 4, 3)},
      // heif-enc writes iloc version 1; its first entry's data reference follows the item
      // number (2 bytes) and the construction method (2 bytes).
      {"data in another file", damaged(iloc + 4 + 4 + 2 + 2 + 2 + 2 + 1, 1)},
      {"protected item", damaged(infe + 4 + 4 + 2 + 1, 1)},
      {"meta version 1", damaged(find(good, "meta") + 4, 1)},
      {"cut short",
       Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() - 3))},
      {"not an ftyp box first", damaged(find(good, "ftyp"), 'X')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir work;
    const fs::path source = work / "source.heic";
    writeBytes(source, c.bytes);
    EXPECT_FALSE(writeFields(source, work / "out.heic"));
    EXPECT_FALSE(writeItems(source, work / "out.heic", {Bytes{'M', 'M', 0, 42}, std::nullopt}));
    EXPECT_EQ(std::distance(fs::directory_iterator(work.path()), {}), 1);  // the source alone
    EXPECT_TRUE(fileBytes(source) == c.bytes);
  }
  // The same file as source and destination, and no items at all, are refused too.
  EXPECT_FALSE(writeFields(made, made));
  EXPECT_FALSE(writeItems(made, scratch / "out.heic", {std::nullopt, std::nullopt}));
  EXPECT_TRUE(fileBytes(made) == good);
  EXPECT_FALSE(fs::exists(scratch / "out.heic"));
}

// The metadata writer puts HEIF photos' metadata inside them now, whatever their name.
TEST(HeifMetadataRewriterTest, MetadataWriterEmbedsIntoHeicCopies) {
  TempDir scratch;
  const fs::path made = scratch / "made.heic";
  testing::makePhoto(made, testing::PhotoFormat::heic, 48, 32);
  const fs::path working = scratch / "working.bin";  // a lying name: the brands decide
  fs::copy_file(made, working);
  const fs::path destination = scratch / "IMG_0001.HEIC";
  EXPECT_EQ(MetadataWriter::write(repairPatch(), MediaKind::photo, working, destination, {}),
            WriteMethod::embedded);
  EXPECT_FALSE(fs::exists(working));
  EXPECT_FALSE(fs::exists(scratch / "IMG_0001.HEIC.xmp"));
  const auto tags = exiftoolValues(destination);
  EXPECT_EQ(tags.at("[ExifIFD]OffsetTimeOriginal"), "+02:00");
  EXPECT_EQ(tags.at("[XMP-dc]Subject"), "Summer 2021, Family");
  EXPECT_EQ(MetadataWriter::verify(repairPatch(), EmbeddedMetadataReader::readPhoto(destination)),
            MetadataWriter::Verification{});
}

}  // namespace
}  // namespace quillmere
