#include "core/dates/time_zone.h"

#include <date/date.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>

namespace quillmere {
namespace {

// Seconds since 1970 of a UTC date and time.
double utc(int year, unsigned month, unsigned day, int hour = 12, int minute = 0,
           double second = 0) {
  const date::sys_days days = date::year(year) / month / day;
  return static_cast<double>(days.time_since_epoch() / std::chrono::seconds(1)) + hour * 3600 +
         minute * 60 + second;
}

TEST(TimeZoneTest, OffsetsFollowTheDatabaseIncludingDaylightSavingAndHistory) {
  const struct {
    const char* zone;
    double instant;
    int offset;
  } cases[] = {
      {"Europe/Paris", utc(2021, 1, 15), 3600},
      {"Europe/Paris", utc(2021, 7, 15), 7200},
      {"Europe/Paris", utc(2021, 3, 28, 0, 59, 59), 3600},  // the last second of winter time
      {"Europe/Paris", utc(2021, 3, 28, 1, 0, 0), 7200},
      {"Europe/Paris", utc(2021, 3, 28, 0, 59, 59.75), 3600},  // fractions are floored
      {"Europe/Paris", utc(1890, 1, 1), 561},                  // local mean time, +00:09:21
      {"Asia/Kathmandu", utc(2021, 6, 1), 20700},
      {"Asia/Kathmandu", utc(1985, 6, 1), 19800},  // +05:30 until 1986
      {"Asia/Kolkata", utc(2021, 6, 1), 19800},
      {"Australia/Adelaide", utc(2021, 1, 15), 37800},
      {"Australia/Adelaide", utc(2021, 7, 15), 34200},
      {"Pacific/Chatham", utc(2021, 1, 15), 49500},
      {"Pacific/Chatham", utc(2021, 7, 15), 45900},
      {"America/Caracas", utc(2010, 1, 1), -16200},  // -04:30 from 2007 to 2016
      {"America/Caracas", utc(2020, 1, 1), -14400},
      {"America/St_Johns", utc(2021, 1, 15), -12600},
      {"America/St_Johns", utc(2021, 7, 15), -9000},
      {"Etc/GMT+3", utc(2021, 7, 15), -10800},  // Etc names count west as positive
      {"Etc/GMT-14", utc(2021, 7, 15), 50400},
      {"Europe/Berlin", -0.5, 3600},  // just before 1970, floored to the earlier second
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.zone) + " at " + std::to_string(c.instant));
    const std::optional<TimeZone> zone = TimeZone::named(c.zone);
    ASSERT_TRUE(zone.has_value());
    EXPECT_EQ(zone->identifier(), c.zone);
    EXPECT_EQ(zone->offsetSeconds(c.instant), c.offset);
  }
}

TEST(TimeZoneTest, UnknownIdentifiersAreAbsent) {
  for (const char* name : {"Mars/Olympus_Mons", "", "Europe/", "Etc/GMT+15", "../../etc/passwd"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(TimeZone::named(name), std::nullopt);
  }
}

TEST(TimeZoneTest, NonFiniteInstantsDoNotFail) {
  const TimeZone paris = TimeZone::named("Europe/Paris").value();
  EXPECT_EQ(paris.offsetSeconds(std::numeric_limits<double>::quiet_NaN()), paris.offsetSeconds(0));
  EXPECT_EQ(paris.offsetSeconds(-std::numeric_limits<double>::infinity()), 561);
  const int future = paris.offsetSeconds(std::numeric_limits<double>::infinity());
  EXPECT_TRUE(future == 3600 || future == 7200) << future;
}

TEST(TimeZoneTest, EqualWhenTheSameZone) {
  EXPECT_EQ(TimeZone::named("Asia/Tokyo"), TimeZone::named("Asia/Tokyo"));
  EXPECT_NE(TimeZone::named("Asia/Tokyo"), TimeZone::named("Asia/Seoul"));
}

}  // namespace
}  // namespace quillmere
