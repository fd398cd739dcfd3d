#include "tools/gateway/page/HttpServer.h"

#include <microhttpd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "tools/gateway/page/Listener.h"

namespace kestrin::gateway {
namespace {

// Request line and headers together.
constexpr std::size_t kMostHeaderBytes = std::size_t{16} << 10U;
// Behind what a body may have, so much is read away before the connection is closed.
constexpr std::size_t kMostRefusedBytes = std::size_t{64} << 10U;
constexpr std::size_t kBlock = std::size_t{16} << 10U;
constexpr char kReconnect[] = "retry: 2000\n\n";
constexpr char kTlsVersions[] = "NORMAL:-VERS-TLS1.0:-VERS-TLS1.1";

std::string headerOf(MHD_Connection* connection, const char* name) {
  const char* value = nullptr;
  std::size_t size = 0;
  const auto found = MHD_lookup_connection_value_n(connection, MHD_HEADER_KIND, name,
                                                   std::strlen(name), &value, &size);
  return found == MHD_YES && value != nullptr ? std::string(value, size) : std::string();
}

/// A path stays as it is asked for: what it means is the site's to say.
std::size_t leaveEscaped(void* /*nothing*/, MHD_Connection* /*connection*/, char* text) {
  return std::strlen(text);
}

}  // namespace

class HttpServer::Inside {
 public:
  Inside(const HttpSettings& settings, Command command)
      : settings_(settings), site_(settings.access), command_(std::move(command)) {}
  ~Inside() { end(); }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  bool start(std::string& error);
  void push(FeedEvent event);
  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] std::size_t viewers() const {
    const std::lock_guard<std::mutex> hold(lock_);
    return viewers_.size();
  }

 private:
  /// A connection that is set aside until there is something to send on it.
  struct Waiter {
    MHD_Connection* connection = nullptr;
    bool isAside = false;
  };

  /// One request, from its first line to its end.
  struct Exchange : Waiter {
    PageRequest request;
    std::size_t refusedBytes = 0;
    bool isAsked = false;  // Whether the gateway has its command.
    std::optional<std::string> answer;
  };

  /// One open page.
  struct Viewer : Waiter {
    std::uint64_t place = 0;
    std::string text;  // Of which `sent` bytes are sent.
    std::size_t sent = 0;
  };

  static MHD_Result asked(void* self, MHD_Connection* connection, const char* url,
                          const char* method, const char* version, const char* upload,
                          std::size_t* uploadSize, void** exchange);
  static void completed(void* self, MHD_Connection* connection, void** exchange,
                        MHD_RequestTerminationCode code);
  static ssize_t read(void* self, std::uint64_t position, char* buffer, std::size_t most);
  static void closed(void* self);

  struct Reading {
    Inside* server;
    Viewer viewer;
  };

  MHD_Result take(MHD_Connection* connection, std::shared_ptr<Exchange>& exchange);
  MHD_Result ask(MHD_Connection* connection, const std::shared_ptr<Exchange>& exchange,
                 const PageAnswer& answer);
  MHD_Result view(MHD_Connection* connection, const PageAnswer& answer);
  static MHD_Result send(MHD_Connection* connection, const PageAnswer& answer,
                         MHD_Response* response);
  static MHD_Result send(MHD_Connection* connection, const PageAnswer& answer);
  ssize_t read(Viewer& viewer, char* buffer, std::size_t most);
  void setAside(Viewer& viewer);
  void answered(Exchange& exchange, const std::string& json);
  void end();

  const HttpSettings settings_;
  const Site site_;
  const Command command_;
  Feed feed_;
  std::uint16_t port_ = 0;
  MHD_Daemon* daemon_ = nullptr;
  mutable std::mutex lock_;
  std::set<Viewer*> viewers_;
  std::set<Exchange*> commands_;
  bool isEnding_ = false;
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

bool HttpServer::Inside::start(std::string& error) {
  Listener listener;
  error = listener.open(settings_.address, settings_.port);
  if (!error.empty()) {
    error = settings_.address + ", port " + std::to_string(settings_.port) + ": " + error;
    return false;
  }
  port_ = listener.port();
  unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
  std::vector<MHD_OptionItem> options;
  const auto add = [&options](MHD_OPTION option, std::intptr_t value, const char* text = nullptr) {
    options.push_back({option, value, const_cast<char*>(text)});
  };
  if (settings_.tls) {
    flags |= MHD_USE_TLS;
    add(MHD_OPTION_HTTPS_MEM_CERT, 0, settings_.tls->certificate.c_str());
    add(MHD_OPTION_HTTPS_MEM_KEY, 0, settings_.tls->key.c_str());
    add(MHD_OPTION_HTTPS_PRIORITIES, 0, kTlsVersions);
  }
  add(MHD_OPTION_END, 0);
  daemon_ = MHD_start_daemon(
      flags, 0, nullptr, nullptr, &Inside::asked, this, MHD_OPTION_LISTEN_SOCKET, listener.take(),
      MHD_OPTION_NOTIFY_COMPLETED, &Inside::completed, this, MHD_OPTION_CONNECTION_LIMIT,
      static_cast<unsigned>(settings_.mostConnections), MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      kMostHeaderBytes + kBlock, MHD_OPTION_CONNECTION_TIMEOUT,
      static_cast<unsigned>(settings_.silence.count()), MHD_OPTION_UNESCAPE_CALLBACK, &leaveEscaped,
      nullptr, MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
  if (daemon_ != nullptr) return true;
  error = settings_.tls ? "the certificate and its key are not taken; are they PEM, and a pair?"
                        : "the server does not start; has the system descriptors and threads left?";
  return false;
}

void HttpServer::Inside::push(FeedEvent event) {
  feed_.push(std::move(event));
  std::vector<MHD_Connection*> waiting;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    for (Viewer* each : viewers_) {
      if (std::exchange(each->isAside, false)) waiting.push_back(each->connection);
    }
  }
  // Nobody else takes them up again, and before that none of them ends.
  for (MHD_Connection* each : waiting) MHD_resume_connection(each);
}

void HttpServer::Inside::end() {
  if (daemon_ == nullptr) return;
  std::vector<MHD_Connection*> waiting;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    isEnding_ = true;
    for (Viewer* each : viewers_) {
      if (std::exchange(each->isAside, false)) waiting.push_back(each->connection);
    }
    for (Exchange* each : commands_) {
      if (std::exchange(each->isAside, false)) waiting.push_back(each->connection);
    }
  }
  for (MHD_Connection* each : waiting) MHD_resume_connection(each);
  MHD_stop_daemon(daemon_);
}

MHD_Result HttpServer::Inside::asked(void* self, MHD_Connection* connection, const char* url,
                                     const char* method, const char* /*version*/,
                                     const char* upload, std::size_t* uploadSize, void** cookie) {
  if (*cookie == nullptr) {
    auto exchange = std::make_shared<Exchange>();
    exchange->connection = connection;
    PageRequest& request = exchange->request;
    request.method = method;
    request.path = url;
    request.host = headerOf(connection, MHD_HTTP_HEADER_HOST);
    request.authorization = headerOf(connection, MHD_HTTP_HEADER_AUTHORIZATION);
    request.contentType = headerOf(connection, MHD_HTTP_HEADER_CONTENT_TYPE);
    request.fetchSite = headerOf(connection, "Sec-Fetch-Site");
    request.fetchMode = headerOf(connection, "Sec-Fetch-Mode");
    *cookie = new std::shared_ptr<Exchange>(std::move(exchange));
    return MHD_YES;
  }
  auto& exchange = *static_cast<std::shared_ptr<Exchange>*>(*cookie);
  if (*uploadSize == 0) return static_cast<Inside*>(self)->take(connection, exchange);
  std::string& body = exchange->request.body;
  const std::size_t taken = std::min(*uploadSize, kLongestBody + 1 - body.size());
  body.append(upload, taken);
  exchange->refusedBytes += *uploadSize - taken;
  *uploadSize = 0;
  return exchange->refusedBytes > kMostRefusedBytes ? MHD_NO : MHD_YES;
}

void HttpServer::Inside::completed(void* self, MHD_Connection* /*connection*/, void** cookie,
                                   MHD_RequestTerminationCode /*code*/) {
  auto* const exchange = static_cast<std::shared_ptr<Exchange>*>(*cookie);
  if (exchange == nullptr) return;
  {
    auto& server = *static_cast<Inside*>(self);
    const std::lock_guard<std::mutex> hold(server.lock_);
    server.commands_.erase(exchange->get());
  }
  delete exchange;
  *cookie = nullptr;
}

MHD_Result HttpServer::Inside::take(MHD_Connection* connection,
                                    std::shared_ptr<Exchange>& exchange) {
  if (exchange->isAsked) {
    std::optional<std::string> json;
    {
      const std::lock_guard<std::mutex> hold(lock_);
      json = exchange->answer;
    }
    PageAnswer answer = plainAnswer(json ? 200U : 503U, "the gateway stops");
    if (json) {
      answer.type = "application/json";
      answer.body = *json;
    }
    return send(connection, answer);
  }
  const auto status = feed_.newest();
  const PageAnswer answer = site_.answer(exchange->request, status.get(), viewers());
  switch (answer.kind) {
    case PageAnswer::Kind::events:
      return view(connection, answer);
    case PageAnswer::Kind::command:
      return ask(connection, exchange, answer);
    case PageAnswer::Kind::whole:
      break;
  }
  return send(connection, answer);
}

MHD_Result HttpServer::Inside::ask(MHD_Connection* connection,
                                   const std::shared_ptr<Exchange>& exchange,
                                   const PageAnswer& answer) {
  bool hasRoom = false;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    hasRoom = commands_.size() < settings_.mostCommands && !isEnding_;
    if (hasRoom) commands_.insert(exchange.get());
  }
  if (!hasRoom) return send(connection, plainAnswer(503, "too many commands wait already"));
  exchange->isAsked = true;
  MHD_suspend_connection(connection);
  bool isEnding = false;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    isEnding = isEnding_;
    exchange->isAside = !isEnding;
  }
  if (isEnding) {
    MHD_resume_connection(connection);
    return MHD_YES;
  }
  command_(answer.reader, exchange->request.body,
           [this, exchange, alive = std::weak_ptr<int>(alive_)](const std::string& json) {
             if (!alive.expired()) answered(*exchange, json);
           });
  return MHD_YES;
}

void HttpServer::Inside::answered(Exchange& exchange, const std::string& json) {
  bool wasAside = false;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    exchange.answer = json;
    wasAside = std::exchange(exchange.isAside, false);
  }
  if (wasAside) MHD_resume_connection(exchange.connection);
}

MHD_Result HttpServer::Inside::view(MHD_Connection* connection, const PageAnswer& answer) {
  auto reading = std::make_unique<Reading>(Reading{this, {}});
  Viewer& viewer = reading->viewer;
  viewer.connection = connection;
  viewer.place = feed_.end();
  viewer.text = kReconnect + textOf(FeedEvent{feed_.newest(), nullptr});
  bool hasRoom = false;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    hasRoom = viewers_.size() < settings_.mostViewers && !isEnding_;
    if (hasRoom) viewers_.insert(&viewer);
  }
  if (!hasRoom) {
    PageAnswer full = plainAnswer(503, "too many pages are open; close one and try again");
    full.headers.emplace_back("Retry-After", "30");
    return send(connection, full);
  }
  MHD_Response* const response = MHD_create_response_from_callback(
      MHD_SIZE_UNKNOWN, kBlock, &Inside::read, reading.get(), &Inside::closed);
  if (response == nullptr) {
    closed(reading.release());
    return MHD_NO;
  }
  // The response has it now.
  static_cast<void>(reading.release());
  return send(connection, answer, response);
}

MHD_Result HttpServer::Inside::send(MHD_Connection* connection, const PageAnswer& answer) {
  std::string body = answer.body;
  MHD_Response* const response =
      MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_MUST_COPY);
  return response == nullptr ? MHD_NO : send(connection, answer, response);
}

MHD_Result HttpServer::Inside::send(MHD_Connection* connection, const PageAnswer& answer,
                                    MHD_Response* response) {
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  for (const auto& [name, value] : answer.headers) {
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  const auto result = MHD_queue_response(connection, answer.status, response);
  MHD_destroy_response(response);
  return result;
}

ssize_t HttpServer::Inside::read(void* self, std::uint64_t /*position*/, char* buffer,
                                 std::size_t most) {
  auto& reading = *static_cast<Reading*>(self);
  return reading.server->read(reading.viewer, buffer, most);
}

ssize_t HttpServer::Inside::read(Viewer& viewer, char* buffer, std::size_t most) {
  if (viewer.sent == viewer.text.size()) {
    FeedEvent event;
    const Feed::Look look = feed_.at(viewer.place, event);
    if (look == Feed::Look::lost) return MHD_CONTENT_READER_END_OF_STREAM;
    if (look == Feed::Look::nothing) {
      bool isEnding = false;
      {
        const std::lock_guard<std::mutex> hold(lock_);
        isEnding = isEnding_;
      }
      if (isEnding) return MHD_CONTENT_READER_END_OF_STREAM;
      setAside(viewer);
      return 0;
    }
    ++viewer.place;
    viewer.text = textOf(event);
    viewer.sent = 0;
  }
  const std::size_t size = std::min(most, viewer.text.size() - viewer.sent);
  viewer.text.copy(buffer, size, viewer.sent);
  viewer.sent += size;
  return static_cast<ssize_t>(size);
}

void HttpServer::Inside::setAside(Viewer& viewer) {
  // First, so that whoever takes it up again comes behind it.
  MHD_suspend_connection(viewer.connection);
  bool stays = false;
  {
    const std::lock_guard<std::mutex> hold(lock_);
    stays = !isEnding_ && feed_.end() <= viewer.place;
    viewer.isAside = stays;
  }
  if (!stays) MHD_resume_connection(viewer.connection);
}

void HttpServer::Inside::closed(void* self) {
  const std::unique_ptr<Reading> reading(static_cast<Reading*>(self));
  const std::lock_guard<std::mutex> hold(reading->server->lock_);
  reading->server->viewers_.erase(&reading->viewer);
}

// --- What others see of it.

std::unique_ptr<HttpServer> HttpServer::start(const HttpSettings& settings, Command command,
                                              std::string& error) {
  auto inside = std::make_unique<Inside>(settings, std::move(command));
  if (!inside->start(error)) return nullptr;
  return std::unique_ptr<HttpServer>(new HttpServer(std::move(inside)));
}

HttpServer::HttpServer(std::unique_ptr<Inside> inside) : inside_(std::move(inside)) {}
HttpServer::~HttpServer() = default;

void HttpServer::show(std::shared_ptr<const Status> status) {
  inside_->push({.status = std::move(status), .frames = nullptr});
}

void HttpServer::tell(std::shared_ptr<const FrameBatch> frames) {
  inside_->push({.status = nullptr, .frames = std::move(frames)});
}

std::uint16_t HttpServer::port() const noexcept { return inside_->port(); }

std::size_t HttpServer::viewers() const { return inside_->viewers(); }

}  // namespace kestrin::gateway
