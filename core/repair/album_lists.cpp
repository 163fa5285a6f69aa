#include "core/repair/album_lists.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <system_error>

#include "core/repair/output_naming.h"
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

[[noreturn]] void throwErrno(const std::string& what, const std::filesystem::path& path) {
  throw std::filesystem::filesystem_error(what, path, std::error_code(errno, std::generic_category()));
}

// Writes `text` to `temp` in full and flushes it to the disk, then renames it to `target`.
void writeAtomically(const std::string& text, const std::filesystem::path& temp,
                     const std::filesystem::path& target) {
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) throwErrno("Couldn't write the album list", temp);
  std::size_t written = 0;
  bool ok = true;
  while (ok && written < text.size()) {
    const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) written += static_cast<std::size_t>(n);
  }
  ok = ok && ::fsync(fd) == 0;
  const int savedErrno = ok ? 0 : (errno != 0 ? errno : EIO);
  ::close(fd);
  std::error_code ignored;
  if (!ok) {
    std::filesystem::remove(temp, ignored);
    errno = savedErrno;
    throwErrno("Couldn't write the album list", target);
  }
  std::error_code error;
  std::filesystem::rename(temp, target, error);
  if (error) {
    std::filesystem::remove(temp, ignored);
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
    writeAtomically(albumListText(album, lists.at(album)), temp, folder / fileName);
  }
}

}  // namespace quillmere::RepairEngine
