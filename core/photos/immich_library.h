#ifndef QUILLMERE_CORE_PHOTOS_IMMICH_LIBRARY_H_
#define QUILLMERE_CORE_PHOTOS_IMMICH_LIBRARY_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/photos/photos_importer.h"

namespace quillmere {

// Where an Immich server is and the API key to use, as Immich's own command line keeps them.
struct ImmichCredentials {
  std::string url;  // as given: with or without "/api", with or without a trailing "/"
  std::string key;

  bool operator==(const ImmichCredentials&) const = default;

  // `url` and `key` when given, else IMMICH_INSTANCE_URL and IMMICH_API_KEY from the
  // environment, else "url" and "key" of $HOME/.config/immich/auth.yml; each value looked up
  // on its own. Throws PhotoLibraryError (misconfigured) naming what is missing and how to give
  // it when no server address or no key is found.
  static ImmichCredentials find(const std::optional<std::string>& url = std::nullopt,
                                const std::optional<std::string>& key = std::nullopt);
};

// A PhotoLibrary over an Immich server's REST API (version 3), through one reused HTTP
// connection. Not safe for concurrent calls; the importer makes one at a time.
//
// Immich has no folders of albums: folder() returns a local token for the title without asking
// the server, and every album is created with the description "Added by " + that title, so
// the albums of each import can be told apart. Files are streamed from disk; each upload
// carries the file's SHA-1 so a file the server already holds comes back as the existing asset.
// A photo's XMP sidecar ("<name>.xmp" beside it) goes along with it.
class ImmichLibrary final : public PhotoLibrary {
 public:
  struct Options {
    std::chrono::seconds connectTimeout{15};
    // A transfer slower than `lowSpeedBytes` per second for this long is abandoned.
    std::chrono::seconds lowSpeedTime{60};
    long lowSpeedBytes = 1;
    // Longest wait for any answer but an upload's.
    std::chrono::seconds answerTimeout{120};
  };

  // Makes no request yet: the server is first reached by authorize() (or any other call).
  explicit ImmichLibrary(ImmichCredentials credentials);
  ImmichLibrary(ImmichCredentials credentials, Options options);
  ~ImmichLibrary() override;
  ImmichLibrary(const ImmichLibrary&) = delete;
  ImmichLibrary& operator=(const ImmichLibrary&) = delete;

  std::string name() const override;     // "Immich"
  std::string address() const override;  // the server address as given

  // Finds the API (the address as given, "/api" below it, or where /.well-known/immich points),
  // checks the key once and confirms it holds asset.upload, asset.update, album.create,
  // album.read and albumAsset.create. False when the server can't be reached, refuses the key
  // or lacks a permission; authorizationProblem() then says which.
  bool authorize() override;
  std::string authorizationProblem() const override;

  std::string addAsset(const std::optional<std::filesystem::path>& photo,
                       const std::optional<std::filesystem::path>& pairedVideo,
                       const std::optional<std::filesystem::path>& video,
                       std::optional<double> date,
                       const std::optional<GeoPoint>& location) override;
  std::string folder(const std::string& title, const std::optional<std::string>& existing) override;
  std::string album(const std::string& title, const std::string& folder,
                    const std::optional<std::string>& existing) override;
  void add(const std::vector<std::string>& assets, const std::string& album) override;

  // The API's base address once found ("https://photos.example.org/api"); empty before.
  const std::string& apiURL() const;
  // HTTP requests sent so far (for measuring).
  std::int64_t requestCount() const;

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_PHOTOS_IMMICH_LIBRARY_H_
