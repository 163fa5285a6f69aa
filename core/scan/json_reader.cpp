#include "core/scan/json_reader.h"

namespace quillmere::JSONReader {
namespace {

// The deepest nesting of arrays and objects, ignoring brackets inside strings. Stops counting
// once past `limit`, so a hostile file costs one linear pass.
bool nestsDeeperThan(std::span<const std::uint8_t> bytes, std::size_t limit) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::uint8_t c = bytes[i];
    if (inString) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

}  // namespace

std::optional<nlohmann::json> parse(std::span<const std::uint8_t> bytes, std::size_t maxDepth) {
  if (nestsDeeperThan(bytes, maxDepth)) return std::nullopt;
  nlohmann::json value = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr,
                                               /*allow_exceptions=*/false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

}  // namespace quillmere::JSONReader
