#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "core/metadata/exiv2_metadata_writer.h"
#include "core/metadata/heif_meta_box.h"
#include "core/metadata/heif_metadata_rewriter.h"
#include "core/metadata/metadata_writer.h"
#include "tests/support/iso_boxes.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

// HEIF metadata written into a working copy itself: only the new items and a few header bytes
// are written, and readers other than ours must find the same photo with the new metadata.
namespace quillmere::heif_in_place_test {
namespace {

namespace fs = std::filesystem;
using HeifMetadataRewriter::Outcome;
using testing::runCommand;
using testing::TempDir;

Bytes contentOf(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

void store(const fs::path& file, const Bytes& bytes) {
  std::ofstream(file, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

std::uint64_t bigEndian(const Bytes& bytes, std::uint64_t at, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// A top-level box as its header states it: `stated` 0 runs to the end, 1 has a 64-bit size.
struct TopBox {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t stated = 0;
  std::string type;
};

std::vector<TopBox> topBoxes(const Bytes& bytes) {
  std::vector<TopBox> boxes;
  for (std::uint64_t at = 0; at + 8 <= bytes.size();) {
    TopBox box{at, bigEndian(bytes, at, 4), bigEndian(bytes, at, 4),
               std::string(bytes.begin() + at + 4, bytes.begin() + at + 8)};
    if (box.stated == 1) box.size = bigEndian(bytes, at + 8, 8);
    if (box.stated == 0) box.size = bytes.size() - at;
    if (box.size < 8 || box.size > bytes.size() - at) return {};
    boxes.push_back(box);
    at += box.size;
  }
  return boxes;
}

const TopBox& only(const std::vector<TopBox>& boxes, const std::string& type) {
  EXPECT_EQ(
      std::count_if(boxes.begin(), boxes.end(), [&](const TopBox& b) { return b.type == type; }),
      1);
  return *std::find_if(boxes.begin(), boxes.end(), [&](const TopBox& b) { return b.type == type; });
}

// 2022-07-14 21:30:00 at +09:00 in Tokyo, with a caption and two keywords.
MetadataPatch tokyoPatch() {
  MetadataPatch patch;
  patch.dateUTC = 1657801800;
  patch.offsetSeconds = 9 * 3600;
  patch.location = GeoPoint{35.6586, 139.7454, 40};
  patch.caption = "Tokyo Tower at night";
  patch.addKeywords = {"Japan", "Summer 2022"};
  return patch;
}

HeifMetadataRewriter::Merge repairMerge() {
  return [](const HeifMetadataRewriter::Items& items) {
    return Exiv2MetadataWriter::rewriteBlocks(items,
                                              MetadataWriter::buildMetadata(tokyoPatch(), {}));
  };
}

Outcome writeInPlace(const fs::path& file) {
  return HeifMetadataRewriter::rewriteInPlace(file, repairMerge());
}

// The photo with its last box ('mdat', as libheif writes it) running "to the end of the file".
Bytes withLastBoxToEnd(Bytes bytes) {
  const TopBox last = topBoxes(bytes).back();
  EXPECT_EQ(last.type, "mdat");
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(last.offset), 4, 0);
  return bytes;
}

// The photo (ftyp, meta, mdat) with 64-bit sizes in the headers of 'meta' and 'mdat'; every item
// location follows the 16 bytes the data moves.
Bytes withLargeSizes(const Bytes& bytes) {
  const std::vector<TopBox> boxes = topBoxes(bytes);
  EXPECT_EQ(boxes.size(), 3u);
  const TopBox& meta = boxes[1];
  const TopBox& mdat = boxes[2];
  const auto payload = [&](const TopBox& box) {
    return std::span(bytes).subspan(box.offset + 8, box.size - 8);
  };
  std::optional<HeifMetaBox> parsed = HeifMetaBox::parse(payload(meta));
  EXPECT_TRUE(parsed);
  for (HeifMetaBox::Location& location : parsed->locations) {
    if (location.construction != 0) continue;
    if (location.baseOffset != 0) location.baseOffset += 16;
    for (HeifMetaBox::Extent& extent : location.extents) {
      if (location.baseOffset == 0) extent.offset += 16;
    }
  }
  const Bytes encoded = parsed->encode().value();
  EXPECT_EQ(encoded.size(), meta.size);
  const auto large = [](const std::string& type, std::span<const std::uint8_t> content) {
    const std::string header = testing::be(1, 4) + type + testing::be(content.size() + 16, 8);
    Bytes box(header.begin(), header.end());
    box.insert(box.end(), content.begin(), content.end());
    return box;
  };
  Bytes out(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(meta.offset));
  const Bytes newMeta = large("meta", std::span(encoded).subspan(8));
  const Bytes newMdat = large("mdat", payload(mdat));
  out.insert(out.end(), newMeta.begin(), newMeta.end());
  out.insert(out.end(), newMdat.begin(), newMdat.end());
  return out;
}

// The problems exiftool's validation names, one a line.
std::set<std::string> warnings(const fs::path& file) {
  const auto result =
      runCommand({"exiftool", "-validate", "-warning", "-error", "-a", "-s", file.string()});
  std::set<std::string> lines;
  std::istringstream in(result.out);
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("Validate")) lines.insert(line);  // the count
  }
  return lines;
}

// What a reader must find in a photo written in place from `original`: the same bytes except
// the old 'meta' box header (now 'free') and the size of a last box that ran to the end, one
// 'meta' box, the same decoded images, every tag it had and the new ones. Exiv2 0.27 is asked
// too when it `exiv2Reads` the file's layout (it finds item locations only in entries of 14,
// 16 or 18 bytes, which is what most phones write).
void expectWrittenInPlace(const fs::path& original, const fs::path& written, bool exiv2Reads) {
  const Bytes before = contentOf(original);
  const Bytes after = contentOf(written);
  const std::vector<TopBox> boxesBefore = topBoxes(before);
  const std::vector<TopBox> boxesAfter = topBoxes(after);
  ASSERT_FALSE(boxesAfter.empty());
  const TopBox oldMeta = only(boxesBefore, "meta");
  only(boxesAfter, "meta");
  ASSERT_GT(after.size(), before.size());
  for (std::uint64_t at = 0; at < before.size(); ++at) {
    if (before[at] == after[at]) continue;
    const bool metaHeader = at >= oldMeta.offset && at < oldMeta.offset + 8;
    const bool sizeField = boxesBefore.back().stated == 0 && at >= boxesBefore.back().offset &&
                           at < boxesBefore.back().offset + 4;
    ASSERT_TRUE(metaHeader || sizeField) << "byte " << at << " changed";
  }
  EXPECT_EQ(std::string(after.begin() + oldMeta.offset + 4, after.begin() + oldMeta.offset + 8),
            "free");
  // Decoded alike by libheif, every image, alpha and depth plane.
  const std::string pixels = testing::heifPixels(original);
  // libheif 1.15 decodes every sample but an image sequence ('msf1' brand only).
  EXPECT_EQ(pixels.starts_with("not decoded"), original.filename() == "bird_burst.heic") << pixels;
  EXPECT_EQ(testing::heifPixels(written), pixels);
  // exiftool: nothing lost, nothing new to complain about, and the new values.
  const nlohmann::json tagsBefore = testing::exiftoolTags(original);
  const nlohmann::json tags = testing::exiftoolTags(written);
  EXPECT_EQ(testing::changedTags(tagsBefore, tags, testing::writtenTagNames()),
            std::vector<std::string>{});
  const std::set<std::string> known = warnings(original);
  for (const std::string& warning : warnings(written)) {
    EXPECT_TRUE(known.contains(warning)) << "new: " << warning;
  }
  EXPECT_EQ(tags.value("ExifIFD:DateTimeOriginal", ""), "2022:07:14 21:30:00");
  EXPECT_EQ(tags.value("ExifIFD:OffsetTimeOriginal", ""), "+09:00");
  EXPECT_EQ(tags.value("XMP-photoshop:DateCreated", ""), "2022:07:14 21:30:00+09:00");
  EXPECT_NEAR(tags.value("GPS:GPSLatitude", 0.0), 35.6586, 1e-7);
  EXPECT_NEAR(tags.value("GPS:GPSLongitude", 0.0), 139.7454, 1e-7);
  EXPECT_EQ(tags.value("IFD0:ImageDescription", ""), "Tokyo Tower at night");
  EXPECT_EQ(tags.value("XMP-dc:Description", ""), "Tokyo Tower at night");
  EXPECT_TRUE(tags.at("XMP-dc:Subject").dump().ends_with("\"Japan\",\"Summer 2022\"]"))
      << tags.at("XMP-dc:Subject").dump();
  // heif-info: the same images, and both metadata items.
  const auto info = runCommand({"heif-info", written.string()});
  EXPECT_EQ(info.exitCode, 0) << info.err;
  EXPECT_NE(info.out.find("Exif:"), std::string::npos);
  EXPECT_NE(info.out.find("XMP:"), std::string::npos);
  // The same items as the copying rewrite makes of the original.
  TempDir scratch;
  ASSERT_EQ(HeifMetadataRewriter::rewrite(original, scratch / "copy.heic", repairMerge()),
            Outcome::written);
  EXPECT_EQ(HeifMetadataRewriter::readItems(written),
            HeifMetadataRewriter::readItems(scratch / "copy.heic"));
  // Exiv2's own command line, as the digiKam generation of readers sees the file.
  if (exiv2Reads && runCommand({"exiv2", "--version"}).exitCode == 0) {
    const auto exiv2 = runCommand({"exiv2", "-g", "DateTimeOriginal", "-g", "GPSLatitudeRef", "-g",
                                   "Xmp.dc.description", "-Pkv", written.string()});
    EXPECT_NE(exiv2.out.find("Exif.Photo.DateTimeOriginal"), std::string::npos) << exiv2.out;
    EXPECT_NE(exiv2.out.find("2022:07:14 21:30:00"), std::string::npos) << exiv2.out;
    EXPECT_NE(exiv2.out.find("Tokyo Tower at night"), std::string::npos) << exiv2.out;
  }
}

// True when Exiv2's command line finds the Exif of a sample: then it must find ours too.
bool exiv2ReadsExif(const fs::path& file) {
  return runCommand({"exiv2", "-pe", file.string()}).out.find("Exif.") != std::string::npos;
}

class HeifInPlaceSampleTest : public ::testing::TestWithParam<const char*> {};

TEST_P(HeifInPlaceSampleTest, WritesIntoACopyAndLeavesTheSamplesAlone) {
  const fs::path samples = testing::sharedSamples() / "heif";
  const fs::path sample = samples / GetParam();
  if (!fs::exists(sample)) GTEST_SKIP() << "no sample at " << sample;
  const auto snapshot = testing::snapshotTree(samples);
  TempDir scratch;
  const fs::path copy = scratch / "working.heic";
  fs::copy_file(sample, copy);
  if (std::string(GetParam()) == "QuickTime.heic") {  // refused by the copying rewrite too
    EXPECT_EQ(writeInPlace(copy), Outcome::refused);
    EXPECT_TRUE(contentOf(copy) == contentOf(sample));
  } else {
    ASSERT_EQ(writeInPlace(copy), Outcome::written);
    expectWrittenInPlace(sample, copy, exiv2ReadsExif(sample));
  }
  EXPECT_EQ(testing::snapshotTree(samples), snapshot);
}

INSTANTIATE_TEST_SUITE_P(Samples, HeifInPlaceSampleTest, ::testing::ValuesIn(testing::kHeifSamples),
                         [](const auto& info) { return testing::testName(info.param); });

// Photos libheif's encoder makes (one tagged by exiftool first), and the same with box sizes
// that only some writers use: a last box of unstated size, 64-bit sizes.
struct Made {
  const char* name;
  std::function<Bytes(const Bytes&)> variant;
  std::vector<std::string> encoder;
  bool tagged = false;
  bool exiv2Reads = true;  // heif-enc's entries for a thumbnail are of 20 bytes
};

Bytes made(const Made& c, const TempDir& scratch) {
  const fs::path png = scratch / "source.png";
  const auto drawn = runCommand(
      {"convert", "-size", "96x64", "gradient:orange-purple", "-depth", "8", png.string()});
  EXPECT_EQ(drawn.exitCode, 0) << drawn.err;
  const fs::path file = scratch / "made.heic";
  std::vector<std::string> command = {"heif-enc", "-q", "50", "-o", file.string()};
  command.insert(command.end(), c.encoder.begin(), c.encoder.end());
  command.push_back(png.string());
  const auto encoded = runCommand(command);
  EXPECT_EQ(encoded.exitCode, 0) << encoded.err;
  if (c.tagged) {
    testing::writeTags({file,
                        {"-Make=Quillmere", "-Orientation#=6", "-XMP-dc:Subject=Old",
                         "-Exif:DateTimeOriginal=2019:01:01 00:00:00"}});
  }
  Bytes bytes = contentOf(file);
  return c.variant ? c.variant(bytes) : bytes;
}

const Made kMade[] = {
    {"plain HEIC", nullptr, {}},
    {"AVIF", nullptr, {"-A"}},
    {"with thumbnail", nullptr, {"-t", "16"}, false, false},
    {"tagged by exiftool", nullptr, {}, true},
    {"last box to the end of the file", withLastBoxToEnd, {}},
    {"64-bit box sizes", withLargeSizes, {}},
};

TEST(HeifInPlaceRewriterTest, WritesMadePhotosAndOddBoxSizes) {
  for (const Made& c : kMade) {
    SCOPED_TRACE(c.name);
    TempDir scratch;
    const fs::path original = scratch / "original.heic";
    store(original, made(c, scratch));
    ASSERT_EQ(runCommand({"heif-info", original.string()}).exitCode, 0);  // a fixture libheif reads
    const fs::path working = scratch / "working.heic";
    fs::copy_file(original, working);
    ASSERT_EQ(writeInPlace(working), Outcome::written);
    expectWrittenInPlace(original, working, c.exiv2Reads);
    if (c.tagged) {
      const nlohmann::json tags = testing::exiftoolTags(working);
      EXPECT_EQ(tags.value("IFD0:Make", ""), "Quillmere");
      EXPECT_EQ(tags.at("XMP-dc:Subject").dump(), R"(["Old","Japan","Summer 2022"])");
    }
    // A second write finds the first one's items and changes no tag; one 'meta' box remains.
    const nlohmann::json once = testing::exiftoolTags(working);
    ASSERT_EQ(writeInPlace(working), Outcome::written);
    only(topBoxes(contentOf(working)), "meta");
    EXPECT_EQ(testing::changedTags(once, testing::exiftoolTags(working), {}),
              std::vector<std::string>{});
    EXPECT_EQ(testing::heifPixels(working), testing::heifPixels(original));
  }
}

// Files are this big at most while the scope lives: a write past it fails with EFBIG (the
// signal the kernel also sends is ignored meanwhile).
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    signal_ = signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, saved_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    signal(SIGXFSZ, signal_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit saved_{};
  sighandler_t signal_ = SIG_DFL;
};

// Every refusal leaves the file exactly as it was, also one that comes after the first bytes
// were written.
TEST(HeifInPlaceRewriterTest, RefusalsLeaveTheFileAsItWas) {
  TempDir scratch;
  const Bytes plain = made(kMade[0], scratch);
  const Bytes toEnd = withLastBoxToEnd(plain);
  Bytes oldIloc = plain;
  const auto iloc =
      std::search(oldIloc.begin(), oldIloc.end(), std::begin("iloc"), std::end("iloc") - 1);
  ASSERT_NE(iloc, oldIloc.end());
  iloc[4] = 3;  // a version no reader knows
  const HeifMetadataRewriter::Merge refuse = [](const auto&) { return std::nullopt; };
  const HeifMetadataRewriter::Merge nothing = [](const auto&) {
    return std::optional(HeifMetadataRewriter::Items{});
  };
  const struct {
    const char* name;
    const Bytes& bytes;
    HeifMetadataRewriter::Merge merge;
    bool full = false;  // the disk takes no byte more
    Outcome outcome = Outcome::refused;
  } cases[] = {
      {"full disk", plain, repairMerge(), true},
      {"full disk after giving the last box its size", toEnd, repairMerge(), true},
      {"merge refuses", plain, refuse},
      {"nothing to write", plain, nothing, false, Outcome::nothingToWrite},
      {"unknown 'iloc' version", oldIloc, repairMerge()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir work;
    const fs::path file = work / "working.heic";
    store(file, c.bytes);
    Outcome outcome = Outcome::written;
    if (c.full) {
      const FileSizeLimit limit(c.bytes.size());
      outcome = HeifMetadataRewriter::rewriteInPlace(file, c.merge);
    } else {
      outcome = HeifMetadataRewriter::rewriteInPlace(file, c.merge);
    }
    EXPECT_EQ(outcome, c.outcome);
    EXPECT_TRUE(contentOf(file) == c.bytes);
    EXPECT_EQ(testing::filesIn(work.path()), std::vector<fs::path>{file});
  }
  EXPECT_EQ(HeifMetadataRewriter::rewriteInPlace(scratch / "missing.heic", repairMerge()),
            Outcome::refused);
}

// The writer's in-place entry: the working file becomes the copy, and one the rewriter refuses
// still ends as an unchanged copy with its sidecar.
TEST(HeifInPlaceRewriterTest, MetadataWriterMovesTheWrittenWorkingFile) {
  TempDir scratch;
  const Bytes plain = made(kMade[0], scratch);
  const struct {
    const char* name;
    Bytes bytes;
    WriteMethod method;
  } cases[] = {
      {"written", plain, WriteMethod::embedded},
      {"refused", Bytes(plain.begin(), plain.end() - 5), WriteMethod::xmpSidecar},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir work;
    const fs::path file = work / "7.heic";
    store(file, c.bytes);
    const fs::path destination = work / "IMG_0007.HEIC";
    EXPECT_EQ(MetadataWriter::writeInPlace(tokyoPatch(), MediaKind::photo, file, destination, {}),
              c.method);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(fs::exists(work / "IMG_0007.HEIC.xmp"), c.method == WriteMethod::xmpSidecar);
    if (c.method == WriteMethod::xmpSidecar) {
      EXPECT_TRUE(contentOf(destination) == c.bytes);
      continue;
    }
    // As the command line reads it back, in its own process.
    const auto inspected = runCommand({QUILLMERE_CLI, "inspect", destination.string()});
    ASSERT_EQ(inspected.exitCode, 0) << inspected.err;
    const nlohmann::json metadata = nlohmann::json::parse(inspected.out).at("metadata");
    EXPECT_EQ(metadata.at("captureDate"),
              (nlohmann::json{{"local", "2022:07:14 21:30:00"}, {"offsetSeconds", 32400}}));
    EXPECT_EQ(metadata.at("caption"), "Tokyo Tower at night");
  }
}

}  // namespace
}  // namespace quillmere::heif_in_place_test
