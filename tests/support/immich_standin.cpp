#include "tests/support/immich_standin.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

extern char** environ;

namespace quillmere::testing {

ImmichStandIn::ImmichStandIn() {
  const std::string script = (std::filesystem::path(QUILLMERE_TEST_DATA_DIR).parent_path() /
                              "support" / "immich_standin.py")
                                 .string();
  int out[2], in[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(in, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  const std::string store = store_.path().string();
  std::vector<char*> args = {const_cast<char*>("python3"), const_cast<char*>(script.c_str()),
                             const_cast<char*>(store.c_str()), nullptr};
  const int spawned = posix_spawnp(&pid_, "python3", &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(in[0]);
  lifeline_ = in[1];  // the server ends when this closes, even if this process dies first
  std::string port;
  char c = 0;
  while (spawned == 0 && read(out[0], &c, 1) == 1 && c != '\n') port += c;
  close(out[0]);
  if (spawned != 0 || port.empty()) {
    if (spawned == 0) kill(pid_, SIGTERM);
    throw std::runtime_error("the Immich stand-in didn't start");
  }
  url_ = "http://127.0.0.1:" + port;
  http_ = std::make_unique<HttpClient>(HttpClient::Options{});
}

ImmichStandIn::~ImmichStandIn() {
  http_.reset();
  close(lifeline_);
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
}

nlohmann::json ImmichStandIn::control(const std::string& what, const std::string& body) {
  const auto response = http_->send(body.empty() ? "GET" : "POST", url_ + "/__standin/" + what,
                                    {"Content-Type: application/json"},
                                    body.empty() ? std::nullopt : std::optional(body));
  if (response.status != 200) throw std::runtime_error("stand-in: " + response.body);
  return nlohmann::json::parse(response.body);
}

void ImmichStandIn::config(const nlohmann::json& switches) { control("config", switches.dump()); }
nlohmann::json ImmichStandIn::state() { return control("state", ""); }
void ImmichStandIn::forgetAlbums() { control("forget-albums", "{}"); }

std::size_t ImmichStandIn::requestsStartingWith(const std::string& request) {
  std::size_t count = 0;
  const nlohmann::json all = state();
  for (const auto& logged : all["requests"])
    count += logged.get<std::string>().starts_with(request);
  return count;
}

nlohmann::json ImmichStandIn::albumNamed(const std::string& name) {
  nlohmann::json found;
  const nlohmann::json all = state();
  for (const auto& [id, album] : all["albums"].items()) {
    if (album["albumName"] != name) continue;
    if (!found.is_null()) throw std::runtime_error("two albums named " + name);
    found = album;
  }
  return found;
}

}  // namespace quillmere::testing
