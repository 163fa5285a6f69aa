#ifndef QUILLMERE_CLI_NUMBER_FORMAT_H_
#define QUILLMERE_CLI_NUMBER_FORMAT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace quillmere::cli {

// A count with digit grouping: the user's locale's separator when it groups digits, else a
// comma every three digits ("12,345").
std::string groupedCount(std::int64_t value);

// `singular` for exactly 1, `plural` otherwise (0 takes the plural).
inline std::string_view plural(std::int64_t count, std::string_view singular,
                               std::string_view plural) {
  return count == 1 ? singular : plural;
}

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_NUMBER_FORMAT_H_
