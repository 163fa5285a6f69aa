#ifndef QUILLMERE_CORE_REPAIR_PRETTY_JSON_H_
#define QUILLMERE_CORE_REPAIR_PRETTY_JSON_H_

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace quillmere {

// The JSON text of the files a person may open: one member or element per line, two spaces of
// indentation per level, "key" : value with a space each side of the colon, keys of every
// object in ascending byte order, "/" escaped as "\/", other non-ASCII text as it is. Empty
// objects and arrays are written "{}" and "[]"; no line feed follows the last brace.
namespace PrettyJson {

// Ill-formed UTF-8 in strings and keys is written with U+FFFD in its place, so the text is
// always valid JSON.
std::string write(const nlohmann::json& json);

}  // namespace PrettyJson

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_PRETTY_JSON_H_
