#include "tests/support/media_fixtures.h"

#include <stdexcept>

#include "tests/support/run_command.h"

namespace quillmere::testing {
namespace {

void run(const std::vector<std::string>& argv) {
  const CommandResult result = runCommand(argv);
  if (result.exitCode != 0) {
    throw std::runtime_error(argv[0] + " failed (" + std::to_string(result.exitCode) +
                             "): " + result.err);
  }
}

}  // namespace

void makePhoto(const std::filesystem::path& path, PhotoFormat format, int width, int height,
               bool noisy) {
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  std::vector<std::string> source = {"convert", "-size", size};
  if (noisy) {
    source.insert(source.end(), {"-seed", "1", "xc:gray", "-channel", "RGB", "+noise", "Random"});
  } else {
    source.push_back("gradient:#d08030-#3050a0");
  }
  std::vector<std::string> command = source;
  switch (format) {
    case PhotoFormat::jpeg:
      command.insert(command.end(), {"-quality", "92", "jpeg:" + path.string()});
      run(command);
      return;
    case PhotoFormat::png:
      command.push_back("png:" + path.string());
      run(command);
      return;
    case PhotoFormat::tiff:
      command.insert(command.end(), {"-depth", "8", "tiff:" + path.string()});
      run(command);
      return;
    case PhotoFormat::webp:
      command.push_back("webp:" + path.string());
      run(command);
      return;
    case PhotoFormat::heic: {
      const std::filesystem::path png = path.string() + ".source.png";
      command.push_back("png:" + png.string());
      run(command);
      run({"heif-enc", "-p", "preset=ultrafast", "-q", "60", "-o", path.string(), png.string()});
      std::filesystem::remove(png);
      return;
    }
  }
}

void makeMovie(const std::filesystem::path& path, int width, int height,
               const std::vector<std::pair<std::string, std::string>>& metadata, bool fastStart) {
  std::vector<std::string> command = {
      "ffmpeg",
      "-v",
      "error",
      "-y",
      "-f",
      "lavfi",
      "-i",
      "testsrc=size=" + std::to_string(width) + "x" + std::to_string(height) + ":rate=10",
      "-t",
      "1",
      "-pix_fmt",
      "yuv420p"};
  for (const auto& [key, value] : metadata) {
    command.insert(command.end(), {"-metadata", key + "=" + value});
  }
  if (fastStart) command.insert(command.end(), {"-movflags", "+faststart"});
  command.push_back(path.string());
  run(command);
}

void writeTags(const TagEdit& edit) {
  std::vector<std::string> command = {"exiftool", "-q", "-q", "-m", "-overwrite_original"};
  command.insert(command.end(), edit.arguments.begin(), edit.arguments.end());
  command.push_back(edit.file.string());
  run(command);
}

std::map<std::string, nlohmann::json> readTags(const std::vector<std::filesystem::path>& files) {
  std::vector<std::string> command = {"exiftool", "-json", "-n", "-a", "-G1"};
  for (const auto& file : files) command.push_back(file.string());
  const CommandResult result = runCommand(command);
  // exiftool exits with 1 when some file has no readable tags; the JSON still lists it.
  const nlohmann::json all = nlohmann::json::parse(result.out);
  std::map<std::string, nlohmann::json> byFile;
  for (const nlohmann::json& entry : all) byFile[entry.at("SourceFile")] = entry;
  return byFile;
}

std::vector<std::pair<std::string, std::string>> movieTags(const std::filesystem::path& file) {
  const CommandResult result =
      runCommand({"ffprobe", "-v", "error", "-of", "json", "-show_format", file.string()});
  if (result.exitCode != 0) throw std::runtime_error("ffprobe failed: " + result.err);
  const nlohmann::ordered_json format = nlohmann::ordered_json::parse(result.out).at("format");
  std::vector<std::pair<std::string, std::string>> tags;
  if (const auto found = format.find("tags"); found != format.end()) {
    for (const auto& [key, value] : found->items())
      tags.emplace_back(key, value.get<std::string>());
  }
  return tags;
}

}  // namespace quillmere::testing
