#include "tests/support/photo_checks.h"

#include <openssl/evp.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace quillmere::testing {
namespace {

std::string sha256(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex += kHex[digest[i] >> 4];
    hex += kHex[digest[i] & 15];
  }
  return hex;
}

std::vector<long long> numbers(const nlohmann::json& value) {
  std::vector<long long> result;
  if (value.is_number()) return {value.get<long long>()};
  std::istringstream words(value.is_string() ? value.get<std::string>() : std::string());
  for (long long number = 0; words >> number;) result.push_back(number);
  return result;
}

// Tags that say where a block of the file starts, with the tag that says how long it is.
constexpr std::pair<const char*, const char*> kBlocks[] = {
    {"StripOffsets", "StripByteCounts"},     {"TileOffsets", "TileByteCounts"},
    {"ThumbnailOffset", "ThumbnailLength"},  {"PreviewImageStart", "PreviewImageLength"},
    {"JpgFromRawStart", "JpgFromRawLength"}, {"OtherImageStart", "OtherImageLength"},
};

bool isDescriptive(const std::string& key) {
  return key.starts_with("System:") || key.starts_with("File:") ||
         key == "ExifTool:ExifToolVersion" || key == "SourceFile";
}

// Where a block lies in the file moves when the blocks before it grow; what it holds is
// compared by pixelHash and imageDataHashes.
bool isPosition(const std::string& name) {
  return name.ends_with("Offset") || name.ends_with("Offsets") || name.ends_with("Start");
}

// The header and pixel chunks of a PNG (IHDR, PLTE, tRNS, IDAT).
std::string pngPixels(const std::filesystem::path& png) {
  std::ifstream in(png, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const auto byte = [&](std::size_t at) {
    return std::size_t{static_cast<unsigned char>(bytes[at])};
  };
  std::string pixels;
  for (std::size_t at = 8; at + 12 <= bytes.size();) {
    const std::size_t length =
        byte(at) << 24 | byte(at + 1) << 16 | byte(at + 2) << 8 | byte(at + 3);
    const std::string type = bytes.substr(at + 4, 4);
    if (length > bytes.size() - at - 12) break;
    if (type == "IHDR" || type == "PLTE" || type == "tRNS" || type == "IDAT") {
      pixels.append(bytes, at + 4, length + 4);
    }
    at += length + 12;
  }
  return pixels;
}

}  // namespace

std::filesystem::path sharedSamples() {
  const char* folder = std::getenv("QUILLMERE_SAMPLES");
  if (folder != nullptr && *folder != '\0') return folder;
  return std::filesystem::path(QUILLMERE_SOURCE_DIR) / ".." / "shared" / "samples";
}

std::string testName(std::string name) {
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

nlohmann::json exiftoolTags(const std::filesystem::path& file) {
  const CommandResult result = runCommand({"exiftool", "-a", "-G1", "-n", "-json", file.string()});
  if (result.out.empty()) throw std::runtime_error("exiftool failed: " + result.err);
  return nlohmann::json::parse(result.out).at(0);
}

std::vector<std::string> changedTags(const nlohmann::json& before, const nlohmann::json& after,
                                     const std::set<std::string>& written) {
  std::vector<std::string> changed;
  const auto consider = [&](const std::string& key) {
    if (isDescriptive(key)) return;
    const std::string name = key.substr(key.find(':') + 1);
    if (written.count(name) != 0 || isPosition(name)) return;
    // An empty text says nothing, and a warning that is gone (a stale IPTC digest, made
    // current) reports damage no longer there.
    if (!after.contains(key) && (before.at(key) == "" || name == "Warning")) return;
    if (!before.contains(key) || !after.contains(key) || before.at(key) != after.at(key)) {
      changed.push_back(key);
    }
  };
  for (const auto& [key, value] : before.items()) consider(key);
  for (const auto& [key, value] : after.items()) {
    if (!before.contains(key)) consider(key);
  }
  return changed;
}

const std::set<std::string>& writtenTagNames() {
  static const std::set<std::string> names = {
      "DateTimeOriginal", "CreateDate", "DateTimeDigitized", "OffsetTimeOriginal",
      "OffsetTimeDigitized", "DateCreated", "TimeCreated", "DateTimeCreated",
      "SubSecDateTimeOriginal", "SubSecCreateDate", "GPSVersionID", "GPSLatitude", "GPSLatitudeRef",
      "GPSLongitude", "GPSLongitudeRef", "GPSAltitude", "GPSAltitudeRef", "GPSPosition",
      "ImageDescription", "Caption-Abstract", "Description", "Keywords", "Subject",
      "CodedCharacterSet", "XMPToolkit", "ApplicationRecordVersion", "EnvelopeRecordVersion",
      "CurrentIPTCDigest", "IPTCDigest", "WebP_Flags",
      // A HEIF rewrite gives the metadata items an 'mdat'
      // of their own, and the XMP toolkit moves a packet's
      // "uuid:" rdf:about into xmpMM:InstanceID.
      "MediaDataSize", "AvgBitrate", "About", "InstanceID"};
  return names;
}

std::string pixelHash(const std::filesystem::path& file) {
  const CommandResult result = runCommand({"convert", file.string(), "-depth", "8", "rgba:-"});
  if (result.exitCode != 0 || result.out.empty()) return {};
  return sha256(result.out);
}

std::string heifPixels(const std::filesystem::path& file) {
  const TempDir folder;
  const CommandResult result =
      runCommand({"heif-convert", file.string(), (folder / "image.png").string()});
  if (result.exitCode != 0) return "not decoded: " + result.err;
  std::string pixels;
  for (const std::filesystem::path& image : filesIn(folder.path())) {
    pixels += image.filename().string() + pngPixels(image);
  }
  return sha256(pixels);
}

std::map<std::string, std::string> imageDataHashes(const std::filesystem::path& file) {
  const nlohmann::json tags = exiftoolTags(file);
  std::ifstream in(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::map<std::string, std::string> hashes;
  for (const auto& [key, value] : tags.items()) {
    for (const auto& [start, length] : kBlocks) {
      const std::string suffix = std::string(":") + start;
      if (!key.ends_with(suffix)) continue;
      const std::string group = key.substr(0, key.size() - suffix.size());
      const auto counts = tags.find(group + ":" + length);
      if (counts == tags.end()) continue;
      const std::vector<long long> offsets = numbers(value), lengths = numbers(*counts);
      std::string data;
      for (std::size_t i = 0; i < offsets.size() && i < lengths.size(); ++i) {
        if (offsets[i] < 0 || lengths[i] < 0 ||
            static_cast<std::size_t>(offsets[i] + lengths[i]) > bytes.size()) {
          data += "<outside the file>";
          continue;
        }
        data.append(bytes, static_cast<std::size_t>(offsets[i]),
                    static_cast<std::size_t>(lengths[i]));
      }
      hashes[group + " " + start] = sha256(data);
    }
  }
  return hashes;
}

}  // namespace quillmere::testing
