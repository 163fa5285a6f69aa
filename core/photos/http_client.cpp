#include "core/photos/http_client.h"

#include <curl/curl.h>

#include <cstring>
#include <mutex>

namespace quillmere {
namespace {

struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct MimeDeleter {
  void operator()(curl_mime* mime) const { curl_mime_free(mime); }
};

// libcurl's process-wide set-up, done once before the first handle.
void initialiseCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Sink {
  std::string* body;
  bool overflow = false;
};

size_t collect(char* data, size_t size, size_t count, void* context) {
  auto& sink = *static_cast<Sink*>(context);
  const size_t bytes = size * count;  // libcurl guarantees size == 1
  if (bytes > HttpClient::maxBody - std::min(sink.body->size(), HttpClient::maxBody)) {
    sink.overflow = true;
    return 0;  // abandons the transfer
  }
  sink.body->append(data, bytes);
  return bytes;
}

void check(CURLcode code) {
  if (code != CURLE_OK) throw HttpClient::TransportError(curl_easy_strerror(code));
}

}  // namespace

struct HttpClient::Handle {
  struct Cleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  std::unique_ptr<CURL, Cleanup> curl;
  char error[CURL_ERROR_SIZE] = {};
};

HttpClient::HttpClient(Options options) : handle_(std::make_unique<Handle>()), options_(options) {
  initialiseCurlOnce();
  handle_->curl.reset(curl_easy_init());
  if (!handle_->curl) throw TransportError("libcurl could not start");
}

HttpClient::~HttpClient() = default;

HttpClient::Response HttpClient::perform(const std::vector<std::string>& headers) {
  CURL* curl = handle_->curl.get();
  std::unique_ptr<curl_slist, SlistDeleter> list;
  for (const std::string& header : headers) {
    curl_slist* grown = curl_slist_append(list.get(), header.c_str());
    if (grown == nullptr) throw TransportError("out of memory");
    (void)list.release();
    list.reset(grown);
  }
  Response response;
  Sink sink{&response.body};
  handle_->error[0] = '\0';
  check(curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list.get()));
  check(curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect));
  check(curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink));
  check(curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, handle_->error));
  check(curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT,
                         static_cast<long>(options_.connectTimeout.count())));
  check(curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME,
                         static_cast<long>(options_.lowSpeedTime.count())));
  check(curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, options_.lowSpeedBytes));
  check(curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L));
  check(curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https"));
  ++requests_;
  const CURLcode code = curl_easy_perform(curl);
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
  if (sink.overflow) throw TransportError("the server's answer was unreasonably long");
  if (code != CURLE_OK) {
    throw TransportError(handle_->error[0] != '\0' ? handle_->error : curl_easy_strerror(code));
  }
  check(curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status));
  return response;
}

HttpClient::Response HttpClient::send(const std::string& method, const std::string& url,
                                      const std::vector<std::string>& headers,
                                      const std::optional<std::string>& body) {
  CURL* curl = handle_->curl.get();
  check(curl_easy_setopt(curl, CURLOPT_URL, url.c_str()));
  check(curl_easy_setopt(curl, CURLOPT_MIMEPOST, nullptr));
  if (body) {
    check(curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data()));
    check(
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size())));
  } else {
    check(curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L));
  }
  check(curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(options_.answerTimeout.count())));
  check(curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST,
                         method == "GET" || method == "POST" ? nullptr : method.c_str()));
  return perform(headers);
}

HttpClient::Response HttpClient::upload(const std::string& url,
                                        const std::vector<std::string>& headers,
                                        const std::vector<Part>& parts) {
  CURL* curl = handle_->curl.get();
  std::unique_ptr<curl_mime, MimeDeleter> mime(curl_mime_init(curl));
  if (!mime) throw TransportError("out of memory");
  for (const Part& part : parts) {
    curl_mimepart* field = curl_mime_addpart(mime.get());
    if (field == nullptr) throw TransportError("out of memory");
    check(curl_mime_name(field, part.name.c_str()));
    if (part.file) {
      // Streamed from disk while sending; the file is never held in memory.
      check(curl_mime_filedata(field, part.file->c_str()));
      check(curl_mime_type(field, "application/octet-stream"));
    } else {
      check(curl_mime_data(field, part.text.data(), part.text.size()));
    }
  }
  check(curl_easy_setopt(curl, CURLOPT_URL, url.c_str()));
  check(curl_easy_setopt(curl, CURLOPT_TIMEOUT, 0L));
  check(curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, nullptr));
  check(curl_easy_setopt(curl, CURLOPT_MIMEPOST, mime.get()));
  try {
    Response response = perform(headers);
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, nullptr);
    return response;
  } catch (...) {
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, nullptr);
    throw;
  }
}

}  // namespace quillmere
