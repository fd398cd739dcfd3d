// The server whole, asked by sockets: what it answers, what it refuses, and whom it drops.
#include "tools/gateway/page/HttpServer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "gateway/page/Statuses.h"
#include "gateway/support/LoopbackSockets.h"

namespace kestrin::gateway::test {
namespace {

constexpr int kLimitMs = 60'000;

/// A connection of somebody who asks.
class Client {
 public:
  explicit Client(std::uint16_t port) : socket_(connectTo(port)) {}

  bool send(const std::string& text) {
    return ::send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }
  bool get(const std::string& path, const std::string& more = "") {
    return send("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + more + "\r\n");
  }
  /// Everything up to what is waited for, or to the end of the connection.
  const std::string& readUntil(const std::string& part) {
    while (came_.find(part) == std::string::npos && readSome()) {
    }
    return came_;
  }
  /// True once the other side has ended the connection.
  bool isEnded() {
    while (readSome()) {
    }
    return ended_;
  }
  /// The same, of what is there without waiting.
  [[nodiscard]] bool hasEndedAlready() const {
    char byte = 0;
    return ::recv(socket_.number(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0;
  }
  [[nodiscard]] bool isOpen() const { return static_cast<bool>(socket_); }
  [[nodiscard]] const std::string& came() const { return came_; }

 private:
  bool readSome() {
    pollfd ready{socket_.number(), POLLIN, 0};
    if (::poll(&ready, 1, kLimitMs) <= 0) return false;
    char piece[4096];
    const ssize_t size = ::recv(socket_.number(), piece, sizeof piece, 0);
    ended_ = size <= 0;
    if (size > 0) came_.append(piece, static_cast<std::size_t>(size));
    return size > 0;
  }

  Socket socket_;
  std::string came_;
  bool ended_ = false;
};

bool comesTrue(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLimitMs);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// Commands that came, for the test's thread to answer.
class Commands {
 public:
  struct Come {
    std::string reader, payload;
    HttpServer::CommandAnswer answer;
  };
  HttpServer::Command taker() {
    return [this](const std::string& reader, const std::string& payload,
                  HttpServer::CommandAnswer answer) {
      const std::lock_guard<std::mutex> hold(lock_);
      come_.push_back({reader, payload, std::move(answer)});
      came_.notify_one();
    };
  }
  Come next() {
    std::unique_lock<std::mutex> hold(lock_);
    const bool came = came_.wait_for(hold, std::chrono::milliseconds(kLimitMs),
                                     [this] { return !come_.empty(); });
    EXPECT_TRUE(came);
    if (!came) return {};
    Come first = std::move(come_.front());
    come_.erase(come_.begin());
    return first;
  }

 private:
  std::mutex lock_;
  std::condition_variable came_;
  std::vector<Come> come_;
};

class HttpServerTest : public testing::Test {
 protected:
  std::unique_ptr<HttpServer> start(const HttpSettings& settings = {}) {
    std::string error;
    auto server = HttpServer::start(settings, commands_.taker(), error);
    EXPECT_TRUE(server) << error;
    if (server) server->show(std::make_shared<Status>(someStatus()));
    return server;
  }
  static HttpSettings withCommands() {
    HttpSettings settings;
    settings.access = {.token = "0123456789abcdef", .names = {}, .commands = true};
    return settings;
  }
  static std::string commandText(const std::string& body) {
    return "POST /reader/R1/command HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer "
           "0123456789abcdef\r\nContent-Type: application/json\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
  }

  Commands commands_;
};

TEST_F(HttpServerTest, AnswersWithTheStatusThatItWasShownLast) {
  const auto server = start();
  Status status = someStatus();
  status.gateway = "shown-later";
  server->show(std::make_shared<Status>(status));
  Client client(server->port());
  ASSERT_TRUE(client.get("/status.json"));
  const std::string& answer = client.readUntil("shown-later");
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n")) << answer;
  EXPECT_NE(answer.find("X-Content-Type-Options: nosniff\r\n"), std::string::npos);
  EXPECT_EQ(answer.find("Access-Control"), std::string::npos);
}

TEST_F(HttpServerTest, AnswersSeveralRequestsOnOneConnection) {
  const auto server = start();
  Client client(server->port());
  ASSERT_TRUE(client.get("/icon.svg"));
  client.readUntil("</svg>");
  ASSERT_TRUE(client.get("/metrics"));
  EXPECT_NE(client.readUntil("kestrin_gateway_page_viewers 0\n").find("page_viewers 0\n"),
            std::string::npos);
}

TEST_F(HttpServerTest, SendsAnOpenPageTheStatusAndThenWhatComes) {
  const auto server = start();
  Client client(server->port());
  ASSERT_TRUE(client.get("/events"));
  const std::string first = client.readUntil("event: status\ndata: {");
  EXPECT_NE(first.find("Content-Type: text/event-stream\r\n"), std::string::npos) << first;
  EXPECT_NE(first.find("retry: 2000\n"), std::string::npos) << first;
  EXPECT_TRUE(comesTrue([&] { return server->viewers() == 1; }));
  auto batch = std::make_shared<FrameBatch>();
  batch->frames = {frameNumber(4711)};
  server->tell(batch);
  EXPECT_NE(client.readUntil("4711").find("event: frames\ndata: "), std::string::npos);
  Status status = someStatus();
  status.gateway = "shown-later";
  server->show(std::make_shared<Status>(status));
  EXPECT_NE(client.readUntil("shown-later").find("shown-later"), std::string::npos);
}

TEST_F(HttpServerTest, SendsManyPagesTheSameOnItsOneThread) {
  const auto server = start();
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 32; ++i) {
    clients.push_back(std::make_unique<Client>(server->port()));
    ASSERT_TRUE(clients.back()->get("/events"));
    clients.back()->readUntil("event: status");
  }
  for (int turn = 1; turn <= 50; ++turn) {
    Status status = someStatus();
    status.gateway = "turn-" + std::to_string(turn) + "-";
    server->show(std::make_shared<Status>(status));
  }
  for (const auto& each : clients) {
    EXPECT_NE(each->readUntil("turn-50-").find("turn-50-"), std::string::npos);
    EXPECT_NE(each->came().find("turn-1-"), std::string::npos);
  }
}

TEST_F(HttpServerTest, OpensNoMorePagesThanItMay) {
  HttpSettings settings;
  settings.mostViewers = 1;
  const auto server = start(settings);
  auto first = std::make_unique<Client>(server->port());
  ASSERT_TRUE(first->get("/events"));
  first->readUntil("event: status");
  Client second(server->port());
  ASSERT_TRUE(second.get("/events"));
  EXPECT_TRUE(second.readUntil("\r\n\r\n").starts_with("HTTP/1.1 503 "));
  // Whoever goes makes room, once there was something to send.
  first.reset();
  EXPECT_TRUE(comesTrue([&] {
    server->show(std::make_shared<Status>(someStatus()));
    return server->viewers() == 0;
  }));
}

TEST_F(HttpServerTest, DropsAPageThatDoesNotReadAndGoesOnForTheOthers) {
  HttpSettings settings;
  settings.silence = std::chrono::seconds(1);
  const auto server = start(settings);
  Client lazy(server->port());
  ASSERT_TRUE(lazy.get("/events"));
  ASSERT_TRUE(comesTrue([&] { return server->viewers() == 1; }));
  Status large = someStatus();
  large.trouble.assign(64, std::string(1000, 'x'));
  const auto status = std::make_shared<Status>(large);
  EXPECT_TRUE(comesTrue([&] {
    server->show(status);
    return server->viewers() == 0;
  }));
  Client other(server->port());
  ASSERT_TRUE(other.get("/metrics"));
  EXPECT_TRUE(other.readUntil("\r\n\r\n").starts_with("HTTP/1.1 200 "));
}

TEST_F(HttpServerTest, EndsTheEventsOfAPageThatHasFallenTooFarBehind) {
  HttpSettings settings;
  settings.silence = std::chrono::seconds(600);
  const auto server = start(settings);
  Client slow(server->port());
  ASSERT_TRUE(slow.get("/events"));
  slow.readUntil("event: status");
  Status large = someStatus();
  large.trouble.assign(64, std::string(1000, 'x'));
  const auto status = std::make_shared<Status>(large);
  // More than the system holds for it and than there are places.
  for (std::size_t i = 0; i < 3 * Feed::kPlaces; ++i) server->show(status);
  // It ends where the answer does; the connection may stay for the next one.
  EXPECT_NE(slow.readUntil("\r\n0\r\n\r\n").find("\r\n0\r\n\r\n"), std::string::npos);
  EXPECT_TRUE(comesTrue([&] { return server->viewers() == 0; }));
}

TEST_F(HttpServerTest, GivesACommandToTheGatewayAndItsAnswerBack) {
  const auto server = start(withCommands());
  Client client(server->port());
  ASSERT_TRUE(client.send(commandText("{\"bytes\":\"bb\"}")));
  const auto come = commands_.next();
  EXPECT_EQ(come.reader, "R1");
  EXPECT_EQ(come.payload, "{\"bytes\":\"bb\"}");
  come.answer("{\"v\":1,\"handed\":true}");
  const std::string& answer = client.readUntil("true}");
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 ")) << answer;
  EXPECT_NE(answer.find("Content-Type: application/json\r\n"), std::string::npos) << answer;
}

TEST_F(HttpServerTest, EndsWithACommandThatNobodyHasAnswered) {
  auto server = start(withCommands());
  Client client(server->port());
  ASSERT_TRUE(client.send(commandText("{}")));
  const auto come = commands_.next();
  Client viewer(server->port());
  ASSERT_TRUE(
      viewer.send("GET /events HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer "
                  "0123456789abcdef\r\n\r\n"));
  viewer.readUntil("event: status");
  server.reset();
  EXPECT_TRUE(client.isEnded());
  EXPECT_TRUE(viewer.isEnded());
  come.answer("{}");
}

TEST_F(HttpServerTest, TakesNoMoreCommandsThanItMay) {
  HttpSettings settings = withCommands();
  settings.mostCommands = 1;
  const auto server = start(settings);
  Client first(server->port());
  ASSERT_TRUE(first.send(commandText("{}")));
  const auto come = commands_.next();
  Client second(server->port());
  ASSERT_TRUE(second.send(commandText("{}")));
  EXPECT_TRUE(second.readUntil("\r\n\r\n").starts_with("HTTP/1.1 503 "));
  come.answer("{\"v\":1}");
  first.readUntil("{\"v\":1}");
  ASSERT_TRUE(first.send(commandText("{}")));
  commands_.next().answer("{\"v\":1}");
}

TEST_F(HttpServerTest, RefusesACommandThatIsTooLong) {
  const auto server = start(withCommands());
  Client client(server->port());
  ASSERT_TRUE(client.send(commandText(std::string(kLongestBody + 1, ' '))));
  EXPECT_TRUE(client.readUntil("\r\n\r\n").starts_with("HTTP/1.1 413 "));
}

TEST_F(HttpServerTest, ReadsNoBodyWithoutEnd) {
  const auto server = start();
  Client client(server->port());
  ASSERT_TRUE(
      client.send("POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 99999999\r\n\r\n"));
  const std::string piece(8192, 'x');
  bool isCut = false;
  for (int i = 0; i < 1000 && !isCut; ++i) isCut = !client.send(piece);
  EXPECT_TRUE(isCut);
}

TEST_F(HttpServerTest, ReadsNoHeadersWithoutEnd) {
  const auto server = start();
  Client client(server->port());
  // The end comes with them, so that nothing but their length is wrong.
  client.send("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX: " + std::string(200'000, 'x') + "\r\n\r\n");
  const std::string& answer = client.readUntil("\r\n\r\n");
  EXPECT_EQ(answer.find(" 200 "), std::string::npos) << answer;
  Client next(server->port());
  ASSERT_TRUE(next.get("/"));
  EXPECT_TRUE(next.readUntil("\r\n\r\n").starts_with("HTTP/1.1 200 "));
}

TEST_F(HttpServerTest, TakesNoMoreConnectionsThanItMay) {
  HttpSettings settings;
  settings.silence = std::chrono::seconds(1);
  settings.mostConnections = 2;
  const auto server = start(settings);
  Client first(server->port());
  Client second(server->port());
  Client third(server->port());
  ASSERT_TRUE(third.get("/"));
  EXPECT_TRUE(third.readUntil("\r\n\r\n").starts_with("HTTP/1.1 200 "));
  // It had to wait until one of the others was dropped.
  EXPECT_TRUE(first.hasEndedAlready() || second.hasEndedAlready());
}

TEST_F(HttpServerTest, DropsWhoeverConnectsAndSaysNothing) {
  HttpSettings settings;
  settings.silence = std::chrono::seconds(1);
  settings.mostConnections = 4;
  const auto server = start(settings);
  std::vector<std::unique_ptr<Client>> silent;
  silent.reserve(4);
  for (int i = 0; i < 4; ++i) silent.push_back(std::make_unique<Client>(server->port()));
  Client client(server->port());
  ASSERT_TRUE(client.get("/"));
  EXPECT_TRUE(client.readUntil("\r\n\r\n").starts_with("HTTP/1.1 200 "));
  for (const auto& each : silent) EXPECT_TRUE(each->isEnded());
}

TEST_F(HttpServerTest, SaysWhyItCannotListen) {
  const auto server = start();
  HttpSettings settings;
  settings.port = server->port();
  std::string error;
  EXPECT_FALSE(HttpServer::start(settings, nullptr, error));
  EXPECT_EQ(error,
            "127.0.0.1, port " + std::to_string(server->port()) + ": Address already in use");
  settings.address = "192.0.2.1";
  EXPECT_FALSE(HttpServer::start(settings, nullptr, error));
  EXPECT_NE(error.find("192.0.2.1, port "), std::string::npos) << error;
}

TEST_F(HttpServerTest, SaysThatACertificateIsNotOne) {
  HttpSettings settings;
  settings.tls = PageTls{"no certificate", "no key"};
  std::string error;
  EXPECT_FALSE(HttpServer::start(settings, nullptr, error));
  EXPECT_EQ(error, "the certificate and its key are not taken; are they PEM, and a pair?");
}

}  // namespace
}  // namespace kestrin::gateway::test
