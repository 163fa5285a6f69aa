#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/scan/export_kind.h"
#include "core/scan/media_kind.h"
#include "core/scan/media_unit.h"
#include "core/scan/scan_summary.h"
#include "core/scan/work_progress.h"

namespace quillmere {
namespace {

using nlohmann::json;

TEST(MediaKindTest, KindOfFileName) {
  struct Case {
    std::string name;
    MediaKind expected;
  };
  const std::vector<Case> cases = {
      {"photo.JPEG", MediaKind::photo},
      {"IMG_1234.jpg", MediaKind::photo},
      {"IMG_1234.HeIc", MediaKind::photo},
      {"scan.3FR", MediaKind::photo},
      {"IMG_1234.dng", MediaKind::photo},
      {"clip.MP", MediaKind::video},
      {"clip.mp", MediaKind::video},
      {"clip.M2TS", MediaKind::video},
      {"clip.3g2", MediaKind::video},
      {"clip.webm", MediaKind::video},
      {"clip.mpx", MediaKind::other},
      {"clip.mp3", MediaKind::other},
      {"README", MediaKind::other},
      {"metadata.json", MediaKind::other},
      {"IMG_1234.jpg.json", MediaKind::other},
      {"movie.mov.txt", MediaKind::other},
      {"archive.tar.gz", MediaKind::other},
      {"trailing.", MediaKind::other},
      {".jpg", MediaKind::photo},
      {"", MediaKind::other},
      {"Takeout/Photos from 2019/IMG_1.MOV", MediaKind::video},
      {"folder.jpg/README", MediaKind::other},  // only the last component counts
      {"IMG.JPG ", MediaKind::other},
      {"IMG.ＪＰＧ", MediaKind::other},  // fullwidth letters are other letters
      {"IMG.\xff", MediaKind::other},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("name " + c.name);
    EXPECT_EQ(mediaKindOf(c.name), c.expected);
  }
}

TEST(MediaKindTest, ExtensionSets) {
  EXPECT_EQ(photoExtensions().size(), 29u);
  EXPECT_EQ(videoExtensions().size(), 14u);
  // "mp" is a video by its own rule, not by membership.
  EXPECT_FALSE(videoExtensions().contains("mp"));
  for (const auto& extension : photoExtensions()) {
    SCOPED_TRACE(extension);
    EXPECT_FALSE(videoExtensions().contains(extension));
    EXPECT_EQ(mediaKindOf("x." + extension), MediaKind::photo);
  }
  for (const auto& extension : videoExtensions()) {
    SCOPED_TRACE(extension);
    EXPECT_EQ(mediaKindOf("X." + extension), MediaKind::video);
  }
}

template <typename Enum>
void expectRawValues(const std::vector<std::pair<Enum, std::string>>& table) {
  for (const auto& [value, raw] : table) {
    SCOPED_TRACE(raw);
    EXPECT_EQ(rawValue(value), raw);
    EXPECT_EQ(fromRawValue<Enum>(raw), value);
    EXPECT_EQ(json(value), json(raw));
    EXPECT_EQ(json(raw).template get<Enum>(), value);
  }
  for (const std::string bad : {"", "Photo", "VIDEO", " photo", "photo ", "Google takeout",
                                "snapchat", "live_photo", "0", "1"}) {
    SCOPED_TRACE("bad " + bad);
    EXPECT_EQ(fromRawValue<Enum>(bad), std::nullopt);
    EXPECT_THROW(json(bad).template get<Enum>(), json::type_error);
  }
  EXPECT_THROW(json(0).template get<Enum>(), json::type_error);
  EXPECT_THROW(json(nullptr).template get<Enum>(), json::type_error);
}

TEST(RawValueTest, MediaKind) {
  expectRawValues<MediaKind>(
      {{MediaKind::photo, "photo"}, {MediaKind::video, "video"}, {MediaKind::other, "other"}});
}

TEST(RawValueTest, ExportKind) {
  expectRawValues<ExportKind>(
      {{ExportKind::googleTakeout, "Google Takeout"}, {ExportKind::snapchat, "Snapchat"}});
}

TEST(RawValueTest, MediaUnitKind) {
  expectRawValues<MediaUnit::Kind>({{MediaUnit::Kind::single, "single"},
                                    {MediaUnit::Kind::livePhoto, "livePhoto"},
                                    {MediaUnit::Kind::motionPhoto, "motionPhoto"},
                                    {MediaUnit::Kind::editedWithOriginal, "editedWithOriginal"}});
}

ScanSummary numberedSummary() {
  ScanSummary summary;
  std::int64_t next = 1;
  for (const auto& [name, member] : ScanSummary::fields) summary.*member = next++;
  return summary;
}

TEST(ScanSummaryTest, FieldsInDeclarationOrder) {
  const std::vector<std::string> expected = {"sourceFiles",
                                             "zipParts",
                                             "mediaFiles",
                                             "photos",
                                             "videos",
                                             "items",
                                             "duplicateCopies",
                                             "withSidecar",
                                             "withoutSidecar",
                                             "photosMissingDate",
                                             "datesRecoverable",
                                             "photosMissingLocation",
                                             "locationsRecoverable",
                                             "captionsInTakeout",
                                             "albums",
                                             "orphanSidecars",
                                             "unreadableJSON",
                                             "overlays",
                                             "historyEntries",
                                             "matchedExact",
                                             "matchedByDate",
                                             "matchedByOrder",
                                             "dayOnly"};
  ASSERT_EQ(ScanSummary::fields.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i]);
    EXPECT_EQ(ScanSummary::fields[i].first, expected[i]);
  }
  // Each entry names its own member: numbered through the table, read back by name.
  const ScanSummary s = numberedSummary();
  const std::vector<std::int64_t> byName = {s.sourceFiles,
                                            s.zipParts,
                                            s.mediaFiles,
                                            s.photos,
                                            s.videos,
                                            s.items,
                                            s.duplicateCopies,
                                            s.withSidecar,
                                            s.withoutSidecar,
                                            s.photosMissingDate,
                                            s.datesRecoverable,
                                            s.photosMissingLocation,
                                            s.locationsRecoverable,
                                            s.captionsInTakeout,
                                            s.albums,
                                            s.orphanSidecars,
                                            s.unreadableJSON,
                                            s.overlays,
                                            s.historyEntries,
                                            s.matchedExact,
                                            s.matchedByDate,
                                            s.matchedByOrder,
                                            s.dayOnly};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i]);
    EXPECT_EQ(byName[i], static_cast<std::int64_t>(i + 1));
  }
}

TEST(ScanSummaryTest, StartsAtZero) {
  const json zero = ScanSummary();
  ASSERT_EQ(zero.size(), 23u);
  for (const auto& [key, value] : zero.items()) {
    SCOPED_TRACE(key);
    EXPECT_EQ(value, 0);
  }
}

TEST(ScanSummaryTest, JSONRoundTrip) {
  const ScanSummary summary = numberedSummary();
  const json written = summary;
  EXPECT_EQ(written.at("sourceFiles"), 1);
  EXPECT_EQ(written.at("unreadableJSON"), 17);
  EXPECT_EQ(written.at("dayOnly"), 23);
  EXPECT_EQ(written.get<ScanSummary>(), summary);
  EXPECT_EQ(ScanSummary::fromJSON(json::parse(written.dump(2))), summary);
}

TEST(ScanSummaryTest, DecodingRefusesDamagedObjects) {
  struct Case {
    std::string name;
    json value;
  };
  json missing = numberedSummary();
  missing.erase("dayOnly");
  json fractional = numberedSummary();
  fractional["photos"] = 1.5;
  json text = numberedSummary();
  text["photos"] = "3";
  json boolean = numberedSummary();
  boolean["photos"] = true;
  json tooLarge = numberedSummary();
  tooLarge["photos"] = std::numeric_limits<std::uint64_t>::max();
  const std::vector<Case> cases = {
      {"missing counter", missing},
      {"fraction", fractional},
      {"string", text},
      {"Boolean", boolean},
      {"beyond 64-bit", tooLarge},
      {"array", json::array()},
      {"null", json()},
      {"empty object", json::object()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ScanSummary::fromJSON(c.value), std::nullopt);
    EXPECT_THROW(c.value.get<ScanSummary>(), json::type_error);
  }
  // Keys it does not know are ignored.
  json extra = numberedSummary();
  extra["futureCounter"] = 9;
  EXPECT_EQ(ScanSummary::fromJSON(extra), numberedSummary());
}

TEST(WorkProgressTest, PhaseTexts) {
  EXPECT_EQ(ScanPhase::readingExport, "Reading the export");
  EXPECT_EQ(ScanPhase::readingMetadata, "Reading Google's metadata");
  EXPECT_EQ(ScanPhase::matching, "Matching photos to metadata");
  EXPECT_EQ(ScanPhase::checkingFiles, "Checking dates and places in files");
  EXPECT_EQ(ScanPhase::complete, "Scan complete");
}

}  // namespace
}  // namespace quillmere
