// The page's server, on libmicrohttpd: one thread for all connections.
//
// The gateway's main run loop hands it values that nobody changes any more, and never waits for it.
// Connections are limited in number, in the size of what they ask and in the time that they may be
// silent. A viewer that does not read what it is sent is dropped.
//
// Threads: one owns it. `Command` is called on the server's own, without a lock held; its answer is
// given on the owner's.
// Lifetime: dropping it ends every connection and the thread; a command may be answered afterwards.
// Errors: what keeps it from starting, in one line.
#pragma once

#include "tools/gateway/page/Feed.h"
#include "tools/gateway/page/Site.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kestrin::gateway {

struct PageTls {
  std::string certificate, key;  ///< As PEM.
};

struct HttpSettings {
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;  ///< 0: any that is free.
  std::optional<PageTls> tls{};
  PageAccess access{};
  std::size_t mostViewers = 32;
  std::size_t mostConnections = 64;
  std::size_t mostCommands = 16;
  /// After how long a connection that is waited for is dropped.
  std::chrono::seconds silence{30};
};

class HttpServer {
 public:
  using CommandAnswer = std::function<void(const std::string& json)>;
  /// A command for a reader: its payload, and whom to answer, once.
  using Command = std::function<void(const std::string& reader, const std::string& payload,
                                     CommandAnswer answer)>;

  /// Null with the reason in `error`.
  static std::unique_ptr<HttpServer> start(const HttpSettings& settings, Command command,
                                           std::string& error);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// How the gateway is from now on.
  void show(std::shared_ptr<const Status> status);
  /// Frames that have come.
  void tell(std::shared_ptr<const FrameBatch> frames);

  [[nodiscard]] std::uint16_t port() const noexcept;
  /// Whose pages are open.
  [[nodiscard]] std::size_t viewers() const;

 private:
  class Inside;
  explicit HttpServer(std::unique_ptr<Inside> inside);
  const std::unique_ptr<Inside> inside_;
};

}  // namespace kestrin::gateway
