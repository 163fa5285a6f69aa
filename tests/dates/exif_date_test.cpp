#include "core/dates/exif_date.h"

#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace quillmere {
namespace {

TEST(ExifDatePatternTest, TellsDatesFromFiller) {
  const struct {
    std::string text;
    bool matches;
  } kCases[] = {
      {"2021:03:04 10:05:00", true},
      {"2021:03:04 10:05:00.123+02:00", true},  // only the start must match
      {"0000:00:00 00:00:00", true},            // the shape alone; the reader rejects "0000"
      {"2021-03-04 10:05:00", false},
      {"2021:03:04T10:05:00", false},
      {"2021:03:04 10:05", false},
      {" 2021:03:04 10:05:00", false},  // anchored at the start
      {"    :  :     :  :  ", false},   // what some cameras write when they have no clock
      {"2021:3:04 10:05:00", false},
      {"\xD9\xA2\xD9\xA0\xD9\xA2\xD9\xA1:03:04 10:05:00", false},  // Arabic-Indic digits
      {"", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(std::regex_search(c.text, ExifDate::pattern()), c.matches);
  }
}

TEST(ExifDateWallClockTest, ReadsTheFirstNineteenCharactersAsUTC) {
  const struct {
    std::string text;
    std::optional<double> expected;
  } kCases[] = {
      {"2021:03:04 10:05:00", 1614852300},
      {"2021:03:04 10:05:00.123", 1614852300},    // sub-seconds ignored, not added
      {"2021:03:04 10:05:00+02:00", 1614852300},  // an offset is not this function's business
      {"2021:03:04 10:05:00 garbage", 1614852300},
      {"1970:01:01 00:00:00", 0},
      {"1969:12:31 23:59:59", -1},
      {"2000:02:29 12:00:00", 951825600},  // leap day of a year divisible by 400
      {"1900:03:01 00:00:00", -2203891200},
      {"0001:01:01 00:00:00", -62135596800},
      {"9999:12:31 23:59:59", 253402300799},
      {"2021:03:04 10:05", std::nullopt},  // shorter texts never match
      {"2021:03:04", std::nullopt},
      {"", std::nullopt},
      {"2021-03-04 10:05:00", std::nullopt},
      {"2021:03:04T10:05:00", std::nullopt},
      {"2021:3:4 10:05:00xx", std::nullopt},
      {"2021:03:04 10:5:00 ", std::nullopt},
      {"0000:00:00 00:00:00", std::nullopt},
      {"2021:00:10 10:00:00", std::nullopt},
      {"2021:13:10 10:00:00", std::nullopt},
      {"2021:02:29 10:00:00", std::nullopt},  // not a leap year
      {"1900:02:29 10:00:00", std::nullopt},  // nor is a century not divisible by 400
      {"2021:04:31 10:00:00", std::nullopt},
      {"2021:03:00 10:00:00", std::nullopt},
      {"2021:03:04 24:00:00", std::nullopt},
      {"2021:03:04 10:60:00", std::nullopt},
      {"2021:03:04 10:05:60", std::nullopt},
      {"+021:03:04 10:05:00", std::nullopt},
      {" 2021:03:04 10:05:00", std::nullopt},
      {"\xEF\xBC\x92\xEF\xBC\x90\xEF\xBC\x92\xEF\xBC\x91:03:04 10:05:00",
       std::nullopt},  // fullwidth
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ExifDate::wallClockAsUTC(c.text), c.expected);
  }
}

TEST(ExifDateFormatTest, RendersTheWallClockOfTheOffset) {
  const struct {
    double utc;
    int offsetSeconds;
    std::string expected;
  } kCases[] = {
      {1614845100, 7200, "2021:03:04 10:05:00"},  // 08:05 UTC at +02:00
      {1614845100, 0, "2021:03:04 08:05:00"},
      {1614845100, -28800, "2021:03:04 00:05:00"},
      {1614845100, -32400, "2021:03:03 23:05:00"},  // the day before
      {1614845100, 45900, "2021:03:04 20:50:00"},   // +12:45, Chatham standard time
      {1614845100, 64800, "2021:03:05 02:05:00"},   // +18:00 is still a fixed zone
      {1614845100, -64800, "2021:03:03 14:05:00"},
      {1614845100, 3661, "2021:03:04 09:06:01"},   // an odd offset moves the seconds too
      {1614845100.999, 0, "2021:03:04 08:05:00"},  // fractions dropped, never rounded up
      {-0.5, 0, "1969:12:31 23:59:59"},            // towards the past before the epoch
      {0, 0, "1970:01:01 00:00:00"},
      {951782400, 0, "2000:02:29 00:00:00"},
      {1709164800, 3600, "2024:02:29 01:00:00"},
      {1735689599, 1, "2025:01:01 00:00:00"},  // across a year boundary
      {-62135596800, 0, "0001:01:01 00:00:00"},
      {253402300799, 0, "9999:12:31 23:59:59"},
      {253402300800, 0, "10000:01:01 00:00:00"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::Message() << c.utc << " at " << c.offsetSeconds);
    EXPECT_EQ(ExifDate::format(c.utc, c.offsetSeconds), c.expected);
  }
}

TEST(ExifDateFormatTest, ReadsBackWhatItWrites) {
  for (double utc = -2208988800; utc < 4102444800; utc += 86400 * 97 + 3727) {
    for (const int offset : {0, 7200, -12600, 45900, -36000}) {
      SCOPED_TRACE(::testing::Message() << utc << " at " << offset);
      const std::optional<double> read = ExifDate::wallClockAsUTC(ExifDate::format(utc, offset));
      ASSERT_TRUE(read.has_value());
      EXPECT_EQ(*read - offset, utc);
    }
  }
}

TEST(ExifDateFormatTest, OffsetsBeyondEighteenHoursFallBackOnTheMachineZone) {
  // No fixed zone exists for them, so the machine's zone (whatever the test runs under) is
  // used: the wall clock shown is never the one of the impossible offset.
  const double utc = 1614845100;
  for (const int offset : {64860, -64860, 30 * 3600, 362340}) {
    SCOPED_TRACE(offset);
    const std::string text = ExifDate::format(utc, offset);
    EXPECT_NE(text, ExifDate::format(utc + offset, 0));
    const std::optional<double> read = ExifDate::wallClockAsUTC(text);
    ASSERT_TRUE(read.has_value());
    EXPECT_LE(std::abs(*read - utc), 18 * 3600);  // a real zone's offset
  }
}

TEST(ExifDateOffsetTest, ParsesSignedHoursAndMinutes) {
  const struct {
    std::string text;
    std::optional<int> expected;
  } kCases[] = {
      {"+02:00", 7200},
      {"  +02:00\t", 7200},
      {"\xC2\xA0+02:00\xE2\x80\x89", 7200},  // no-break and thin spaces are horizontal too
      {"+0200", 7200},
      {"Z", 0},
      {" Z ", 0},
      {"+05:30", 19800},
      {"-0800", -28800},
      {"-03:30", -12600},
      {"+12:45", 45900},
      {"-00:00", 0},
      {"+00:00", 0},
      {"+99:99", 362340},  // no range check
      {"+0:2:00", 7200},   // every colon goes, wherever it is
      {"+05", std::nullopt},
      {"05:30", std::nullopt},
      {"+5:30", std::nullopt},
      {"GMT+2", std::nullopt},
      {"UTC", std::nullopt},
      {"z", std::nullopt},
      {"ZZ", std::nullopt},
      {"+02:00\n", std::nullopt},  // line breaks are not trimmed
      {"\n+02:00", std::nullopt},
      {"+02:000", std::nullopt},
      {"+02:0a", std::nullopt},
      {"+-1-2", std::nullopt},
      {"++1+2", std::nullopt},
      {"+ 200", std::nullopt},
      {"", std::nullopt},
      {"   ", std::nullopt},
      {"\xEF\xBC\x8B\xEF\xBC\x90\xEF\xBC\x92\xEF\xBC\x90\xEF\xBC\x90", std::nullopt},  // fullwidth
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ExifDate::parseOffset(c.text), c.expected);
  }
}

TEST(ExifDateOffsetTest, FormatsSignHoursAndMinutes) {
  const struct {
    int seconds;
    std::string expected;
  } kCases[] = {
      {7200, "+02:00"},
      {0, "+00:00"},
      {-12600, "-03:30"},
      {19800, "+05:30"},
      {3661, "+01:01"},
      {3659, "+01:00"},
      {-59, "-00:00"},
      {45900, "+12:45"},
      {-36000, "-10:00"},
      {362340, "+100:39"},
      {-2147483648, "-596523:14"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.seconds);
    EXPECT_EQ(ExifDate::formatOffset(c.seconds), c.expected);
  }
}

TEST(ExifDateOffsetTest, ReadsBackEveryWholeMinuteOffset) {
  for (int seconds = -18 * 3600; seconds <= 18 * 3600; seconds += 60) {
    EXPECT_EQ(ExifDate::parseOffset(ExifDate::formatOffset(seconds)), seconds);
  }
}

TEST(ExifDateTest, IsSafeFromManyThreadsAtOnce) {
  // The shared expression is created on first use by whichever thread gets there first.
  std::vector<std::thread> threads;
  std::vector<int> failures(8, 0);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &failures] {
      for (int i = 0; i < 200; ++i) {
        const double utc = 1614845100 + t * 86400 + i;
        const std::string text = ExifDate::format(utc, 3600 * (t - 4));
        if (!std::regex_search(text, ExifDate::pattern())) ++failures[t];
        if (ExifDate::wallClockAsUTC(text) != utc + 3600 * (t - 4)) ++failures[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < 8; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
}  // namespace quillmere
