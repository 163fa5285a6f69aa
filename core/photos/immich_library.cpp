#include "core/photos/immich_library.h"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "core/dates/iso_date.h"
#include "core/photos/http_client.h"
#include "core/sources/folder_file.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using Kind = PhotoLibraryError::Kind;

// Folders live only in the import record: the token carries the title the albums describe.
constexpr std::string_view kFolderToken = "folder:";
constexpr std::array<std::string_view, 5> kPermissions = {
    "asset.upload", "asset.update", "album.create", "album.read", "albumAsset.create"};

std::string withoutTrailingSlashes(std::string url) {
  while (url.ends_with('/')) url.pop_back();
  return url;
}

// "scheme://host[:port]" of `url`.
std::string origin(const std::string& url) {
  const auto scheme = url.find("://");
  const auto path = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  return path == std::string::npos ? url : url.substr(0, path);
}

std::string sha1Hex(const fs::path& file) {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha1(), nullptr) != 1) {
    throw std::runtime_error("SHA-1 is not available");
  }
  try {
    std::error_code error;
    const auto size = fs::file_size(file, error);
    if (error) throw std::system_error(error);
    FolderFile(file, file.filename().string(), static_cast<std::int64_t>(size))
        .stream([&](std::span<const std::uint8_t> chunk) {
          EVP_DigestUpdate(context.get(), chunk.data(), chunk.size());
        });
  } catch (const std::exception&) {
    throw PhotoLibraryError(Kind::unreadableFile, "Quillmere couldn't read " + file.string() +
                                                      ". Check that the file is still there.");
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  EVP_DigestFinal_ex(context.get(), digest.data(), &length);
  std::string hex(2 * length, '0');
  for (unsigned int i = 0; i < length; ++i) {
    std::snprintf(&hex[2 * i], 3, "%02x", digest[i]);
  }
  return hex;
}

// ISO 8601 in UTC ("2019-07-04T13:30:00+00:00").
std::string isoUTC(double seconds) { return ISODate::formatXMP(std::floor(seconds), 0); }

std::string modified(const fs::path& file) {
  struct stat status = {};
  if (stat(file.c_str(), &status) != 0) return isoUTC(0);
  return isoUTC(static_cast<double>(status.st_mtime));
}

// The "message" Immich puts in an error answer (a text or a list of texts), or the raw body.
std::string serverMessage(const HttpClient::Response& response) {
  const auto json = nlohmann::json::parse(response.body, nullptr, false);
  if (json.is_object()) {
    const auto message = json.find("message");
    if (message != json.end() && message->is_string()) return message->get<std::string>();
    if (message != json.end() && message->is_array()) {
      std::string joined;
      for (const auto& part : *message) {
        if (!part.is_string()) continue;
        joined += (joined.empty() ? "" : "; ") + part.get<std::string>();
      }
      return joined;
    }
  }
  return response.body.substr(0, 200);
}

}  // namespace

struct ImmichLibrary::Connection {
  ImmichCredentials credentials;
  HttpClient http;
  std::string api;  // found by discover()
  std::string problem;

  Connection(ImmichCredentials given, const Options& options)
      : credentials(std::move(given)),
        http(HttpClient::Options{options.connectTimeout, options.lowSpeedTime,
                                 options.lowSpeedBytes, options.answerTimeout}) {}

  std::string server() const { return credentials.url; }

  PhotoLibraryError unreachable(const std::string& why) const {
    return PhotoLibraryError(Kind::unreachable,
                             "Quillmere couldn't reach the Immich server at " + server() + " (" +
                                 why +
                                 "). Check the address and that the server is running, "
                                 "then try again.");
  }

  std::vector<std::string> headers(bool json) const {
    std::vector<std::string> list = {"x-api-key: " + credentials.key, "Accept: application/json",
                                     "Expect:"};
    if (json) list.push_back("Content-Type: application/json");
    return list;
  }

  HttpClient::Response call(const std::string& method, const std::string& path,
                            const std::optional<nlohmann::json>& body = std::nullopt) {
    discover();
    try {
      return http.send(method, api + path, headers(body.has_value()),
                       body ? std::optional(body->dump()) : std::nullopt);
    } catch (const HttpClient::TransportError& error) {
      throw unreachable(error.what());
    }
  }

  // The API's base: the address as given when it names "/api", else where the server's
  // /.well-known/immich points, else "/api" below the address.
  void discover() {
    if (!api.empty()) return;
    const std::string url = withoutTrailingSlashes(credentials.url);
    if (url.ends_with("/api")) {
      api = url;
      return;
    }
    api = url + "/api";
    HttpClient::Response response;
    try {
      response = http.send("GET", url + "/.well-known/immich", {"Accept: application/json"});
    } catch (const HttpClient::TransportError& error) {
      api.clear();
      throw unreachable(error.what());
    }
    if (response.status != 200) return;
    const auto json = nlohmann::json::parse(response.body, nullptr, false);
    if (!json.is_object() || !json.contains("api") || !json["api"].is_object()) return;
    const auto endpoint = json["api"].find("endpoint");
    if (endpoint == json["api"].end() || !endpoint->is_string()) return;
    const std::string path = withoutTrailingSlashes(endpoint->get<std::string>());
    if (path.starts_with("http://") || path.starts_with("https://")) {
      api = path;
    } else if (path.starts_with("/")) {
      api = origin(url) + path;
    } else if (!path.empty()) {
      api = url + "/" + path;
    }
  }

  // A failed answer as a sentence for the user; `what` names the file or album concerned.
  PhotoLibraryError failure(const HttpClient::Response& response, const std::string& what) const {
    const std::string message = serverMessage(response);
    const std::string said = message.empty() ? "" : " (Immich says: " + message + ")";
    if (response.status >= 300 && response.status < 400) {
      return {Kind::unreachable, "The server at " + server() +
                                     " sends Quillmere to another address. Give the address "
                                     "Immich itself is reached at (often https://…), then try "
                                     "again."};
    }
    switch (response.status) {
      case 401:
        return {Kind::notSignedIn, "Immich at " + server() +
                                       " refused the API key. Check the key (Account Settings › "
                                       "API Keys in Immich), then try again."};
      case 403:
        return {Kind::missingAccess, "The API key may not do this" + said +
                                         ". Give it the asset and album permissions in Immich, "
                                         "then try again."};
      case 404:
        return {Kind::notFound, what + " is no longer in Immich" + said + "."};
      case 413:
        return {Kind::refused, what +
                                   " is too large for the server or a proxy in front of it. Raise "
                                   "the proxy's upload limit (for nginx, client_max_body_size), "
                                   "then try again."};
      default:
        break;
    }
    std::string lower = message;
    for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    if (lower.find("quota") != std::string::npos) {
      return {Kind::refused, "Your Immich storage quota is full, so " + what +
                                 " wasn't added. Free up space or ask the server's admin for a "
                                 "larger quota, then try again."};
    }
    if (response.status >= 500) {
      return {Kind::refused, "The Immich server failed on " + what + " (HTTP " +
                                 std::to_string(response.status) + ")" + said +
                                 ". Try again later; if it keeps happening, check the server's "
                                 "logs."};
    }
    return {Kind::refused, "Immich refused " + what + said + "."};
  }

  nlohmann::json answer(const HttpClient::Response& response) const {
    auto json = nlohmann::json::parse(response.body, nullptr, false);
    if (json.is_discarded()) {
      throw PhotoLibraryError(Kind::badAnswer, "The server at " + server() +
                                                   " answered something that isn't Immich's API. "
                                                   "Check the server address.");
    }
    return json;
  }

  std::string idIn(const HttpClient::Response& response) const {
    const auto json = answer(response);
    if (!json.is_object() || !json.contains("id") || !json["id"].is_string() ||
        json["id"].get<std::string>().empty()) {
      throw PhotoLibraryError(Kind::badAnswer, "The server at " + server() +
                                                   " gave no identifier for a new asset or "
                                                   "album. Check that it runs Immich.");
    }
    return json["id"].get<std::string>();
  }

  struct Uploaded {
    std::string id;
    bool duplicate = false;
  };

  Uploaded upload(const fs::path& file, std::optional<double> date,
                  const std::optional<std::string>& livePhotoVideoId) {
    const std::string checksum = sha1Hex(file);
    std::vector<HttpClient::Part> parts = {
        {"fileCreatedAt", date ? isoUTC(*date) : modified(file), std::nullopt},
        {"fileModifiedAt", modified(file), std::nullopt},
        {"filename", file.filename().string(), std::nullopt},
    };
    if (livePhotoVideoId) parts.push_back({"livePhotoVideoId", *livePhotoVideoId, std::nullopt});
    const fs::path sidecar = file.string() + ".xmp";
    std::error_code error;
    if (fs::is_regular_file(sidecar, error)) parts.push_back({"sidecarData", "", sidecar});
    parts.push_back({"assetData", "", file});

    discover();
    std::vector<std::string> list = headers(false);
    list.push_back("x-immich-checksum: " + checksum);
    HttpClient::Response response;
    try {
      response = http.upload(api + "/assets", list, parts);
    } catch (const HttpClient::TransportError& transport) {
      throw PhotoLibraryError(Kind::unreachable,
                              "The upload of " + file.filename().string() + " to " + server() +
                                  " broke off (" + transport.what() +
                                  "). Check the connection to the server, then try again.");
    }
    if (response.status != 200 && response.status != 201) {
      throw failure(response, file.filename().string());
    }
    const auto json = answer(response);
    return {idIn(response), json.value("status", "") == "duplicate"};
  }
};

ImmichLibrary::ImmichLibrary(ImmichCredentials credentials)
    : ImmichLibrary(std::move(credentials), Options{}) {}

ImmichLibrary::ImmichLibrary(ImmichCredentials credentials, Options options)
    : connection_(std::make_unique<Connection>(std::move(credentials), options)) {}

ImmichLibrary::~ImmichLibrary() = default;

std::string ImmichLibrary::name() const { return "Immich"; }
std::string ImmichLibrary::address() const { return connection_->credentials.url; }
std::string ImmichLibrary::authorizationProblem() const { return connection_->problem; }
const std::string& ImmichLibrary::apiURL() const { return connection_->api; }
std::int64_t ImmichLibrary::requestCount() const { return connection_->http.requestCount(); }

bool ImmichLibrary::authorize() {
  Connection& c = *connection_;
  c.problem.clear();
  try {
    const auto response = c.call("GET", "/api-keys/me");
    if (response.status != 200) throw c.failure(response, "The API key");
    const auto json = c.answer(response);
    const auto granted = json.is_object() ? json.value("permissions", nlohmann::json::array())
                                          : nlohmann::json::array();
    if (!granted.is_array()) throw c.failure(response, "The API key");
    const auto has = [&](std::string_view permission) {
      for (const auto& p : granted) {
        if (p.is_string() && (p.get<std::string>() == permission || p.get<std::string>() == "all"))
          return true;
      }
      return false;
    };
    std::string missing;
    for (const std::string_view permission : kPermissions) {
      if (!has(permission)) missing += (missing.empty() ? "" : ", ") + std::string(permission);
    }
    if (!missing.empty()) {
      const bool one = missing.find(',') == std::string::npos;
      c.problem = std::string("The API key lacks the permission") + (one ? " " : "s ") + missing +
                  ". Allow " + (one ? "it" : "them") +
                  " under Account Settings › API Keys in Immich, then try again.";
      return false;
    }
    return true;
  } catch (const PhotoLibraryError& error) {
    c.problem = error.what();
    return false;
  }
}

std::string ImmichLibrary::addAsset(const std::optional<fs::path>& photo,
                                    const std::optional<fs::path>& pairedVideo,
                                    const std::optional<fs::path>& video,
                                    std::optional<double> date,
                                    const std::optional<GeoPoint>& /*location*/) {
  // Date, zone and place travel inside the file (or its sidecar), where Immich reads them;
  // fileCreatedAt is only Immich's fallback for files that carry no date.
  Connection& c = *connection_;
  if (photo && pairedVideo) {
    const auto movie = c.upload(*pairedVideo, date, std::nullopt);
    const auto still = c.upload(*photo, date, movie.id);
    if (still.duplicate) {
      // An existing still keeps its old links; pair it explicitly.
      const auto response =
          c.call("PUT", "/assets/" + still.id, nlohmann::json{{"livePhotoVideoId", movie.id}});
      if (response.status != 200) throw c.failure(response, photo->filename().string());
    }
    return still.id;
  }
  if (photo) return c.upload(*photo, date, std::nullopt).id;
  if (video) return c.upload(*video, date, std::nullopt).id;
  throw std::invalid_argument("addAsset without a file");
}

std::string ImmichLibrary::folder(const std::string& title,
                                  const std::optional<std::string>& existing) {
  if (existing && existing->starts_with(kFolderToken)) return *existing;
  return std::string(kFolderToken) + title;
}

std::string ImmichLibrary::album(const std::string& title, const std::string& folder,
                                 const std::optional<std::string>& existing) {
  Connection& c = *connection_;
  if (existing) {
    const auto response = c.call("GET", "/albums/" + *existing);
    if (response.status == 200) return *existing;
    // Immich answers 400 for an album that is gone or was never the key owner's.
    if (response.status != 400 && response.status != 404) {
      throw c.failure(response, "The album " + title);
    }
  }
  const std::string folderTitle =
      folder.starts_with(kFolderToken) ? folder.substr(kFolderToken.size()) : folder;
  const auto response =
      c.call("POST", "/albums",
             nlohmann::json{{"albumName", title}, {"description", "Added by " + folderTitle}});
  if (response.status != 201 && response.status != 200) {
    throw c.failure(response, "The album " + title);
  }
  return c.idIn(response);
}

void ImmichLibrary::add(const std::vector<std::string>& assets, const std::string& album) {
  Connection& c = *connection_;
  const auto response =
      c.call("PUT", "/albums/" + album + "/assets", nlohmann::json{{"ids", assets}});
  if (response.status == 400 || response.status == 404) {
    throw PhotoLibraryError(Kind::notFound,
                            "An album Quillmere was filling is no longer in "
                            "Immich. Run the import again to recreate it.");
  }
  if (response.status != 200) throw c.failure(response, "An album");
  const auto results = c.answer(response);
  if (!results.is_array()) throw c.failure(response, "An album");
  for (const auto& result : results) {
    if (!result.is_object() || result.value("success", false)) continue;
    const std::string error = result.value("error", "");
    // Already in the album, or deleted from Immich since it was added: nothing to do.
    if (error == "duplicate" || error == "not_found") continue;
    throw PhotoLibraryError(Kind::refused, "Immich wouldn't add an asset to an album (" +
                                               (error.empty() ? std::string("unknown") : error) +
                                               "). Check the API key's album permissions.");
  }
}

}  // namespace quillmere
