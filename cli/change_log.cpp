#include "cli/change_log.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "core/dates/exif_date.h"
#include "core/metadata/embedded_metadata_reader.h"
#include "core/repair/report_writer.h"
#include "core/sources/media_kind.h"

namespace quillmere::cli {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return {};
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  if (text.empty()) return parts;
  std::size_t start = 0;
  while (true) {
    const auto at = text.find("; ", start);
    parts.push_back(text.substr(start, at - start));
    if (at == std::string::npos) return parts;
    start = at + 2;
  }
}

std::optional<double> instantOf(const EmbeddedMetadata::CaptureDate& date) {
  if (const auto* absolute = date.asAbsolute()) return absolute->date;
  const auto* local = date.asLocal();
  const auto wallClock = ExifDate::wallClockAsUTC(local->text);
  if (!wallClock || !local->offsetSeconds) return std::nullopt;
  return *wallClock - *local->offsetSeconds;
}

// What the copy (or, failing that, its sidecar) says about when and where it was taken.
void readCopy(const fs::path& copy, RepairRow& row) {
  const MediaKind kind = mediaKindOf(copy.filename().string());
  std::optional<EmbeddedMetadata> found = EmbeddedMetadataReader::read(copy, kind);
  const fs::path sidecar = copy.string() + ".xmp";
  std::error_code error;
  std::optional<EmbeddedMetadata> fromSidecar;
  if (fs::is_regular_file(sidecar, error)) fromSidecar = EmbeddedMetadataReader::readPhoto(sidecar);
  for (const auto* metadata : {&found, &fromSidecar}) {
    if (!*metadata) continue;
    if (!row.captureUTC && (*metadata)->captureDate) {
      row.captureUTC = instantOf(*(*metadata)->captureDate);
    }
    if (!row.location && (*metadata)->location) row.location = (*metadata)->location;
  }
}

RepairRow rowOf(const std::vector<std::string>& fields, const fs::path& runFolder) {
  RepairRow row;
  std::size_t used = 0;
  const auto number = std::stoll(fields[0], &used);
  const auto kind = fromRawValue<MediaUnit::Kind>(fields[1]);
  const auto status = repairStatusFromLabel(fields[2]);
  const auto dateSource = fromRawValue<DateSource>(fields[7]);
  const auto zoneSource = fromRawValue<OffsetSource>(fields[9]);
  if (used != fields[0].size() || number < 1 || !kind || !status || !dateSource || !zoneSource) {
    throw std::invalid_argument("bad row");
  }
  row.item = number;
  row.itemKind = *kind;
  row.status = *status;
  row.source = fields[3];
  row.output = fields[4];
  row.dateBefore = fields[5];
  row.dateAfter = fields[6];
  row.dateSource = *dateSource;
  row.timeZone = fields[8];
  row.timeZoneSource = *zoneSource;
  row.locationWritten = fields[10] == "yes";
  row.captionWritten = fields[11] == "yes";
  row.albums = split(fields[12]);
  row.method = fields[13];
  row.notes = split(fields[14]);
  if (row.timeZone.starts_with("UTC")) {
    const auto wallClock = ExifDate::wallClockAsUTC(row.dateAfter);
    const auto offset = ExifDate::parseOffset(std::string_view(row.timeZone).substr(3));
    if (wallClock && offset) row.captureUTC = *wallClock - *offset;
  }
  if (!row.output.empty() && row.status != RepairRow::Status::failed) {
    readCopy(runFolder / row.output, row);
  }
  return row;
}

}  // namespace

std::vector<std::vector<std::string>> parseCSV(std::string_view text) {
  std::vector<std::vector<std::string>> records;
  std::vector<std::string> record;
  std::string field;
  bool quoted = false;
  const auto endField = [&] {
    if (field.size() >= 2 && field[0] == '\'' &&
        std::string_view("=+-@").find(field[1]) != std::string_view::npos) {
      field.erase(0, 1);
    }
    record.push_back(std::move(field));
    field.clear();
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
        field += '"';
        ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        field += c;
      }
    } else if (c == '"' && field.empty()) {
      quoted = true;
    } else if (c == ',') {
      endField();
    } else if (c == '\n') {
      endField();
      records.push_back(std::move(record));
      record.clear();
    } else {
      field += c;
    }
  }
  if (!field.empty() || !record.empty()) {
    endField();
    records.push_back(std::move(record));
  }
  return records;
}

RepairResultPtr readChangeLog(const fs::path& runFolder) {
  const fs::path log = runFolder / "Report" / "changes.csv";
  std::error_code error;
  if (!fs::is_regular_file(log, error)) {
    throw std::runtime_error(
        runFolder.string() +
        " has no Report/changes.csv. Pass the folder a repair made: the one whose name "
        "starts with \"Quillmere Repair\".");
  }
  const auto records = parseCSV(readText(log));
  // The header the report writer writes, read back the same way as the log.
  const std::vector<std::string> header = parseCSV(ReportWriter::csv({})).front();
  if (records.empty() || records.front() != header) {
    throw std::runtime_error(log.string() + " isn't a Quillmere change log.");
  }
  auto result = std::make_shared<RepairResult>(runFolder);
  for (std::size_t i = 1; i < records.size(); ++i) {
    try {
      if (records[i].size() != header.size()) throw std::invalid_argument("bad row");
      result->rows.push_back(rowOf(records[i], runFolder));
    } catch (const std::logic_error&) {
      throw std::runtime_error("Line " + std::to_string(i + 1) + " of " + log.string() +
                               " can't be read. Was the file edited?");
    }
  }
  return result;
}

ExportKind runExportKind(const fs::path& runFolder) {
  const std::string readme = readText(runFolder / "README.txt");
  return readme.find("repaired copies of a Snapchat export") != std::string::npos
             ? ExportKind::snapchat
             : ExportKind::googleTakeout;
}

}  // namespace quillmere::cli
