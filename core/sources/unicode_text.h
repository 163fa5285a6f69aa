#ifndef QUILLMERE_CORE_SOURCES_UNICODE_TEXT_H_
#define QUILLMERE_CORE_SOURCES_UNICODE_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillmere {

// The core's one place for Unicode work on names and texts (built on utf8proc). All strings
// in the core are UTF-8.
namespace UnicodeText {

// True when `bytes` is well-formed UTF-8 (no overlongs, surrogates or truncated sequences).
bool isValidUTF8(std::span<const std::uint8_t> bytes);
bool isValidUTF8(std::string_view text);

// Decodes UTF-8, replacing every ill-formed sequence with U+FFFD.
std::string repairUTF8(std::span<const std::uint8_t> bytes);

// Decodes ISO 8859-1: every byte is the code point of the same value.
std::string fromLatin1(std::span<const std::uint8_t> bytes);

// Folding for name comparisons: NFC-normalises the text and maps every code point to its
// lower-case form (one code point to one, so "Ä" gives "ä" and "ß" stays "ß"). Two names that a
// user would call equal apart from letter case give the same result, whether they were stored
// composed or decomposed. Ill-formed UTF-8 bytes are kept as they are, so names that differ only
// there stay different.
std::string lowercased(std::string_view text);
// The same, assigned to `out` (reusing its storage, for loops over many names).
void lowercased(std::string_view text, std::string& out);

// Number of user-perceived characters (extended grapheme clusters): "e" plus a combining accent
// is one, "편" is one, a flag is one. An ill-formed byte counts as one character.
std::size_t graphemeCount(std::string_view text);

// True when byte `offset` lies between two user-perceived characters of `text`; always true for
// 0 and text.size(), false inside a character or beyond the end.
bool isGraphemeBoundary(std::string_view text, std::size_t offset);

// Character-wise prefix and suffix tests: the bytes match and the match ends (or starts) between
// two characters of `text`, so "cafe" is not a prefix of "cafe" + U+0301.
bool hasPrefix(std::string_view text, std::string_view prefix);
bool hasSuffix(std::string_view text, std::string_view suffix);

// The last `count` characters of `text` (all of it when it has fewer).
std::string_view lastGraphemes(std::string_view text, std::size_t count);

// The tail of `text` made of as many characters as `foldedSuffix` has, when lowercased() turns
// that tail into `foldedSuffix`; nullopt otherwise. `foldedSuffix` must itself be lower-case and
// NFC (its own lowercased() form). So "IMG.JSON" gives ".JSON" for ".json".
std::optional<std::string_view> suffixIgnoringCase(std::string_view text,
                                                   std::string_view foldedSuffix);

// A cheap early answer for comparing names: true only when lowercased(text) and `folded` (itself
// a lowercased() result) certainly differ within their common length, so that neither begins
// with the other. Compares bytes without decoding or allocating and answers false whenever it
// cannot tell that way (a difference inside a non-ASCII character, or one a following
// combining mark could change).
bool foldedPrefixesDiffer(std::string_view text, std::string_view folded);

// True when the text is empty or holds only white space and line breaks (Unicode separators,
// tab, line feed, vertical tab, form feed, carriage return and next line). Ill-formed UTF-8 is
// not blank.
bool isBlank(std::string_view text);

// The maximal runs of letters, decimal digits and the ASCII characters of `alsoAllowed`, in
// order. Ill-formed bytes end a run.
std::vector<std::string> wordRuns(std::string_view text, std::string_view alsoAllowed = {});

}  // namespace UnicodeText
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_UNICODE_TEXT_H_
