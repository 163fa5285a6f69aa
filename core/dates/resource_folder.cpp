#include "core/dates/resource_folder.h"

#include <algorithm>
#include <cstdio>
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
  std::vector<fs::path> folders;
  if (const char* override = std::getenv("QUILLMERE_RESOURCES"); override && *override) {
    folders.emplace_back(override);
  }
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

std::optional<fs::path> firstExisting(const std::vector<fs::path>& folders) {
  for (const fs::path& folder : folders) {
    std::error_code error;
    if (fs::is_directory(folder, error)) return folder;
  }
  return std::nullopt;
}

fs::path locate() {
  if (std::optional<fs::path> folder = firstExisting(candidates())) return *folder;
  std::fputs("unable to find bundle named Quillmere_QuillmereCore\n", stderr);
  std::abort();
}

}  // namespace quillmere::ResourceFolder
