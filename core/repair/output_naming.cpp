#include "core/repair/output_naming.h"

#include "core/dates/exif_date.h"
#include "core/sources/unicode_text.h"

namespace quillmere::RepairEngine {

NameParts splitName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {std::string(name), "", false};
  return {std::string(name.substr(0, dot)), std::string(name.substr(dot + 1)), true};
}

std::string fittedName(std::string_view stem, std::string_view suffix, const NameParts& rest) {
  const std::string tail =
      std::string(suffix) + (rest.hasExtension ? "." + rest.extension : std::string());
  std::size_t keep = stem.size();
  if (keep + tail.size() > kMaxNameBytes) {
    keep = tail.size() < kMaxNameBytes ? kMaxNameBytes - tail.size() : 0;
    // Never cut a character (or a letter from its accent) in half.
    while (keep > 0 && !UnicodeText::isGraphemeBoundary(stem, keep)) --keep;
  }
  return std::string(stem.substr(0, keep)) + tail;
}

std::string numberSuffix(std::size_t n) {
  return n == 1 ? std::string() : " (" + std::to_string(n) + ")";
}

std::string datedFolder(const DateDecision& decision) {
  if (!decision.utc) return "Photos/Undated";
  // "yyyy:MM:dd HH:mm:ss"; a year past 9999 takes more digits, so split at the colons.
  const std::string local = ExifDate::format(*decision.utc, decision.offsetSeconds.value_or(0));
  const std::size_t colon = local.find(':');
  const std::string year = local.substr(0, colon);
  const std::string month = local.substr(colon + 1, 2);
  return "Photos/" + year + "/" + year + "-" + month;
}

std::vector<std::string> uniqueNames(const std::vector<std::string>& wanted,
                                     const std::string& folder, UsedNames& used) {
  std::set<std::string>& taken = used[folder];
  std::vector<NameParts> parts;
  parts.reserve(wanted.size());
  for (const std::string& name : wanted) parts.push_back(splitName(name));
  // Beyond this many numbers only names of the item that clash with each other whatever the
  // number (same name in other letter case, or long names cut to the same stem) can be left.
  const std::size_t shared = taken.size() + wanted.size() + 2;
  for (std::size_t n = 1; n <= shared; ++n) {
    std::vector<std::string> names;
    std::set<std::string> folded;
    for (const NameParts& name : parts) {
      names.push_back(fittedName(name.stem, numberSuffix(n), name));
      std::string lower = UnicodeText::lowercased(names.back());
      if (taken.contains(lower) || !folded.insert(std::move(lower)).second) break;
    }
    if (folded.size() < parts.size()) continue;
    taken.insert(folded.begin(), folded.end());
    return names;
  }
  // Such an item gets a number per file instead.
  std::vector<std::string> names;
  for (const NameParts& name : parts) {
    for (std::size_t n = 1;; ++n) {
      std::string candidate = fittedName(name.stem, numberSuffix(n), name);
      if (taken.insert(UnicodeText::lowercased(candidate)).second) {
        names.push_back(std::move(candidate));
        break;
      }
    }
  }
  return names;
}

}  // namespace quillmere::RepairEngine
