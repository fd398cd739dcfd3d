// Posts the records of the log to one web server, in order, a batch at a time; an answer of success
// is the server's commit of the batch.
//
// No more than one batch is in memory, however many records wait in the log, and no further is read
// than what is synced. What was not answered with success is posted again: the same batch as long
// as the gateway runs, and from behind the last commit after a restart.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; log, troubles and client outlive it. Dropping it ends the post
// that is under way.
// Errors: a trouble, with what the server answers, until it takes records again.
#pragma once

#include "tools/gateway/broker/ReconnectPause.h"
#include "tools/gateway/config/Config.h"
#include "tools/gateway/core/Timer.h"
#include "tools/gateway/core/Troubles.h"
#include "tools/gateway/http/HttpClient.h"
#include "tools/gateway/log/Log.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kestrin::gateway {

class Webhook {
 public:
  /// The longest pause that a server can ask for.
  static constexpr Time kLongestRetryAfter = std::chrono::minutes(10);

  struct How {
    std::string gateway;
    WebhookConfig config;
    RandomSource random;
    /// The server has everything up to this number.
    std::function<void(RecordNumber)> onCommit;
  };
  /// Begins behind `committed` with the next `pump`.
  Webhook(std::weak_ptr<RunLoop> loop, Log& log, Troubles& troubles, HttpClient& client, How how,
          RecordNumber committed);
  ~Webhook() = default;
  Webhook(const Webhook&) = delete;
  Webhook& operator=(const Webhook&) = delete;

  [[nodiscard]] const WebhookConfig& config() const noexcept { return how_.config; }
  void pump();
  /// Posts nothing more; what is under way may still be answered.
  void stop();
  /// It is taken out, and its trouble with it.
  void leave();

 private:
  bool fillBatch();
  void post();
  void answered(const HttpAnswer& answer);
  void failed(const HttpAnswer& answer);
  [[nodiscard]] std::string what() const { return "webhook " + how_.config.name; }

  Log& log_;
  Troubles& troubles_;
  HttpClient& client_;
  const How how_;
  Timer again_;
  ReconnectPause shortPause_;
  ReconnectPause longPause_;
  RecordNumber cursor_;
  RecordNumber from_ = 0;
  RecordNumber to_ = 0;
  std::shared_ptr<const std::string> body_;
  HttpClient::Exchange exchange_;
  bool tookLast_ = false;
  bool stopped_ = false;
};

}  // namespace kestrin::gateway
