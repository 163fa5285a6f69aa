#include "core/sources/unicode_text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

namespace quillmere::UnicodeText {
namespace {

void appendCodePoint(std::string& out, utf8proc_int32_t codePoint) {
  utf8proc_uint8_t buffer[4];
  const utf8proc_ssize_t n = utf8proc_encode_char(codePoint, buffer);
  out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n));
}

const utf8proc_uint8_t* bytesOf(std::string_view text) {
  return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

bool isASCII(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c; }

// Decodes the code point starting at byte `i`; returns its length in bytes, or 0 when the
// byte there does not start a well-formed sequence.
std::size_t decodeAt(std::string_view text, std::size_t i, utf8proc_int32_t& codePoint) {
  const utf8proc_ssize_t n = utf8proc_iterate(
      bytesOf(text) + i, static_cast<utf8proc_ssize_t>(text.size() - i), &codePoint);
  return n > 0 ? static_cast<std::size_t>(n) : 0;
}

utf8proc_int32_t lowerCodePoint(utf8proc_int32_t codePoint, void* /*data*/) {
  return utf8proc_tolower(codePoint);
}

// Lower-cases and NFC-normalises a run of well-formed UTF-8 and appends it to `out`.
void appendFolded(std::string_view run, std::string& out) {
  if (run.empty()) return;
  utf8proc_uint8_t* mapped = nullptr;
  const utf8proc_ssize_t n = utf8proc_map_custom(
      bytesOf(run), static_cast<utf8proc_ssize_t>(run.size()), &mapped,
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE), lowerCodePoint, nullptr);
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(mapped, &std::free);
  if (n < 0) {
    // Only an allocation failure gets here for well-formed input; fall back to plain code
    // point mapping rather than losing the text.
    std::size_t i = 0;
    utf8proc_int32_t codePoint;
    while (i < run.size()) {
      const std::size_t length = decodeAt(run, i, codePoint);
      appendCodePoint(out, utf8proc_tolower(codePoint));
      i += length;
    }
    return;
  }
  out.append(reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(n));
}

// Calls `visit(offset)` with the byte offset at which every user-perceived character starts, in
// order, until `visit` returns false. An ill-formed byte is a character of its own.
template <typename Visit>
void forEachCharacterStart(std::string_view text, Visit visit) {
  utf8proc_int32_t state = 0;
  utf8proc_int32_t previous = -1;  // -1: the next code point starts a character
  std::size_t i = 0;
  while (i < text.size()) {
    utf8proc_int32_t codePoint;
    const std::size_t length = decodeAt(text, i, codePoint);
    if (length == 0) {
      if (!visit(i)) return;
      previous = -1;
      state = 0;
      ++i;
      continue;
    }
    if (previous < 0 || utf8proc_grapheme_break_stateful(previous, codePoint, &state)) {
      if (!visit(i)) return;
    }
    previous = codePoint;
    i += length;
  }
}

bool isBlankCodePoint(utf8proc_int32_t codePoint) {
  if ((codePoint >= 0x09 && codePoint <= 0x0D) || codePoint == 0x85) return true;
  const utf8proc_category_t category = utf8proc_category(codePoint);
  return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
         category == UTF8PROC_CATEGORY_ZP;
}

}  // namespace

bool isValidUTF8(std::span<const std::uint8_t> bytes) {
  std::size_t i = 0;
  while (i < bytes.size()) {
    utf8proc_int32_t codePoint;
    const utf8proc_ssize_t n = utf8proc_iterate(
        bytes.data() + i, static_cast<utf8proc_ssize_t>(bytes.size() - i), &codePoint);
    if (n <= 0) return false;
    i += static_cast<std::size_t>(n);
  }
  return true;
}

bool isValidUTF8(std::string_view text) {
  return isValidUTF8(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::string repairUTF8(std::span<const std::uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  std::size_t i = 0;
  while (i < bytes.size()) {
    utf8proc_int32_t codePoint;
    const utf8proc_ssize_t n = utf8proc_iterate(
        bytes.data() + i, static_cast<utf8proc_ssize_t>(bytes.size() - i), &codePoint);
    if (n <= 0) {
      appendCodePoint(out, 0xFFFD);
      ++i;  // resynchronise on the next byte
    } else {
      out.append(reinterpret_cast<const char*>(bytes.data() + i), static_cast<std::size_t>(n));
      i += static_cast<std::size_t>(n);
    }
  }
  return out;
}

std::string fromLatin1(std::span<const std::uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size() * 2);
  for (std::uint8_t b : bytes) appendCodePoint(out, b);
  return out;
}

std::string lowercased(std::string_view text) {
  std::string out;
  lowercased(text, out);
  return out;
}

void lowercased(std::string_view text, std::string& out) {
  // Most names are plain ASCII, which no normalisation changes: lower-case it in one pass and
  // start over only if a non-ASCII byte turns up.
  out.resize(text.size());
  unsigned char seen = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    seen |= c;
    out[i] = asciiLower(static_cast<char>(c));
  }
  if (seen < 0x80) return;
  out.clear();
  std::size_t runStart = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    if (static_cast<unsigned char>(text[i]) < 0x80) {
      ++i;
      continue;
    }
    utf8proc_int32_t codePoint;
    const std::size_t length = decodeAt(text, i, codePoint);
    if (length > 0) {
      i += length;
      continue;
    }
    appendFolded(text.substr(runStart, i - runStart), out);
    out.push_back(text[i]);
    ++i;
    runStart = i;
  }
  appendFolded(text.substr(runStart), out);
}

std::size_t graphemeCount(std::string_view text) {
  if (isASCII(text)) {
    // In ASCII only a carriage return followed by a line feed forms one character.
    std::size_t count = text.size();
    for (std::size_t i = 1; i < text.size(); ++i) {
      if (text[i - 1] == '\r' && text[i] == '\n') --count;
    }
    return count;
  }
  std::size_t count = 0;
  forEachCharacterStart(text, [&count](std::size_t) {
    ++count;
    return true;
  });
  return count;
}

bool isGraphemeBoundary(std::string_view text, std::size_t offset) {
  if (offset > text.size()) return false;
  if (offset == 0 || offset == text.size()) return true;
  const auto before = static_cast<unsigned char>(text[offset - 1]);
  const auto after = static_cast<unsigned char>(text[offset]);
  if (before < 0x80 && after < 0x80) return !(before == '\r' && after == '\n');
  bool found = false;
  forEachCharacterStart(text, [&](std::size_t start) {
    if (start >= offset) {
      found = start == offset;
      return false;
    }
    return true;
  });
  return found;
}

bool hasPrefix(std::string_view text, std::string_view prefix) {
  return text.starts_with(prefix) && isGraphemeBoundary(text, prefix.size());
}

bool hasSuffix(std::string_view text, std::string_view suffix) {
  return text.ends_with(suffix) && isGraphemeBoundary(text, text.size() - suffix.size());
}

std::string_view lastGraphemes(std::string_view text, std::size_t count) {
  if (count == 0) return text.substr(text.size());
  if (isASCII(text) && text.find('\r') == std::string_view::npos) {
    return count >= text.size() ? text : text.substr(text.size() - count);
  }
  std::vector<std::size_t> starts;
  forEachCharacterStart(text, [&starts](std::size_t start) {
    starts.push_back(start);
    return true;
  });
  if (count >= starts.size()) return text;
  return text.substr(starts[starts.size() - count]);
}

std::optional<std::string_view> suffixIgnoringCase(std::string_view text,
                                                   std::string_view foldedSuffix) {
  // Fast path, from the end: while both sides are ASCII (other than a carriage return, which
  // can join characters) each byte is a character that folds on its own, so the first
  // difference settles it; a match needs an ASCII character before the tail to be complete.
  const std::size_t n = foldedSuffix.size();
  if (n <= text.size()) {
    const std::string_view tail = text.substr(text.size() - n);
    bool plain = true;
    for (std::size_t i = n; i-- > 0;) {
      const auto c = static_cast<unsigned char>(tail[i]);
      const auto s = static_cast<unsigned char>(foldedSuffix[i]);
      if (((c | s) & 0x80) != 0 || c == '\r' || s == '\r') {
        plain = false;
        break;
      }
      if (static_cast<unsigned char>(asciiLower(static_cast<char>(c))) != s) return std::nullopt;
    }
    if (plain) {
      if (n == text.size()) return tail;
      const auto before = static_cast<unsigned char>(text[text.size() - n - 1]);
      if (before < 0x80 && before != '\r') return tail;
    }
  }
  const std::string_view tail = lastGraphemes(text, graphemeCount(foldedSuffix));
  if (lowercased(tail) != foldedSuffix) return std::nullopt;
  return tail;
}

bool foldedPrefixesDiffer(std::string_view text, std::string_view folded) {
  const std::size_t common = std::min(text.size(), folded.size());
  for (std::size_t i = 0; i < common; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const auto f = static_cast<unsigned char>(folded[i]);
    if (c == f || (c >= 'A' && c <= 'Z' && c + ('a' - 'A') == f)) continue;
    // Both sides are at an ASCII character, which starts a character of its own and folds to
    // itself (lower-cased). What precedes it is the same text up to letter case on both sides,
    // and folding never joins anything across an ASCII character, so the folded texts differ
    // here, unless a combining mark after text[i] composes with it.
    if (c >= 0x80 || f >= 0x80) return false;
    return i + 1 == text.size() || static_cast<unsigned char>(text[i + 1]) < 0x80;
  }
  return false;
}

bool isBlank(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    utf8proc_int32_t codePoint;
    const std::size_t length = decodeAt(text, i, codePoint);
    if (length == 0 || !isBlankCodePoint(codePoint)) return false;
    i += length;
  }
  return true;
}

std::vector<std::string> wordRuns(std::string_view text, std::string_view alsoAllowed) {
  std::vector<std::string> runs;
  std::string current;
  std::size_t i = 0;
  while (i < text.size()) {
    utf8proc_int32_t codePoint;
    const utf8proc_ssize_t n =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + i),
                         static_cast<utf8proc_ssize_t>(text.size() - i), &codePoint);
    bool inWord = false;
    if (n > 0) {
      const utf8proc_category_t category = utf8proc_category(codePoint);
      inWord = (category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_LO) ||
               category == UTF8PROC_CATEGORY_ND ||
               (codePoint < 0x80 && alsoAllowed.find(static_cast<char>(codePoint)) !=
                                        std::string_view::npos);
    }
    const std::size_t length = n > 0 ? static_cast<std::size_t>(n) : 1;
    if (inWord) {
      current.append(text.substr(i, length));
    } else if (!current.empty()) {
      runs.push_back(std::move(current));
      current.clear();
    }
    i += length;
  }
  if (!current.empty()) runs.push_back(std::move(current));
  return runs;
}

}  // namespace quillmere::UnicodeText
