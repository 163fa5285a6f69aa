#include "tests/support/media_fixtures.h"

#include <stdexcept>

#include "tests/support/run_command.h"

namespace quillmere::testing {
namespace {

CommandResult run(const std::vector<std::string>& argv) {
  CommandResult result = runCommand(argv);
  if (result.exitCode != 0) {
    throw std::runtime_error(argv[0] + " failed (" + std::to_string(result.exitCode) +
                             "): " + result.err);
  }
  return result;
}

}  // namespace

void makePhoto(const std::filesystem::path& path, PhotoFormat format, int width, int height,
               bool noisy) {
  std::vector<std::string> command = {"convert", "-size",
                                      std::to_string(width) + "x" + std::to_string(height)};
  if (noisy) {
    command.insert(command.end(), {"-seed", "1", "xc:gray", "-channel", "RGB", "+noise", "Random"});
  } else {
    command.push_back("gradient:#d08030-#3050a0");
  }
  if (format == PhotoFormat::jpeg) command.insert(command.end(), {"-quality", "92"});
  if (format == PhotoFormat::tiff) command.insert(command.end(), {"-depth", "8"});
  // ImageMagick's output formats, by PhotoFormat; HEIC goes through a PNG for heif-enc.
  static const char* const kOutputs[] = {"jpeg:", "png:", "png:", "tiff:", "webp:"};
  const bool heic = format == PhotoFormat::heic;
  const std::filesystem::path output =
      heic ? std::filesystem::path(path.string() + ".source.png") : path;
  command.push_back(kOutputs[static_cast<int>(format)] + output.string());
  run(command);
  if (!heic) return;
  run({"heif-enc", "-p", "preset=ultrafast", "-q", "60", "-o", path.string(), output.string()});
  std::filesystem::remove(output);
}

void makeMovie(const std::filesystem::path& path, int width, int height,
               const std::vector<std::pair<std::string, std::string>>& metadata, bool fastStart) {
  const std::string source =
      "testsrc=size=" + std::to_string(width) + "x" + std::to_string(height) + ":rate=10";
  std::vector<std::string> command = {"ffmpeg", "-v",   "error", "-y", "-f",       "lavfi",
                                      "-i",     source, "-t",    "1",  "-pix_fmt", "yuv420p"};
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

std::vector<std::pair<std::string, std::string>> movieTags(const std::filesystem::path& file) {
  const std::string out =
      run({"ffprobe", "-v", "error", "-of", "json", "-show_format", file.string()}).out;
  const auto listed = nlohmann::ordered_json::parse(out).at("format").value(
      "tags", nlohmann::ordered_json::object());
  std::vector<std::pair<std::string, std::string>> tags;
  for (const auto& [key, value] : listed.items()) tags.emplace_back(key, value.get<std::string>());
  return tags;
}

}  // namespace quillmere::testing
