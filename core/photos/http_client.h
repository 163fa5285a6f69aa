#ifndef QUILLMERE_CORE_PHOTOS_HTTP_CLIENT_H_
#define QUILLMERE_CORE_PHOTOS_HTTP_CLIENT_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillmere {

// The program's one HTTP client (over libcurl): one connection reused for every request,
// connect and low-speed time-outs, TLS checked against the system's certificate store. Not
// safe for concurrent use.
class HttpClient {
 public:
  struct Options {
    std::chrono::seconds connectTimeout{15};
    std::chrono::seconds lowSpeedTime{60};  // abandon a transfer slower than lowSpeedBytes/s
    long lowSpeedBytes = 1;
    // Whole-request limit for send() (never for uploads, whose length depends on the file).
    std::chrono::seconds answerTimeout{120};
  };

  struct Response {
    long status = 0;
    std::string body;  // at most maxBody bytes; a longer answer is a transport failure
  };

  // One part of a multipart/form-data body: text, or a file streamed from disk.
  struct Part {
    std::string name;
    std::string text;                           // used when `file` is absent
    std::optional<std::filesystem::path> file;  // sent under its own file name
  };

  // No answer could be had: what() is libcurl's description of why.
  class TransportError : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  static constexpr std::size_t maxBody = 16 << 20;

  explicit HttpClient(Options options);
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  // `method` with `headers` ("Name: value") and, when given, `body` as the request body.
  // Any status is a response; throws TransportError when none arrives.
  Response send(const std::string& method, const std::string& url,
                const std::vector<std::string>& headers,
                const std::optional<std::string>& body = std::nullopt);

  // POST of `parts` as multipart/form-data, in their order.
  Response upload(const std::string& url, const std::vector<std::string>& headers,
                  const std::vector<Part>& parts);

  std::int64_t requestCount() const { return requests_; }

 private:
  struct Handle;
  Response perform(const std::vector<std::string>& headers);

  std::unique_ptr<Handle> handle_;
  Options options_;
  std::int64_t requests_ = 0;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_PHOTOS_HTTP_CLIENT_H_
