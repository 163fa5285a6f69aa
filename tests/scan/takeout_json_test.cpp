#include "core/scan/takeout_json.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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
  std::ifstream in(std::string(QUILLMERE_TEST_DATA) + "/takeout/" + name, std::ios::binary);
  EXPECT_TRUE(in) << name;
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const std::string kTaken = R"("photoTakenTime": {"timestamp": "1546300800"})";

TEST(TakeoutJSONTest, GoogleFiles) {
  const TakeoutJSON parsed =
      TakeoutJSON::parse(readTestFile("IMG_20190714_183012.jpg.supplemental-metadata.json"));
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

  const TakeoutJSON exifOnly = TakeoutJSON::parse(readTestFile("IMG_0042.HEIC.json"));
  ASSERT_NE(exifOnly.photo(), nullptr);
  EXPECT_EQ(exifOnly.photo()->description, std::nullopt);  // "" is blank
  EXPECT_EQ(exifOnly.photo()->bestGeo(), (Geo{52.5, 13.4, 0}));
  EXPECT_TRUE(exifOnly.photo()->archived);

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
  const struct {
    std::string text;
    Shape expected;
  } cases[] = {
      {R"({"photoTakenTime": null})", Shape::photo},
      {R"({"creationTime": 1, "geoData": "here"})", Shape::photo},
      {R"({"creationTime": {"timestamp": "1"}})", Shape::other},
      {R"({"geoData": {}, "title": "Trip"})", Shape::album},
      {R"({"title": ""})", Shape::album},
      {R"({"title": 5})", Shape::other},
      {R"({"Title": "Trip"})", Shape::other},
      {R"({"nested": {"photoTakenTime": {}}})", Shape::other},
      {R"({"title": 1, "title": "Trip"})", Shape::album},  // the last of a repeated key counts
      {R"({"title": "Trip", "title": 1})", Shape::other},
      {"\xEF\xBB\xBF{\"title\": \"Trip\"}", Shape::album},  // UTF-8 byte order mark
      {"{}", Shape::other},
      {"[{" + kTaken + "}]", Shape::other},
      {"", Shape::other},
      {"{" + kTaken + "} {}", Shape::other},
      {"{" + kTaken + ",}", Shape::other},
      {R"({"photoTakenTime": {"timestamp": 1e400}})", Shape::other},  // beyond double range
      {R"({"title": NaN, "photoTakenTime": {}})", Shape::other},
      {"{\"title\": \"Tr\xff\xfeip\"}", Shape::other},  // ill-formed UTF-8
      {"{\"title\": \"\xed\xa0\x80\"}", Shape::other},  // encoded surrogate
      {R"({"title": "\ud800"})", Shape::other},         // unpaired surrogate escape
      {"{\"title\": \"x\"}\0{\"garbage\""s, Shape::other},
      {R"({"title": "a\u0000b"})", Shape::album},
      // The top-level object is one level, so a member may hold maximumDepth - 1 more.
      {"{" + kTaken + ", \"x\": " + nested(depth - 1, "1") + "}", Shape::photo},
      {"{" + kTaken + ", \"x\": " + nested(depth, "1") + "}", Shape::other},
      {"{" + kTaken + ", \"people\": " + nested(depth, "") + "}", Shape::other},
      {std::string(1'000'000, '['), Shape::other},
      {nested(1'000'000, ""), Shape::other},
      {padded(TakeoutJSON::maximumSize - 1), Shape::photo},
      {padded(TakeoutJSON::maximumSize), Shape::other},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("json " + c.text.substr(0, 80));
    EXPECT_EQ(shapeOf(TakeoutJSON::parse(c.text)), c.expected);
    const std::vector<std::uint8_t> bytes(c.text.begin(), c.text.end());
    EXPECT_EQ(TakeoutJSON::parse(bytes), TakeoutJSON::parse(c.text));
  }
}

TEST(TakeoutJSONTest, EveryTruncationIsOther) {
  const std::string full = readTestFile("IMG_20190714_183012.jpg.supplemental-metadata.json");
  // A trailing line break is the only thing that can go without making the JSON incomplete.
  const std::size_t complete = full.find_last_of('}') + 1;
  for (std::size_t length = 0; length < complete; ++length) {
    SCOPED_TRACE("length " + std::to_string(length));
    EXPECT_TRUE(TakeoutJSON::parse(std::string_view(full).substr(0, length)).isOther());
  }
  EXPECT_NE(TakeoutJSON::parse(std::string_view(full).substr(0, complete)).photo(), nullptr);
}

TEST(TakeoutJSONTest, Timestamps) {
  const struct {
    std::string value;
    std::optional<double> expected;
  } cases[] = {
      {R"({"timestamp": "1546300800", "formatted": "1 Jan 2019"})", 1546300800},
      {R"({"timestamp": 1546300800.75})", 1546300800.75},
      {R"({"timestamp": "+1546300800"})", 1546300800},
      {R"({"timestamp": "1.5463008e9"})", 1546300800},
      {R"({"timestamp": ".5"})", 0.5},
      {R"({"timestamp": "0"})", std::nullopt},
      {R"({"timestamp": -1})", std::nullopt},
      {R"({"timestamp": " 1546300800"})", std::nullopt},
      {R"({"timestamp": "1546300800x"})", std::nullopt},
      {R"({"timestamp": "++1"})", std::nullopt},
      {R"({"timestamp": "0x5C2AAD80"})", std::nullopt},
      {R"({"timestamp": "inf"})", std::nullopt},
      {R"({"timestamp": "1e400"})", std::nullopt},
      {R"({"timestamp": true})", std::nullopt},  // exact JSON types only
      {R"({"timestamp": ["1546300800"]})", std::nullopt},
      {R"("1546300800")", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("value " + c.value);
    EXPECT_EQ(TakeoutJSON::timestamp(json::parse(c.value)), c.expected);
    const TakeoutJSON parsed = TakeoutJSON::parse("{\"photoTakenTime\": " + c.value + "}");
    ASSERT_NE(parsed.photo(), nullptr);
    EXPECT_EQ(parsed.photo()->photoTakenTime, c.expected);
  }
}

TEST(TakeoutJSONTest, Places) {
  const struct {
    std::string value;
    std::optional<Geo> expected;
  } cases[] = {
      {R"({"latitude": -33, "longitude": -70, "altitude": -12})", Geo{-33, -70, -12}},
      {R"({"latitude": 52.5, "longitude": 13.4, "altitude": "34"})", Geo{52.5, 13.4, 0}},
      {R"({"latitude": 0.0, "longitude": 0.0})", Geo{0, 0, 0}},
      {R"({"latitude": "52.5", "longitude": 13.4})", std::nullopt},
      {R"({"latitude": 52.5})", std::nullopt},
      {R"({"latitude": true, "longitude": false})", std::nullopt},
      {R"([52.5, 13.4])", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("value " + c.value);
    EXPECT_EQ(TakeoutJSON::geo(json::parse(c.value)), c.expected);
  }
  // geoData wins unless it lies at (0, 0); only a place off (0, 0) is ever used.
  const Geo zero{0, 0, 0}, munich{48.1, 11.5, 519}, berlin{52.5, 13.4, 0};
  const struct {
    std::optional<Geo> geoData, geoDataExif, expected;
  } best[] = {
      {munich, berlin, munich},
      {zero, berlin, berlin},
      {std::nullopt, berlin, berlin},
      {Geo{0, 13.4, 0}, berlin, Geo{0, 13.4, 0}},
      {Geo{0, 0, 100}, zero, std::nullopt},
  };
  for (const auto& c : best) {
    TakeoutSidecar sidecar;
    sidecar.geoData = c.geoData;
    sidecar.geoDataExif = c.geoDataExif;
    EXPECT_EQ(sidecar.bestGeo(), c.expected);
  }
}

TEST(TakeoutJSONTest, FieldsTakeExactTypes) {
  auto sidecar = [](auto fill) {
    TakeoutSidecar s;
    s.photoTakenTime = 1546300800;
    fill(s);
    return s;
  };
  const auto none = [](TakeoutSidecar&) {};
  const struct {
    std::string members;  // added after photoTakenTime
    TakeoutSidecar expected;
  } cases[] = {
      {R"("title": 7, "url": false, "description": 5)", sidecar(none)},
      {R"("title": "IMG_1.jpg", "description": "  Hi\n")", sidecar([](TakeoutSidecar& s) {
         s.title = "IMG_1.jpg";
         s.description = "  Hi\n";
       })},
      {R"("description": " \t\r\n\u000b\u0085\u00a0\u2028\u3000")", sidecar(none)},
      {R"("description": "\u200b")",  // a zero-width space is not white space
       sidecar([](TakeoutSidecar& s) { s.description = "\u200b"; })},
      {R"("people": [{"name": "Anna"}, {"name": 5}, {}, {"name": "Ben"}])",
       sidecar([](TakeoutSidecar& s) {
         s.people = {"Anna", "Ben"};
       })},
      {R"("people": [{"name": "Anna"}, "Ben"])", sidecar(none)},
      {R"("favorited": true, "archived": true, "trashed": true)",
       sidecar([](TakeoutSidecar& s) { s.favorited = s.archived = s.trashed = true; })},
      {R"("favorited": "true", "archived": 1, "trashed": [true])", sidecar(none)},
      {R"("geoDataExif": {"latitude": "1", "longitude": 2})", sidecar(none)},
      {R"("unknown": {"deep": [{"title": "not mine"}]}, "title": "mine")",
       sidecar([](TakeoutSidecar& s) { s.title = "mine"; })},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("members " + c.members);
    const TakeoutJSON parsed = TakeoutJSON::parse("{" + kTaken + ", " + c.members + "}");
    ASSERT_NE(parsed.photo(), nullptr);
    EXPECT_EQ(*parsed.photo(), c.expected);
  }
  EXPECT_EQ(TakeoutJSON::parse(R"({"title": "Trip", "description": "Two weeks\n"})"),
            (TakeoutJSON{TakeoutAlbumInfo{"Trip", "Two weeks\n"}}));
  EXPECT_EQ(TakeoutJSON::parse(R"({"title": "Trip", "description": " \n"})"),
            (TakeoutJSON{TakeoutAlbumInfo{"Trip", std::nullopt}}));
}

}  // namespace
}  // namespace quillmere
