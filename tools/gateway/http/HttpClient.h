// Posts a text to a web server and reports what it answers.
//
// Nothing is tried twice here, and no redirect is followed: an answer that points elsewhere is an
// answer.
//
// Threads: everything on the thread of the run loop that the client was made with; `Done` is called
// there, in a later turn. Lifetime: who drops the exchange is not called any more; an exchange may
// outlive its client. Errors: in the answer, in words.
#pragma once

#include <KestrinBLESDK/platform/Clock.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

struct HttpPost {
  std::string url;
  std::vector<std::string> headers;  ///< As in "Name: value".
  /// Read for each post, so that a new secret takes no restart.
  std::optional<std::string> tokenFile{};
  std::optional<std::string> headersFile{};
  std::optional<std::string> caFile{};        ///< Absent: the system's.
  std::chrono::milliseconds timeout{30'000};  ///< For the whole exchange.
  std::shared_ptr<const std::string> body{};
};

struct HttpAnswer {
  int status = 0;   ///< 0: there is no whole answer, and `why` says why not.
  std::string why;  ///< One line for a person.
  std::optional<Time> retryAfter{};
  std::string location{};  ///< Where a redirect points to, as one line for a person.
};

class HttpClient {
 public:
  using Done = std::function<void(const HttpAnswer&)>;
  using Exchange = std::shared_ptr<void>;

  HttpClient() = default;
  virtual ~HttpClient() = default;
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  /// Begins; the exchange goes on until `done` is called or it is dropped.
  [[nodiscard]] virtual Exchange post(HttpPost post, Done done) = 0;
};

}  // namespace kestrin::gateway
