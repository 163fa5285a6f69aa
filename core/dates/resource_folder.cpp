#include "core/dates/resource_folder.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

namespace quillmere::ResourceFolder {
namespace fs = std::filesystem;

namespace {

// The running program's folder; empty when the system can't tell.
fs::path executableFolder() {
  std::error_code error;
  const fs::path executable = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::path() : executable.parent_path();
}

bool isInside(const fs::path& folder, const fs::path& root) {
  if (root.empty()) return false;
  return std::mismatch(root.begin(), root.end(), folder.begin(), folder.end()).first == root.end();
}

}  // namespace

std::vector<fs::path> candidates() {
  if (const char* override = std::getenv("QUILLMERE_RESOURCES"); override && *override) {
    return {fs::path(override)};
  }
  std::vector<fs::path> folders;
  const fs::path sourceResources = fs::path(QUILLMERE_SOURCE_RESOURCES).lexically_normal();
  const fs::path sourceRoot = sourceResources.parent_path();
  const fs::path executable = executableFolder();
  if (!executable.empty()) {
    folders.push_back(executable / "resources");
    for (fs::path folder = executable.parent_path();
         isInside(folder, sourceRoot) && folder != folder.parent_path();
         folder = folder.parent_path()) {
      folders.push_back(folder / "resources");
    }
    folders.push_back((executable / ".." / "share" / "quillmere").lexically_normal());
  }
  folders.emplace_back(QUILLMERE_INSTALL_RESOURCES);
  folders.push_back(sourceResources);
  return folders;
}

Lookup find(std::string_view fileName, const std::vector<fs::path>& folders) {
  for (const fs::path& folder : folders) {
    std::error_code error;
    const fs::path file = folder / fileName;
    if (fs::is_regular_file(file, error)) return {file, ""};
  }
  std::string error = "Quillmere's data file " + std::string(fileName) + " is missing. Looked in:";
  for (const fs::path& folder : folders) error += "\n  " + folder.string();
  if (folders.empty()) error += " nowhere";
  error += "\nReinstall Quillmere, or set QUILLMERE_RESOURCES to the folder that holds " +
           std::string(fileName) + ".";
  return {std::nullopt, error};
}

}  // namespace quillmere::ResourceFolder
