#ifndef QUILLMERE_CORE_SCAN_RAW_VALUE_H_
#define QUILLMERE_CORE_SCAN_RAW_VALUE_H_

#include <optional>
#include <string_view>

namespace quillmere {

// Enumerations that reach reports and JSON files are written by a fixed raw text, never by
// ordinal. Each such enumeration has a `rawValue(Enum)` overload giving its text and a
// specialisation of this template reading it back: nullopt for any text that is not exactly one
// of the enumeration's raw values (case matters, no trimming).
template <typename Enum>
std::optional<Enum> fromRawValue(std::string_view raw);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_RAW_VALUE_H_
