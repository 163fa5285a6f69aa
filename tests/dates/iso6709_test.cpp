#include "core/dates/iso6709.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <optional>
#include <string>

#include "tests/dates/test_printers.h"
namespace quillmere {
namespace {

TEST(ISO6709ParseTest, FindsTheFirstRunOfSignedNumbers) {
  const struct {
    std::string text;
    std::optional<GeoPoint> expected;
  } kCases[] = {
      {"+48.8577+002.2945/", GeoPoint{48.8577, 2.2945, std::nullopt}},
      {"+48.8577+002.2945+35.2/", GeoPoint{48.8577, 2.2945, 35.2}},
      {"+40.7128-074.0060+12.5/", GeoPoint{40.7128, -74.006, 12.5}},
      {"-33.8688+151.2093-0.5/", GeoPoint{-33.8688, 151.2093, -0.5}},
      {"+040.7128-0074.0060/", GeoPoint{40.7128, -74.006, std::nullopt}},  // our own widths
      {"+40-074", GeoPoint{40, -74, std::nullopt}},
      {"+00.0000+000.0000/", GeoPoint{0, 0, std::nullopt}},     // (0, 0) is a point here
      {"+4852+00217/", GeoPoint{4852, 217, std::nullopt}},      // no degree-minute forms
      {"+95.5+400.25/", GeoPoint{95.5, 400.25, std::nullopt}},  // no range check
      {"loc: +48.8577+002.2945/ end", GeoPoint{48.8577, 2.2945, std::nullopt}},
      {"+48.8577 +002.2945/", std::nullopt},  // the numbers must touch
      {"12+48.8577+002.2945/", GeoPoint{48.8577, 2.2945, std::nullopt}},
      {"+1/+48.8577+002.2945/", GeoPoint{48.8577, 2.2945, std::nullopt}},
      {"+48.+002.2945/", std::nullopt},  // "48." is not a number, and "+002.2945/" is alone
      {"+48.8577+002.2945+/", GeoPoint{48.8577, 2.2945, std::nullopt}},
      {"+48.8577+002.2945+1.2.3/", GeoPoint{48.8577, 2.2945, 1.2}},
      {"+1+2+3+4/", GeoPoint{1, 2, 3}},
      {"+48.8577", std::nullopt},
      {"48.8577,2.2945", std::nullopt},
      {"N48.8577 E2.2945", std::nullopt},
      {"", std::nullopt},
      {"+-+-", std::nullopt},
      {"+" + std::string(400, '9') + "+1/", std::nullopt},  // no double holds the latitude
      {"+0." + std::string(400, '0') + "1+1/", GeoPoint{0, 1, std::nullopt}},  // underflow is 0
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ISO6709::parse(c.text), c.expected);
  }
}

TEST(ISO6709FormatTest, WritesTheWideFixedWidths) {
  const struct {
    GeoPoint point;
    std::string expected;
  } kCases[] = {
      {{40.7128, -74.006, std::nullopt}, "+040.7128-0074.0060/"},
      {{-33.8688, 151.2093, 12.5}, "-033.8688+0151.2093+12.500/"},
      {{0, 0, std::nullopt}, "+000.0000+0000.0000/"},
      {{-0.0, -0.0, -0.0}, "-000.0000-0000.0000-0.000/"},
      {{48.85774999, 2.29455001, -1234.5678}, "+048.8577+0002.2946-1234.568/"},
      {{90, 180, 0}, "+090.0000+0180.0000+0.000/"},
      {{-90, -180, 8848.86}, "-090.0000-0180.0000+8848.860/"},
      {{1234.5, 12345.5, std::nullopt}, "+1234.5000+12345.5000/"},  // wider, never cut
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(ISO6709::format(c.point), c.expected);
  }
}

TEST(ISO6709FormatTest, ParsingTheTextGivesThePointBackToFourDecimals) {
  for (double latitude = -90; latitude <= 90; latitude += 7.123456) {
    for (double longitude = -180; longitude <= 180; longitude += 13.987654) {
      for (const std::optional<double> altitude : {std::optional<double>(), std::optional(-3.25)}) {
        const GeoPoint point{latitude, longitude, altitude};
        const std::string text = ISO6709::format(point);
        SCOPED_TRACE(text);
        const std::optional<GeoPoint> read = ISO6709::parse(text);
        ASSERT_TRUE(read.has_value());
        EXPECT_NEAR(read->latitude, latitude, 0.00005);
        EXPECT_NEAR(read->longitude, longitude, 0.00005);
        EXPECT_EQ(read->altitude, altitude);
      }
    }
  }
}

TEST(ISO6709FormatTest, IgnoresTheProcessLocale) {
  // A desktop app sets the C locale from the environment; German writes "48,8577".
  const std::string saved = std::setlocale(LC_ALL, nullptr);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
    GTEST_SKIP() << "no German locale on this machine";
  }
  const std::string text = ISO6709::format({48.8577, 2.2945, 35.25});
  const std::optional<GeoPoint> read = ISO6709::parse("+48.8577+002.2945+35.2/");
  std::setlocale(LC_ALL, saved.c_str());
  EXPECT_EQ(text, "+048.8577+0002.2945+35.250/");
  EXPECT_EQ(read, (GeoPoint{48.8577, 2.2945, 35.2}));
}

}  // namespace
}  // namespace quillmere
