#ifndef QUILLMERE_CORE_SCAN_JSON_READER_H_
#define QUILLMERE_CORE_SCAN_JSON_READER_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

namespace quillmere::JSONReader {

// Parses untrusted bytes as one JSON document. Nothing is thrown: malformed text, invalid
// UTF-8 in strings, or nesting deeper than `maxDepth` arrays and objects give nullopt.
std::optional<nlohmann::json> parse(std::span<const std::uint8_t> bytes,
                                    std::size_t maxDepth = 256);

}  // namespace quillmere::JSONReader

#endif  // QUILLMERE_CORE_SCAN_JSON_READER_H_
