// The notations of dates, offsets and places, the trimming they rely on, and distances.
#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>
#include <tuple>

#include "core/dates/exif_date.h"
#include "core/dates/geo_point.h"
#include "core/dates/iso6709.h"
#include "core/dates/iso_date.h"
#include "core/dates/text_trimming.h"
#include "tests/dates/test_printers.h"

namespace quillmere {
namespace {

constexpr double kAt0805UTC = 1614845100;  // 2021-03-04 08:05:00 UTC
constexpr double kAt1005UTC = 1614852300;  // 2021-03-04 10:05:00 UTC
constexpr std::nullopt_t kNone = std::nullopt;

void expectExif(const std::string& text, bool matches, std::optional<double> utc) {
  SCOPED_TRACE(text);
  EXPECT_EQ(std::regex_search(text, ExifDate::pattern()), matches);
  EXPECT_EQ(ExifDate::wallClockAsUTC(text), utc);
}

TEST(ExifDateTest, ReadsOnlyRealDatesOfTheExactShape) {
  // Sub-seconds and offsets after the first 19 characters are ignored; 2000 is a leap year.
  const std::pair<const char*, double> kDates[] = {
      {"2021:03:04 10:05:00", kAt1005UTC},  {"2021:03:04 10:05:00.123+02:00", kAt1005UTC},
      {"1969:12:31 23:59:59", -1},          {"2000:02:29 12:00:00", 951825600},
      {"1900:03:01 00:00:00", -2203891200}, {"0001:01:01 00:00:00", -62135596800},
      {"9999:12:31 23:59:59", 253402300799}};
  for (const auto& [text, utc] : kDates) expectExif(text, true, utc);
  // The shape the pattern checks, but no such day or time (1900 is no leap year).
  for (const char* text :
       {"0000:00:00 00:00:00", "2021:02:29 10:00:00", "1900:02:29 10:00:00", "2021:04:31 10:00:00",
        "2021:00:10 10:00:00", "2021:13:10 10:00:00", "2021:03:00 10:00:00", "2021:03:04 24:00:00",
        "2021:03:04 10:60:00", "2021:03:04 10:05:60"}) {
    expectExif(text, true, kNone);
  }
  // Near shapes, what cameras without a clock write, and Arabic-Indic digits (which a
  // locale-aware "\d" would take).
  for (const char* text : {"2021:03:04 10:05", "2021-03-04 10:05:00", " 2021:03:04 10:05:00",
                           "    :  :     :  :  ", "2021:3:04 10:05:00x", "+021:03:04 10:05:00", "",
                           "\xD9\xA2\xD9\xA0\xD9\xA2\xD9\xA1:03:04 10:05:00"}) {
    expectExif(text, false, kNone);
  }
}

TEST(DateTextTest, FormatsShowTheWallClockOfTheOffset) {
  // Fractions of a second are dropped, towards the past; +-18:00 are still fixed zones.
  // The XMP form is the ISO form's wall clock and the last column.
  const std::tuple<double, int, std::string, std::string, std::string> kCases[] = {
      {kAt0805UTC, 7200, "2021:03:04 10:05:00", "2021-03-04T10:05:00+0200", "+02:00"},
      {kAt0805UTC, -32400, "2021:03:03 23:05:00", "2021-03-03T23:05:00-0900", "-09:00"},
      {kAt0805UTC, 45900, "2021:03:04 20:50:00", "2021-03-04T20:50:00+1245", "+12:45"},
      {kAt0805UTC, 64800, "2021:03:05 02:05:00", "2021-03-05T02:05:00+1800", "+18:00"},
      {kAt0805UTC, -3661, "2021:03:04 07:03:59", "2021-03-04T07:03:59-010101", "-01:01"},
      {kAt0805UTC + 0.999, 0, "2021:03:04 08:05:00", "2021-03-04T08:05:00+0000", "+00:00"},
      {-0.5, 0, "1969:12:31 23:59:59", "1969-12-31T23:59:59+0000", "+00:00"},
      {1735689599, 1, "2025:01:01 00:00:00", "2025-01-01T00:00:00+000001", "+00:00"},
      {253402300800, 0, "10000:01:01 00:00:00", "10000-01-01T00:00:00+0000", "+00:00"},
  };
  for (const auto& [utc, offset, exif, iso, xmpOffset] : kCases) {
    SCOPED_TRACE(exif);
    EXPECT_EQ(ExifDate::format(utc, offset), exif);
    EXPECT_EQ(ISODate::format(utc, offset), iso);
    EXPECT_EQ(ISODate::formatXMP(utc, offset), iso.substr(0, exif.size()) + xmpOffset);
  }
}

TEST(DateTextTest, EveryFormReadsBackToTheSameInstantAndOffset) {
  for (double utc = -2208988800; utc < 4102444800; utc += 86400 * 89 + 1237) {
    for (const int offset : {0, 3600, -12600, 45900, 49500, -36000, 64800}) {
      SCOPED_TRACE(::testing::Message() << utc << " at " << offset);
      EXPECT_EQ(ExifDate::wallClockAsUTC(ExifDate::format(utc, offset)), utc + offset);
      EXPECT_EQ(ISODate::parse(ISODate::format(utc, offset)), (ISODate::Parsed{utc, offset}));
      EXPECT_EQ(ISODate::parse(ISODate::formatXMP(utc, offset)), (ISODate::Parsed{utc, offset}));
    }
  }
}

TEST(DateTextTest, OffsetsBeyondEighteenHoursShowTheMachineZone) {
  // No fixed zone has them, so the wall clock is the machine zone's (whatever the test runs
  // under), and the ISO form names that zone's offset so it still reads back to the instant.
  for (const int offset : {64860, -64860, 30 * 3600, 362340}) {
    SCOPED_TRACE(offset);
    const std::string exif = ExifDate::format(kAt0805UTC, offset);
    EXPECT_NE(exif, ExifDate::format(kAt0805UTC + offset, 0));
    const std::optional<double> wallClock = ExifDate::wallClockAsUTC(exif);
    ASSERT_TRUE(wallClock.has_value());
    EXPECT_LE(std::abs(*wallClock - kAt0805UTC), 18 * 3600);
    const int machineOffset = static_cast<int>(*wallClock - kAt0805UTC);
    EXPECT_EQ(ISODate::parse(ISODate::format(kAt0805UTC, offset)),
              (ISODate::Parsed{kAt0805UTC, machineOffset}));
  }
}

TEST(ISODateTest, ParseReadsTheWallClockThenAnyOffset) {
  using P = ISODate::Parsed;
  const std::pair<const char*, P> kOffsets[] = {
      {"2021-03-04T10:05:00+02:00", P{kAt0805UTC, 7200}},
      {"2021-03-04T10:05:00.999999999+0200", P{kAt0805UTC, 7200}},  // never rounded up
      {"2021:03:04 10:05:00 +02:00", P{kAt0805UTC, 7200}},
      {"  2021-03-04 10:05:00+02:00\t", P{kAt0805UTC, 7200}},
      {"2021-03-04T10:05:00.5Z", P{kAt1005UTC, 0}},
      {"2021-03-04T10:05:00-08:00", P{kAt1005UTC + 28800, -28800}},
      {"2021-03-04T00:30:00+02:00", P{kAt1005UTC - 34500 - 7200, 7200}},
  };
  for (const auto& [text, parsed] : kOffsets) EXPECT_EQ(ISODate::parse(text), parsed) << text;
  // A floating clock: an unreadable suffix is ignored, offset and all, never losing the date.
  for (const char* text : {"2021-03-04T10:05:00", "2021-03-04T10:05:00.", "2021-03-04T10:05:00+02",
                           "2021-03-04T10:05:00+02:00x", "2021-03-04T10:05:00 UTC",
                           "2021-03-04T10:05:00,5+02:00", "2021-03-04T10:05:00\n+02:00"}) {
    EXPECT_EQ(ISODate::parse(text), (P{kAt1005UTC, kNone})) << text;
  }
  for (const char* text : {"2021-03-04T10:05Z", "", "2021-03-04t10:05:00Z", "2021/03/04T10:05:00Z",
                           "2021-02-30T10:05:00Z", "20210304T100500+0200"}) {
    EXPECT_EQ(ISODate::parse(text), kNone) << text;
  }
}

TEST(ExifDateTest, OffsetsAreSignedHoursAndMinutes) {
  const char* const kFullwidth = "\xEF\xBC\x8B\xEF\xBC\x90\xEF\xBC\x92\xEF\xBC\x90\xEF\xBC\x90";
  // Every colon is dropped wherever it is; there is no range check.
  const std::pair<const char*, std::optional<int>> kParsed[] = {
      {"+02:00", 7200},  {" Z ", 0},          {"-03:30", -12600}, {"+99:99", 362340},
      {"+0:2:00", 7200}, {"+05", kNone},      {"05:30", kNone},   {"+5:30", kNone},
      {"z", kNone},      {"+02:00\n", kNone}, {"+02:000", kNone}, {"+-1-2", kNone},
      {"+ 200", kNone},  {"", kNone},         {kFullwidth, kNone}};
  for (const auto& [text, seconds] : kParsed) {
    EXPECT_EQ(ExifDate::parseOffset(text), seconds) << text;
  }
  const std::pair<int, const char*> kFormatted[] = {{-12600, "-03:30"},
                                                    {3659, "+01:00"},
                                                    {-59, "-00:00"},
                                                    {362340, "+100:39"},
                                                    {INT_MIN, "-596523:14"}};
  for (const auto& [seconds, text] : kFormatted) EXPECT_EQ(ExifDate::formatOffset(seconds), text);
  for (int seconds = -18 * 3600; seconds <= 18 * 3600; seconds += 60) {
    EXPECT_EQ(ExifDate::parseOffset(ExifDate::formatOffset(seconds)), seconds);
  }
}

TEST(TextTrimmingTest, HorizontalSpaceOrAlsoLineBreaks) {
  // Text, trimmed of horizontal space, trimmed of line breaks too. Unicode spaces count; a
  // broken UTF-8 sequence or a byte order mark stops the trim.
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"  +02:00\t", "+02:00", "+02:00"},
      {"\u00A0+02:00\u3000", "+02:00", "+02:00"},
      {"\u202Fa b\u2009", "a b", "a b"},
      {"\n+02:00\r\n", "\n+02:00\r\n", "+02:00"},
      {"\u0085\x0B\x0Cx\u2029", "\u0085\x0B\x0Cx\u2029", "x"},
      {" \t", "", ""},
      {"\xC2 x \xA0", "\xC2 x \xA0", "\xC2 x \xA0"},
      {"\uFEFFx", "\uFEFFx", "\uFEFFx"},
  };
  for (const auto& [text, horizontal, all] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(trimHorizontalSpace(text), horizontal);
    EXPECT_EQ(trimWhiteSpaceAndLineBreaks(text), all);
  }
}

TEST(GeoPointTest, DistanceIsTheGreatCircleOnAMeanEarthIgnoringAltitude) {
  // From, to, metres and tolerance. Half the circumference of a sphere of radius 6,371 km is
  // 20,015,086.8 m.
  const std::tuple<GeoPoint, GeoPoint, double, double> kCases[] = {
      {{48.8577, 2.2945, 0.0}, {48.8577, 2.2945, 8000.0}, 0, 1e-9},
      {{0, 0, {}}, {0, 180, {}}, 20015086.8, 0.1},
      {{90, 0, {}}, {-90, 0, {}}, 20015086.8, 0.1},
      {{0, 179.9, {}}, {0, -179.9, {}}, 22239.0, 0.1},
      {{48.8577, 2.2945, {}}, {51.5007, -0.1246, {}}, 340607, 1},  // Eiffel Tower, Big Ben
  };
  for (const auto& [from, to, meters, tolerance] : kCases) {
    EXPECT_NEAR(from.distanceMeters(to), meters, tolerance);
    EXPECT_NEAR(to.distanceMeters(from), meters, tolerance);
  }
}

TEST(GeoPointTest, JSONHasLatitudeLongitudeAndAnyAltitude) {
  using nlohmann::json;
  EXPECT_EQ(nlohmann::ordered_json(GeoPoint{48.5, -2.25, 35.0}).dump(),
            R"({"latitude":48.5,"longitude":-2.25,"altitude":35.0})");
  EXPECT_EQ(json(GeoPoint{48.5, -2.25, {}}).dump(), R"({"latitude":48.5,"longitude":-2.25})");
  EXPECT_EQ(json::parse(R"({"altitude":3,"longitude":2,"latitude":1})").get<GeoPoint>(),
            (GeoPoint{1, 2, 3.0}));
  EXPECT_EQ(json::parse(R"({"latitude":1,"longitude":2,"altitude":null})").get<GeoPoint>(),
            (GeoPoint{1, 2, {}}));
  for (const char* text : {R"({"latitude":48.5})", R"({"latitude":"48.5","longitude":-2.25})",
                           R"({"latitude":1,"longitude":2,"altitude":"high"})", "[48.5,-2.25]"}) {
    EXPECT_THROW(json::parse(text).get<GeoPoint>(), json::exception) << text;
  }
}

// Both directions, in the C locale and again in German, which writes "48,8577": a desktop app
// sets the process locale from the environment.
void expectISO6709InThisLocale() {
  // The first run of two or three signed numbers that touch; no range check; a latitude no
  // double holds spoils the text, an underflow is 0.
  const std::pair<std::string, std::optional<GeoPoint>> kParsed[] = {
      {"+48.8577+002.2945/", GeoPoint{48.8577, 2.2945, {}}},
      {"-33.8688+151.2093-0.5/", GeoPoint{-33.8688, 151.2093, -0.5}},
      {"+40-074", GeoPoint{40, -74, {}}},
      {"+00.0000+000.0000/", GeoPoint{0, 0, {}}},
      {"+95.5+400.25/", GeoPoint{95.5, 400.25, {}}},
      {"loc: 12+48.8577+002.2945/ end", GeoPoint{48.8577, 2.2945, {}}},
      {"+48.8577+002.2945+/", GeoPoint{48.8577, 2.2945, {}}},
      {"+48.8577+002.2945+1.2.3/", GeoPoint{48.8577, 2.2945, 1.2}},
      {"+1+2+3+4/", GeoPoint{1, 2, 3}},
      {"+0." + std::string(400, '0') + "1+1/", GeoPoint{0, 1, {}}},
      {"+" + std::string(400, '9') + "+1/", std::nullopt},
  };
  for (const auto& [text, point] : kParsed) EXPECT_EQ(ISO6709::parse(text), point) << text;
  // "48." is no number, so "+002.2945/" is alone.
  for (const char* text :
       {"+48.8577 +002.2945/", "+48.+002.2945/", "+48.8577", "48.8577,2.2945", "+-+-", ""}) {
    EXPECT_EQ(ISO6709::parse(text), std::nullopt) << text;
  }
  // Fixed widths, wider when the number is, never cut; the text reads back to the same text.
  const std::pair<GeoPoint, std::string> kFormatted[] = {
      {{40.7128, -74.006, {}}, "+040.7128-0074.0060/"},
      {{-0.0, -0.0, -0.0}, "-000.0000-0000.0000-0.000/"},
      {{48.85774999, 2.29455001, -1234.5678}, "+048.8577+0002.2946-1234.568/"},
      {{-90, 180, 8848.86}, "-090.0000+0180.0000+8848.860/"},
      {{1234.5, 12345.5, {}}, "+1234.5000+12345.5000/"},
  };
  for (const auto& [point, text] : kFormatted) {
    EXPECT_EQ(ISO6709::format(point), text);
    EXPECT_EQ(ISO6709::format(ISO6709::parse(text).value()), text);
  }
}

TEST(ISO6709Test, ReadsAndWritesTheSameInEveryLocale) {
  expectISO6709InThisLocale();
  const std::string saved = std::setlocale(LC_ALL, nullptr);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no German locale";
  expectISO6709InThisLocale();
  std::setlocale(LC_ALL, saved.c_str());
}

}  // namespace
}  // namespace quillmere
