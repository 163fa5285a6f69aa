#include "core/repair/report_writer.h"

#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "core/repair/pretty_json.h"
#include "core/sources/file_io.h"
#include "core/sources/quillmere_version.h"
#include "core/sources/unicode_text.h"

namespace quillmere {

namespace {

constexpr std::string_view kHeaders[] = {
    "item",
    "item kind",
    "status",
    "source",
    "output",
    "date before",
    "date after",
    "date source",
    "time zone",
    "time zone source",
    "location written",
    "caption written",
    "albums",
    "method",
    "notes",
};

std::string joined(const std::vector<std::string>& parts) {
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += "; ";
    out += parts[i];
  }
  return out;
}

// True when byte `i` of `text` is a character on its own, not part of a longer one such as a
// CR LF pair or a comma with a combining mark.
bool isWholeCharacter(std::string_view text, std::size_t i) {
  return UnicodeText::isGraphemeBoundary(text, i) && UnicodeText::isGraphemeBoundary(text, i + 1);
}

bool startsWithFormulaCharacter(std::string_view text) {
  if (text.empty()) return false;
  const char first = text.front();
  return (first == '=' || first == '+' || first == '-' || first == '@') &&
         isWholeCharacter(text, 0);
}

bool needsQuotes(std::string_view text) {
  for (std::size_t i = text.find_first_of(",\"\n\r"); i != std::string_view::npos;
       i = text.find_first_of(",\"\n\r", i + 1)) {
    if (isWholeCharacter(text, i)) return true;
  }
  return false;
}

// Appends escape(text) without building it apart. The guard's apostrophe stands before a
// character of its own and is not special, so the quoting test can look at `text` alone.
void appendEscaped(std::string_view text, std::string& out) {
  const bool guard = startsWithFormulaCharacter(text);
  if (!needsQuotes(text)) {
    if (guard) out += '\'';
    out += text;
    return;
  }
  out += '"';
  if (guard) out += '\'';
  for (const char c : text) {
    out += c;
    if (c == '"') out += '"';
  }
  out += '"';
}

void appendLine(const std::string_view (&fields)[15], std::string& out) {
  for (std::size_t i = 0; i < std::size(fields); ++i) {
    if (i > 0) out += ',';
    appendEscaped(fields[i], out);
  }
  out += '\n';
}

void appendRow(const RepairRow& row, std::string& out) {
  const std::string item = std::to_string(row.item);
  const std::string albums = joined(row.albums);
  const std::string notes = joined(row.notes);
  const std::string_view fields[15] = {
      item,
      rawValue(row.itemKind),
      label(row.status),
      row.source,
      row.output,
      row.dateBefore,
      row.dateAfter,
      rawValue(row.dateSource),
      row.timeZone,
      rawValue(row.timeZoneSource),
      row.locationWritten ? "yes" : "",
      row.captionWritten ? "yes" : "",
      albums,
      row.method,
      notes,
  };
  appendLine(fields, out);
}

std::string iso8601UTC(std::chrono::system_clock::time_point instant) {
  const std::time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(instant));
  std::tm fields{};
  gmtime_r(&seconds, &fields);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields);
  return text;
}

// The CSV text of the rows `keep` accepts, without copying them.
template <typename Predicate>
std::string csvOf(const std::vector<RepairRow>& rows, Predicate keep) {
  std::string out;
  appendLine(kHeaders, out);
  for (const RepairRow& row : rows) {
    if (keep(row)) appendRow(row, out);
  }
  return out;
}

// Replaces whatever an earlier run left there; staged in `work` unless it is empty.
void writeText(const std::filesystem::path& target, const std::string& text,
               const std::filesystem::path& work = {}) {
  const std::filesystem::path staged = work.empty() ? target : work / target.filename();
  FileIO::writeFile(staged, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                    /*exclusive=*/false);
  if (staged != target) std::filesystem::rename(staged, target);
}

bool needsALook(const RepairRow& row) {
  return row.status == RepairRow::Status::couldntFix || row.status == RepairRow::Status::failed;
}

}  // namespace

std::string ReportWriter::escape(std::string_view text) {
  std::string out;
  appendEscaped(text, out);
  return out;
}

std::string ReportWriter::csv(const std::vector<RepairRow>& rows) {
  return csvOf(rows, [](const RepairRow&) { return true; });
}

std::string ReportWriter::summaryJSON(const RepairResult& result, const ScanResult& scan,
                                      std::chrono::system_clock::time_point createdAt) {
  nlohmann::json inputs = nlohmann::json::array();
  for (const auto& input : scan.inputs) inputs.push_back(input.string());
  nlohmann::json file = {
      {"app", "Quillmere"},
      {"version", kQuillmereVersion},
      {"createdAt", iso8601UTC(createdAt)},
      {"inputs", std::move(inputs)},
      {"scan", scan.summary},
      {"repair", result.summary},
  };
  return PrettyJson::write(file);
}

std::string ReportWriter::readme(const RepairResult& result, const ScanResult& scan) {
  const RepairSummary& s = result.summary;
  const auto n = [](std::int64_t value) { return std::to_string(value); };
  std::string text;
  text += "Quillmere repair\n";
  text += "================\n";
  text += "\n";
  text += "These are repaired copies of a " + std::string(rawValue(scan.kind)) +
          " export. The original export was only read, never changed.\n";
  text += "\n";
  text += "Photos/YYYY/YYYY-MM/   Repaired photos and videos, filed by the date each was taken.\n";
  text += "Photos/Undated/        Items with no date anywhere (see Report/couldnt-fix.csv).\n";
  text +=
      "Extras/                Snapchat only: photos as saved before their caption/sticker "
      "overlay was merged,\n";
  text += "                       and video overlays (not merged into videos yet).\n";
  text += "Albums/                One text file per Google Photos album, listing its photos.\n";
  text += "                       Album names were also added to each photo's keywords.\n";
  text += "Report/changes.csv     Every file: what changed, and where each value came from.\n";
  text += "Report/couldnt-fix.csv Items that need a look.\n";
  text += "Report/summary.json    Totals, for the record.\n";
  text += "\n";
  text += "Items: " + n(s.items) + "   Files: " + n(s.files) + "\n";
  text += "Fixed: " + n(s.fixed) + "   Already correct: " + n(s.unchanged) +
          "   Couldn't fix: " + n(s.couldntFix) + "   Failed: " + n(s.failed) + "\n";
  text += "Dates written: " + n(s.datesWritten) + "   Places written: " + n(s.locationsWritten) +
          "   Captions written: " + n(s.captionsWritten) + "\n";
  text += "Time zones from photo locations: " + n(s.zonesFromLocation) +
          "   From nearby photos: " + n(s.zonesInferred) + "   Guessed: " + n(s.zonesGuessed) +
          "\n";
  text += "\n";
  text +=
      "About time zones: Google stores capture times in UTC without a zone. When a photo had no "
      "zone of its own,\n";
  text +=
      "Quillmere used the zone where it was taken (\"location\"), else the zone of the nearest "
      "photo in time\n";
  text +=
      "(\"neighbor\"), else this computer's zone (\"guessed\"). These are labeled in "
      "changes.csv so you know which are certain.\n";
  text += "\n";
  text +=
      "To bring these into Immich, use Add to Immich\u2026 in Quillmere; other photo managers "
      "can import the Photos folder.\n";
  text += "\n";
  text += "Made by Quillmere " + std::string(kQuillmereVersion) +
          ". Time zone boundaries: timezone-boundary-builder\n";
  text +=
      "(Evan Siroky, ODbL 1.0, derived from OpenStreetMap data \u00A9 OpenStreetMap "
      "contributors.)";
  return text;
}

void ReportWriter::writeTotals(const RepairResult& result, const ScanResult& scan,
                               const std::filesystem::path& work) {
  writeText(result.reportFolder() / "summary.json",
            summaryJSON(result, scan, std::chrono::system_clock::now()), work);
  writeText(result.outputFolder() / "README.txt", readme(result, scan), work);
}

void ReportWriter::write(const RepairResult& result, const ScanResult& scan) {
  const std::filesystem::path& report = result.reportFolder();
  std::filesystem::create_directories(report);
  writeText(report / "changes.csv", csv(result.rows));
  writeText(report / "couldnt-fix.csv", csvOf(result.rows, needsALook));
  writeTotals(result, scan);
}

// One growing CSV file: lines gather in memory and go to the file in large writes.
struct ReportWriter::RowFiles::File {
  static constexpr std::size_t kFlushBytes = 256 << 10;

  File(std::filesystem::path path, std::string name)
      : working(std::move(path)),
        name(std::move(name)),
        descriptor(FileDescriptor::createExclusive(working)) {
    appendLine(kHeaders, pending);
  }

  void flush() {
    if (error == 0 && !pending.empty()) {
      try {
        descriptor.writeFully(
            {reinterpret_cast<const std::uint8_t*>(pending.data()), pending.size()});
      } catch (const std::system_error& failure) {
        error = failure.code().value();
      }
    }
    pending.clear();
  }

  void add(const RepairRow& row) {
    appendRow(row, pending);
    if (pending.size() >= kFlushBytes) flush();
  }

  void commit(const std::filesystem::path& folder) {
    flush();
    const std::filesystem::path target = folder / name;
    if (error == 0) {
      try {
        descriptor.close();
      } catch (const std::system_error& failure) {
        error = failure.code().value();
      }
    }
    if (error != 0) {
      throw std::filesystem::filesystem_error("cannot write file", target,
                                              std::error_code(error, std::generic_category()));
    }
    std::filesystem::rename(working, target);
  }

  std::filesystem::path working;
  std::string name;
  FileDescriptor descriptor;
  std::string pending;
  int error = 0;  // the first write's failure (an errno), kept for commit
};

ReportWriter::RowFiles::RowFiles(const std::filesystem::path& work)
    : changes_(std::make_unique<File>(work / "changes.csv", "changes.csv")),
      problems_(std::make_unique<File>(work / "couldnt-fix.csv", "couldnt-fix.csv")) {}

ReportWriter::RowFiles::~RowFiles() = default;

void ReportWriter::RowFiles::add(const RepairRow& row) {
  changes_->add(row);
  if (needsALook(row)) problems_->add(row);
}

void ReportWriter::RowFiles::commit(const std::filesystem::path& reportFolder) {
  std::filesystem::create_directories(reportFolder);
  changes_->commit(reportFolder);
  problems_->commit(reportFolder);
}

}  // namespace quillmere
