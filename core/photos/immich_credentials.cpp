// Finding the Immich server and key the way Immich's own command line keeps them.

#include <stdlib.h>

#include <fstream>
#include <map>

#include "core/dates/text_trimming.h"
#include "core/photos/immich_library.h"

namespace quillmere {
namespace {

std::optional<std::string> environment(const char* name) {
  const char* value = getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

std::string unquoted(std::string_view value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front()) {
    value = value.substr(1, value.size() - 2);
  }
  return std::string(value);
}

// The top-level "name: value" lines of Immich's auth.yml (it writes nothing else there).
std::map<std::string, std::string> authFile() {
  std::map<std::string, std::string> values;
  const auto home = environment("HOME");
  if (!home) return values;
  std::ifstream in(std::filesystem::path(*home) / ".config" / "immich" / "auth.yml");
  std::string line;
  while (std::getline(in, line)) {
    const auto colon = line.find(':');
    if (colon == std::string::npos || line.starts_with(' ') || line.starts_with('#')) continue;
    const std::string_view text = line;
    values[std::string(trimWhiteSpaceAndLineBreaks(text.substr(0, colon)))] =
        unquoted(trimWhiteSpaceAndLineBreaks(text.substr(colon + 1)));
  }
  return values;
}

}  // namespace

ImmichCredentials ImmichCredentials::find(const std::optional<std::string>& url,
                                          const std::optional<std::string>& key) {
  const auto file = authFile();
  const auto fromFile = [&](const char* name) -> std::optional<std::string> {
    const auto found = file.find(name);
    if (found == file.end() || found->second.empty()) return std::nullopt;
    return found->second;
  };
  const auto first = [](std::optional<std::string> a, std::optional<std::string> b) {
    return a ? a : b;
  };
  const auto foundURL = url ? url : first(environment("IMMICH_INSTANCE_URL"), fromFile("url"));
  const auto foundKey = key ? key : first(environment("IMMICH_API_KEY"), fromFile("key"));
  if (!foundURL || foundURL->empty()) {
    throw PhotoLibraryError(PhotoLibraryError::Kind::misconfigured,
                            "No Immich server address was given. Pass --server with the "
                            "server's address, or set IMMICH_INSTANCE_URL, then try again.");
  }
  if (!foundKey || foundKey->empty()) {
    throw PhotoLibraryError(PhotoLibraryError::Kind::misconfigured,
                            "No Immich API key was given. Create one in Immich under Account "
                            "Settings › API Keys and pass it with --key, or set IMMICH_API_KEY, "
                            "then try again.");
  }
  return {*foundURL, *foundKey};
}

}  // namespace quillmere
