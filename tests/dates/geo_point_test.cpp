#include "core/dates/geo_point.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "tests/dates/test_printers.h"

namespace quillmere {
namespace {

TEST(GeoPointTest, EqualityComparesTheAltitudeToo) {
  const GeoPoint plain{48.8577, 2.2945, std::nullopt};
  EXPECT_EQ(plain, (GeoPoint{48.8577, 2.2945, std::nullopt}));
  EXPECT_NE(plain, (GeoPoint{48.8577, 2.2945, 0.0}));
  EXPECT_NE(plain, (GeoPoint{48.8577, 2.2946, std::nullopt}));
  EXPECT_NE((GeoPoint{1, 2, 3.0}), (GeoPoint{1, 2, 3.5}));
  EXPECT_EQ((GeoPoint{1, 2, 3.0}), (GeoPoint{1, 2, 3.0}));
}

TEST(GeoPointTest, DistanceIsTheGreatCircleOnAMeanEarth) {
  const struct {
    const char* name;
    GeoPoint from;
    GeoPoint to;
    double meters;
    double tolerance;
  } kCases[] = {
      {"same point", {48.8577, 2.2945, {}}, {48.8577, 2.2945, {}}, 0, 1e-9},
      {"altitude ignored", {48.8577, 2.2945, 0.0}, {48.8577, 2.2945, 8000.0}, 0, 1e-9},
      // Half the circumference of a sphere of radius 6,371 km is 20,015,086.8 m.
      {"antipodes on the equator", {0, 0, {}}, {0, 180, {}}, 20015086.8, 0.1},
      {"pole to pole", {90, 0, {}}, {-90, 0, {}}, 20015086.8, 0.1},
      // One degree of a great circle is 111,194.9 m.
      {"one degree north", {10, 20, {}}, {11, 20, {}}, 111194.9, 0.1},
      {"across the date line", {0, 179.9, {}}, {0, -179.9, {}}, 22239.0, 0.1},
      {"Eiffel Tower to Big Ben", {48.8577, 2.2945, {}}, {51.5007, -0.1246, {}}, 340607, 1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_NEAR(c.from.distanceMeters(c.to), c.meters, c.tolerance);
    EXPECT_NEAR(c.to.distanceMeters(c.from), c.meters, c.tolerance);  // symmetric
  }
}

TEST(GeoPointJSONTest, WritesLatitudeLongitudeAltitudeInOrder) {
  EXPECT_EQ(nlohmann::ordered_json(GeoPoint{48.5, -2.25, 35.0}).dump(),
            R"({"latitude":48.5,"longitude":-2.25,"altitude":35.0})");
  EXPECT_EQ(nlohmann::ordered_json(GeoPoint{48.5, -2.25, std::nullopt}).dump(),
            R"({"latitude":48.5,"longitude":-2.25})");
}

TEST(GeoPointJSONTest, ReadsWithOrWithoutAltitude) {
  const struct {
    std::string json;
    std::optional<GeoPoint> expected;  // absent: decoding fails
  } kCases[] = {
      {R"({"latitude":48.5,"longitude":-2.25,"altitude":35})", GeoPoint{48.5, -2.25, 35.0}},
      {R"({"altitude":35,"longitude":-2.25,"latitude":48.5})", GeoPoint{48.5, -2.25, 35.0}},
      {R"({"latitude":48.5,"longitude":-2.25})", GeoPoint{48.5, -2.25, std::nullopt}},
      {R"({"latitude":48.5,"longitude":-2.25,"altitude":null})", GeoPoint{48.5, -2.25, {}}},
      {R"({"latitude":0,"longitude":0})", GeoPoint{0, 0, std::nullopt}},
      {R"({"latitude":48.5})", std::nullopt},
      {R"({"longitude":48.5})", std::nullopt},
      {R"({"latitude":"48.5","longitude":-2.25})", std::nullopt},
      {R"({"latitude":48.5,"longitude":-2.25,"altitude":"high"})", std::nullopt},
      {R"([48.5,-2.25])", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.json);
    std::optional<GeoPoint> decoded;
    try {
      decoded = nlohmann::json::parse(c.json).get<GeoPoint>();
    } catch (const nlohmann::json::exception&) {
      decoded = std::nullopt;
    }
    EXPECT_EQ(decoded, c.expected);
  }
}

TEST(GeoPointJSONTest, RoundTrips) {
  for (const GeoPoint& point : {GeoPoint{-33.8688, 151.2093, 12.5}, GeoPoint{1e-7, -179.999, {}},
                                GeoPoint{90, 0, -430.5}}) {
    EXPECT_EQ(nlohmann::json::parse(nlohmann::json(point).dump()).get<GeoPoint>(), point);
  }
}

}  // namespace
}  // namespace quillmere
