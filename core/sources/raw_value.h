#ifndef QUILLMERE_CORE_SOURCES_RAW_VALUE_H_
#define QUILLMERE_CORE_SOURCES_RAW_VALUE_H_

#include <initializer_list>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

// Enumerations that reach reports and JSON files are written by a fixed raw text, never by
// ordinal. Each such enumeration has a `rawValue(Enum)` overload giving its text and a
// specialisation of this template reading it back: nullopt for any text that is not exactly one
// of the enumeration's raw values (case matters, no trimming).
template <typename Enum>
std::optional<Enum> fromRawValue(std::string_view raw);

// The member of `all` whose raw value is exactly `raw`: the usual body of fromRawValue.
template <typename Enum>
std::optional<Enum> findRawValue(std::initializer_list<Enum> all, std::string_view raw) {
  for (const Enum value : all) {
    if (rawValue(value) == raw) return value;
  }
  return std::nullopt;
}

// The usual body of from_json: reads a JSON string through fromRawValue. Throws
// nlohmann::json::type_error 302 with `what` for anything else. Defined in a template so
// only callers that include <nlohmann/json.hpp> instantiate it.
template <typename Enum, typename Json>
void readRawValue(const Json& json, Enum& value, const char* what) {
  const auto* text = json.template get_ptr<const std::string*>();
  const std::optional<Enum> decoded = text ? fromRawValue<Enum>(*text) : std::nullopt;
  if (!decoded) throw Json::type_error::create(302, what, &json);
  value = *decoded;
}

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_RAW_VALUE_H_
