#include "core/dates/iso_date.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "core/dates/exif_date.h"
#include "tests/dates/test_printers.h"

namespace quillmere {
namespace {

constexpr double kAt0805UTC = 1614845100;  // 2021-03-04 08:05:00 UTC
constexpr double kAt1005UTC = 1614852300;  // 2021-03-04 10:05:00 UTC

TEST(ISODateParseTest, ReadsWallClockThenOffset) {
  const struct {
    std::string text;
    std::optional<ISODate::Parsed> expected;
  } kCases[] = {
      {"2021-03-04T10:05:00+02:00", ISODate::Parsed{kAt0805UTC, 7200}},
      {"2021-03-04T10:05:00+0200", ISODate::Parsed{kAt0805UTC, 7200}},
      {"2021-03-04T10:05:00.250+0200", ISODate::Parsed{kAt0805UTC, 7200}},
      {"2021-03-04T10:05:00.999999999+02:00", ISODate::Parsed{kAt0805UTC, 7200}},
      {"2021:03:04 10:05:00 +02:00", ISODate::Parsed{kAt0805UTC, 7200}},
      {"2021-03-04 10:05:00+02:00", ISODate::Parsed{kAt0805UTC, 7200}},
      {"  2021-03-04T10:05:00+02:00\t", ISODate::Parsed{kAt0805UTC, 7200}},
      {"2021-03-04T10:05:00Z", ISODate::Parsed{kAt1005UTC, 0}},
      {"2021-03-04T10:05:00.5Z", ISODate::Parsed{kAt1005UTC, 0}},
      {"2021-03-04T10:05:00-08:00", ISODate::Parsed{kAt1005UTC + 28800, -28800}},
      {"2021-03-04T10:05:00+12:45", ISODate::Parsed{kAt1005UTC - 45900, 45900}},
      {"2021-03-04T00:30:00+02:00", ISODate::Parsed{kAt1005UTC - 34500 - 7200, 7200}},
      {"2021-03-04 10:05:00", ISODate::Parsed{kAt1005UTC, std::nullopt}},  // floating clock
      {"2021-03-04T10:05:00", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00.123", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00.", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      // An unreadable suffix never loses the date: it is ignored, offset and all.
      {"2021-03-04T10:05:00+02:00x", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00 UTC", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00GMT+2", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00+02", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00,5+02:00", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04T10:05:00\n+02:00", ISODate::Parsed{kAt1005UTC, std::nullopt}},
      {"2021-03-04", std::nullopt},  // ten characters
      {"2021-03-04T10:05", std::nullopt},
      {"2021-03-04T10:05Z", std::nullopt},
      {"", std::nullopt},
      {"2021-03-04t10:05:00Z", std::nullopt},
      {"2021/03/04T10:05:00Z", std::nullopt},
      {"2021-02-30T10:05:00Z", std::nullopt},
      {"0000-00-00T00:00:00Z", std::nullopt},
      {"20210304T100500+0200", std::nullopt},  // the basic date form is not read
      {"Thu, 04 Mar 2021 10:05:00 +0200", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ISODate::parse(c.text), c.expected);
  }
}

TEST(ISODateFormatTest, WritesTheBasicOffsetForm) {
  const struct {
    double utc;
    int offsetSeconds;
    std::string iso;
    std::string xmp;
  } kCases[] = {
      {kAt0805UTC, 7200, "2021-03-04T10:05:00+0200", "2021-03-04T10:05:00+02:00"},
      {kAt0805UTC, 0, "2021-03-04T08:05:00+0000", "2021-03-04T08:05:00+00:00"},
      {kAt0805UTC, -28800, "2021-03-04T00:05:00-0800", "2021-03-04T00:05:00-08:00"},
      {kAt0805UTC, -32400, "2021-03-03T23:05:00-0900", "2021-03-03T23:05:00-09:00"},
      {kAt0805UTC, 19800, "2021-03-04T13:35:00+0530", "2021-03-04T13:35:00+05:30"},
      {kAt0805UTC, 45900, "2021-03-04T20:50:00+1245", "2021-03-04T20:50:00+12:45"},
      {kAt0805UTC, 64800, "2021-03-05T02:05:00+1800", "2021-03-05T02:05:00+18:00"},
      {kAt0805UTC, -3661, "2021-03-04T07:03:59-010101", "2021-03-04T07:03:59-01:01"},
      {kAt0805UTC + 0.75, 3600, "2021-03-04T09:05:00+0100", "2021-03-04T09:05:00+01:00"},
      {-1, 0, "1969-12-31T23:59:59+0000", "1969-12-31T23:59:59+00:00"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message() << c.utc << " at " << c.offsetSeconds);
    EXPECT_EQ(ISODate::format(c.utc, c.offsetSeconds), c.iso);
    EXPECT_EQ(ISODate::formatXMP(c.utc, c.offsetSeconds), c.xmp);
  }
}

TEST(ISODateFormatTest, BothFormsReadBackToTheSameInstantAndOffset) {
  for (double utc = -2208988800; utc < 4102444800; utc += 86400 * 89 + 1237) {
    for (const int offset : {0, 3600, -12600, 45900, 49500, -36000, 64800}) {
      SCOPED_TRACE(::testing::Message() << utc << " at " << offset);
      EXPECT_EQ(ISODate::parse(ISODate::format(utc, offset)), (ISODate::Parsed{utc, offset}));
      EXPECT_EQ(ISODate::parse(ISODate::formatXMP(utc, offset)), (ISODate::Parsed{utc, offset}));
    }
  }
}

TEST(ISODateFormatTest, ImpossibleOffsetsRenderInTheMachineZoneWithItsOffset) {
  // The basic form names the zone actually used, so the text still reads back to the instant.
  const std::string text = ISODate::format(kAt0805UTC, 20 * 3600);
  const std::optional<ISODate::Parsed> read = ISODate::parse(text);
  ASSERT_TRUE(read.has_value()) << text;
  EXPECT_EQ(read->date, kAt0805UTC) << text;
  ASSERT_TRUE(read->offsetSeconds.has_value());
  EXPECT_LE(std::abs(*read->offsetSeconds), 18 * 3600);
}

}  // namespace
}  // namespace quillmere
