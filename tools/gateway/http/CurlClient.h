// An HTTP client on libcurl, whose transfers run on a thread of its own: neither a slow name
// service nor the reading of a system's certificates holds up the main run loop.
//
// The server's certificate and name are always verified, proxies of the environment are not used,
// and an answer is read to its end, up to 64 KiB.
//
// Threads: see HttpClient.h. The thread begins with the first post. Lifetime: the drop ends every
// exchange and waits for the thread. Errors: in the answers.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>

#include <memory>
#include <string>

#include "tools/gateway/http/HttpClient.h"

namespace kestrin::gateway {

class CurlClient final : public HttpClient {
 public:
  /// `agent` is what it calls itself, for example "kestrin-gateway/1.0.0".
  CurlClient(std::weak_ptr<RunLoop> loop, std::string agent);
  ~CurlClient() override;

  [[nodiscard]] Exchange post(HttpPost post, Done done) override;

 private:
  class Transfers;
  class Begun;
  struct Waiting;
  const std::weak_ptr<RunLoop> loop_;
  const std::shared_ptr<Waiting> waiting_;
  const std::shared_ptr<Transfers> transfers_;
  unsigned long long last_ = 0;
};

}  // namespace kestrin::gateway
