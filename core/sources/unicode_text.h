#ifndef QUILLMERE_CORE_SOURCES_UNICODE_TEXT_H_
#define QUILLMERE_CORE_SOURCES_UNICODE_TEXT_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

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

}  // namespace UnicodeText
}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_UNICODE_TEXT_H_
