#include "core/dates/date_planner.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "core/dates/exif_date.h"
#include "tests/support/scoped_environment.h"

namespace quillmere {

void PrintTo(OffsetSource source, std::ostream* out) { *out << rawValue(source); }
void PrintTo(DateSource source, std::ostream* out) { *out << rawValue(source); }

namespace {

using CaptureDate = EmbeddedMetadata::CaptureDate;
using DatePlanner::ResolvedDate;

// The instant of a UTC wall clock written "yyyy:MM:dd HH:mm:ss".
double at(const char* utcClock) { return ExifDate::wallClockAsUTC(utcClock).value(); }

constexpr int kHour = 3600;
constexpr double kDay = 86400;
const GeoPoint kParis{48.8566, 2.3522, std::nullopt};
const GeoPoint kKathmandu{27.7172, 85.3240, std::nullopt};

// An index whose guesses are Tokyo's (+09:00), whatever the machine's zone.
OffsetIndex tokyoIndex() {
  OffsetIndex index;
  index.fallbackZone = TimeZone::named("Asia/Tokyo");
  return index;
}

TEST(DatePlannerTest, ResolvesTheFilesOwnDate) {
  const CaptureDate bare = CaptureDate::local("2021:03:04 10:05:00", std::nullopt);
  const double nineFive = at("2021:03:04 09:05:00");
  const struct {
    const char* name;
    std::optional<CaptureDate> date;
    std::optional<double> takeout;
    std::optional<ResolvedDate> expected;
  } cases[] = {
      {"nothing", std::nullopt, nineFive, std::nullopt},
      {"one hour ahead", bare, nineFive, ResolvedDate{nineFive, kHour, OffsetSource::derived}},
      {"119 s off the hour", bare, at("2021:03:04 09:06:59"),
       ResolvedDate{nineFive, kHour, OffsetSource::derived}},
      {"121 s off the hour", bare, at("2021:03:04 09:07:01"), std::nullopt},
      {"15 hours apart", bare, at("2021:03:03 19:05:00"), std::nullopt},
      {"14 hours ahead", CaptureDate::local("2021:03:04 23:05:00", std::nullopt), nineFive,
       ResolvedDate{nineFive, 14 * kHour, OffsetSource::derived}},
      {"half-hour zone", CaptureDate::local("2021:03:04 14:35:00", std::nullopt), nineFive,
       ResolvedDate{nineFive, 19800, OffsetSource::derived}},
      {"45-minute zone", CaptureDate::local("2021:03:04 14:50:00", std::nullopt), nineFive,
       ResolvedDate{nineFive, 20700, OffsetSource::derived}},
      {"west of UTC", CaptureDate::local("2021:03:04 05:35:00", std::nullopt), nineFive,
       ResolvedDate{nineFive, -12600, OffsetSource::derived}},
      {"bare, no export instant", bare, std::nullopt, std::nullopt},
      {"stated offset", CaptureDate::local("2021:03:04 10:05:00", 2 * kHour), std::nullopt,
       ResolvedDate{at("2021:03:04 08:05:00"), 2 * kHour, OffsetSource::file}},
      {"stated offset, unreadable text", CaptureDate::local("0000:00:00 00:00:00", 0), nineFive,
       std::nullopt},
      {"absolute with offset", CaptureDate::absolute(nineFive, -5 * kHour), std::nullopt,
       ResolvedDate{nineFive, -5 * kHour, OffsetSource::file}},
      {"absolute without offset", CaptureDate::absolute(nineFive, std::nullopt), nineFive + kDay,
       ResolvedDate{nineFive, std::nullopt, OffsetSource::unknown}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(DatePlanner::resolveEmbedded(c.date, c.takeout), c.expected);
  }
}

TEST(DatePlannerTest, DecidesEachSituation) {
  const double nineFive = at("2021:03:04 09:05:00");
  const OffsetIndex empty = tokyoIndex();
  OffsetIndex nearby = tokyoIndex();
  nearby.add(nineFive - kDay, -3 * kHour);
  nearby.finalize();
  const std::string override = " differed from Google Photos; used Google's (likely edited there)";
  const auto decision = [](std::optional<double> utc, std::optional<int> offset, DateSource date,
                           OffsetSource source, bool write, std::optional<std::string> note) {
    return DateDecision{utc, offset, date, source, write, std::move(note)};
  };
  const struct {
    const char* name;
    std::optional<CaptureDate> date;
    std::optional<double> takeout;
    std::optional<GeoPoint> location;
    const OffsetIndex& index;
    DateDecision expected;
  } cases[] = {
      {"derived offset agrees", CaptureDate::local("2021:03:04 10:05:00", std::nullopt), nineFive,
       kParis, empty,
       decision(nineFive, kHour, DateSource::file, OffsetSource::derived, false, std::nullopt)},
      {"movie without offset, 120 s off", CaptureDate::absolute(nineFive + 120, std::nullopt),
       nineFive, kParis, empty,
       decision(nineFive + 120, std::nullopt, DateSource::file, OffsetSource::unknown, false,
                std::nullopt)},
      {"no export instant", CaptureDate::local("2021:03:04 10:05:00", 3 * kHour), std::nullopt,
       std::nullopt, empty,
       decision(at("2021:03:04 07:05:00"), 3 * kHour, DateSource::file, OffsetSource::file, false,
                std::nullopt)},
      {"121 s off keeps the file's offset", CaptureDate::local("2021:03:04 11:07:01", 2 * kHour),
       nineFive, kKathmandu, empty,
       decision(nineFive, 2 * kHour, DateSource::takeoutOverride, OffsetSource::file, true,
                "File date" + override)},
      {"movie differs, zone from place", CaptureDate::absolute(nineFive + kDay, std::nullopt),
       nineFive, kKathmandu, empty,
       decision(nineFive, 20700, DateSource::takeoutOverride, OffsetSource::location, true,
                "File date" + override)},
      {"bare clock does not resolve", CaptureDate::local("2021:03:04 10:07:01", std::nullopt),
       nineFive, std::nullopt, nearby,
       decision(nineFive, -3 * kHour, DateSource::takeoutOverride, OffsetSource::neighbor, true,
                "File date 2021:03:04 10:07:01" + override)},
      {"bare clock, no export instant", CaptureDate::local("2021:03:04 10:07:01", std::nullopt),
       std::nullopt, kParis, nearby,
       decision(std::nullopt, std::nullopt, DateSource::file, OffsetSource::unknown, false,
                std::nullopt)},
      {"export only, zone from place", std::nullopt, nineFive, kParis, nearby,
       decision(nineFive, kHour, DateSource::takeout, OffsetSource::location, true, std::nullopt)},
      {"unreadable dated text, guessed", CaptureDate::local("garbage", 0), nineFive, std::nullopt,
       empty,
       decision(nineFive, 9 * kHour, DateSource::takeout, OffsetSource::guessed, true,
                std::nullopt)},
      {"nothing at all", std::nullopt, std::nullopt, kParis, nearby,
       decision(std::nullopt, std::nullopt, DateSource::none, OffsetSource::unknown, false,
                "No capture date in the file or in Google's metadata")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(DatePlanner::decide(c.date, c.takeout, c.location, c.index), c.expected);
  }
}

TEST(DatePlannerTest, WithoutAMapOrAZoneThePlaceIsSkipped) {
  const double summer = at("2021:07:01 12:00:00");
  OffsetIndex index = tokyoIndex();
  EXPECT_EQ(DatePlanner::inferOffset(summer, kParis, index, nullptr),
            (InferredOffset{9 * kHour, OffsetSource::guessed}));
  EXPECT_EQ(DatePlanner::inferOffset(summer, kParis, index),
            (InferredOffset{2 * kHour, OffsetSource::location}));
  // The South Pole's edge holds no zone in the map; the index answers instead.
  EXPECT_EQ(DatePlanner::inferOffset(summer, GeoPoint{-90, 0, std::nullopt}, index).source,
            OffsetSource::guessed);
  index.fallbackZone.reset();  // no tzdata at all: a guess of UTC
  EXPECT_EQ(index.offset(summer), (InferredOffset{0, OffsetSource::guessed}));
}

TEST(OffsetIndexTest, FindsTheNearestSampleWithinThreeDays) {
  const double ten = at("2021:03:04 10:00:00");
  OffsetIndex index = tokyoIndex();
  index.add(ten + 4 * kHour, 2 * kHour);
  index.add(ten, kHour);
  index.add(ten + 4 * kHour, 5 * kHour);  // same instant, added later
  index.finalize();
  ASSERT_EQ(index.count(), 3u);
  const InferredOffset guess{9 * kHour, OffsetSource::guessed};
  const struct {
    const char* name;
    double utc;
    InferredOffset expected;
  } cases[] = {
      {"tie goes to the earlier", ten + 2 * kHour, {kHour, OffsetSource::neighbor}},
      {"a second later", ten + 2 * kHour + 1, {2 * kHour, OffsetSource::neighbor}},
      {"equal instants keep their order", ten + 4 * kHour, {2 * kHour, OffsetSource::neighbor}},
      {"after the last of equals", ten + 5 * kHour, {5 * kHour, OffsetSource::neighbor}},
      {"exactly three days before", ten - 3 * kDay, {kHour, OffsetSource::neighbor}},
      {"a second more", ten - 3 * kDay - 1, guess},
      {"three days after", ten + 4 * kHour + 3 * kDay, {5 * kHour, OffsetSource::neighbor}},
      {"a second more after", ten + 4 * kHour + 3 * kDay + 1, guess},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(index.offset(c.utc), c.expected);
  }
  EXPECT_EQ(tokyoIndex().offset(ten), guess);
}

TEST(OffsetIndexTest, GuessesInTheMachinesZone) {
  // TZ is honoured even though the date library reads only /etc/localtime.
  const double summer = at("2021:07:01 12:00:00");
  const struct {
    const char* tz;
    int offset;
  } cases[] = {
      {"Asia/Kathmandu", 20700},
      {":America/St_Johns", -9000},
      {"/usr/share/zoneinfo/Australia/Adelaide", 34200},
      {"", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tz);
    ScopedEnvironment tz("TZ", c.tz);
    EXPECT_EQ(OffsetIndex().offset(summer), (InferredOffset{c.offset, OffsetSource::guessed}));
  }
}

TEST(DateDecisionTest, RawTextsLocalClockAndZoneNotes) {
  for (const auto& [source, raw] : {std::pair{DateSource::file, "file"},
                                    {DateSource::takeout, "export"},
                                    {DateSource::takeoutOverride, "export-edited"},
                                    {DateSource::none, "none"}}) {
    EXPECT_EQ(rawValue(source), raw);
    EXPECT_EQ(nlohmann::json(raw).get<DateSource>(), source);
  }
  for (const char* raw : {"file", "derived", "location", "neighbor", "guessed", "unknown"}) {
    const std::optional<OffsetSource> source = fromRawValue<OffsetSource>(raw);
    ASSERT_TRUE(source.has_value()) << raw;
    EXPECT_EQ(nlohmann::json(*source), raw);
  }
  EXPECT_EQ(fromRawValue<OffsetSource>("Guessed"), std::nullopt);
  EXPECT_THROW(nlohmann::json("takeout").get<DateSource>(), nlohmann::json::type_error);

  DateDecision decision{at("2021:03:04 09:05:00"), 20700, DateSource::takeout,
                        OffsetSource::location,    true,  std::nullopt};
  EXPECT_EQ(decision.localString(), "2021:03:04 14:50:00");
  decision.offsetSeconds.reset();
  EXPECT_EQ(decision.localString(), std::nullopt);

  EXPECT_EQ(zoneNote(OffsetSource::guessed),
            "Time zone is a guess (this computer's zone); no nearby photo had one");
  EXPECT_EQ(zoneNote(OffsetSource::neighbor), "Time zone inferred from nearby photos");
  EXPECT_EQ(zoneNote(OffsetSource::location), "Time zone from the photo's location");
  EXPECT_EQ(zoneNote(OffsetSource::derived), std::nullopt);
}

}  // namespace
}  // namespace quillmere
