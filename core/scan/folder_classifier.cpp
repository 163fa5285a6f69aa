#include "core/scan/folder_classifier.h"

#include <algorithm>
#include <array>
#include <vector>

#include "core/sources/unicode_text.h"

namespace quillmere::FolderClassifier {
namespace {

constexpr std::array<std::string_view, 12> kSpecial = {
    "trash",     "bin",      "archive",  "locked folder", "papierkorb", "archiv",
    "corbeille", "archives", "papelera", "archivo",       "cestino",    "archivio"};

// Lower case; the first is the bare year.
constexpr std::array<std::string_view, 13> kYearPrefixes = {
    "",           "photos from", "fotos von",  "photos de",    "fotos de",       "foto dal",
    "foto's uit", "zdjęcia z",   "fotos från", "billeder fra", "kuvat vuodelta", "foto del",
    "fotky z"};

std::string_view lastComponent(std::string_view folder) {
  const std::size_t slash = folder.rfind('/');
  return slash == std::string_view::npos ? folder : folder.substr(slash + 1);
}

std::string_view trimSpacesAndTabs(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isYear(std::string_view piece) {
  if (piece.size() != 4) return false;
  if (!std::all_of(piece.begin(), piece.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return false;
  }
  const int year = std::stoi(std::string(piece));
  return year >= 1800 && year <= 2100;
}

}  // namespace

bool isYearFolder(std::string_view folder) {
  const std::string_view component = lastComponent(folder);
  std::vector<std::string_view> pieces;
  for (std::size_t start = 0; start <= component.size();) {
    std::size_t space = component.find(' ', start);
    if (space == std::string_view::npos) space = component.size();
    if (space > start) pieces.push_back(component.substr(start, space - start));
    start = space + 1;
  }
  if (pieces.empty() || !isYear(pieces.back())) return false;
  // The last four characters of the whole component: a trailing space leaves digits behind.
  const std::string_view tail = UnicodeText::lastGraphemes(component, 4);
  const std::string prefix = UnicodeText::lowercased(
      trimSpacesAndTabs(component.substr(0, component.size() - tail.size())));
  return std::find(kYearPrefixes.begin(), kYearPrefixes.end(), prefix) != kYearPrefixes.end();
}

FolderRole classify(std::string_view folder, const std::optional<TakeoutAlbumInfo>& albumInfo) {
  if (folder.empty()) return FolderRole::root();
  if (albumInfo) return FolderRole::album(albumInfo->title);
  if (isYearFolder(folder)) return FolderRole::year();
  const std::string lower = UnicodeText::lowercased(folder);
  if (std::find(kSpecial.begin(), kSpecial.end(), lower) != kSpecial.end()) {
    return FolderRole::special(std::string(folder));
  }
  return FolderRole::album(std::string(lastComponent(folder)));
}

}  // namespace quillmere::FolderClassifier
