// A gateway's page: it is shown how the gateway is, and hands it commands.
//
// Threads: the main run loop's. The server's own thread is kept away from the gateway: it is given
// values, and what it asks for is posted to the run loop.
// Lifetime: the gateway outlives it, or `close` comes first.
// Errors: a page that cannot be served is said in one line and tried again; the gateway works on.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/gateway/config/Config.h"
#include "tools/gateway/core/Gateway.h"
#include "tools/gateway/core/Timer.h"
#include "tools/gateway/page/HttpServer.h"

namespace kestrin::gateway {

class GatewayPage {
 public:
  using Say = std::function<void(const std::string& line)>;
  /// Begins at once, unless the configuration has no page.
  GatewayPage(const std::shared_ptr<MainRunLoop>& loop, Gateway& gateway, PageConfig config,
              Say say);

  /// Reads certificate and token again. Whoever looks at the page comes back by himself.
  void reload();
  /// The page ends.
  void close();

 private:
  [[nodiscard]] std::optional<HttpSettings> settings(std::string& error) const;
  void open();
  void beat();
  void showFrames();
  void command(const std::string& reader, const std::string& payload,
               HttpServer::CommandAnswer answer);

  const std::weak_ptr<MainRunLoop> loop_;
  Gateway& gateway_;
  const PageConfig config_;
  const Say say_;
  Timer timer_;
  std::string said_;
  unsigned beats_ = 0;
  std::uint64_t shown_ = 0;  // How many frames the log had taken when frames were shown last.
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  std::unique_ptr<HttpServer> server_;
};

}  // namespace kestrin::gateway
