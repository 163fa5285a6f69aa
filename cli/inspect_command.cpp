#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "core/dates/iso_date.h"
#include "core/metadata/embedded_metadata_reader.h"
#include "core/sources/file_io.h"
#include "core/sources/media_kind.h"

namespace quillmere::cli {
namespace {

constexpr const char* kInspectHelp =
    "Usage: quillmere-cli inspect FILE...\n"
    "\n"
    "Shows what photos and movies already carry, read the way a repair reads them. Prints one\n"
    "JSON object per file and line:\n"
    "\n"
    "  {\"file\": ..., \"kind\": \"photo\" | \"video\" | \"other\", \"metadata\": {\n"
    "     \"captureDate\": {\"local\": \"2021:03:04 10:05:00\", \"offsetSeconds\": 7200}\n"
    "                  or {\"absolute\": \"2021-03-04T09:05:00Z\", \"offsetSeconds\": 3600},\n"
    "     \"location\": {\"latitude\": ..., \"longitude\": ..., \"altitude\": ...},\n"
    "     \"caption\": ..., \"keywords\": [...], \"pixelWidth\": ..., \"pixelHeight\": ...}}\n"
    "\n"
    "The kind comes from the file's extension, as in a scan; a photo's format is then told by\n"
    "its content. Whatever a file does not state is null (offsetSeconds, altitude too), and\n"
    "\"metadata\" is null when the file can't be read as the kind it claims to be.\n"
    "Nothing is changed.\n"
    "\n"
    "A file that doesn't exist or can't be opened is named on stderr (exit status 1).\n";

using Json = nlohmann::ordered_json;

Json optional(const auto& value) { return value ? Json(*value) : Json(nullptr); }

// ISO 8601 in UTC with a "Z", to the second.
std::string utcText(double instant) {
  std::string text = ISODate::format(instant, 0);
  return text.substr(0, text.size() - 5) + "Z";  // "+0000"
}

Json captureDateJson(const EmbeddedMetadata::CaptureDate& date) {
  Json json = Json::object();
  if (const auto* local = date.asLocal()) {
    json["local"] = local->text;
  } else {
    json["absolute"] = utcText(date.asAbsolute()->date);
  }
  json["offsetSeconds"] = optional(date.offsetSeconds());
  return json;
}

Json metadataJson(const EmbeddedMetadata& metadata) {
  Json json = Json::object();
  json["captureDate"] =
      metadata.captureDate ? captureDateJson(*metadata.captureDate) : Json(nullptr);
  if (metadata.location) {
    json["location"] = {{"latitude", metadata.location->latitude},
                        {"longitude", metadata.location->longitude},
                        {"altitude", optional(metadata.location->altitude)}};
  } else {
    json["location"] = nullptr;
  }
  json["caption"] = optional(metadata.caption);
  json["keywords"] = metadata.keywords;
  json["pixelWidth"] = optional(metadata.pixelWidth);
  json["pixelHeight"] = optional(metadata.pixelHeight);
  return json;
}

// Says on stderr why `file` can't be read, if it can't; true when it can.
bool canOpen(const std::string& file) {
  std::error_code error;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file, error))) {
    std::fprintf(stderr, "quillmere-cli: no such file or folder: %s\n", file.c_str());
    return false;
  }
  try {
    if (FileDescriptor::openForReading(file).status().regular) return true;
    std::fprintf(stderr, "quillmere-cli: couldn't open %s: %s\n", file.c_str(),
                 std::strerror(EISDIR));
  } catch (const std::system_error& failure) {
    std::fprintf(stderr, "quillmere-cli: couldn't open %s: %s\n", file.c_str(),
                 std::strerror(failure.code().value()));
  }
  return false;
}

}  // namespace

int runInspect(std::span<const std::string> args) {
  const Arguments split = splitArguments(args);
  for (const std::string& option : split.options) {
    if (option == "--help" || option == "-h") {
      std::fputs(kInspectHelp, stdout);
      return kExitOk;
    }
    return unknownOption("inspect", option);
  }
  const std::vector<std::string>& files = split.inputs;
  if (files.empty()) {
    std::fputs(kInspectHelp, stderr);
    return kExitFailed;
  }
  int status = kExitOk;
  for (const std::string& file : files) {
    if (!canOpen(file)) status = kExitDamaged;
    const MediaKind kind = mediaKindOf(file);
    const std::optional<EmbeddedMetadata> metadata = EmbeddedMetadataReader::read(file, kind);
    Json line = Json::object();
    line["file"] = file;
    line["kind"] = rawValue(kind);
    line["metadata"] = metadata ? metadataJson(*metadata) : Json(nullptr);
    // Names and texts from files need not be UTF-8; JSON must be.
    std::puts(line.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
  }
  std::fflush(stdout);
  return status;
}

}  // namespace quillmere::cli
