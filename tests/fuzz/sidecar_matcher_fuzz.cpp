// Splits the input at "/" (which no file name holds) into a media name and the JSON names of
// its folder, and matches them: no crash, the answer is one of the names as given, and taking
// the names apart once per folder, or indexing them, gives the same answer as taking them apart
// on every call.
#include <algorithm>
#include <cstdlib>

#include "core/scan/sidecar_matcher.h"
#include "core/sources/unicode_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace UnicodeText = quillmere::UnicodeText;
  namespace SidecarMatcher = quillmere::SidecarMatcher;
  const auto check = [](bool ok) { ok ? void() : std::abort(); };
  std::vector<std::string> parts(1);
  for (const char c : std::string_view(reinterpret_cast<const char*>(data), size)) {
    c == '/' ? parts.emplace_back() : parts.back() += c;
  }
  const std::string media = parts.front(), mediaFolded = UnicodeText::lowercased(media);
  for (const std::string& text : parts) {
    const auto marker = SidecarMatcher::stripDuplicateMarker(text);
    check(
        text.starts_with(marker.text) &&
        (marker.n ? *marker.n >= 0 && text.size() > marker.text.size() + 2 : marker.text == text));
    // The matcher's early rejection must never reject a pair whose folded forms begin alike.
    const std::string folded = UnicodeText::lowercased(text);
    check(!UnicodeText::foldedPrefixesDiffer(media, folded) ||
          (!mediaFolded.starts_with(folded) && !folded.starts_with(mediaFolded)));
  }
  const std::vector<std::string> jsonNames(parts.begin() + 1, parts.end());
  const auto found = SidecarMatcher::match(media, jsonNames);
  check(!found || std::find(jsonNames.begin(), jsonNames.end(), *found) != jsonNames.end());
  check(SidecarMatcher::match(media, SidecarMatcher::candidates(jsonNames)) == found);
  check(SidecarMatcher::FolderIndex(jsonNames).match(media) == found);
  return 0;
}
