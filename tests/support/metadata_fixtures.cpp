#include "tests/support/metadata_fixtures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <mutex>
#include <regex>
#include <sstream>

#include "core/dates/exif_date.h"
#include "core/dates/iso_date.h"
#include "tests/support/media_fixtures.h"
#include "tests/support/run_command.h"

namespace quillmere::testing {
namespace {

using CaptureDate = EmbeddedMetadata::CaptureDate;
using Metadata = EmbeddedMetadata;
namespace fs = std::filesystem;

constexpr double k0905UTC = 1614848700;  // 2021-03-04 09:05:00 UTC
constexpr double k1005UTC = 1614852300;  // 2021-03-04 10:05:00 UTC
const char* const kExifText = "2021:03:04 10:05:00";

// Most fixtures are 64 x 48 pixels.
Metadata metadata(std::optional<CaptureDate> date, std::optional<GeoPoint> location = {},
                  std::optional<std::string> caption = {}, std::vector<std::string> keywords = {},
                  int width = 64, int height = 48) {
  return {std::move(date), location, std::move(caption), std::move(keywords), width, height};
}

std::vector<MetadataFixture> makeCatalogue() {
  const CaptureDate local7200 = CaptureDate::local(kExifText, 7200);
  const CaptureDate floating = CaptureDate::local(kExifText, {});
  const GeoPoint sydney{-33.86, 151.2, -12.0};
  const std::string harbour = "Harbour at dusk";
  return {
      {"full.jpg", false, metadata(local7200, sydney, harbour, {"harbour", "dusk", "harbour"})},
      {"bare.jpg", false, metadata({}, {}, {}, {}, 40, 30)},
      {"zero-date.jpg", false, metadata({})},
      {"short-date.jpg", false, metadata({})},
      {"no-offset.jpg", false, metadata(floating)},
      {"xmp-offset.jpg", false, metadata(local7200)},
      {"xmp-other-moment.jpg", false, metadata(floating)},
      {"bad-exif-offset.jpg", false, metadata(CaptureDate::local(kExifText, 19800))},
      {"west.jpg", false, metadata({}, GeoPoint{40.7128, -74.006, 35.5})},
      {"null-island.jpg", false, metadata({})},
      {"blank-description.jpg", false, metadata({})},
      {"iptc-latin1.jpg", false, metadata({}, {}, "Only IPTC", {"Z\u00fcrich", "lake"})},
      {"iptc-utf8.jpg", false, metadata({}, {}, "\u591c\u666f", {"\u6771\u4eac", "caf\u00e9"})},
      {"jpeg-named.HEIC", false, metadata(local7200)},
      {"full.heic", false, metadata(local7200, sydney, harbour)},
      {"xmp-offset.heic", false, metadata(CaptureDate::local(kExifText, -12600))},
      {"full.avif", false, metadata(local7200, sydney, harbour)},
      {"full.png", false, metadata(local7200, sydney, harbour, {"harbour", "dusk"})},
      {"full.tiff", false, metadata(local7200, sydney, harbour, {"harbour", "dusk"})},
      {"full.webp", false, metadata(local7200, sydney, harbour)},
      {"apple.mov", true,
       metadata(CaptureDate::absolute(k0905UTC, 3600), GeoPoint{48.8577, 2.2945, 35.2},
                "From the keys")},
      {"user-data.mov", true,
       metadata(CaptureDate::absolute(k1005UTC, {}), GeoPoint{-33.8688, 151.2093, {}})},
      // libavformat lists the item-list description before the QuickTime key.
      {"two-descriptions.mp4", true, metadata({}, {}, "First")},
      {"garbage-date-first.mov", true, metadata(CaptureDate::absolute(k0905UTC, 3600))},
      // ... and the user-data date before the QuickTime one.
      {"two-dates.mov", true, metadata(CaptureDate::absolute(1577836800, {}))},
      {"header-time.mp4", true, metadata(CaptureDate::absolute(k1005UTC, {}))},
      {"fast-start.mp4", true, metadata(CaptureDate::absolute(k0905UTC, 3600))},
      {"epoch.mp4", true, metadata({})},
      {"first-leap-year.mp4", true, metadata({})},
      {"after-first-leap-year.mp4", true, metadata(CaptureDate::absolute(31622401, {}))},
      {"sized.mov", true, metadata({}, {}, {}, {}, 320, 240)},
  };
}

std::string text(const nlohmann::json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

std::optional<std::string> tag(const nlohmann::json& tags, const char* key) {
  const auto found = tags.find(key);
  if (found == tags.end()) return std::nullopt;
  return text(*found);
}

std::optional<double> number(const nlohmann::json& tags, const char* key) {
  const auto found = tags.find(key);
  if (found == tags.end() || !found->is_number()) return std::nullopt;
  return found->get<double>();
}

// "width height" as exiftool's Composite:ImageSize gives it.
void readImageSize(const nlohmann::json& tags, EmbeddedMetadata& m) {
  std::istringstream in(tag(tags, "Composite:ImageSize").value_or(""));
  int width = 0, height = 0;
  if (in >> width >> height) {
    m.pixelWidth = width;
    m.pixelHeight = height;
  }
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

EmbeddedMetadata photoFromExiftool(const nlohmann::json& tags) {
  EmbeddedMetadata m;
  readImageSize(tags, m);
  const std::optional<std::string> date = tag(tags, "ExifIFD:DateTimeOriginal");
  if (date && std::regex_search(*date, ExifDate::pattern()) && !date->starts_with("0000")) {
    std::optional<int> offset;
    if (const auto offsetText = tag(tags, "ExifIFD:OffsetTimeOriginal")) {
      offset = ExifDate::parseOffset(*offsetText);
    }
    // exiftool shows XMP dates with colons; the comparison reads "-" as ":" anyway.
    const std::optional<std::string> xmp = tag(tags, "XMP-photoshop:DateCreated");
    if (!offset && xmp && xmp->size() > 19) {
      std::string head = xmp->substr(0, 19);
      for (char& c : head) c = c == '-' ? ':' : (c == 'T' ? ' ' : c);
      if (head == date->substr(0, 19)) {
        if (const auto parsed = ISODate::parse(*xmp)) offset = parsed->offsetSeconds;
      }
    }
    m.captureDate = CaptureDate::local(*date, offset);
  }
  std::optional<double> latitude = number(tags, "GPS:GPSLatitude");
  std::optional<double> longitude = number(tags, "GPS:GPSLongitude");
  if (latitude && longitude) {
    if (tag(tags, "GPS:GPSLatitudeRef") == "S") latitude = -*latitude;
    if (tag(tags, "GPS:GPSLongitudeRef") == "W") longitude = -*longitude;
    std::optional<double> altitude = number(tags, "GPS:GPSAltitude");
    if (altitude && number(tags, "GPS:GPSAltitudeRef") == 1.0) altitude = -*altitude;
    if (*latitude != 0 || *longitude != 0) m.location = GeoPoint{*latitude, *longitude, altitude};
  }
  std::optional<std::string> caption = tag(tags, "IFD0:ImageDescription");
  if (!caption) caption = tag(tags, "IPTC:Caption-Abstract");
  if (caption && !trimmed(*caption).empty()) m.caption = trimmed(*caption);
  if (const auto found = tags.find("IPTC:Keywords"); found != tags.end()) {
    if (found->is_array()) {
      for (const auto& keyword : *found) m.keywords.push_back(text(keyword));
    } else {
      m.keywords.push_back(text(*found));
    }
  }
  return m;
}

// exiftool's reading of `files` (-json -n -a -G1: raw values, every duplicate, family-1 groups
// such as "ExifIFD", "GPS", "IPTC", "XMP-photoshop", "Keys", "UserData"), by path as given.
std::map<std::string, nlohmann::json> readTags(const std::vector<fs::path>& files) {
  std::vector<std::string> command = {"exiftool", "-json", "-n", "-a", "-G1"};
  for (const auto& file : files) command.push_back(file.string());
  // exiftool exits with 1 when some file has no readable tags; the JSON still lists it.
  std::map<std::string, nlohmann::json> byFile;
  for (const nlohmann::json& entry : nlohmann::json::parse(runCommand(command).out)) {
    byFile[entry.at("SourceFile")] = entry;
  }
  return byFile;
}

// exiftool's value for the item libavformat lists under `key`, if exiftool shows one.
std::optional<std::string> exiftoolItem(const nlohmann::json& tags, const std::string& key) {
  static const std::map<std::string, std::vector<const char*>> kSources = {
      {"com.apple.quicktime.creationdate", {"Keys:CreationDate"}},
      {"date", {"UserData:ContentCreateDate", "ItemList:ContentCreateDate"}},
      {"com.apple.quicktime.location.ISO6709", {"Keys:GPSCoordinates"}},
      {"location", {"UserData:GPSCoordinates"}},
      {"com.apple.quicktime.description", {"Keys:Description"}},
      {"description", {"ItemList:Description", "UserData:Description"}},
  };
  const auto sources = kSources.find(key);
  if (sources == kSources.end()) return std::nullopt;
  for (const char* source : sources->second) {
    if (auto value = tag(tags, source)) return value;
  }
  return std::nullopt;
}

EmbeddedMetadata movieFromExiftool(const nlohmann::json& tags,
                                   const std::vector<std::pair<std::string, std::string>>& order) {
  EmbeddedMetadata m;
  for (const auto& [key, libavValue] : order) {
    const std::optional<std::string> value = exiftoolItem(tags, key);
    if (!value) continue;
    if (key == "date" || key == "com.apple.quicktime.creationdate") {
      if (!m.captureDate) {
        if (const auto parsed = ISODate::parse(*value)) {
          m.captureDate = CaptureDate::absolute(parsed->date, parsed->offsetSeconds);
        }
      }
    } else if (key == "location" || key == "com.apple.quicktime.location.ISO6709") {
      // exiftool -n writes "latitude longitude [altitude]".
      std::istringstream in(*value);
      double latitude, longitude, altitude;
      if (!m.location && in >> latitude >> longitude) {
        m.location = GeoPoint{latitude, longitude, {}};
        if (in >> altitude) m.location->altitude = altitude;
      }
    } else if (!value->empty()) {
      m.caption = *value;
    }
  }
  if (!m.captureDate) {
    if (const auto created = tag(tags, "QuickTime:CreateDate")) {
      if (const auto utc = ExifDate::wallClockAsUTC(*created); utc && *utc > 31622400) {
        m.captureDate = CaptureDate::absolute(*utc, {});
      }
    }
  }
  readImageSize(tags, m);
  return m;
}

}  // namespace

const std::vector<MetadataFixture>& metadataFixtures() {
  static const std::vector<MetadataFixture> catalogue = makeCatalogue();
  return catalogue;
}

const std::map<std::string, nlohmann::json>& exiftoolReadings(const fs::path& folder) {
  static std::mutex mutex;
  static std::map<fs::path, std::map<std::string, nlohmann::json>> cache;
  const std::lock_guard lock(mutex);
  auto [entry, inserted] = cache.try_emplace(folder);
  if (inserted) {
    std::vector<fs::path> files;
    for (const auto& file : fs::directory_iterator(folder)) files.push_back(file.path());
    for (auto& [path, reading] : readTags(files)) {
      entry->second[fs::path(path).filename().string()] = std::move(reading);
    }
  }
  return entry->second;
}

EmbeddedMetadata expectedFromExiftool(
    const nlohmann::json& tags, bool isMovie,
    const std::vector<std::pair<std::string, std::string>>& movieTagOrder) {
  return isMovie ? movieFromExiftool(tags, movieTagOrder) : photoFromExiftool(tags);
}

void expectSameMetadata(const std::optional<EmbeddedMetadata>& actual,
                        const std::optional<EmbeddedMetadata>& expected) {
  ASSERT_EQ(actual.has_value(), expected.has_value());
  if (!actual) return;
  const std::optional<CaptureDate>& date = actual->captureDate;
  EXPECT_TRUE(date == expected->captureDate)
      << "capture dates differ: "
      << (!date             ? "none"
          : date->asLocal() ? date->asLocal()->text
                            : std::to_string(date->asAbsolute()->date))
      << " offset " << (date && date->offsetSeconds() ? *date->offsetSeconds() : -1);
  const std::optional<GeoPoint>& place = actual->location;
  const std::optional<GeoPoint>& expectedPlace = expected->location;
  EXPECT_EQ(place.has_value(), expectedPlace.has_value());
  if (place && expectedPlace) {
    EXPECT_NEAR(place->latitude, expectedPlace->latitude, 1e-7);
    EXPECT_NEAR(place->longitude, expectedPlace->longitude, 1e-7);
    EXPECT_EQ(place->altitude.has_value(), expectedPlace->altitude.has_value());
    EXPECT_NEAR(place->altitude.value_or(0), expectedPlace->altitude.value_or(0), 1e-7);
  }
  EXPECT_EQ(actual->caption, expected->caption);
  EXPECT_EQ(actual->keywords, expected->keywords);
  EXPECT_EQ(actual->pixelWidth, expected->pixelWidth);
  EXPECT_EQ(actual->pixelHeight, expected->pixelHeight);
}

}  // namespace quillmere::testing
