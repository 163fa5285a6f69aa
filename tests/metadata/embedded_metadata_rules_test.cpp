// The reading rules on properties as the libraries report them, for the edges that the fixture
// files of tests/data/metadata do not reach.
#include <gtest/gtest.h>

#include <climits>

#include "core/metadata/embedded_metadata_reader.h"

namespace quillmere {
namespace {

using CaptureDate = EmbeddedMetadata::CaptureDate;

TEST(PhotoRulesTest, CaptureDateNeedsTheShapeOnly) {
  const std::string text = "2021:03:04 10:05:00", odd = "2021:13:04 10:05:00.1 x";
  const struct {
    ImagePropertyValue original;
    std::string xmp;
    std::optional<CaptureDate> expected;
  } cases[] = {
      {std::string("0000:03:04 10:05:00"), "", std::nullopt},  // year zero, even on a real day
      {std::string("2021-03-04 10:05:00"), "", std::nullopt},
      {1614852300.0, "", std::nullopt},
      {odd, "", CaptureDate::local(odd, std::nullopt)},  // the planner copes with odd values
      {text, "2021-03-04T10:05:00.25+01:00", CaptureDate::local(text, 3600)},
      {text, "2021-03-04t10:05:00+02:00", CaptureDate::local(text, std::nullopt)},  // not "T"
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xmp);
    ImageProperties properties;
    properties.exif = {{"DateTimeOriginal", c.original}};
    if (!c.xmp.empty()) properties.xmp.emplace().emplace("photoshop:DateCreated", c.xmp);
    EXPECT_TRUE(EmbeddedMetadataReader::fromImageSource(properties).captureDate == c.expected);
  }
}

TEST(PhotoRulesTest, CaptionIsTrimmedOfUnicodeSpacesAndOddSizesAreUnknown) {
  ImageProperties properties;
  properties.tiff = {{"ImageDescription", std::string("\u00a0\u3000two\nlines\u2028\u0085")}};
  properties.pixelWidth = std::int64_t{INT_MAX} + 1;
  const EmbeddedMetadata read = EmbeddedMetadataReader::fromImageSource(properties);
  EXPECT_EQ(read.caption, "two\nlines");
  EXPECT_EQ(read.pixelWidth, std::nullopt);
  MovieProperties movie;
  movie.videoSize = MovieProperties::Size{1919.9, 1080.5};
  EXPECT_EQ(EmbeddedMetadataReader::fromMovie(movie).pixelWidth, 1919);  // truncated
  movie.videoSize->height = 1e12;
  EXPECT_EQ(EmbeddedMetadataReader::fromMovie(movie).pixelWidth, std::nullopt);  // both or none
}

}  // namespace
}  // namespace quillmere
