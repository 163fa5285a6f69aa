#include "core/repair/album_lists.h"

#include <set>

#include "core/repair/output_naming.h"
#include "core/sources/file_io.h"
#include "core/sources/unicode_text.h"

namespace quillmere::RepairEngine {
namespace {

std::string safeBaseName(std::string_view album) {
  std::string name(album);
  for (char& c : name) {
    if (c == '/' || c == ':') c = '-';
  }
  if (name.starts_with('.')) name.insert(0, "_");
  return name;
}

// Writes `text` completely inside the work folder first, so that a killed run never leaves a
// partial list among the output.
void writeListThroughWork(const std::string& text, const std::filesystem::path& staged,
                          const std::filesystem::path& target) {
  FileIO::writeFile(staged,
                    std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                    /*exclusive=*/false);
  std::error_code error;
  std::filesystem::rename(staged, target, error);
  if (error) {
    std::error_code ignored;
    std::filesystem::remove(staged, ignored);
    throw std::filesystem::filesystem_error("Couldn't write the album list", target, error);
  }
}

}  // namespace

std::vector<std::pair<std::string, std::string>> albumFileNames(const AlbumLists& lists) {
  std::vector<std::pair<std::string, std::string>> names;
  std::set<std::string> used;
  const NameParts txt{"", "txt", true};
  for (const auto& [album, paths] : lists) {
    if (paths.empty()) continue;
    const std::string base = safeBaseName(album);
    std::string name = fittedName(base, "", txt);
    for (std::size_t n = 2; used.contains(UnicodeText::lowercased(name)); ++n) {
      name = fittedName(base, numberSuffix(n), txt);
    }
    used.insert(UnicodeText::lowercased(name));
    names.emplace_back(album, std::move(name));
  }
  return names;
}

std::string albumListText(std::string_view album, const std::vector<std::string>& paths) {
  std::string text = "# " + std::string(album) + "\n";
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (i > 0) text += "\n";
    text += "../" + paths[i];
  }
  return text;
}

void writeAlbums(const AlbumLists& lists, const std::filesystem::path& runFolder) {
  const auto names = albumFileNames(lists);
  if (names.empty()) return;
  const std::filesystem::path folder = runFolder / "Albums";
  std::filesystem::create_directories(folder);
  const std::filesystem::path work = runFolder / ".work";
  std::filesystem::create_directories(work);
  int index = 0;
  for (const auto& [album, fileName] : names) {
    const auto temp = work / ("album-" + std::to_string(index++) + ".txt");
    writeListThroughWork(albumListText(album, lists.at(album)), temp, folder / fileName);
  }
}

}  // namespace quillmere::RepairEngine
