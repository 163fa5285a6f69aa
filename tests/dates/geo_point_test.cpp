// Places: distances, the JSON form, and the ISO 6709 text movies carry.
#include "core/dates/geo_point.h"

#include <gtest/gtest.h>

#include <clocale>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "core/dates/iso6709.h"
#include "tests/dates/test_printers.h"

namespace quillmere {
namespace {

TEST(GeoPointTest, DistanceIsTheGreatCircleOnAMeanEarthIgnoringAltitude) {
  // Half the circumference of a sphere of radius 6,371 km is 20,015,086.8 m; a degree of a
  // great circle is 111,194.9 m.
  const struct {
    GeoPoint from, to;
    double meters, tolerance;
  } kCases[] = {
      {{48.8577, 2.2945, 0.0}, {48.8577, 2.2945, 8000.0}, 0, 1e-9},
      {{0, 0, {}}, {0, 180, {}}, 20015086.8, 0.1},
      {{90, 0, {}}, {-90, 0, {}}, 20015086.8, 0.1},
      {{10, 20, {}}, {11, 20, {}}, 111194.9, 0.1},
      {{0, 179.9, {}}, {0, -179.9, {}}, 22239.0, 0.1},
      {{48.8577, 2.2945, {}}, {51.5007, -0.1246, {}}, 340607, 1},  // Eiffel Tower, Big Ben
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.meters);
    EXPECT_NEAR(c.from.distanceMeters(c.to), c.meters, c.tolerance);
    EXPECT_NEAR(c.to.distanceMeters(c.from), c.meters, c.tolerance);
  }
}

TEST(GeoPointTest, JSONHasLatitudeLongitudeAndAnyAltitude) {
  EXPECT_EQ(nlohmann::ordered_json(GeoPoint{48.5, -2.25, 35.0}).dump(),
            R"({"latitude":48.5,"longitude":-2.25,"altitude":35.0})");
  EXPECT_EQ(nlohmann::ordered_json(GeoPoint{48.5, -2.25, {}}).dump(),
            R"({"latitude":48.5,"longitude":-2.25})");
  const std::pair<const char*, std::optional<GeoPoint>> kRead[] = {
      {R"({"altitude":35,"longitude":-2.25,"latitude":48.5})", GeoPoint{48.5, -2.25, 35.0}},
      {R"({"latitude":48.5,"longitude":-2.25})", GeoPoint{48.5, -2.25, {}}},
      {R"({"latitude":48.5,"longitude":-2.25,"altitude":null})", GeoPoint{48.5, -2.25, {}}},
      {R"({"latitude":48.5})", std::nullopt},
      {R"({"latitude":"48.5","longitude":-2.25})", std::nullopt},
      {R"({"latitude":48.5,"longitude":-2.25,"altitude":"high"})", std::nullopt},
      {R"([48.5,-2.25])", std::nullopt},
  };
  for (const auto& [json, expected] : kRead) {
    SCOPED_TRACE(json);
    std::optional<GeoPoint> read;
    try {
      read = nlohmann::json::parse(json).get<GeoPoint>();
    } catch (const nlohmann::json::exception&) {
    }
    EXPECT_EQ(read, expected);
  }
}

// Both directions, in the C locale and again in German, which writes "48,8577": a desktop app
// sets the process locale from the environment.
void expectISO6709InThisLocale() {
  // The first run of two or three signed numbers that touch; no range check, no degree-minute
  // forms; a latitude no double holds spoils the text, an underflow is 0.
  const std::pair<std::string, std::optional<GeoPoint>> kParsed[] = {
      {"+48.8577+002.2945/", GeoPoint{48.8577, 2.2945, {}}},
      {"-33.8688+151.2093-0.5/", GeoPoint{-33.8688, 151.2093, -0.5}},
      {"+40-074", GeoPoint{40, -74, {}}},
      {"+00.0000+000.0000/", GeoPoint{0, 0, {}}},
      {"+4852+00217/", GeoPoint{4852, 217, {}}},
      {"+95.5+400.25/", GeoPoint{95.5, 400.25, {}}},
      {"loc: 12+48.8577+002.2945/ end", GeoPoint{48.8577, 2.2945, {}}},
      {"+1/+48.8577+002.2945/", GeoPoint{48.8577, 2.2945, {}}},
      {"+48.8577+002.2945+/", GeoPoint{48.8577, 2.2945, {}}},
      {"+48.8577+002.2945+1.2.3/", GeoPoint{48.8577, 2.2945, 1.2}},
      {"+1+2+3+4/", GeoPoint{1, 2, 3}},
      {"+0." + std::string(400, '0') + "1+1/", GeoPoint{0, 1, {}}},
      {"+" + std::string(400, '9') + "+1/", std::nullopt},
      {"+48.8577 +002.2945/", std::nullopt},
      {"+48.+002.2945/", std::nullopt},
      {"+48.8577", std::nullopt},
      {"48.8577,2.2945", std::nullopt},
      {"+-+-", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [text, point] : kParsed) EXPECT_EQ(ISO6709::parse(text), point) << text;
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
