#include "core/repair/file_plan.h"

#include <gtest/gtest.h>

#include "core/sources/folder_file.h"
#include "tests/support/scoped_environment.h"

// What the engine decides for one file, and the row it makes of that.
namespace quillmere::RepairEngine {
namespace {

using CaptureDate = EmbeddedMetadata::CaptureDate;

constexpr double kJuly4 = 1562247000;  // 2019-07-04 13:30:00 UTC
const GeoPoint kLisbon{38.7223, -9.1393, std::nullopt};

MediaFilePtr mediaFile(MediaKind kind = MediaKind::photo) {
  auto source = std::make_shared<FolderFile>("/export/IMG_1.JPG", "Photos from 2019/IMG_1.JPG", 1);
  return std::make_shared<MediaFile>(0, source, kind);
}

TakeoutSidecar::Geo geo(const GeoPoint& point, double altitude = 0) {
  return {point.latitude, point.longitude, altitude};
}

// A point `meters` north of `point`.
GeoPoint north(const GeoPoint& point, double meters) {
  return {point.latitude + meters / 111194.9, point.longitude, point.altitude};
}

OffsetIndex emptyIndex() {
  OffsetIndex index;
  index.fallbackZone = TimeZone::named("Asia/Tokyo");
  index.finalize();
  return index;
}

TEST(FilePlanTest, NotesComeInTheirOrder) {
  const ScopedEnvironment tz("TZ", "Asia/Tokyo");
  auto file = mediaFile();
  TakeoutSidecar trashed;
  trashed.photoTakenTime = kJuly4;
  trashed.trashed = true;
  file->setSidecar(trashed);
  file->setSpecialFolders({"Trash", "Archive"});
  EmbeddedMetadata embedded;
  embedded.captureDate = CaptureDate::local("2019:07:04 09:07:00", std::nullopt);  // disagrees
  const FilePlan plan = RepairEngine::plan(*file, embedded, emptyIndex(), {});
  EXPECT_EQ(plan.notes, (std::vector<std::string>{
                            "File date 2019:07:04 09:07:00 differed from Google Photos; used "
                            "Google's (likely edited there)",
                            "Time zone is a guess (this computer's zone); no nearby photo had one",
                            "Was in: Trash, Archive", "Marked as in trash by Google"}));
  EXPECT_EQ(plan.patch.dateUTC, kJuly4);
  EXPECT_EQ(plan.patch.offsetSeconds, 9 * 3600);
  EXPECT_EQ(plan.before, "2019:07:04 09:07:00");

  // Without a metadata file: which sentence depends on whether Snapchat matched it otherwise.
  auto bare = mediaFile();
  EXPECT_EQ(RepairEngine::plan(*bare, std::nullopt, emptyIndex(), {}).notes,
            (std::vector<std::string>{"No Google metadata file found for this item",
                                      "No capture date in the file or in Google's metadata"}));
  bare->setMatchNote("Matched by order");
  EXPECT_EQ(RepairEngine::plan(*bare, std::nullopt, emptyIndex(), {}).notes,
            (std::vector<std::string>{"No export metadata for this item", "Matched by order",
                                      "No capture date in the file or in Google's metadata"}));
}

TEST(FilePlanTest, GooglesPositionReplacesTheFilesOnlyWhenEditedFarAway) {
  const struct {
    std::string name;
    std::optional<GeoPoint> own;
    std::optional<TakeoutSidecar::Geo> geoData, geoDataExif;
    std::optional<GeoPoint> written;
    std::optional<GeoPoint> best;
    bool note;
  } cases[] = {
      {"150 m keeps the file's", kLisbon, geo(north(kLisbon, 150), 5), std::nullopt, std::nullopt,
       north(kLisbon, 150), false},
      {"250 m takes Google's with its altitude", kLisbon, geo(north(kLisbon, 250), 5), std::nullopt,
       GeoPoint{north(kLisbon, 250).latitude, kLisbon.longitude, 5.0}, north(kLisbon, 250), true},
      {"geoDataExif never replaces", kLisbon, std::nullopt, geo(north(kLisbon, 5000)), std::nullopt,
       kLisbon, false},
      {"no own position: geoDataExif is written", std::nullopt, geo({0, 0, {}}), geo(kLisbon, 12),
       GeoPoint{kLisbon.latitude, kLisbon.longitude, 12.0}, kLisbon, false},
      {"(0, 0) everywhere: nothing", std::nullopt, geo({-0.0, 0, {}}), geo({0, 0, {}}),
       std::nullopt, std::nullopt, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto file = mediaFile();
    TakeoutSidecar sidecar;
    sidecar.geoData = c.geoData;
    sidecar.geoDataExif = c.geoDataExif;
    file->setSidecar(sidecar);
    EmbeddedMetadata embedded;
    embedded.location = c.own;
    const FilePlan plan = RepairEngine::plan(*file, embedded, emptyIndex(), {});
    EXPECT_EQ(plan.patch.location, c.written);
    EXPECT_EQ(plan.locationWritten, c.written.has_value());
    EXPECT_EQ(plan.location, c.best);
    EXPECT_EQ(std::count(plan.notes.begin(), plan.notes.end(),
                         "Location edited in Google Photos replaced the file's"),
              c.note ? 1 : 0);
  }
}

TEST(FilePlanTest, CaptionKeywordsAndTheRowsStatus) {
  auto file = mediaFile();
  TakeoutSidecar sidecar;
  sidecar.photoTakenTime = kJuly4;
  sidecar.description = "Harbour";
  file->setSidecar(sidecar);
  file->albums = {"Lisbon", "Trip", "lisbon"};
  EmbeddedMetadata embedded;
  embedded.captureDate = CaptureDate::local("2019:07:04 15:30:00", 7200);  // agrees
  embedded.caption = "Harbour";
  embedded.keywords = {"Trip", "sea"};
  FilePlan plan = RepairEngine::plan(*file, embedded, emptyIndex(), {});
  EXPECT_FALSE(plan.captionWritten);
  EXPECT_EQ(plan.existingKeywords, (std::vector<std::string>{"Trip", "sea"}));
  EXPECT_EQ(plan.patch.addKeywords, (std::vector<std::string>{"Lisbon", "lisbon"}));
  EXPECT_TRUE(plan.notes.empty());
  EXPECT_EQ(plan.before, "2019:07:04 15:30:00 +02:00");

  MediaUnit unit{4, MediaUnit::Kind::livePhoto, {file}};
  // Keywords alone leave the row unchanged.
  RepairRow row = plan.row(unit, *file, "Photos/2019/2019-07/IMG_1.JPG");
  EXPECT_EQ(row.status, RepairRow::Status::unchanged);
  EXPECT_EQ(row.item, 5);
  EXPECT_EQ(row.itemKind, MediaUnit::Kind::livePhoto);
  EXPECT_EQ(row.source, "/export/IMG_1.JPG");
  EXPECT_EQ(row.dateAfter, "2019:07:04 15:30:00");
  EXPECT_EQ(row.timeZone, "UTC+02:00");
  EXPECT_EQ(row.dateSource, DateSource::file);
  EXPECT_EQ(row.timeZoneSource, OffsetSource::file);
  EXPECT_EQ(row.captureUTC, kJuly4);
  EXPECT_EQ(row.albums, file->albums);
  EXPECT_EQ(row.method, "");

  embedded.caption = "harbour";
  plan = RepairEngine::plan(*file, embedded, emptyIndex(),
                            {.destination = {}, .albumsAsKeywords = false});
  EXPECT_EQ(plan.patch.caption, "Harbour");
  EXPECT_TRUE(plan.patch.addKeywords.empty());
  EXPECT_EQ(plan.row(unit, *file, "x").status, RepairRow::Status::fixed);

  // No date anywhere: couldn't fix, though the caption is still written.
  sidecar.photoTakenTime.reset();
  file->setSidecar(sidecar);
  plan = RepairEngine::plan(*file, std::nullopt, emptyIndex(), {});
  row = plan.row(unit, *file, "Photos/Undated/IMG_1.JPG");
  EXPECT_EQ(row.status, RepairRow::Status::couldntFix);
  EXPECT_TRUE(row.captionWritten);
  EXPECT_EQ(row.dateAfter, "");
  EXPECT_EQ(row.timeZone, "");
}

TEST(FilePlanTest, DescribeWritesTheFilesOwnDate) {
  const struct {
    std::optional<CaptureDate> date;
    std::string text;
  } cases[] = {
      {std::nullopt, ""},
      {CaptureDate::local("2019:07:04 15:30:00", std::nullopt), "2019:07:04 15:30:00"},
      {CaptureDate::local("2019:07:04 15:30:00.25", -12600), "2019:07:04 15:30:00.25 -03:30"},
      {CaptureDate::absolute(kJuly4, std::nullopt), "2019:07:04 13:30:00 +00:00"},
      {CaptureDate::absolute(kJuly4, 7200), "2019:07:04 15:30:00 +02:00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(describe(c.date), c.text);
  }
}

TEST(FilePlanTest, TheOffsetIndexLearnsFromEveryFile) {
  ScanResult scan({});
  auto own = mediaFile();  // its own offset
  EmbeddedMetadata ownDate;
  ownDate.captureDate = CaptureDate::local("2019:07:04 15:30:00", 7200);
  own->setEmbedded(ownDate);
  auto placed = mediaFile();  // Google's instant and a place in Tokyo
  TakeoutSidecar inTokyo;
  inTokyo.photoTakenTime = kJuly4 + 86400;
  inTokyo.geoDataExif = TakeoutSidecar::Geo{35.68, 139.69, 0};
  placed->setSidecar(inTokyo);
  auto derived = mediaFile();  // a bare wall clock anchored by Google's instant
  EmbeddedMetadata wallClock;
  wallClock.captureDate = CaptureDate::local("2019:07:01 10:00:00", std::nullopt);
  derived->setEmbedded(wallClock);
  TakeoutSidecar anchor;
  anchor.photoTakenTime = 1561975200 - 3 * 3600;
  derived->setSidecar(anchor);
  auto nothing = mediaFile();
  TakeoutSidecar july4;
  july4.photoTakenTime = kJuly4;
  nothing->setSidecar(july4);
  scan.files = {own, placed, derived, nothing};
  const OffsetIndex index = buildOffsetIndex(scan);
  EXPECT_EQ(index.samples,
            (std::vector<OffsetIndex::Sample>{
                {1561975200 - 3 * 3600, 3 * 3600}, {kJuly4, 7200}, {kJuly4 + 86400, 9 * 3600}}));
}

}  // namespace
}  // namespace quillmere::RepairEngine
