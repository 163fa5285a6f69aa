#include "core/scan/takeout_json.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <limits>
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
  if (parsed.photo()) return Shape::photo;
  if (parsed.album()) return Shape::album;
  return Shape::other;
}

std::string readTestFile(const std::string& name) {
  std::ifstream in(std::string(QUILLMERE_TEST_DATA) + "/takeout/" + name, std::ios::binary);
  EXPECT_TRUE(in) << name;
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

constexpr std::string_view kTaken = R"("photoTakenTime": {"timestamp": "1546300800"})";

TEST(TakeoutJSONTest, GoogleSidecarFile) {
  const TakeoutJSON parsed =
      TakeoutJSON::parse(readTestFile("IMG_20190714_183012.jpg.supplemental-metadata.json"));
  ASSERT_NE(parsed.photo(), nullptr);
  TakeoutSidecar expected;
  expected.title = "IMG_20190714_183012.jpg";
  expected.description = "Sunset over the Isar \U0001F305";
  expected.photoTakenTime = 1563121812;
  expected.creationTime = 1563181844;
  expected.geoData = Geo{48.1351253, 11.5819806, 519.3};
  expected.geoDataExif = Geo{48.1351253, 11.5819806, 519.3};
  expected.url = "https://photos.google.com/photo/AF1QipOexampleexampleexampleexample";
  expected.people = {"Anna Müller", "Jörg"};
  expected.favorited = true;
  EXPECT_EQ(*parsed.photo(), expected);
  EXPECT_EQ(parsed.photo()->bestGeo(), expected.geoData);
}

TEST(TakeoutJSONTest, SidecarWithPlaceOnlyInExif) {
  const TakeoutJSON parsed = TakeoutJSON::parse(readTestFile("IMG_0042.HEIC.json"));
  ASSERT_NE(parsed.photo(), nullptr);
  const TakeoutSidecar& sidecar = *parsed.photo();
  EXPECT_EQ(sidecar.description, std::nullopt);  // "" is blank
  EXPECT_EQ(sidecar.geoData, (Geo{0, 0, 0}));    // kept, but never used as a place
  EXPECT_EQ(sidecar.geoDataExif, (Geo{52.5, 13.4, 0}));
  EXPECT_EQ(sidecar.bestGeo(), (Geo{52.5, 13.4, 0}));
  EXPECT_TRUE(sidecar.people.empty());
  EXPECT_TRUE(sidecar.archived);
  EXPECT_FALSE(sidecar.favorited);
  EXPECT_FALSE(sidecar.trashed);
}

TEST(TakeoutJSONTest, GoogleAlbumAndOtherFiles) {
  const TakeoutJSON album = TakeoutJSON::parse(readTestFile("metadata.json"));
  EXPECT_EQ(album, (TakeoutJSON{TakeoutAlbumInfo{"Sommer in München", std::nullopt}}));
  EXPECT_TRUE(TakeoutJSON::parse(readTestFile("shared_album_comments.json")).isOther());
}

TEST(TakeoutJSONTest, Classification) {
  struct Case {
    std::string text;
    Shape expected;
  };
  const std::string taken(kTaken);
  const std::vector<Case> cases = {
      {"{" + taken + "}", Shape::photo},
      {R"({"photoTakenTime": null})", Shape::photo},  // the key alone decides
      {R"({"photoTakenTime": {"timestamp": "0"}, "title": "x"})", Shape::photo},
      {R"({"creationTime": {}, "geoData": {}})", Shape::photo},
      {R"({"creationTime": 1, "geoData": "here"})", Shape::photo},
      {R"({"creationTime": {"timestamp": "1"}})", Shape::other},
      {R"({"creationTime": {"timestamp": "1"}, "title": "x"})", Shape::album},
      {R"({"geoData": {"latitude": 1, "longitude": 2}})", Shape::other},
      {R"({"geoData": {"latitude": 1, "longitude": 2}, "title": "Trip"})", Shape::album},
      {R"({"title": "Trip"})", Shape::album},
      {R"({"title": ""})", Shape::album},
      {R"({"title": 5})", Shape::other},
      {R"({"title": null})", Shape::other},
      {R"({"title": ["Trip"]})", Shape::other},
      {R"({"Title": "Trip"})", Shape::other},
      {R"({"PhotoTakenTime": {"timestamp": "1"}})", Shape::other},
      {R"({"nested": {"photoTakenTime": {"timestamp": "1"}, "title": "x"}})", Shape::other},
      {R"({"title": 1, "title": "Trip"})", Shape::album},  // the last of a repeated key counts
      {R"({"title": "Trip", "title": 1})", Shape::other},
      {"\xEF\xBB\xBF{\"title\": \"Trip\"}", Shape::album},  // UTF-8 byte order mark
      {"{}", Shape::other},
      {"[]", Shape::other},
      {"[{" + taken + "}]", Shape::other},
      {R"("photoTakenTime")", Shape::other},
      {"42", Shape::other},
      {"null", Shape::other},
      {"true", Shape::other},
      {"", Shape::other},
      {"   \n", Shape::other},
      {"not json", Shape::other},
      {"{" + taken, Shape::other},
      {"{" + taken + "}}", Shape::other},
      {"{" + taken + "} {}", Shape::other},
      {"{" + taken + ",}", Shape::other},
      {"{" + taken + "} // comment", Shape::other},
      {R"({'title': 'Trip'})", Shape::other},
      {R"({"title": "Trip" "x": 1})", Shape::other},
      {R"({"title": NaN, "photoTakenTime": {}})", Shape::other},
      {R"({"photoTakenTime": {"timestamp": Infinity}})", Shape::other},
      {R"({"photoTakenTime": {"timestamp": 1e400}})", Shape::other},  // beyond double range
      {R"({"photoTakenTime": {"timestamp": -1e400}})", Shape::other},
      {R"({"photoTakenTime": {"timestamp": 01}})", Shape::other},
      {"{\"title\": \"Tr\xff\xfeip\"}", Shape::other},  // ill-formed UTF-8
      {"{\"title\": \"\xc0\xaf\"}", Shape::other},      // overlong encoding
      {"{\"title\": \"\xed\xa0\x80\"}", Shape::other},  // encoded surrogate
      {R"({"title": "\ud800"})", Shape::other},         // unpaired surrogate escape
      {"{\"title\": \"a\0b\"}"s, Shape::other},         // raw control character
      {"{\"title\": \"x\"}\0"s, Shape::other},
      {"{\"title\": \"x\"}\0{\"garbage\""s, Shape::other},
      {R"({"title": "a\u0000b"})", Shape::album},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("json " + c.text);
    EXPECT_EQ(shapeOf(TakeoutJSON::parse(c.text)), c.expected);
  }
}

TEST(TakeoutJSONTest, Timestamps) {
  struct Case {
    std::string value;
    std::optional<double> expected;
  };
  const std::vector<Case> cases = {
      {R"({"timestamp": "1546300800"})", 1546300800},
      {R"({"timestamp": 1546300800})", 1546300800},
      {R"({"timestamp": "1546300800", "formatted": "1 Jan 2019, 00:00:00 UTC"})", 1546300800},
      {R"({"timestamp": "1546300800.25"})", 1546300800.25},
      {R"({"timestamp": 1546300800.75})", 1546300800.75},
      {R"({"timestamp": "+1546300800"})", 1546300800},
      {R"({"timestamp": "1.5463008e9"})", 1546300800},
      {R"({"timestamp": "0.5"})", 0.5},
      {R"({"timestamp": ".5"})", 0.5},
      {R"({"timestamp": 18446744073709551615})", 18446744073709551615.0},
      {R"({"timestamp": "0"})", std::nullopt},
      {R"({"timestamp": 0})", std::nullopt},
      {R"({"timestamp": "-0"})", std::nullopt},
      {R"({"timestamp": "-1546300800"})", std::nullopt},
      {R"({"timestamp": -1})", std::nullopt},
      {R"({"timestamp": "abc"})", std::nullopt},
      {R"({"timestamp": ""})", std::nullopt},
      {R"({"timestamp": " 1546300800"})", std::nullopt},
      {R"({"timestamp": "1546300800 "})", std::nullopt},
      {R"({"timestamp": "1546300800x"})", std::nullopt},
      {R"({"timestamp": "1,5"})", std::nullopt},
      {R"({"timestamp": "+-1"})", std::nullopt},
      {R"({"timestamp": "++1"})", std::nullopt},
      {R"({"timestamp": "0x5C2AAD80"})", std::nullopt},
      {R"({"timestamp": "NaN"})", std::nullopt},
      {R"({"timestamp": "nan"})", std::nullopt},
      {R"({"timestamp": "inf"})", std::nullopt},
      {R"({"timestamp": "+Infinity"})", std::nullopt},
      {R"({"timestamp": "1e400"})", std::nullopt},
      {R"({"timestamp": "1e-400"})", std::nullopt},
      {R"({"timestamp": true})", std::nullopt},  // exact JSON types only
      {R"({"timestamp": null})", std::nullopt},
      {R"({"timestamp": ["1546300800"]})", std::nullopt},
      {R"({"timestamp": {"seconds": 1}})", std::nullopt},
      {R"({"formatted": "1 Jan 2019, 00:00:00 UTC"})", std::nullopt},
      {R"({})", std::nullopt},
      {R"("1546300800")", std::nullopt},
      {R"(1546300800)", std::nullopt},
      {R"(["1546300800"])", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("value " + c.value);
    EXPECT_EQ(TakeoutJSON::timestamp(json::parse(c.value)), c.expected);
    // Read through parse as well: the number form and the string form agree there too.
    const TakeoutJSON parsed = TakeoutJSON::parse("{\"photoTakenTime\": " + c.value + "}");
    ASSERT_NE(parsed.photo(), nullptr);
    EXPECT_EQ(parsed.photo()->photoTakenTime, c.expected);
  }
  // Built in memory rather than parsed, a non-finite number is still refused.
  EXPECT_EQ(TakeoutJSON::timestamp(json{{"timestamp", std::numeric_limits<double>::infinity()}}),
            std::nullopt);
  EXPECT_EQ(TakeoutJSON::timestamp(json{{"timestamp", std::numeric_limits<double>::quiet_NaN()}}),
            std::nullopt);
}

TEST(TakeoutJSONTest, Places) {
  struct Case {
    std::string value;
    std::optional<Geo> expected;
  };
  const std::vector<Case> cases = {
      {R"({"latitude": 52.5, "longitude": 13.4})", Geo{52.5, 13.4, 0}},
      {R"({"latitude": 52.5, "longitude": 13.4, "altitude": 34.5})", Geo{52.5, 13.4, 34.5}},
      {R"({"latitude": -33, "longitude": -70, "altitude": -12})", Geo{-33, -70, -12}},
      {R"({"latitude": 52.5, "longitude": 13.4, "altitude": "34"})", Geo{52.5, 13.4, 0}},
      {R"({"latitude": 52.5, "longitude": 13.4, "altitude": null})", Geo{52.5, 13.4, 0}},
      {R"({"latitude": 0.0, "longitude": 0.0, "altitude": 0.0})", Geo{0, 0, 0}},
      {R"({"latitude": "52.5", "longitude": 13.4})", std::nullopt},
      {R"({"latitude": 52.5, "longitude": "13.4"})", std::nullopt},
      {R"({"latitude": 52.5})", std::nullopt},
      {R"({"longitude": 13.4})", std::nullopt},
      {R"({"latitude": true, "longitude": false})", std::nullopt},  // exact JSON types only
      {R"({"latitude": null, "longitude": 13.4})", std::nullopt},
      {R"({"latitude": [52.5], "longitude": 13.4})", std::nullopt},
      {R"({})", std::nullopt},
      {R"([52.5, 13.4])", std::nullopt},
      {R"("52.5,13.4")", std::nullopt},
      {R"(null)", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("value " + c.value);
    EXPECT_EQ(TakeoutJSON::geo(json::parse(c.value)), c.expected);
  }
  EXPECT_EQ(TakeoutJSON::geo(
                json{{"latitude", std::numeric_limits<double>::quiet_NaN()}, {"longitude", 1.0}}),
            std::nullopt);
}

TEST(TakeoutJSONTest, BestPlace) {
  struct Case {
    std::string name;
    std::optional<Geo> geoData;
    std::optional<Geo> geoDataExif;
    std::optional<Geo> expected;
  };
  const Geo zero{0, 0, 0};
  const Geo munich{48.1, 11.5, 519};
  const Geo berlin{52.5, 13.4, 0};
  const std::vector<Case> cases = {
      {"both set: geoData wins", munich, berlin, munich},
      {"geoData at zero", zero, berlin, berlin},
      {"geoData absent", std::nullopt, berlin, berlin},
      {"only latitude zero", Geo{0, 13.4, 0}, berlin, Geo{0, 13.4, 0}},
      {"only longitude zero", Geo{52.5, 0, 0}, munich, Geo{52.5, 0, 0}},
      {"both at zero", zero, zero, std::nullopt},
      {"zero with altitude", Geo{0, 0, 100}, std::nullopt, std::nullopt},
      {"neither", std::nullopt, std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TakeoutSidecar sidecar;
    sidecar.geoData = c.geoData;
    sidecar.geoDataExif = c.geoDataExif;
    EXPECT_EQ(sidecar.bestGeo(), c.expected);
  }
}

TEST(TakeoutJSONTest, SidecarFields) {
  struct Case {
    std::string members;  // added after photoTakenTime
    TakeoutSidecar expected;
  };
  auto sidecar = [](auto fill) {
    TakeoutSidecar s;
    s.photoTakenTime = 1546300800;
    fill(s);
    return s;
  };
  const std::vector<Case> cases = {
      {"", sidecar([](TakeoutSidecar&) {})},
      {R"("title": 7, "url": false)", sidecar([](TakeoutSidecar&) {})},
      {R"("title": "IMG_1.jpg", "url": "https://photos.google.com/x")",
       sidecar([](TakeoutSidecar& s) {
         s.title = "IMG_1.jpg";
         s.url = "https://photos.google.com/x";
       })},
      {R"("description": "  Hello\n")",
       sidecar([](TakeoutSidecar& s) { s.description = "  Hello\n"; })},
      {R"("description": " \t\r\n\u000b\u000c\u0085\u00a0\u2028\u2029\u3000")",
       sidecar([](TakeoutSidecar&) {})},
      {R"("description": "\u200b")",  // a zero-width space is not white space
       sidecar([](TakeoutSidecar& s) { s.description = "\u200b"; })},
      {R"("description": 5)", sidecar([](TakeoutSidecar&) {})},
      {R"("people": [{"name": "Anna"}, {"name": 5}, {}, {"nom": "X"}, {"name": "Ben"}])",
       sidecar([](TakeoutSidecar& s) {
         s.people = {"Anna", "Ben"};
       })},
      {R"("people": [{"name": "Anna"}, "Ben"])", sidecar([](TakeoutSidecar&) {})},
      {R"("people": [{"name": "Anna"}, null])", sidecar([](TakeoutSidecar&) {})},
      {R"("people": {"name": "Anna"})", sidecar([](TakeoutSidecar&) {})},
      {R"("people": [])", sidecar([](TakeoutSidecar&) {})},
      {R"("favorited": true, "archived": true, "trashed": true)",
       sidecar([](TakeoutSidecar& s) { s.favorited = s.archived = s.trashed = true; })},
      {R"("favorited": false, "archived": null)", sidecar([](TakeoutSidecar&) {})},
      {R"("favorited": "true", "archived": "yes", "trashed": "1")",
       sidecar([](TakeoutSidecar&) {})},
      {R"("favorited": 1, "archived": 1.0, "trashed": [true])",  // exact JSON types only
       sidecar([](TakeoutSidecar&) {})},
      {R"("creationTime": {"timestamp": "1546300801"}, "geoData": {"latitude": 1, "longitude": 2})",
       sidecar([](TakeoutSidecar& s) {
         s.creationTime = 1546300801;
         s.geoData = Geo{1, 2, 0};
       })},
      {R"("geoDataExif": {"latitude": "1", "longitude": 2})", sidecar([](TakeoutSidecar&) {})},
      {R"("unknown": {"deep": [1, 2, {"title": "not mine"}]}, "title": "mine")",
       sidecar([](TakeoutSidecar& s) { s.title = "mine"; })},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("members " + c.members);
    std::string text = "{" + std::string(kTaken);
    if (!c.members.empty()) text += ", " + c.members;
    text += "}";
    const TakeoutJSON parsed = TakeoutJSON::parse(text);
    ASSERT_NE(parsed.photo(), nullptr);
    EXPECT_EQ(*parsed.photo(), c.expected);
  }
}

TEST(TakeoutJSONTest, AlbumDescriptions) {
  struct Case {
    std::string text;
    TakeoutAlbumInfo expected;
  };
  const std::vector<Case> cases = {
      {R"({"title": "Trip", "description": "Two weeks\n"})", {"Trip", "Two weeks\n"}},
      {R"({"title": "Trip", "description": " \n \t"})", {"Trip", std::nullopt}},
      {R"({"title": "Trip", "description": ""})", {"Trip", std::nullopt}},
      {R"({"title": "Trip", "description": 3})", {"Trip", std::nullopt}},
      {R"({"title": "  ", "access": "protected"})", {"  ", std::nullopt}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("json " + c.text);
    const TakeoutJSON parsed = TakeoutJSON::parse(c.text);
    ASSERT_NE(parsed.album(), nullptr);
    EXPECT_EQ(*parsed.album(), c.expected);
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

std::string nested(std::size_t depth, std::string_view inner) {
  return std::string(depth, '[') + std::string(inner) + std::string(depth, ']');
}

TEST(TakeoutJSONTest, DeepNesting) {
  const std::size_t limit = TakeoutJSON::maximumDepth;
  struct Case {
    std::string name;
    std::string text;
    Shape expected;
  };
  // The top-level object is one level, so a member may hold limit - 1 more.
  const std::vector<Case> cases = {
      {"ignored member at the limit",
       "{" + std::string(kTaken) + ", \"x\": " + nested(limit - 1, "1") + "}", Shape::photo},
      {"ignored member beyond the limit",
       "{" + std::string(kTaken) + ", \"x\": " + nested(limit, "1") + "}", Shape::other},
      {"read member at the limit",
       "{" + std::string(kTaken) + ", \"people\": " + nested(limit - 1, "") + "}", Shape::photo},
      {"read member beyond the limit",
       "{" + std::string(kTaken) + ", \"people\": " + nested(limit, "") + "}", Shape::other},
      {"deep objects",
       "{" + std::string(kTaken) + ", \"x\": " +
           [] {
             std::string t;
             for (int i = 0; i < 100000; ++i) t += "{\"a\":";
             return t + "1" + std::string(100000, '}');
           }() +
           "}",
       Shape::other},
      {"a million open brackets", std::string(1'000'000, '['), Shape::other},
      {"a million balanced brackets", nested(1'000'000, ""), Shape::other},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(shapeOf(TakeoutJSON::parse(c.text)), c.expected);
  }
}

TEST(TakeoutJSONTest, HugeInput) {
  // Padded to exactly one byte under the limit, and to the limit itself.
  auto padded = [](std::size_t size) {
    const std::string head = "{" + std::string(kTaken) + ", \"pad\": \"";
    const std::string tail = "\"}";
    return head + std::string(size - head.size() - tail.size(), 'x') + tail;
  };
  EXPECT_NE(TakeoutJSON::parse(padded(TakeoutJSON::maximumSize - 1)).photo(), nullptr);
  EXPECT_TRUE(TakeoutJSON::parse(padded(TakeoutJSON::maximumSize)).isOther());

  // Many people, all kept.
  std::string many = "{" + std::string(kTaken) + ", \"people\": [";
  for (int i = 0; i < 100000; ++i)
    many += (i ? ",{\"name\":\"p" : "{\"name\":\"p") + std::to_string(i) + "\"}";
  many += "]}";
  const TakeoutJSON parsed = TakeoutJSON::parse(many);
  ASSERT_NE(parsed.photo(), nullptr);
  ASSERT_EQ(parsed.photo()->people.size(), 100000u);
  EXPECT_EQ(parsed.photo()->people.back(), "p99999");
}

TEST(TakeoutJSONTest, ParsesBytesAndTextAlike) {
  const std::string text = "{" + std::string(kTaken) + "}";
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  EXPECT_EQ(TakeoutJSON::parse(bytes), TakeoutJSON::parse(text));
  EXPECT_TRUE(TakeoutJSON::parse(std::span<const std::uint8_t>()).isOther());
}

}  // namespace
}  // namespace quillmere
