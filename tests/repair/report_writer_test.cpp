#include "core/repair/report_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "core/repair/pretty_json.h"
#include "core/sources/quillmere_version.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using Status = RepairRow::Status;

constexpr std::string_view kHeaderLine =
    "item,item kind,status,source,output,date before,date after,date source,time zone,"
    "time zone source,location written,caption written,albums,method,notes\n";

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A fixed row carrying every kind of text the CSV must guard or quote.
RepairRow awkwardRow() {
  RepairRow row;
  row.item = 12;
  row.itemKind = MediaUnit::Kind::editedWithOriginal;
  row.status = Status::fixed;
  row.source = "-2019/IMG.jpg";
  row.output = "Photos/2019/2019-07/Café \"Ö\".jpg";
  row.dateBefore = "2019:07:04 15:30:00 +02:00";
  row.dateAfter = "2019:07:04 12:00:00";
  row.dateSource = DateSource::takeoutOverride;
  row.timeZone = "UTC-03:30";
  row.timeZoneSource = OffsetSource::neighbor;
  row.locationWritten = true;
  row.captionWritten = true;
  row.albums = {"A", "B, C"};
  row.method = "written into file";
  row.notes = {"=SUM(A1)", "line one\r\nline two"};
  row.overlayMerged = true;
  row.captureUTC = 1562241600;
  row.location = GeoPoint{1, 2, std::nullopt};
  return row;
}

RepairRow plainRow(std::int64_t item, Status status, DateSource date, OffsetSource zone) {
  RepairRow row;
  row.item = item;
  row.status = status;
  row.dateSource = date;
  row.timeZoneSource = zone;
  row.source = "/home/ana/Takeout/IMG_" + std::to_string(item) + ".jpg";
  return row;
}

TEST(ReportEscapeTest, GuardsFormulasAndQuotesOnlyWholeSpecialCharacters) {
  const struct {
    std::string in;
    std::string out;
  } cases[] = {
      {"", ""},
      {"plain text", "plain text"},
      {"couldn't fix", "couldn't fix"},
      {"-2019/IMG.jpg", "'-2019/IMG.jpg"},
      {"=SUM(A1)", "'=SUM(A1)"},
      {"+33 1 23", "'+33 1 23"},
      {"@home", "'@home"},
      {"-", "'-"},
      {" -1", " -1"},
      {"a=b", "a=b"},
      {"'quoted already", "'quoted already"},
      {"a, b", "\"a, b\""},
      {"\"hi\"", "\"\"\"hi\"\"\""},
      {"A; B, C", "\"A; B, C\""},
      {"-1,5", "\"'-1,5\""},
      {"=\"x\"", "\"'=\"\"x\"\"\""},
      {"line\nbreak", "\"line\nbreak\""},
      {"carriage\rreturn", "\"carriage\rreturn\""},
      {"\n\r", "\"\n\r\""},
      // A CR LF pair is one character that is neither a carriage return nor a line feed.
      {"windows\r\nline", "windows\r\nline"},
      {"\r\n\r\n", "\r\n\r\n"},
      {"\r\n,", "\"\r\n,\""},
      {"\r\r\n", "\"\r\r\n\""},
      // A combining mark joins the character before it into a different character.
      {"=\xCC\x81x", "=\xCC\x81x"},
      {",\xCC\x81", ",\xCC\x81"},
      {"\"\xCC\x81", "\"\xCC\x81"},
      {"-\xCC\x81, x", "\"-\xCC\x81, x\""},
      {"Zürich, 東京", "\"Zürich, 東京\""},
      {"é-=", "é-="},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(ReportWriter::escape(c.in), c.out);
  }
}

TEST(ReportCSVTest, WritesTheHeaderAndOneLinePerRowExactly) {
  EXPECT_EQ(ReportWriter::csv({}), kHeaderLine);

  RepairRow bare;
  bare.item = 3;
  bare.status = Status::couldntFix;
  RepairRow failed = plainRow(4, Status::failed, DateSource::file, OffsetSource::file);
  failed.itemKind = MediaUnit::Kind::livePhoto;
  failed.captionWritten = true;
  failed.method = "XMP sidecar + file dates";
  failed.notes = {"Couldn't merge the overlay into IMG_4.jpg"};
  RepairRow motion = plainRow(5, Status::unchanged, DateSource::takeout, OffsetSource::location);
  motion.itemKind = MediaUnit::Kind::motionPhoto;
  motion.locationWritten = true;
  motion.albums = {"Ünïcode"};
  EXPECT_EQ(ReportWriter::csv({awkwardRow(), bare, failed, motion}),
            std::string(kHeaderLine) +
                "12,editedWithOriginal,fixed,'-2019/IMG.jpg,"
                "\"Photos/2019/2019-07/Café \"\"Ö\"\".jpg\",2019:07:04 15:30:00 +02:00,"
                "2019:07:04 12:00:00,export-edited,UTC-03:30,neighbor,yes,yes,\"A; B, C\","
                "written into file,'=SUM(A1); line one\r\nline two\n"
                "3,single,couldn't fix,,,,,none,,unknown,,,,,\n"
                "4,livePhoto,failed,/home/ana/Takeout/IMG_4.jpg,,,,file,,file,,yes,,"
                "XMP sidecar + file dates,Couldn't merge the overlay into IMG_4.jpg\n"
                "5,motionPhoto,unchanged,/home/ana/Takeout/IMG_5.jpg,,,,export,,location,yes,,"
                "Ünïcode,,\n");
}

TEST(ReportCSVTest, NegativeItemNumbersAndZonesAreGuardedToo) {
  RepairRow row;
  row.item = -1;
  row.timeZone = "UTC-03:30";
  const std::string text = ReportWriter::csv({row});
  EXPECT_EQ(text.substr(kHeaderLine.size()),
            "'-1,single,unchanged,,,,,none,UTC-03:30,unknown,,,,,\n");
}

ScanResult& takeoutScan(ScanResult& scan) {
  scan.kind = ExportKind::googleTakeout;
  scan.summary.sourceFiles = 40;
  scan.summary.zipParts = 2;
  scan.summary.photos = 30;
  scan.summary.dayOnly = 1;
  return scan;
}

TEST(ReportSummaryJSONTest, SortsKeysEscapesSlashesAndWritesWholeSecondsInUTC) {
  ScanResult scan({"/home/ana/takeout-001.zip", "relative/Takeout \"2\"",
                   "/tmp/caf\xE9"});  // the last is Latin-1, not UTF-8
  takeoutScan(scan);
  RepairResult result("/out/Quillmere Repair 2026-11-16 10.43.07");
  result.summary = RepairEngine::summarize(
      {plainRow(1, Status::fixed, DateSource::takeout, OffsetSource::location)}, 2);
  const auto createdAt = std::chrono::sys_days(std::chrono::year(2026) / 11 / 16) +
                         std::chrono::hours(9) + std::chrono::minutes(43) +
                         std::chrono::seconds(7) + std::chrono::milliseconds(999);

  const std::string text = ReportWriter::summaryJSON(result, scan, createdAt);
  EXPECT_EQ(text, R"({
  "app" : "Quillmere",
  "createdAt" : "2026-11-16T09:43:07Z",
  "inputs" : [
    "\/home\/ana\/takeout-001.zip",
    "relative\/Takeout \"2\"",
    "\/tmp\/caf�"
  ],
  "repair" : {
    "captionsWritten" : 0,
    "couldntFix" : 0,
    "datesWritten" : 1,
    "failed" : 0,
    "files" : 1,
    "fixed" : 1,
    "items" : 2,
    "locationsWritten" : 0,
    "overlaysMerged" : 0,
    "unchanged" : 0,
    "xmpFallbacks" : 0,
    "zonesFromLocation" : 1,
    "zonesGuessed" : 0,
    "zonesInferred" : 0
  },
  "scan" : {
    "albums" : 0,
    "captionsInTakeout" : 0,
    "datesRecoverable" : 0,
    "dayOnly" : 1,
    "duplicateCopies" : 0,
    "historyEntries" : 0,
    "items" : 0,
    "locationsRecoverable" : 0,
    "matchedByDate" : 0,
    "matchedByOrder" : 0,
    "matchedExact" : 0,
    "mediaFiles" : 0,
    "orphanSidecars" : 0,
    "overlays" : 0,
    "photos" : 30,
    "photosMissingDate" : 0,
    "photosMissingLocation" : 0,
    "sourceFiles" : 40,
    "unreadableJSON" : 0,
    "videos" : 0,
    "withSidecar" : 0,
    "withoutSidecar" : 0,
    "zipParts" : 2
  },
  "version" : "1.0.1"
})");
  // Any JSON reader takes it back.
  const auto parsed = nlohmann::json::parse(text);
  EXPECT_EQ(parsed.at("scan").get<ScanSummary>(), scan.summary);
  EXPECT_EQ(parsed.at("repair").get<RepairSummary>(), result.summary);
  EXPECT_EQ(parsed.at("inputs").at(1), "relative/Takeout \"2\"");
}

TEST(ReportSummaryJSONTest, PrettyJsonWritesEveryKindOfValue) {
  const nlohmann::json value = {
      {"z", nlohmann::json::array()},
      {"a", nlohmann::json::object()},
      {"m", {{"b", true}, {"a", nullptr}, {"c", {-1, 2}}}},
      {"text", "tab\there\nctl\x01 back\\slash é/"},
  };
  EXPECT_EQ(PrettyJson::write(value), R"({
  "a" : {},
  "m" : {
    "a" : null,
    "b" : true,
    "c" : [
      -1,
      2
    ]
  },
  "text" : "tab\there\nctl\u0001 back\\slash é\/",
  "z" : []
})");
  EXPECT_EQ(PrettyJson::write(42), "42");
}

std::string expectedReadme(std::string_view kind, std::string_view counters) {
  return "Quillmere repair\n"
         "================\n"
         "\n"
         "These are repaired copies of a " +
         std::string(kind) +
         " export. The original export was only read, never changed.\n"
         "\n"
         "Photos/YYYY/YYYY-MM/   Repaired photos and videos, filed by the date each was taken.\n"
         "Photos/Undated/        Items with no date anywhere (see Report/couldnt-fix.csv).\n"
         "Extras/                Snapchat only: photos as saved before their caption/sticker "
         "overlay was merged,\n"
         "                       and video overlays (not merged into videos yet).\n"
         "Albums/                One text file per Google Photos album, listing its photos.\n"
         "                       Album names were also added to each photo's keywords.\n"
         "Report/changes.csv     Every file: what changed, and where each value came from.\n"
         "Report/couldnt-fix.csv Items that need a look.\n"
         "Report/summary.json    Totals, for the record.\n"
         "\n" +
         std::string(counters) +
         "\n"
         "About time zones: Google stores capture times in UTC without a zone. When a photo had "
         "no zone of its own,\n"
         "Quillmere used the zone where it was taken (\"location\"), else the zone of the "
         "nearest photo in time\n"
         "(\"neighbor\"), else this computer's zone (\"guessed\"). These are labeled in "
         "changes.csv so you know which are certain.\n"
         "\n"
         "To bring these into Immich, use Add to Immich\xE2\x80\xA6 in Quillmere; other photo "
         "managers can import the Photos folder.\n"
         "\n"
         "Made by Quillmere 1.0.1. Time zone boundaries: timezone-boundary-builder\n"
         "(Evan Siroky, ODbL 1.0, derived from OpenStreetMap data \xC2\xA9 OpenStreetMap "
         "contributors.)";
}

TEST(ReportReadmeTest, ListsEveryLineWithTheRunsCounters) {
  ScanResult scan({"/in"});
  RepairResult empty("/out");
  EXPECT_EQ(ReportWriter::readme(empty, scan),
            expectedReadme("Google Takeout",
                           "Items: 0   Files: 0\n"
                           "Fixed: 0   Already correct: 0   Couldn't fix: 0   Failed: 0\n"
                           "Dates written: 0   Places written: 0   Captions written: 0\n"
                           "Time zones from photo locations: 0   From nearby photos: 0   "
                           "Guessed: 0\n"));

  scan.kind = ExportKind::snapchat;
  RepairResult result("/out");
  result.summary = {.items = 1234567,
                    .files = 2,
                    .fixed = 3,
                    .unchanged = 4,
                    .couldntFix = 5,
                    .failed = 6,
                    .datesWritten = 7,
                    .zonesFromLocation = 8,
                    .zonesInferred = 9,
                    .zonesGuessed = 10,
                    .locationsWritten = 11,
                    .captionsWritten = 12,
                    .overlaysMerged = 13,
                    .xmpFallbacks = 14};
  EXPECT_EQ(ReportWriter::readme(result, scan),
            expectedReadme("Snapchat",
                           "Items: 1234567   Files: 2\n"
                           "Fixed: 3   Already correct: 4   Couldn't fix: 5   Failed: 6\n"
                           "Dates written: 7   Places written: 11   Captions written: 12\n"
                           "Time zones from photo locations: 8   From nearby photos: 9   "
                           "Guessed: 10\n"));
}

TEST(ReportReadmeTest, NamesTheVersionTheCommandLinePrints) {
  const auto version = testing::runCommand({QUILLMERE_CLI, "--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out, "quillmere-cli " + std::string(kQuillmereVersion) + "\n");
  EXPECT_EQ(kQuillmereVersion, "1.0.1");
}

TEST(ReportWriteTest, WritesTheFourFilesAndNothingElse) {
  testing::TempDir temp;
  ScanResult scan({"/home/ana/takeout-001.zip"});
  takeoutScan(scan);
  RepairResult result(temp / "Quillmere Repair 2026-11-16 10.43.07");
  result.rows = {awkwardRow(),
                 plainRow(2, Status::couldntFix, DateSource::none, OffsetSource::unknown),
                 plainRow(3, Status::unchanged, DateSource::file, OffsetSource::file),
                 plainRow(4, Status::failed, DateSource::takeout, OffsetSource::guessed)};
  result.summary = RepairEngine::summarize(result.rows, 4);

  const auto before = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  ReportWriter::write(result, scan);
  const auto after = std::chrono::system_clock::now();

  EXPECT_THAT(namesIn(result.outputFolder()), ::testing::ElementsAre("README.txt", "Report"));
  EXPECT_THAT(namesIn(result.reportFolder()),
              ::testing::ElementsAre("changes.csv", "couldnt-fix.csv", "summary.json"));
  EXPECT_EQ(readFile(result.reportFolder() / "changes.csv"), ReportWriter::csv(result.rows));
  EXPECT_EQ(readFile(result.reportFolder() / "couldnt-fix.csv"),
            std::string(kHeaderLine) +
                "2,single,couldn't fix,/home/ana/Takeout/IMG_2.jpg,,,,none,,unknown,,,,,\n"
                "4,single,failed,/home/ana/Takeout/IMG_4.jpg,,,,export,,guessed,,,,,\n");
  EXPECT_EQ(readFile(result.outputFolder() / "README.txt"), ReportWriter::readme(result, scan));

  // createdAt is the moment of writing; the rest is summaryJSON's text.
  const std::string json = readFile(result.reportFolder() / "summary.json");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(
      json, match, std::regex(R"("createdAt" : "(\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)Z")")));
  const auto day = std::chrono::year(std::stoi(match[1])) /
                   std::chrono::month(static_cast<unsigned>(std::stoi(match[2]))) /
                   std::chrono::day(static_cast<unsigned>(std::stoi(match[3])));
  const auto createdAt = std::chrono::sys_days(day) + std::chrono::hours(std::stoi(match[4])) +
                         std::chrono::minutes(std::stoi(match[5])) +
                         std::chrono::seconds(std::stoi(match[6]));
  EXPECT_GE(createdAt, before);
  EXPECT_LE(createdAt, after);
  EXPECT_EQ(json, ReportWriter::summaryJSON(result, scan, createdAt));

  // A second run replaces the files; with nothing to look at, couldnt-fix.csv is the header.
  result.rows = {plainRow(1, Status::fixed, DateSource::takeout, OffsetSource::location)};
  ReportWriter::write(result, scan);
  EXPECT_EQ(readFile(result.reportFolder() / "couldnt-fix.csv"), kHeaderLine);
  EXPECT_EQ(namesIn(result.reportFolder()).size(), 3u);
}

TEST(ReportWriteTest, StopsAtTheFirstFailureAndLeavesNoPartialFile) {
  testing::TempDir temp;
  ScanResult scan({"/in"});
  {
    SCOPED_TRACE("the report folder's place is taken by a file");
    RepairResult result(temp / "run1");
    fs::create_directories(result.outputFolder());
    std::ofstream(result.reportFolder()) << "not a folder";
    EXPECT_THROW(ReportWriter::write(result, scan), fs::filesystem_error);
    EXPECT_THAT(namesIn(result.outputFolder()), ::testing::ElementsAre("Report"));
  }
  {
    SCOPED_TRACE("summary.json's place is taken by a folder");
    RepairResult result(temp / "run2");
    fs::create_directories(result.reportFolder() / "summary.json");
    try {
      ReportWriter::write(result, scan);
      ADD_FAILURE() << "no error";
    } catch (const fs::filesystem_error& error) {
      EXPECT_EQ(error.path1(), result.reportFolder() / "summary.json");
      EXPECT_EQ(error.code(), std::errc::is_a_directory);
    }
    EXPECT_THAT(namesIn(result.reportFolder()),
                ::testing::ElementsAre("changes.csv", "couldnt-fix.csv", "summary.json"));
    EXPECT_THAT(namesIn(result.outputFolder()), ::testing::ElementsAre("Report"));
  }
}

// Rows written as they come make the files write() makes from the whole list, however many
// rows there are (past the point where the files are first flushed).
TEST(ReportRowFilesTest, WriteWhatTheWholeListGivesAndReportAFailedWriteAtCommit) {
  testing::TempDir temp;
  for (const std::size_t count : {std::size_t{0}, std::size_t{4}, std::size_t{5000}}) {
    SCOPED_TRACE(count);
    const fs::path work = temp / ("work" + std::to_string(count));
    fs::create_directories(work);
    RepairResult result(temp / ("run" + std::to_string(count)));
    ReportWriter::RowFiles files(work);
    for (std::size_t i = 0; i < count; ++i) {
      const auto item = static_cast<std::int64_t>(i) + 1;
      result.rows.push_back(
          i % 4 == 0 ? awkwardRow()
          : i % 4 == 1
              ? plainRow(item, Status::couldntFix, DateSource::none, OffsetSource::unknown)
              : plainRow(item, Status::failed, DateSource::takeout, OffsetSource::guessed));
      files.add(result.rows.back());
    }
    files.commit(result.reportFolder());
    EXPECT_EQ(readFile(result.reportFolder() / "changes.csv"), ReportWriter::csv(result.rows));
    std::vector<RepairRow> problems;
    for (const RepairRow& row : result.rows) {
      if (row.status != Status::fixed && row.status != Status::unchanged) problems.push_back(row);
    }
    EXPECT_EQ(readFile(result.reportFolder() / "couldnt-fix.csv"), ReportWriter::csv(problems));
    EXPECT_TRUE(fs::is_empty(work));
  }

  // A full disk while rows are written: the run goes on, and commit names the report file.
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    ReportWriter::RowFiles files(temp.path());
    const rlimit limit{16 * 1024, 16 * 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    for (int i = 0; i < 5000; ++i) files.add(awkwardRow());
    try {
      files.commit(temp / "full" / "Report");
    } catch (const fs::filesystem_error& error) {
      const bool named = error.path1() == temp / "full" / "Report" / "changes.csv";
      ::_exit(named && error.code() == std::errc::file_too_large ? 0 : 1);
    }
    ::_exit(2);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_FALSE(fs::exists(temp / "full" / "Report" / "changes.csv"));
}

}  // namespace
}  // namespace quillmere
