#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/scan/export_kind.h"
#include "core/sources/media_kind.h"
#include "core/scan/media_unit.h"
#include "core/scan/scan_summary.h"

namespace quillmere {
namespace {

using nlohmann::json;

template <typename Enum>
void expectRawValues(const std::vector<std::pair<Enum, std::string>>& table) {
  for (const auto& [value, raw] : table) {
    SCOPED_TRACE(raw);
    EXPECT_EQ(rawValue(value), raw);
    EXPECT_EQ(fromRawValue<Enum>(raw), value);
    EXPECT_EQ(json(value), json(raw));
    EXPECT_EQ(json(raw).template get<Enum>(), value);
  }
  for (const std::string bad : {"", "Photo", " photo", "snapchat", "live_photo", "0"}) {
    SCOPED_TRACE("bad " + bad);
    EXPECT_EQ(fromRawValue<Enum>(bad), std::nullopt);
    EXPECT_THROW(json(bad).template get<Enum>(), json::type_error);
  }
}

TEST(ScanModelTest, MediaKindComesFromTheLastNamesExtension) {
  const struct {
    const char* name;
    MediaKind expected;
  } cases[] = {
      {"IMG_1234.HeIc", MediaKind::photo},
      {"scan.3FR", MediaKind::photo},
      {".jpg", MediaKind::photo},
      {"clip.MP", MediaKind::video},
      {"clip.mp", MediaKind::video},
      {"clip.M2TS", MediaKind::video},
      {"clip.mpx", MediaKind::other},
      {"song.mp3", MediaKind::other},
      {"IMG_1.jpg.json", MediaKind::other},
      {"trailing.", MediaKind::other},
      {"a.jpg/README", MediaKind::other},
      {"IMG.JPG ", MediaKind::other},
      {"IMG.\xEF\xBC\xAA\xEF\xBC\xB0\xEF\xBC\xA7", MediaKind::other},  // fullwidth JPG
      {"Takeout/Photos from 2019/IMG_1.MOV", MediaKind::video},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(mediaKindOf(c.name), c.expected);
  }
}

TEST(ScanModelTest, RawValuesAndSummariesRoundTripAndRefuseWhatTheyDoNotKnow) {
  expectRawValues<MediaKind>(
      {{MediaKind::photo, "photo"}, {MediaKind::video, "video"}, {MediaKind::other, "other"}});
  expectRawValues<ExportKind>(
      {{ExportKind::googleTakeout, "Google Takeout"}, {ExportKind::snapchat, "Snapchat"}});
  expectRawValues<MediaUnit::Kind>({{MediaUnit::Kind::single, "single"},
                                    {MediaUnit::Kind::livePhoto, "livePhoto"},
                                    {MediaUnit::Kind::motionPhoto, "motionPhoto"},
                                    {MediaUnit::Kind::editedWithOriginal, "editedWithOriginal"}});

  ScanSummary summary;
  std::int64_t next = 1;
  for (const auto& [name, member] : ScanSummary::fields) summary.*member = next++;
  const json written = summary;
  ASSERT_EQ(written.size(), 23u);
  EXPECT_EQ(written.at("sourceFiles"), 1);
  EXPECT_EQ(written.at("unreadableJSON"), 17);
  EXPECT_EQ(written.at("dayOnly"), 23);
  EXPECT_EQ(ScanSummary::fromJSON(json::parse(written.dump())), summary);
  json extra = written;
  extra["futureCounter"] = 9;  // keys it does not know are ignored
  EXPECT_EQ(extra.get<ScanSummary>(), summary);

  json missing = written;
  missing.erase("dayOnly");
  auto with = [&](const char* change) {
    json value = written;
    value.update(json::parse(change));
    return value;
  };
  for (const json& value :
       {missing, json::array(), json(), with(R"({"photos": 1.5})"), with(R"({"photos": "3"})"),
        with(R"({"photos": true})"), with(R"({"photos": 18446744073709551615})")}) {
    SCOPED_TRACE(value.dump());
    EXPECT_EQ(ScanSummary::fromJSON(value), std::nullopt);
    EXPECT_THROW(value.get<ScanSummary>(), json::type_error);
  }
}

}  // namespace
}  // namespace quillmere
