#include "tools/gateway/core/Webhook.h"

#include "tools/gateway/message/Messages.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kPostBytes = std::size_t{256} << 10U;
constexpr Time kPauseAfterFailedRead = std::chrono::seconds(5);
constexpr Time kSteady = std::chrono::seconds(5);
// What a person has to mend is not mended within a second.
constexpr PauseRules kShortRules{std::chrono::seconds(1), std::chrono::seconds(60), kSteady};
constexpr PauseRules kLongRules{std::chrono::seconds(30), std::chrono::minutes(10), kSteady};

bool isSuccess(int status) { return status >= 200 && status < 300; }

/// Whether it may be over without anybody's doing.
bool mayPass(int status) {
  return status == 0 || status >= 500 || status == 408 || status == 425 || status == 429;
}

std::string whyOf(const HttpAnswer& answer) {
  if (answer.status == 0) return answer.why;
  std::string said = "it answers " + std::to_string(answer.status);
  if (answer.status >= 300 && answer.status < 400) {
    const std::string where = answer.location.empty() ? "elsewhere" : "to " + answer.location;
    return said + " and points " + where + ", which is not followed; name the right url";
  }
  if (answer.status == 401 || answer.status == 403) {
    return said + ", not authorised; see token_file and headers_file";
  }
  return said;
}

}  // namespace

Webhook::Webhook(std::weak_ptr<RunLoop> loop, Log& log, Troubles& troubles, HttpClient& client,
                 How how, RecordNumber committed)
    : log_(log),
      troubles_(troubles),
      client_(client),
      how_(std::move(how)),
      again_(std::move(loop)),
      shortPause_(kShortRules, how_.random),
      longPause_(kLongRules, how_.random),
      cursor_(committed + 1) {}

void Webhook::leave() { troubles_.clear(what()); }

void Webhook::pump() {
  if (stopped_ || exchange_ || again_.isArmed()) return;
  if (body_ || fillBatch()) post();
}

void Webhook::stop() {
  stopped_ = true;
  again_.cancel();
}

bool Webhook::fillBatch() {
  const RecordNumber synced = log_.synced();
  if (cursor_ > synced) return false;
  std::vector<Record> records;
  const auto error = log_.read(cursor_, how_.config.batch, kPostBytes, records);
  std::erase_if(records, [synced](const Record& each) { return each.number > synced; });
  if (records.empty()) {
    // What is missing is lost, as a gap record says that comes later or has come.
    if (!error) cursor_ = synced + 1;
    if (!error) return false;
    troubles_.note(what() + " read", "the log cannot be read for the webhook " + how_.config.name +
                                         "; it is tried again: " + error->text);
    again_.arm(kPauseAfterFailedRead, [this] { pump(); });
    return false;
  }
  std::string body;
  for (const Record& each : records) {
    body += body.empty() ? "[" : ",\n";
    body += payloadOf(each, log_.identity(), FrameFormat::json);
  }
  body_ = std::make_shared<const std::string>(body + "]\n");
  from_ = records.front().number;
  to_ = records.back().number;
  return true;
}

void Webhook::post() {
  const WebhookConfig& config = how_.config;
  HttpPost post;
  post.url = config.url;
  post.headers = {"Content-Type: application/json", "Kestrin-Gateway: " + how_.gateway,
                  "Kestrin-Log: " + log_.identity(), "Kestrin-From: " + std::to_string(from_),
                  "Kestrin-To: " + std::to_string(to_)};
  post.tokenFile = config.tokenFile;
  post.headersFile = config.headersFile;
  post.caFile = config.caFile;
  post.timeout = config.timeout;
  post.body = body_;
  exchange_ = client_.post(std::move(post), [this](const HttpAnswer& answer) { answered(answer); });
}

void Webhook::answered(const HttpAnswer& answer) {
  exchange_.reset();
  if (!isSuccess(answer.status)) return failed(answer);
  tookLast_ = true;
  troubles_.clear(what());
  cursor_ = to_ + 1;
  body_.reset();
  how_.onCommit(to_);
  pump();
}

void Webhook::failed(const HttpAnswer& answer) {
  troubles_.set(what(), "the webhook " + how_.config.name + " does not take records from number " +
                            std::to_string(from_) +
                            " on, which are kept and posted again: " + whyOf(answer));
  if (stopped_) return;
  ReconnectPause& rule = mayPass(answer.status) ? shortPause_ : longPause_;
  const Time pause = rule.after({.up = std::exchange(tookLast_, false) ? kSteady : Time::zero()});
  const Time asked = std::min(answer.retryAfter.value_or(Time::zero()), kLongestRetryAfter);
  again_.arm(std::max(pause, asked), [this] { pump(); });
}

}  // namespace kestrin::gateway
