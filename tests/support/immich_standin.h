#ifndef QUILLMERE_TESTS_SUPPORT_IMMICH_STANDIN_H_
#define QUILLMERE_TESTS_SUPPORT_IMMICH_STANDIN_H_

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "core/photos/http_client.h"
#include "tests/support/temp_dir.h"

namespace quillmere::testing {

// The stand-in Immich server (tests/support/immich_standin.py) on 127.0.0.1 and a free port,
// started for the fixture's life and stopped with it. Its uploads are kept in a temporary
// folder. The API key "test-key" holds every permission until config() says otherwise.
class ImmichStandIn {
 public:
  ImmichStandIn();
  ~ImmichStandIn();
  ImmichStandIn(const ImmichStandIn&) = delete;
  ImmichStandIn& operator=(const ImmichStandIn&) = delete;

  // "http://127.0.0.1:PORT".
  const std::string& url() const { return url_; }
  static constexpr const char* key = "test-key";

  // Merges `switches` into the server's switches (see the script's header).
  void config(const nlohmann::json& switches);
  // {"assets": {id: asset}, "albums": {id: album}, "requests": ["METHOD /path -> status"]}.
  nlohmann::json state();
  // Deletes every album, as a user would.
  void forgetAlbums();
  // How many requests so far began with `request` ("POST /api/assets").
  std::size_t requestsStartingWith(const std::string& request);
  // The album named `name`, which must exist exactly once; null when none does.
  nlohmann::json albumNamed(const std::string& name);

 private:
  nlohmann::json control(const std::string& what, const std::string& body);

  TempDir store_;
  pid_t pid_ = -1;
  int lifeline_ = -1;
  std::string url_;
  std::unique_ptr<HttpClient> http_;
};

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_IMMICH_STANDIN_H_
