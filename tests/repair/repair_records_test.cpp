#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/repair/repair_result.h"
#include "core/repair/repair_row.h"
#include "core/repair/repair_summary.h"

namespace quillmere {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using Status = RepairRow::Status;

RepairRow fullRow() {
  RepairRow row;
  row.item = 7;
  row.itemKind = MediaUnit::Kind::livePhoto;
  row.source = "takeout-001.zip › Takeout/Google Photos/Trip/IMG_1.HEIC";
  row.output = "Photos/2019/2019-07/IMG_1.HEIC";
  row.status = Status::fixed;
  row.dateBefore = "2019:07:04 15:30:00 +02:00";
  row.dateAfter = "2019:07:04 15:30:00";
  row.dateSource = DateSource::takeoutOverride;
  row.timeZone = "UTC+02:00";
  row.timeZoneSource = OffsetSource::location;
  row.locationWritten = true;
  row.captionWritten = false;
  row.albums = {"Trip", "B, C"};
  row.method = "written into file";
  row.notes = {"Date from the export", "Time zone from the photo's location"};
  row.overlayMerged = true;
  row.captureUTC = 1562247000.5;
  row.location = GeoPoint{48.8584, 2.2945, 35.0};
  return row;
}

TEST(RepairRowTest, StatusLabelsAreTheirTextForms) {
  const std::pair<Status, std::string> table[] = {{Status::fixed, "fixed"},
                                                  {Status::unchanged, "unchanged"},
                                                  {Status::couldntFix, "couldn't fix"},
                                                  {Status::failed, "failed"}};
  for (const auto& [status, text] : table) {
    SCOPED_TRACE(text);
    EXPECT_EQ(label(status), text);
    EXPECT_EQ(repairStatusFromLabel(text), status);
    EXPECT_EQ(json(status), json(text));
    EXPECT_EQ(json(text).get<Status>(), status);
  }
  for (const std::string bad : {"", "Fixed", "couldntFix", "couldn’t fix", "couldn't  fix", "0"}) {
    SCOPED_TRACE("bad " + bad);
    EXPECT_EQ(repairStatusFromLabel(bad), std::nullopt);
    EXPECT_THROW(json(bad).get<Status>(), json::type_error);
  }
  EXPECT_THROW(json(2).get<Status>(), json::type_error);
}

TEST(RepairRowTest, JSONKeysFollowTheFieldOrderAndLeaveOutWhatIsAbsent) {
  const RepairRow row = fullRow();
  const ordered_json encoded = row;
  EXPECT_EQ(encoded.dump(),
            R"({"item":7,"itemKind":"livePhoto",)"
            R"("source":"takeout-001.zip › Takeout/Google Photos/Trip/IMG_1.HEIC",)"
            R"("output":"Photos/2019/2019-07/IMG_1.HEIC","status":"fixed",)"
            R"("dateBefore":"2019:07:04 15:30:00 +02:00","dateAfter":"2019:07:04 15:30:00",)"
            R"("dateSource":"export-edited","timeZone":"UTC+02:00","timeZoneSource":"location",)"
            R"("locationWritten":true,"captionWritten":false,"albums":["Trip","B, C"],)"
            R"("method":"written into file",)"
            R"("notes":["Date from the export","Time zone from the photo's location"],)"
            R"("overlayMerged":true,"captureUTC":1562247000.5,)"
            R"("location":{"latitude":48.8584,"longitude":2.2945,"altitude":35.0}})");
  EXPECT_EQ(encoded.get<RepairRow>(), row);
  EXPECT_EQ(json(row).get<RepairRow>(), row);

  RepairRow bare;
  bare.status = Status::couldntFix;
  const ordered_json bareJSON = bare;
  EXPECT_FALSE(bareJSON.contains("captureUTC"));
  EXPECT_FALSE(bareJSON.contains("location"));
  EXPECT_EQ(bareJSON.at("status"), "couldn't fix");
  EXPECT_EQ(bareJSON.at("dateSource"), "none");
  EXPECT_EQ(bareJSON.at("timeZoneSource"), "unknown");
  EXPECT_EQ(bareJSON.size(), 16u);
  EXPECT_EQ(bareJSON.get<RepairRow>(), bare);
  ordered_json withNulls = bareJSON;
  withNulls["captureUTC"] = nullptr;
  withNulls["location"] = nullptr;
  EXPECT_EQ(withNulls.get<RepairRow>(), bare);
}

TEST(RepairRowTest, DecodingRefusesMissingOrMistypedFields) {
  const json good = fullRow();
  const std::vector<std::pair<std::string, json>> changes = {
      {"item", 1.5},           {"item", "7"},          {"item", 18446744073709551615u},
      {"itemKind", "Single"},  {"status", "Fixed"},    {"dateSource", "takeout"},
      {"timeZoneSource", 3},   {"locationWritten", 1}, {"albums", "Trip"},
      {"notes", {1, 2}},       {"captureUTC", "now"},  {"location", {{"latitude", 1}}},
      {"overlayMerged", "yes"}};
  for (const auto& [key, value] : changes) {
    SCOPED_TRACE(key + " = " + value.dump());
    json bad = good;
    bad[key] = value;
    EXPECT_THROW(bad.get<RepairRow>(), json::exception);
  }
  for (const char* key : {"item", "source", "method", "notes", "overlayMerged"}) {
    SCOPED_TRACE(std::string("without ") + key);
    json bad = good;
    bad.erase(key);
    EXPECT_THROW(bad.get<RepairRow>(), json::exception);
  }
  EXPECT_THROW(json::array().get<RepairRow>(), json::exception);
}

TEST(RepairSummaryTest, JSONHasTheFourteenCountersInOrder) {
  const RepairSummary summary = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, -14};
  const ordered_json encoded = summary;
  EXPECT_EQ(
      encoded.dump(),
      R"({"items":1,"files":2,"fixed":3,"unchanged":4,"couldntFix":5,"failed":6,)"
      R"("datesWritten":7,"zonesFromLocation":8,"zonesInferred":9,"zonesGuessed":10,)"
      R"("locationsWritten":11,"captionsWritten":12,"overlaysMerged":13,"xmpFallbacks":-14})");
  EXPECT_EQ(encoded.get<RepairSummary>(), summary);
  EXPECT_EQ(json(summary).get<RepairSummary>(), summary);

  for (const json& value : {json(1.0), json("3"), json(nullptr), json(9223372036854775808u)}) {
    SCOPED_TRACE(value.dump());
    json bad = summary;
    bad["fixed"] = value;
    EXPECT_THROW(bad.get<RepairSummary>(), json::exception);
  }
  json missing = summary;
  missing.erase("xmpFallbacks");
  EXPECT_THROW(missing.get<RepairSummary>(), json::exception);
}

RepairRow decided(Status status, DateSource date, OffsetSource zone) {
  RepairRow row;
  row.status = status;
  row.dateSource = date;
  row.timeZoneSource = zone;
  return row;
}

TEST(RepairSummaryTest, NoRowsCountNothingButTheItemsPassedIn) {
  RepairSummary expected;
  expected.items = 12;
  EXPECT_EQ(RepairEngine::summarize({}, 12), expected);
}

TEST(RepairSummaryTest, DateAndZoneCountersCountDecisionsOfFixedAndFailedRowsOnly) {
  struct Case {
    const char* name;
    RepairRow row;
    RepairSummary expected;  // items and files left out
  };
  const auto counts = [](std::int64_t fixed, std::int64_t unchanged, std::int64_t couldntFix,
                         std::int64_t failed, std::int64_t dates, std::int64_t fromLocation,
                         std::int64_t inferred, std::int64_t guessed) {
    RepairSummary summary;
    summary.fixed = fixed;
    summary.unchanged = unchanged;
    summary.couldntFix = couldntFix;
    summary.failed = failed;
    summary.datesWritten = dates;
    summary.zonesFromLocation = fromLocation;
    summary.zonesInferred = inferred;
    summary.zonesGuessed = guessed;
    return summary;
  };
  const Case cases[] = {
      {"fixed, own date, zone from location",
       decided(Status::fixed, DateSource::file, OffsetSource::location),
       counts(1, 0, 0, 0, 0, 0, 0, 0)},
      {"failed, export date, zone from location",
       decided(Status::failed, DateSource::takeout, OffsetSource::location),
       counts(0, 0, 0, 1, 1, 1, 0, 0)},
      {"fixed, edited export date, neighbour zone",
       decided(Status::fixed, DateSource::takeoutOverride, OffsetSource::neighbor),
       counts(1, 0, 0, 0, 1, 0, 1, 0)},
      {"fixed, no date, guessed zone",
       decided(Status::fixed, DateSource::none, OffsetSource::guessed),
       counts(1, 0, 0, 0, 0, 0, 0, 1)},
      {"unchanged, export date, guessed zone",
       decided(Status::unchanged, DateSource::takeout, OffsetSource::guessed),
       counts(0, 1, 0, 0, 0, 0, 0, 0)},
      {"couldn't fix, no date, location zone",
       decided(Status::couldntFix, DateSource::none, OffsetSource::location),
       counts(0, 0, 1, 0, 0, 0, 0, 0)},
      {"fixed, export date, zone derived",
       decided(Status::fixed, DateSource::takeout, OffsetSource::derived),
       counts(1, 0, 0, 0, 1, 0, 0, 0)},
      {"failed, own date, guessed zone",
       decided(Status::failed, DateSource::file, OffsetSource::guessed),
       counts(0, 0, 0, 1, 0, 0, 0, 0)},
      {"fixed, export date, zone from the file",
       decided(Status::fixed, DateSource::takeout, OffsetSource::file),
       counts(1, 0, 0, 0, 1, 0, 0, 0)},
      {"failed, no date, unknown zone",
       decided(Status::failed, DateSource::none, OffsetSource::unknown),
       counts(0, 0, 0, 1, 0, 0, 0, 0)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RepairSummary expected = c.expected;
    expected.items = 1;
    expected.files = 1;
    EXPECT_EQ(RepairEngine::summarize({c.row}, 1), expected);
  }
}

TEST(RepairSummaryTest, WrittenFlagsOverlaysAndTheExactXMPLabelCountForEveryStatus) {
  std::vector<RepairRow> rows;
  for (const Status status :
       {Status::fixed, Status::unchanged, Status::couldntFix, Status::failed}) {
    RepairRow row;
    row.status = status;
    row.locationWritten = true;
    row.captionWritten = status != Status::unchanged;
    row.overlayMerged = status == Status::failed;
    row.method = "XMP sidecar + file dates";
    rows.push_back(row);
  }
  for (const std::string method : {"xmp sidecar + file dates", "XMP sidecar + file dates ",
                                   "XMP sidecar", "written into file", "copied unchanged", ""}) {
    RepairRow row;
    row.method = method;
    rows.push_back(row);
  }

  const RepairSummary summary = RepairEngine::summarize(rows, 3);
  EXPECT_EQ(summary.items, 3);  // as passed in, even when fewer than the rows' items
  EXPECT_EQ(summary.files, 10);
  EXPECT_EQ(summary.fixed, 1);
  EXPECT_EQ(summary.unchanged, 7);
  EXPECT_EQ(summary.couldntFix, 1);
  EXPECT_EQ(summary.failed, 1);
  EXPECT_EQ(summary.locationsWritten, 4);
  EXPECT_EQ(summary.captionsWritten, 3);
  EXPECT_EQ(summary.overlaysMerged, 1);
  EXPECT_EQ(summary.xmpFallbacks, 4);
}

TEST(RepairResultTest, StartsEmptyWithItsReportFolderInside) {
  const RepairResult result("/x/Out");
  EXPECT_EQ(result.outputFolder(), std::filesystem::path("/x/Out"));
  EXPECT_EQ(result.reportFolder(), std::filesystem::path("/x/Out/Report"));
  EXPECT_TRUE(result.rows.empty());
  EXPECT_EQ(result.summary, RepairSummary{});
}

}  // namespace
}  // namespace quillmere
