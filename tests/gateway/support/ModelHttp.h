// A web server in virtual time, behind a model of the way to it: answers come late, or never,
// though the server has taken what was posted.
//
// Threads: one. Lifetime: the server outlives the clients. Errors: what is not a post of a
// gateway's is kept in `wrong`.
#pragma once

#include "tools/gateway/core/Timer.h"
#include "tools/gateway/http/HttpClient.h"
#include "tools/gateway/message/Messages.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kestrin::gateway::test {

class ModelHttp final : public HttpClient {
 public:
  ModelHttp(std::weak_ptr<RunLoop> loop, std::uint64_t seed)
      : loop_(std::move(loop)), random_(seed) {}

  /// What it answers; absent: a success. Asked for each post; a status of 0 may be answered though
  /// the server has taken it.
  std::function<std::optional<HttpAnswer>(const HttpPost&)> answers;
  Time delay = std::chrono::milliseconds(1);
  /// How many of a hundred answers are lost behind the server.
  unsigned losses = 0;

  std::vector<HttpPost> posts;
  std::vector<Delivery> taken;  ///< Every record of every post that the server took, in order.
  std::vector<std::string> wrong;
  std::size_t underWay = 0;

  [[nodiscard]] Exchange post(HttpPost post, Done done) override {
    posts.push_back(post);
    ++underWay;
    auto exchange = std::make_shared<Begun>(*this, loop_);
    exchange->timer.arm(delay, [this, at = exchange.get(), post, done = std::move(done)] {
      at->isOver = true;
      --underWay;
      const HttpAnswer answer = answered(post);
      done(answer);
    });
    return exchange;
  }

 private:
  struct Begun {
    Begun(ModelHttp& made, std::weak_ptr<RunLoop> loop) : server(made), timer(std::move(loop)) {}
    ~Begun() {
      if (!isOver) --server.underWay;
    }
    Begun(const Begun&) = delete;
    Begun& operator=(const Begun&) = delete;
    ModelHttp& server;
    Timer timer;
    bool isOver = false;
  };

  HttpAnswer answered(const HttpPost& post) {
    if (answers) {
      if (const auto answer = answers(post)) return *answer;
    }
    take(*post.body);
    if (random_() % 100 < losses) return {.status = 0, .why = "the connection was lost"};
    return {.status = 200, .why = ""};
  }
  void take(const std::string& body) {
    if (!body.starts_with("[{") || !body.ends_with("}]\n")) wrong.push_back("no list: " + body);
    // One record stands on each line.
    for (std::size_t at = 1; at < body.size();) {
      const auto end = std::min(body.find(",\n", at), body.size() - 2);
      std::string error;
      const auto delivery = deliveryOf(body.substr(at, end - at), error);
      delivery ? taken.push_back(*delivery) : wrong.push_back(error);
      at = end + 2;
    }
  }

  const std::weak_ptr<RunLoop> loop_;
  std::mt19937_64 random_;
};

}  // namespace kestrin::gateway::test
