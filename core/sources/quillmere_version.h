#ifndef QUILLMERE_CORE_SOURCES_QUILLMERE_VERSION_H_
#define QUILLMERE_CORE_SOURCES_QUILLMERE_VERSION_H_

#include <string_view>

namespace quillmere {

// The application's version: printed by `quillmere-cli --version`, written into every report's
// summary.json and README.txt. The one place it is spelled.
inline constexpr std::string_view kQuillmereVersion = "1.0.1";

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SOURCES_QUILLMERE_VERSION_H_
