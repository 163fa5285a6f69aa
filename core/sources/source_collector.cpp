#include "core/sources/source_collector.h"

#include <algorithm>
#include <memory>

#include "core/sources/folder_file.h"
#include "core/sources/zip_archive.h"
#include "core/sources/zip_entry_file.h"

namespace quillmere::SourceCollector {
namespace {

namespace fs = std::filesystem;

bool hasZipExtension(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".zip";
}

bool startsWith(const std::string& text, std::string_view prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Names inside a zip are whatever its maker wrote. "." and ".." are dropped, so a logical path
// never climbs out of the export, and NUL (which no file name can hold) becomes U+FFFD.
void addComponent(std::string component, std::vector<std::string>& components) {
  if (component == "." || component == "..") return;
  for (std::size_t nul = component.find('\0'); nul != std::string::npos;
       nul = component.find('\0', nul)) {
    component.replace(nul, 1, "\uFFFD");
  }
  components.push_back(std::move(component));
}

void collectZip(const fs::path& zip, std::vector<SourceFilePtr>& out) {
  auto archive = std::make_shared<ZipArchive>(zip);
  // The files keep their own records; the archive's copy of the directory would be dead weight.
  for (ZipArchive::Entry& entry : archive->takeEntries()) {
    if (entry.isDirectory()) continue;
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start <= entry.path.size()) {
      std::size_t slash = entry.path.find('/', start);
      if (slash == std::string::npos) slash = entry.path.size();
      if (slash > start) addComponent(entry.path.substr(start, slash - start), components);
      start = slash + 1;
    }
    if (components.empty()) continue;
    // Resource forks added by desktop archivers.
    if (std::find(components.begin(), components.end(), "__MACOSX") != components.end()) continue;
    if (startsWith(components.back(), "._")) continue;
    out.push_back(
        std::make_shared<ZipEntryFile>(archive, std::move(entry), logicalPath(components)));
  }
}

// Lists one folder's visible items sorted by name; a folder that can't be listed yields none.
std::vector<fs::directory_entry> listFolder(const fs::path& folder) {
  std::vector<fs::directory_entry> items;
  std::error_code error;
  fs::directory_iterator it(folder, error);
  for (; !error && it != fs::directory_iterator(); it.increment(error)) {
    if (startsWith(it->path().filename().string(), ".")) continue;  // hidden
    items.push_back(*it);
  }
  std::sort(items.begin(), items.end(),
            [](const auto& a, const auto& b) { return a.path().filename() < b.path().filename(); });
  return items;
}

void walkFolder(const fs::path& folder, std::vector<std::string>& components,
                std::vector<SourceFilePtr>& out) {
  for (const fs::directory_entry& item : listFolder(folder)) {
    // Links are neither followed nor collected, which also keeps cycles out of the walk.
    const fs::file_status status = item.symlink_status();  // throws when unreadable
    const bool regular = fs::is_regular_file(status);
    components.push_back(item.path().filename().string());
    if (regular && hasZipExtension(item.path())) {
      collectZip(item.path(), out);
    } else if (regular) {
      std::error_code error;
      const std::uintmax_t size = fs::file_size(item.path(), error);
      out.push_back(std::make_shared<FolderFile>(item.path(), logicalPath(components),
                                                 error ? 0 : static_cast<std::int64_t>(size)));
    } else if (fs::is_directory(status)) {
      walkFolder(item.path(), components, out);
    }
    components.pop_back();
  }
}

}  // namespace

std::vector<SourceFilePtr> collect(const std::vector<fs::path>& inputs) {
  std::vector<SourceFilePtr> files;
  for (const fs::path& input : inputs) {
    std::error_code error;
    const fs::file_status status = fs::status(input, error);
    if (error || !fs::exists(status)) continue;
    if (fs::is_directory(status)) {
      std::vector<std::string> components;
      walkFolder(input, components, files);
    } else if (hasZipExtension(input)) {
      collectZip(input, files);
    }
  }
  return files;
}

std::string logicalPath(const std::vector<std::string>& components) {
  std::size_t first = 0;
  const auto takeout = std::find_if(components.begin(), components.end(), [](const auto& c) {
    return c == "Takeout" || startsWith(c, "Takeout ") || startsWith(c, "Takeout-");
  });
  const auto k = static_cast<std::size_t>(takeout - components.begin());
  if (takeout != components.end() && components.size() > k + 2) {
    first = k + 2;
  } else if (!components.empty() && startsWith(components.front(), "Google ") &&
             components.size() > 1) {
    first = 1;
  }
  std::string path;
  for (std::size_t i = first; i < components.size(); ++i) {
    if (!path.empty()) path += '/';
    path += components[i];
  }
  return path;
}

}  // namespace quillmere::SourceCollector
