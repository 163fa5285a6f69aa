#include "core/scan/media_file.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "core/sources/folder_file.h"

namespace quillmere {
namespace {

using CaptureDate = EmbeddedMetadata::CaptureDate;

MediaFile photo() {
  return MediaFile(0, std::make_shared<FolderFile>("/export/IMG_1.JPG", "IMG_1.JPG", 1),
                   MediaKind::photo);
}

// Every field set, with values a byte-oriented encoding could get wrong: texts past 127 bytes
// (a two-byte length), embedded NULs, negative zero, the extremes of an int.
TakeoutSidecar fullSidecar() {
  TakeoutSidecar sidecar;
  sidecar.title = std::string(200, 'T');
  sidecar.description = std::string("caf\xC3\xA9\0line\n", 11);
  sidecar.photoTakenTime = 1562247000.125;
  sidecar.creationTime = 4102444800.5;
  sidecar.geoData = TakeoutSidecar::Geo{-33.8568, 151.2153, -0.0};
  sidecar.geoDataExif = TakeoutSidecar::Geo{0, 0, 12.5};
  sidecar.url = "https://photos.google.com/photo/x";
  sidecar.people = {"Ana", "", std::string(300, 'p')};
  sidecar.favorited = true;
  sidecar.trashed = true;
  return sidecar;
}

TEST(MediaFileTest, SidecarsReadBackAsSet) {
  TakeoutSidecar onlyFlags;
  onlyFlags.archived = true;
  TakeoutSidecar blankTexts;
  blankTexts.title = "";
  blankTexts.description = "";
  const struct {
    const char* name;
    std::optional<TakeoutSidecar> sidecar;
  } cases[] = {
      {"none", std::nullopt},
      {"present but empty", TakeoutSidecar{}},
      {"every field", fullSidecar()},
      {"flags alone", onlyFlags},
      {"empty texts are not absent ones", blankTexts},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MediaFile file = photo();
    file.setSidecar(c.sidecar);
    EXPECT_EQ(file.sidecar(), c.sidecar);
    EXPECT_FALSE(file.embedded().has_value());  // the two are kept apart
  }
  // Setting again replaces, and nullopt clears.
  MediaFile file = photo();
  file.setSidecar(fullSidecar());
  file.setSidecar(onlyFlags);
  EXPECT_EQ(file.sidecar(), onlyFlags);
  file.setSidecar(std::nullopt);
  EXPECT_FALSE(file.sidecar().has_value());
}

TEST(MediaFileTest, EmbeddedMetadataReadsBackAsSet) {
  EmbeddedMetadata local;
  local.captureDate = CaptureDate::local("2019:07:04 15:30:00.25", -12600);
  local.location = GeoPoint{35.68, 139.69, std::nullopt};
  local.caption = "Harbour";
  local.keywords = {"Trip", "\xE6\x97\x85"};
  local.pixelWidth = 4032;
  local.pixelHeight = std::numeric_limits<int>::max();
  EmbeddedMetadata absolute;
  absolute.captureDate = CaptureDate::absolute(-86400.5, std::numeric_limits<int>::min());
  absolute.location = GeoPoint{-0.0, 0, -11.25};
  absolute.pixelWidth = 0;
  EmbeddedMetadata bareClock;
  bareClock.captureDate = CaptureDate::local("", std::nullopt);
  const struct {
    const char* name;
    std::optional<EmbeddedMetadata> embedded;
  } cases[] = {
      {"none", std::nullopt},
      {"present but empty", EmbeddedMetadata{}},
      {"wall clock with offset, place without altitude", local},
      {"instant with the lowest offset, place with altitude", absolute},
      {"empty wall clock without offset", bareClock},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MediaFile file = photo();
    file.setEmbedded(c.embedded);
    EXPECT_EQ(file.embedded(), c.embedded);
    EXPECT_FALSE(file.sidecar().has_value());
  }
}

// The seldom-read texts share one record: setting one must leave the others as they were.
TEST(MediaFileTest, SeldomTextsAreKeptApart) {
  MediaFile file = photo();
  EXPECT_EQ(file.outputName(), "IMG_1.JPG");  // the file's own name until told otherwise
  EXPECT_FALSE(file.sidecarName().has_value());
  EXPECT_TRUE(file.specialFolders().empty());
  EXPECT_FALSE(file.matchNote().has_value());

  const std::string longNote(300, 'n');
  file.setSidecarName("IMG_1.JPG.supplemental-metadata.json");
  file.setSpecialFolders({"Trash", "", "Archive"});
  file.setMatchNote(longNote);
  file.setOutputName("2019-07-04 IMG_1.JPG");
  file.setSidecarName("");  // empty, not absent
  EXPECT_EQ(file.sidecarName(), "");
  EXPECT_EQ(file.specialFolders(), (std::vector<std::string>{"Trash", "", "Archive"}));
  EXPECT_EQ(file.matchNote(), longNote);
  EXPECT_EQ(file.outputName(), "2019-07-04 IMG_1.JPG");

  file.setSidecarName(std::nullopt);
  file.setSpecialFolders({});
  file.setMatchNote(std::nullopt);
  EXPECT_EQ(file.outputName(), "2019-07-04 IMG_1.JPG");
  file.setOutputName("IMG_1.JPG");
  EXPECT_EQ(file.outputName(), "IMG_1.JPG");
  EXPECT_FALSE(file.sidecarName().has_value());
  EXPECT_TRUE(file.specialFolders().empty());
  EXPECT_FALSE(file.matchNote().has_value());
  EXPECT_FALSE(file.sidecar().has_value());
}

}  // namespace
}  // namespace quillmere
