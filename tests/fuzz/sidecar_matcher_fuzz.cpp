// Splits the input at "/" (which no file name holds) into a media name and the JSON names of
// its folder, and matches them: no crash, the answer is one of the names as given, and taking
// the names apart once per folder gives the same answer as taking them apart on every call.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "core/scan/sidecar_matcher.h"
#include "core/sources/unicode_text.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

void checkText(std::string_view text) {
  namespace UnicodeText = quillmere::UnicodeText;
  check(UnicodeText::graphemeCount(text) <= text.size());
  check(UnicodeText::isGraphemeBoundary(text, 0) &&
        UnicodeText::isGraphemeBoundary(text, text.size()));
  const std::string_view tail = UnicodeText::lastGraphemes(text, 3);
  check(text.ends_with(tail) && UnicodeText::isGraphemeBoundary(text, text.size() - tail.size()));
  const auto marker = quillmere::SidecarMatcher::stripDuplicateMarker(text);
  check(text.starts_with(marker.text));
  if (marker.n) {
    check(*marker.n >= 0 && text.size() > marker.text.size() + 2);
  } else {
    check(marker.text == text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (true) {
    const std::size_t slash = input.find('/', start);
    parts.emplace_back(input.substr(start, slash - start));
    if (slash == std::string_view::npos) break;
    start = slash + 1;
  }
  const std::string media = parts.front();
  const std::vector<std::string> jsonNames(parts.begin() + 1, parts.end());
  for (const std::string& part : parts) checkText(part);
  // The matcher's early rejection must never reject a pair whose folded forms begin alike.
  for (const std::string& part : parts) {
    const std::string folded = quillmere::UnicodeText::lowercased(part);
    const std::string mediaFolded = quillmere::UnicodeText::lowercased(parts.front());
    if (quillmere::UnicodeText::foldedPrefixesDiffer(parts.front(), folded)) {
      check(!mediaFolded.starts_with(folded) && !folded.starts_with(mediaFolded));
    }
  }

  namespace SidecarMatcher = quillmere::SidecarMatcher;
  const auto found = SidecarMatcher::match(media, jsonNames);
  if (found) check(std::find(jsonNames.begin(), jsonNames.end(), *found) != jsonNames.end());
  check(SidecarMatcher::match(media, SidecarMatcher::candidates(jsonNames)) == found);
  return 0;
}
