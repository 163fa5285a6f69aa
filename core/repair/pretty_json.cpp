#include "core/repair/pretty_json.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

#include "core/sources/unicode_text.h"

namespace quillmere {

namespace {

void appendString(std::string_view text, std::string& out) {
  std::string repaired;
  if (!UnicodeText::isValidUTF8(text)) {
    repaired =
        UnicodeText::repairUTF8({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    text = repaired;
  }
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '/':
        out += "\\/";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

void appendValue(const nlohmann::json& json, int depth, std::string& out) {
  const std::string indent(static_cast<std::size_t>(depth + 1) * 2, ' ');
  const std::string closingIndent(static_cast<std::size_t>(depth) * 2, ' ');
  if (json.is_object()) {
    if (json.empty()) {
      out += "{}";
      return;
    }
    out += "{\n";
    bool first = true;
    // nlohmann::json keeps its members in a std::map, so they come in ascending key order.
    for (const auto& [key, value] : json.items()) {
      if (!first) out += ",\n";
      first = false;
      out += indent;
      appendString(key, out);
      out += " : ";
      appendValue(value, depth + 1, out);
    }
    out += '\n' + closingIndent + '}';
  } else if (json.is_array()) {
    if (json.empty()) {
      out += "[]";
      return;
    }
    out += "[\n";
    bool first = true;
    for (const auto& value : json) {
      if (!first) out += ",\n";
      first = false;
      out += indent;
      appendValue(value, depth + 1, out);
    }
    out += '\n' + closingIndent + ']';
  } else if (json.is_string()) {
    appendString(json.get_ref<const std::string&>(), out);
  } else {
    // Numbers, Booleans and null are written as the library writes them.
    out += json.dump();
  }
}

}  // namespace

std::string PrettyJson::write(const nlohmann::json& json) {
  std::string out;
  appendValue(json, 0, out);
  return out;
}

}  // namespace quillmere
