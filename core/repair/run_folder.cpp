#include "core/repair/run_folder.h"

#include <chrono>

#include "core/dates/exif_date.h"
#include "core/dates/time_zone.h"
#include "core/sources/quillmere_error.h"

namespace quillmere::RepairEngine {
namespace {

std::string canonicalFolderText(const std::filesystem::path& path) {
  std::string text = std::filesystem::weakly_canonical(std::filesystem::absolute(path)).string();
  if (!text.ends_with('/')) text += '/';
  return text;
}

}  // namespace

void checkOutsideSources(const std::filesystem::path& destination,
                         const std::vector<std::filesystem::path>& inputs) {
  const std::string target = canonicalFolderText(destination);
  for (const auto& input : inputs) {
    std::error_code error;
    if (!std::filesystem::is_directory(input, error)) continue;
    // The trailing "/" keeps /a/b from matching /a/bc.
    if (target.starts_with(canonicalFolderText(input))) {
      throw QuillmereError::outputInsideSource(destination.string());
    }
  }
}

std::string runFolderName(double now) {
  const auto zone = TimeZone::current();
  // "yyyy:MM:dd HH:mm:ss" → "yyyy-MM-dd HHmm"
  std::string local = ExifDate::format(now, zone ? zone->offsetSeconds(now) : 0);
  const std::size_t space = local.find(' ');
  std::string day = local.substr(0, space);
  for (char& c : day) {
    if (c == ':') c = '-';
  }
  return "Quillmere Repair " + day + " " + local.substr(space + 1, 2) + local.substr(space + 4, 2);
}

std::filesystem::path makeRunFolder(const std::filesystem::path& destination) {
  const double now =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const std::string base = runFolderName(now);
  const auto parent = std::filesystem::absolute(destination);
  std::filesystem::create_directories(parent);
  for (std::int64_t n = 1;; ++n) {
    const auto folder = parent / (n == 1 ? base : base + " (" + std::to_string(n) + ")");
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(folder, error))) continue;
    // create_directory answers false when another run took the name in between.
    if (std::filesystem::create_directory(folder)) return folder;
  }
}

}  // namespace quillmere::RepairEngine
