// The two files an import keeps in the report folder, and the JSON forms of its values.

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "core/photos/photos_importer.h"
#include "core/sources/file_io.h"
#include "core/sources/unicode_text.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

// The whole of `text` at `file`, or (on any failure) the old file untouched.
bool writeAtomically(const fs::path& file, std::string_view text) {
  try {
    FileIO::writeFile(file,
                      std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                      /*exclusive=*/false);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<std::string> readWhole(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return std::nullopt;
  return std::move(text).str();
}

template <typename BasicJson>
void summaryToJSON(BasicJson& json, const ImportSummary& summary) {
  json = BasicJson::object();
  json["items"] = summary.items;
  json["imported"] = summary.imported;
  json["alreadyImported"] = summary.alreadyImported;
  json["livePhotos"] = summary.livePhotos;
  json["livePhotosSplit"] = summary.livePhotosSplit;
  json["failed"] = summary.failed;
  json["albums"] = summary.albums;
  json["folderTitle"] = summary.folderTitle;
}

template <typename BasicJson>
void summaryFromJSON(const BasicJson& json, ImportSummary& summary) {
  ImportSummary decoded;
  const auto count = [&](const char* key) {
    const auto& value = json.at(key);
    if (!value.is_number_integer()) {
      throw BasicJson::type_error::create(302, std::string(key) + " must be an integer", &value);
    }
    return value.template get<std::int64_t>();
  };
  decoded.items = count("items");
  decoded.imported = count("imported");
  decoded.alreadyImported = count("alreadyImported");
  decoded.livePhotos = count("livePhotos");
  decoded.livePhotosSplit = count("livePhotosSplit");
  decoded.failed = count("failed");
  decoded.albums = count("albums");
  decoded.folderTitle = json.at("folderTitle").template get<std::string>();
  summary = std::move(decoded);
}

// A JSON object whose every value is a string, or nothing.
std::optional<std::map<std::string, std::string>> stringMap(const nlohmann::json& json,
                                                            const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || !found->is_object()) return std::nullopt;
  std::map<std::string, std::string> map;
  for (const auto& [name, value] : found->items()) {
    if (!value.is_string()) return std::nullopt;
    map.emplace(name, value.get<std::string>());
  }
  return map;
}

std::optional<std::string> optionalString(const nlohmann::json& json, const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

}  // namespace

std::vector<std::string> ImportItem::paths() const {
  std::vector<std::string> paths;
  for (const auto* path : {&photo, &pairedVideo, &video}) {
    if (*path) paths.push_back(**path);
  }
  return paths;
}

void to_json(nlohmann::json& json, const ImportSummary& summary) { summaryToJSON(json, summary); }
void from_json(const nlohmann::json& json, ImportSummary& summary) {
  summaryFromJSON(json, summary);
}
void to_json(nlohmann::ordered_json& json, const ImportSummary& summary) {
  summaryToJSON(json, summary);
}
void from_json(const nlohmann::ordered_json& json, ImportSummary& summary) {
  summaryFromJSON(json, summary);
}

PhotosImportError::PhotosImportError(Kind kind, std::string address, std::string reason,
                                     const std::string& message)
    : std::runtime_error(message),
      kind_(kind),
      address_(std::move(address)),
      reason_(std::move(reason)) {}

PhotosImportError PhotosImportError::notAuthorized(const std::string& library,
                                                   const std::string& address, std::string reason) {
  return {Kind::notAuthorized, address, std::move(reason),
          "Quillmere couldn't sign in to " + library + " at " + address +
              ". Check the server address and API key (it needs the asset and album "
              "permissions), then try again."};
}

namespace PhotosImporter {

nlohmann::json recordJSON(const Record& record) {
  nlohmann::json json = nlohmann::json::object();
  if (record.folderID) json["folderID"] = *record.folderID;
  if (record.folderTitle) json["folderTitle"] = *record.folderTitle;
  json["albumIDs"] = record.albumIDs;
  json["assets"] = record.assets;
  return json;
}

Record recordFromJSON(const nlohmann::json& json) {
  if (!json.is_object()) return {};
  auto albumIDs = stringMap(json, "albumIDs");
  auto assets = stringMap(json, "assets");
  if (!albumIDs || !assets) return {};
  Record record;
  record.folderID = optionalString(json, "folderID");
  record.folderTitle = optionalString(json, "folderTitle");
  record.albumIDs = std::move(*albumIDs);
  record.assets = std::move(*assets);
  return record;
}

Record readRecord(const fs::path& reportFolder) {
  const auto text = readWhole(reportFolder / recordFileName);
  if (!text) return {};
  const auto json = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded()) return {};
  return recordFromJSON(json);
}

bool saveRecord(const Record& record, const fs::path& reportFolder) {
  return writeAtomically(reportFolder / recordFileName, recordJSON(record).dump(2) + "\n");
}

std::string logField(std::string_view text) {
  std::string field;
  if (!text.empty() && std::string_view("=+-@").find(text.front()) != std::string_view::npos) {
    field = "'";
  }
  field += text;
  if (field.find_first_of(",\"\n\r") == std::string::npos) return field;
  std::string quoted = "\"";
  for (const char c : field) {
    quoted += c;
    if (c == '"') quoted += '"';
  }
  quoted += '"';
  return quoted;
}

bool appendLog(const std::vector<LogLine>& lines, const fs::path& reportFolder) {
  const fs::path file = reportFolder / logFileName;
  std::string text;
  if (const auto old = readWhole(file); old && !old->empty() && UnicodeText::isValidUTF8(*old)) {
    text = *old;
  } else {
    text = "file,outcome,note\n";
  }
  for (const LogLine& line : lines) {
    text += logField(line.file) + "," + (line.imported ? "imported" : "failed") + "," +
            logField(line.note) + "\n";
  }
  return writeAtomically(file, text);
}

}  // namespace PhotosImporter
}  // namespace quillmere
