// The reading rules on properties as the libraries report them, one rule per table.
#include <gtest/gtest.h>

#include <climits>
#include <optional>
#include <string>
#include <vector>

#include "core/metadata/embedded_metadata_reader.h"
#include "tests/metadata/test_printers.h"

namespace quillmere {
namespace {

using CaptureDate = EmbeddedMetadata::CaptureDate;
using Item = MovieProperties::Item;
using Texts = std::vector<std::string>;

constexpr double k0905UTC = 1614848700;  // 2021-03-04 09:05:00 UTC
constexpr double k1005UTC = 1614852300;

ImageProperties exif(ImagePropertyDictionary dictionary) {
  ImageProperties properties;
  properties.exif = std::move(dictionary);
  return properties;
}

MovieProperties movie(std::vector<Item> items, std::optional<double> creationDate = {},
                      std::optional<MovieProperties::Size> size = {}) {
  MovieProperties properties;
  properties.items = std::move(items);
  properties.creationDate = creationDate;
  properties.videoSize = size;
  return properties;
}

ImageProperties withXmp(ImageProperties properties, std::string dateCreated) {
  properties.xmp.emplace();
  properties.xmp->emplace("photoshop:DateCreated", std::move(dateCreated));
  return properties;
}

TEST(PhotoRulesTest, CaptureDateIsTheOriginalDateWithTheBestOffset) {
  const std::string text = "2021:03:04 10:05:00";
  const ImageProperties plain = exif({{"DateTimeOriginal", text}});
  const ImageProperties withOffset =
      exif({{"DateTimeOriginal", text}, {"OffsetTimeOriginal", std::string("+02:00")}});
  const ImageProperties badOffset =
      exif({{"DateTimeOriginal", text}, {"OffsetTimeOriginal", std::string("+5:30")}});
  const ImageProperties numericOffset =
      exif({{"DateTimeOriginal", text}, {"OffsetTimeOriginal", 7200.0}});
  const struct {
    const char* name;
    ImageProperties properties;
    std::optional<CaptureDate> expected;
  } kCases[] = {
      {"no date", {}, std::nullopt},
      {"date only", plain, CaptureDate::local(text, std::nullopt)},
      {"EXIF offset", withOffset, CaptureDate::local(text, 7200)},
      {"EXIF offset wins over XMP", withXmp(withOffset, "2021-03-04T10:05:00-05:00"),
       CaptureDate::local(text, 7200)},
      {"XMP of the same wall clock", withXmp(plain, "2021-03-04T10:05:00+02:00"),
       CaptureDate::local(text, 7200)},
      {"XMP when the EXIF offset is unreadable", withXmp(badOffset, "2021-03-04T10:05:00+05:30"),
       CaptureDate::local(text, 19800)},
      {"XMP when the EXIF offset is not text", withXmp(numericOffset, "2021-03-04T10:05:00Z"),
       CaptureDate::local(text, 0)},
      {"XMP one second apart", withXmp(plain, "2021-03-04T10:05:01+02:00"),
       CaptureDate::local(text, std::nullopt)},
      {"XMP without anything after the seconds", withXmp(plain, "2021-03-04T10:05:00"),
       CaptureDate::local(text, std::nullopt)},
      {"XMP with fractions but no offset", withXmp(plain, "2021-03-04T10:05:00.25"),
       CaptureDate::local(text, std::nullopt)},
      {"XMP with a fraction and an offset", withXmp(plain, "2021-03-04T10:05:00.25+01:00"),
       CaptureDate::local(text, 3600)},
      {"XMP written like EXIF", withXmp(plain, "2021:03:04 10:05:00+01:00"),
       CaptureDate::local(text, 3600)},
      {"XMP of another day", withXmp(plain, "2021-03-05T10:05:00+02:00"),
       CaptureDate::local(text, std::nullopt)},
      {"text kept as found",
       exif({{"DateTimeOriginal", std::string("2021:03:04 10:05:00.123 extra")}}),
       CaptureDate::local("2021:03:04 10:05:00.123 extra", std::nullopt)},
      {"filler zeros", exif({{"DateTimeOriginal", std::string("0000:00:00 00:00:00")}}),
       std::nullopt},
      {"year zero with a real day",
       exif({{"DateTimeOriginal", std::string("0000:03:04 10:05:00")}}), std::nullopt},
      {"blank filler", exif({{"DateTimeOriginal", std::string("    :  :     :  :  ")}}),
       std::nullopt},
      {"ISO separators", exif({{"DateTimeOriginal", std::string("2021-03-04 10:05:00")}}),
       std::nullopt},
      {"no seconds", exif({{"DateTimeOriginal", std::string("2021:03:04 10:05")}}), std::nullopt},
      {"a number, not text", exif({{"DateTimeOriginal", 1614852300.0}}), std::nullopt},
      // The shape is all that is asked of the text; the planner copes with odd values.
      {"month 13 has the shape", exif({{"DateTimeOriginal", std::string("2021:13:04 10:05:00")}}),
       CaptureDate::local("2021:13:04 10:05:00", std::nullopt)},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(EmbeddedMetadataReader::fromImageSource(c.properties).captureDate, c.expected);
  }
}

TEST(PhotoRulesTest, XmpOffsetNeedsTheSameWallClock) {
  const struct {
    std::optional<std::string> xmp;
    std::optional<int> expected;
  } kCases[] = {
      {std::nullopt, std::nullopt},
      {"2021-03-04T10:05:00+02:00", 7200},
      {"2021-03-04T10:05:00-0330", -12600},
      {"2021-03-04T10:05:00Z", 0},
      {"2021-03-04T10:05:00 +02:00", 7200},
      {"2021-03-04T10:05:00+02:00x", std::nullopt},  // the date parses, the offset does not
      {"2021-03-04T10:05:00", std::nullopt},
      {"2021-03-04T10:05", std::nullopt},
      {"2021-03-04t10:05:00+02:00", std::nullopt},  // a lower-case t is not a "T"
      {"", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.xmp.value_or("(no XMP)"));
    ImageProperties properties;
    if (c.xmp) properties = withXmp(properties, *c.xmp);
    EXPECT_EQ(EmbeddedMetadataReader::xmpOffset("2021:03:04 10:05:00", properties), c.expected);
  }
  // With an XMP packet that has no DateCreated.
  ImageProperties emptyPacket;
  emptyPacket.xmp.emplace();
  EXPECT_EQ(EmbeddedMetadataReader::xmpOffset("2021:03:04 10:05:00", emptyPacket), std::nullopt);
}

TEST(PhotoRulesTest, LocationAppliesReferencesAsStored) {
  const auto gps = [](ImagePropertyDictionary dictionary) {
    ImageProperties properties;
    properties.gps = std::move(dictionary);
    return properties;
  };
  const std::string S = "S", W = "W", N = "N", E = "E";
  const struct {
    const char* name;
    ImageProperties properties;
    std::optional<GeoPoint> expected;
  } kCases[] = {
      {"south and east",
       gps({{"Latitude", 33.86}, {"LatitudeRef", S}, {"Longitude", 151.2}, {"LongitudeRef", E}}),
       GeoPoint{-33.86, 151.2, std::nullopt}},
      {"north and west",
       gps({{"Latitude", 40.7}, {"LatitudeRef", N}, {"Longitude", 74.0}, {"LongitudeRef", W}}),
       GeoPoint{40.7, -74.0, std::nullopt}},
      {"no references mean north and east", gps({{"Latitude", 1.5}, {"Longitude", 2.5}}),
       GeoPoint{1.5, 2.5, std::nullopt}},
      {"references are case-sensitive",
       gps({{"Latitude", 1.5},
            {"LatitudeRef", std::string("s")},
            {"Longitude", 2.5},
            {"LongitudeRef", std::string("w")}}),
       GeoPoint{1.5, 2.5, std::nullopt}},
      {"a reference that is not text counts as missing",
       gps({{"Latitude", 1.5}, {"LatitudeRef", 1.0}, {"Longitude", 2.5}}),
       GeoPoint{1.5, 2.5, std::nullopt}},
      {"a negative magnitude is negated again",
       gps({{"Latitude", -1.5}, {"LatitudeRef", S}, {"Longitude", 2.5}}),
       GeoPoint{1.5, 2.5, std::nullopt}},
      {"altitude below sea level",
       gps({{"Latitude", 1.5}, {"Longitude", 2.5}, {"Altitude", 12.0}, {"AltitudeRef", 1.0}}),
       GeoPoint{1.5, 2.5, -12.0}},
      {"altitude above sea level",
       gps({{"Latitude", 1.5}, {"Longitude", 2.5}, {"Altitude", 12.0}, {"AltitudeRef", 0.0}}),
       GeoPoint{1.5, 2.5, 12.0}},
      {"altitude reference 2 is not below",
       gps({{"Latitude", 1.5}, {"Longitude", 2.5}, {"Altitude", 12.0}, {"AltitudeRef", 2.0}}),
       GeoPoint{1.5, 2.5, 12.0}},
      {"altitude reference as text is ignored",
       gps({{"Latitude", 1.5},
            {"Longitude", 2.5},
            {"Altitude", 12.0},
            {"AltitudeRef", std::string("1")}}),
       GeoPoint{1.5, 2.5, 12.0}},
      {"altitude reference without altitude",
       gps({{"Latitude", 1.5}, {"Longitude", 2.5}, {"AltitudeRef", 1.0}}),
       GeoPoint{1.5, 2.5, std::nullopt}},
      {"altitude that is not a number",
       gps({{"Latitude", 1.5}, {"Longitude", 2.5}, {"Altitude", std::string("12")}}),
       GeoPoint{1.5, 2.5, std::nullopt}},
      {"zero latitude alone is a place", gps({{"Latitude", 0.0}, {"Longitude", 2.5}}),
       GeoPoint{0, 2.5, std::nullopt}},
      {"(0, 0) is no place", gps({{"Latitude", 0.0}, {"Longitude", 0.0}, {"Altitude", 5.0}}),
       std::nullopt},
      {"(0, 0) south and west is still no place",
       gps({{"Latitude", 0.0}, {"LatitudeRef", S}, {"Longitude", 0.0}, {"LongitudeRef", W}}),
       std::nullopt},
      {"latitude missing", gps({{"Longitude", 2.5}}), std::nullopt},
      {"latitude as text", gps({{"Latitude", std::string("1.5")}, {"Longitude", 2.5}}),
       std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(EmbeddedMetadataReader::fromImageSource(c.properties).location, c.expected);
  }
}

TEST(PhotoRulesTest, CaptionComesFromTheFirstTextSource) {
  const auto source = [](std::optional<ImagePropertyValue> description,
                         std::optional<ImagePropertyValue> iptc) {
    ImageProperties properties;
    if (description) properties.tiff.emplace("ImageDescription", *description);
    if (iptc) properties.iptc.emplace("Caption/Abstract", *iptc);
    return properties;
  };
  const std::string iptc = "From IPTC";
  const struct {
    const char* name;
    ImageProperties properties;
    std::optional<std::string> expected;
  } kCases[] = {
      {"description", source(std::string("Harbour"), iptc), "Harbour"},
      {"IPTC alone", source({}, std::string(" \tFrom IPTC\r\n")), "From IPTC"},
      {"blank description hides IPTC", source(std::string("   "), iptc), std::nullopt},
      {"empty description hides IPTC", source(std::string(""), iptc), std::nullopt},
      {"line breaks only", source(std::string("\n\r\n"), iptc), std::nullopt},
      {"a description that is not text is skipped", source(5.0, iptc), "From IPTC"},
      {"Unicode spaces and separators trimmed",
       source(std::string("\u00a0\u3000Harbour at dusk\u2028\u0085"), {}), "Harbour at dusk"},
      {"inner line breaks kept", source(std::string(" two\nlines "), {}), "two\nlines"},
      {"blank IPTC", source({}, std::string("  ")), std::nullopt},
      {"neither", source({}, {}), std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(EmbeddedMetadataReader::fromImageSource(c.properties).caption, c.expected);
  }
}

TEST(PhotoRulesTest, KeywordsAndPixelSize) {
  ImageProperties properties;
  properties.iptc.emplace("Keywords", Texts{" spaced ", "dup", "dup", ""});
  properties.pixelWidth = 4032;
  properties.pixelHeight = 3024;
  const EmbeddedMetadata read = EmbeddedMetadataReader::fromImageSource(properties);
  EXPECT_EQ(read.keywords, (Texts{" spaced ", "dup", "dup", ""}));  // taken as they are
  EXPECT_EQ(read.pixelWidth, 4032);
  EXPECT_EQ(read.pixelHeight, 3024);

  const struct {
    const char* name;
    ImagePropertyValue keywords;
    std::optional<std::int64_t> width;
    Texts expectedKeywords;
    std::optional<int> expectedWidth;
  } kCases[] = {
      {"one keyword as text is not a list", std::string("solo"), 1, {}, 1},
      {"zero width is unknown", Texts{"a"}, 0, {"a"}, std::nullopt},
      {"negative width is unknown", Texts{}, -5, {}, std::nullopt},
      {"width beyond an int is unknown", Texts{}, std::int64_t{INT_MAX} + 1, {}, std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ImageProperties odd;
    odd.iptc.emplace("Keywords", c.keywords);
    odd.pixelWidth = c.width;
    const EmbeddedMetadata oddRead = EmbeddedMetadataReader::fromImageSource(odd);
    EXPECT_EQ(oddRead.keywords, c.expectedKeywords);
    EXPECT_EQ(oddRead.pixelWidth, c.expectedWidth);
  }
}

TEST(MovieRulesTest, FirstDateAndPlaceWinLastDescriptionWins) {
  const struct {
    const char* name;
    std::vector<Item> items;
    std::optional<CaptureDate> date;
    std::optional<GeoPoint> location;
    std::optional<std::string> caption;
  } kCases[] = {
      {"QuickTime date with offset",
       {{"com.apple.quicktime.creationdate", "2021-03-04T10:05:00+0100"}},
       CaptureDate::absolute(k0905UTC, 3600),
       std::nullopt,
       std::nullopt},
      {"user-data date without offset is UTC",
       {{"date", "2021-03-04T10:05:00"}},
       CaptureDate::absolute(k1005UTC, std::nullopt),
       std::nullopt,
       std::nullopt},
      {"first parsing date wins",
       {{"date", "2021-03-04T10:05:00Z"},
        {"com.apple.quicktime.creationdate", "2021-03-04T10:05:00+0100"}},
       CaptureDate::absolute(k1005UTC, 0),
       std::nullopt,
       std::nullopt},
      {"an unreadable date lets a later one in",
       {{"date", "2021"}, {"com.apple.quicktime.creationdate", "2021-03-04T10:05:00+0100"}},
       CaptureDate::absolute(k0905UTC, 3600),
       std::nullopt,
       std::nullopt},
      {"other keys are not dates",
       {{"creation_date", "2021-03-04T10:05:00Z"},
        {"date-eng", "2021-03-04T10:05:00Z"},
        {"", "2021-03-04T10:05:00Z"}},
       std::nullopt,
       std::nullopt,
       std::nullopt},
      {"first parsing place wins",
       {{"location", "nowhere"},
        {"com.apple.quicktime.location.ISO6709", "+48.8577+002.2945+35.2/"},
        {"location", "+1+2/"}},
       std::nullopt,
       GeoPoint{48.8577, 2.2945, 35.2},
       std::nullopt},
      {"(0, 0) is a place in a movie",
       {{"location", "+00.0000+000.0000/"}},
       std::nullopt,
       GeoPoint{0, 0, std::nullopt},
       std::nullopt},
      {"last non-empty description wins",
       {{"com.apple.quicktime.description", "first"},
        {"description", "second"},
        {"description", ""}},
       std::nullopt,
       std::nullopt,
       "second"},
      {"descriptions are not trimmed",
       {{"description", "  spaced  "}},
       std::nullopt,
       std::nullopt,
       "  spaced  "},
      {"comments are not descriptions",
       {{"comment", "no"}, {"title", "no"}},
       std::nullopt,
       std::nullopt,
       std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const EmbeddedMetadata read = EmbeddedMetadataReader::fromMovie(movie(c.items));
    EXPECT_EQ(read.captureDate, c.date);
    EXPECT_EQ(read.location, c.location);
    EXPECT_EQ(read.caption, c.caption);
    EXPECT_TRUE(read.keywords.empty());
  }
}

TEST(MovieRulesTest, HeaderCreationTimeCountsOnlyAfterTheFirstYear) {
  const struct {
    std::optional<double> creation;
    std::vector<Item> items;
    std::optional<CaptureDate> expected;
  } kCases[] = {
      {k1005UTC, {}, CaptureDate::absolute(k1005UTC, std::nullopt)},
      {0, {}, std::nullopt},
      {31622400, {}, std::nullopt},  // exactly 366 days
      {31622401, {}, CaptureDate::absolute(31622401, std::nullopt)},
      {-86400.0 * 365 * 66, {}, std::nullopt},  // 1904, a zero written by old software
      {k1005UTC,
       {{"com.apple.quicktime.creationdate", "2020-01-01T00:00:00Z"}},
       CaptureDate::absolute(1577836800, 0)},  // an item beats the header
      {k1005UTC, {{"date", "garbage"}}, CaptureDate::absolute(k1005UTC, std::nullopt)},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.creation.value_or(-1));
    EXPECT_EQ(EmbeddedMetadataReader::fromMovie(movie(c.items, c.creation)).captureDate,
              c.expected);
  }
}

TEST(MovieRulesTest, PixelSizeIsTheFirstVideoTrackTruncated) {
  const struct {
    std::optional<MovieProperties::Size> size;
    std::optional<int> width;
    std::optional<int> height;
  } kCases[] = {
      {std::nullopt, std::nullopt, std::nullopt},
      {MovieProperties::Size{1920, 1080}, 1920, 1080},
      {MovieProperties::Size{1919.9, 1080.5}, 1919, 1080},
      {MovieProperties::Size{1e12, 1080}, std::nullopt, std::nullopt},
  };
  for (const auto& c : kCases) {
    const EmbeddedMetadata read = EmbeddedMetadataReader::fromMovie(movie({}, {}, c.size));
    EXPECT_EQ(read.pixelWidth, c.width);
    EXPECT_EQ(read.pixelHeight, c.height);
  }
}

}  // namespace
}  // namespace quillmere
