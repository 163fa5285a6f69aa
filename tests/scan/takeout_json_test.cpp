#include "core/scan/takeout_json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

using Geo = TakeoutSidecar::Geo;
using nlohmann::json;
using namespace std::string_literals;

enum class Shape { photo, album, other };

Shape shapeOf(const TakeoutJSON& parsed) {
  return parsed.photo() ? Shape::photo : parsed.album() ? Shape::album : Shape::other;
}

std::string readTestFile(const std::string& name) {
  const Bytes bytes = testing::readFile(std::string(QUILLMERE_TEST_DATA) + "/takeout/" + name);
  return {bytes.begin(), bytes.end()};
}

const std::string kTaken = R"("photoTakenTime": {"timestamp": "1546300800"})";

TEST(TakeoutJSONTest, GoogleFilesAndEveryTruncationOfOne) {
  const std::string full = readTestFile("IMG_20190714_183012.jpg.supplemental-metadata.json");
  const TakeoutJSON parsed = TakeoutJSON::parse(full);
  ASSERT_NE(parsed.photo(), nullptr);
  TakeoutSidecar expected;
  expected.title = "IMG_20190714_183012.jpg";
  expected.description = "Sunset over the Isar \U0001F305";
  expected.photoTakenTime = 1563121812;
  expected.creationTime = 1563181844;
  expected.geoData = expected.geoDataExif = Geo{48.1351253, 11.5819806, 519.3};
  expected.url = "https://photos.google.com/photo/AF1QipOexampleexampleexampleexample";
  expected.people = {"Anna Müller", "Jörg"};
  expected.favorited = true;
  EXPECT_EQ(*parsed.photo(), expected);
  // A trailing line break is the only thing that can go without making the JSON incomplete.
  const std::size_t complete = full.find_last_of('}') + 1;
  for (std::size_t length = 0; length < complete; ++length) {
    SCOPED_TRACE("length " + std::to_string(length));
    EXPECT_TRUE(TakeoutJSON::parse(std::string_view(full).substr(0, length)).isOther());
  }

  EXPECT_EQ(TakeoutJSON::parse(readTestFile("metadata.json")),
            (TakeoutJSON{TakeoutAlbumInfo{"Sommer in München", std::nullopt}}));
  EXPECT_TRUE(TakeoutJSON::parse(readTestFile("shared_album_comments.json")).isOther());
}

// Any text at all is classified, never thrown on: the keys alone decide the shape.
TEST(TakeoutJSONTest, Classification) {
  const std::size_t depth = TakeoutJSON::maximumDepth;
  auto nested = [](std::size_t n, const std::string& inner) {
    return std::string(n, '[') + inner + std::string(n, ']');
  };
  auto padded = [](std::size_t size) {
    const std::string head = "{" + kTaken + ", \"pad\": \"";
    return head + std::string(size - head.size() - 2, 'x') + "\"}";
  };
  const std::tuple<std::string, Shape> cases[] = {
      {R"({"photoTakenTime": null})", Shape::photo},
      {R"({"creationTime": 1, "geoData": "here"})", Shape::photo},
      {R"({"creationTime": {"timestamp": "1"}})", Shape::other},
      {R"({"geoData": {}, "title": "Trip"})", Shape::album},
      {R"({"nested": {"photoTakenTime": {}}})", Shape::other},
      {R"({"title": 1, "title": "Trip"})", Shape::album},   // the last of a repeated key counts
      {"\xEF\xBB\xBF{\"title\": \"Trip\"}", Shape::album},  // UTF-8 byte order mark
      {R"({"photoTakenTime": {"timestamp": 1e400}})", Shape::other},  // beyond double range
      {"{\"title\": \"Tr\xff\xfeip\"}", Shape::other},                // ill-formed UTF-8
      {R"({"title": "\ud800"})", Shape::other},                       // unpaired surrogate escape
      {"{\"title\": \"x\"}\0{\"garbage\""s, Shape::other},
      {R"({"title": "a\u0000b"})", Shape::album},
      // The top-level object is one level, so a member may hold maximumDepth - 1 more.
      {"{" + kTaken + ", \"x\": " + nested(depth - 1, "1") + "}", Shape::photo},
      {"{" + kTaken + ", \"x\": " + nested(depth, "1") + "}", Shape::other},
      {std::string(1'000'000, '['), Shape::other},
      {padded(TakeoutJSON::maximumSize - 1), Shape::photo},
      {padded(TakeoutJSON::maximumSize), Shape::other},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE("json " + text.substr(0, 80));
    EXPECT_EQ(shapeOf(TakeoutJSON::parse(text)), expected);
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    EXPECT_EQ(TakeoutJSON::parse(bytes), TakeoutJSON::parse(text));
  }
}

TEST(TakeoutJSONTest, Timestamps) {
  const std::tuple<std::string, std::optional<double>> cases[] = {
      {R"({"timestamp": "1546300800", "formatted": "1 Jan 2019"})", 1546300800},
      {R"({"timestamp": 1546300800.75})", 1546300800.75},
      {R"({"timestamp": "0"})", std::nullopt},
      {R"({"timestamp": -1})", std::nullopt},
      {R"({"timestamp": "1546300800x"})", std::nullopt},
      {R"({"timestamp": "1e400"})", std::nullopt},
      {R"({"timestamp": true})", std::nullopt},  // exact JSON types only
      {R"("1546300800")", std::nullopt},
  };
  for (const auto& [value, expected] : cases) {
    SCOPED_TRACE("value " + value);
    EXPECT_EQ(TakeoutJSON::timestamp(json::parse(value)), expected);
    const TakeoutJSON parsed = TakeoutJSON::parse("{\"photoTakenTime\": " + value + "}");
    ASSERT_NE(parsed.photo(), nullptr);
    EXPECT_EQ(parsed.photo()->photoTakenTime, expected);
  }
}

TEST(TakeoutJSONTest, FieldsAndPlaces) {
  auto photo = [](const std::string& members) {
    const TakeoutJSON parsed = TakeoutJSON::parse("{" + kTaken + members + "}");
    EXPECT_NE(parsed.photo(), nullptr) << members;
    return parsed.photo() ? *parsed.photo() : TakeoutSidecar();
  };
  for (const std::string members : {
           R"(, "title": 7, "url": false, "description": 5, "people": {"name": "Anna"})",
           R"(, "description": " \t\r\n\u000b\u0085\u00a0\u2028\u3000")",
           R"(, "people": [{"name": "Anna"}, "Ben"])",
           R"(, "favorited": "true", "archived": 1, "trashed": [true])",
           R"(, "geoData": {"latitude": "1", "longitude": 2}, "geoDataExif": {"latitude": 1})",
           R"(, "geoData": {"latitude": true, "longitude": false})",
           R"(, "unknown": {"deep": [{"title": "not mine"}]})",
       }) {
    EXPECT_EQ(photo(members), photo("")) << members;
  }
  EXPECT_EQ(photo(R"(, "description": "\u200b")").description, "\u200b");  // not white space
  EXPECT_EQ(photo(R"(, "people": [{"name": "Anna"}, {"name": 5}, {}, {"name": "Ben"}])").people,
            (std::vector<std::string>{"Anna", "Ben"}));
  EXPECT_TRUE(photo(R"(, "trashed": true)").trashed);
  const std::string berlin = R"("geoDataExif": {"latitude": 52.5, "longitude": 13.4})";
  EXPECT_EQ(photo(R"(, "geoData": {"latitude": -3, "longitude": -7, "altitude": "34"})").geoData,
            (Geo{-3, -7, 0}));
  // geoData wins unless it lies at (0, 0), which is kept but never used as a place.
  EXPECT_EQ(photo(R"(, "geoData": {"latitude": 0, "longitude": 1}, )" + berlin).bestGeo(),
            (Geo{0, 1, 0}));
  const TakeoutSidecar zero =
      photo(R"(, "geoData": {"latitude": 0, "longitude": 0, "altitude": 9}, )" + berlin);
  EXPECT_EQ(zero.geoData, (Geo{0, 0, 9}));
  EXPECT_EQ(zero.bestGeo(), (Geo{52.5, 13.4, 0}));
  EXPECT_EQ(photo(R"(, "geoData": {"latitude": 0.0, "longitude": 0.0})").bestGeo(), std::nullopt);
  EXPECT_EQ(TakeoutJSON::parse(R"({"title": "Trip", "description": "Two weeks\n"})"),
            (TakeoutJSON{TakeoutAlbumInfo{"Trip", "Two weeks\n"}}));
  EXPECT_EQ(TakeoutJSON::parse(R"({"title": "Trip", "description": " \n"})"),
            (TakeoutJSON{TakeoutAlbumInfo{"Trip", std::nullopt}}));
}

}  // namespace
}  // namespace quillmere
