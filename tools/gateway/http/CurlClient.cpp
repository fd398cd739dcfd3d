#include "tools/gateway/http/CurlClient.h"

#include <curl/curl.h>

#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tools/gateway/http/CurlTransfer.h"

namespace kestrin::gateway {
namespace {

using ExchangeId = unsigned long long;

// While nothing is under way it is woken for whatever comes.
constexpr int kLongestWaitMs = 60'000;

void beginLibrary() {
  static const CURLcode begun = curl_global_init(CURL_GLOBAL_DEFAULT);
  static_cast<void>(begun);
}

}  // namespace

/// Who waits for an answer, on the run loop's thread.
struct CurlClient::Waiting {
  std::map<ExchangeId, Done> all;
};

/// The thread with its transfers.
class CurlClient::Transfers {
 public:
  using Answered = std::function<void(ExchangeId, HttpAnswer)>;

  Transfers(std::string agent, Answered answered)
      : agent_(std::move(agent)), answered_(std::move(answered)) {
    beginLibrary();
    multi_.reset(curl_multi_init());
  }
  ~Transfers() { end(); }
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;

  void begin(ExchangeId id, HttpPost post) {
    order([&] { begun_.emplace_back(id, std::move(post)); });
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  }
  void drop(ExchangeId id) {
    order([&] { dropped_.push_back(id); });
  }
  void end() {
    if (!thread_.joinable()) return;
    order([&] { isEnding_ = true; });
    thread_.join();
  }

 private:
  struct EndMulti {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  template <class Change>
  void order(const Change& change) {
    {
      const std::lock_guard lock(mutex_);
      change();
    }
    curl_multi_wakeup(multi_.get());
  }

  void run() {
    while (takeOrders()) {
      int running = 0;
      curl_multi_perform(multi_.get(), &running);
      takeOutcomes();
      curl_multi_poll(multi_.get(), nullptr, 0, kLongestWaitMs, nullptr);
    }
    while (!transfers_.empty()) remove(transfers_.begin()->first);
  }

  bool takeOrders() {
    std::vector<std::pair<ExchangeId, HttpPost>> begun;
    std::vector<ExchangeId> dropped;
    {
      const std::lock_guard lock(mutex_);
      if (isEnding_) return false;
      begun.swap(begun_);
      dropped.swap(dropped_);
    }
    for (auto& [id, post] : begun) add(id, std::move(post));
    for (const ExchangeId id : dropped) remove(id);
    return true;
  }

  void add(ExchangeId id, HttpPost post) {
    auto transfer = std::make_unique<CurlTransfer>(std::move(post), agent_);
    std::string why = transfer->whyNot().value_or("");
    if (why.empty() && curl_multi_add_handle(multi_.get(), transfer->handle()) != CURLM_OK) {
      why = "there is no memory for it";
    }
    if (!why.empty()) return answered_(id, {.status = 0, .why = why});
    transfers_.emplace(id, std::move(transfer));
  }

  void remove(ExchangeId id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) return;
    curl_multi_remove_handle(multi_.get(), found->second->handle());
    transfers_.erase(found);
  }

  void takeOutcomes() {
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* const easy = message->easy_handle;
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): the library's.
      const CURLcode outcome = message->data.result;
      for (const auto& [id, transfer] : transfers_) {
        if (transfer->handle() != easy) continue;
        answered_(id, transfer->answer(outcome));
        remove(id);
        break;
      }
    }
  }

  const std::string agent_;
  const Answered answered_;
  std::unique_ptr<CURLM, EndMulti> multi_;
  std::map<ExchangeId, std::unique_ptr<CurlTransfer>> transfers_;
  std::mutex mutex_;
  std::vector<std::pair<ExchangeId, HttpPost>> begun_;
  std::vector<ExchangeId> dropped_;
  bool isEnding_ = false;
  std::thread thread_;
};

/// Dropped by who does not want the answer any more.
class CurlClient::Begun {
 public:
  Begun(ExchangeId id, std::weak_ptr<Waiting> waiting, std::weak_ptr<Transfers> transfers)
      : id_(id), waiting_(std::move(waiting)), transfers_(std::move(transfers)) {}
  ~Begun() {
    const auto waiting = waiting_.lock();
    if (!waiting || waiting->all.erase(id_) == 0) return;
    if (const auto transfers = transfers_.lock()) transfers->drop(id_);
  }
  Begun(const Begun&) = delete;
  Begun& operator=(const Begun&) = delete;

 private:
  const ExchangeId id_;
  const std::weak_ptr<Waiting> waiting_;
  const std::weak_ptr<Transfers> transfers_;
};

CurlClient::CurlClient(std::weak_ptr<RunLoop> loop, std::string agent)
    : loop_(std::move(loop)),
      waiting_(std::make_shared<Waiting>()),
      transfers_(std::make_shared<Transfers>(
          std::move(agent), [loop = loop_, waiting = std::weak_ptr<Waiting>(waiting_)](
                                ExchangeId id, HttpAnswer answer) {
            const auto alive = loop.lock();
            if (!alive) return;
            alive->post([waiting, id, answer = std::move(answer)] {
              const auto known = waiting.lock();
              if (!known) return;
              auto found = known->all.extract(id);
              if (!found.empty()) found.mapped()(answer);
            });
          })) {}

CurlClient::~CurlClient() { transfers_->end(); }

HttpClient::Exchange CurlClient::post(HttpPost post, Done done) {
  const ExchangeId id = ++last_;
  waiting_->all.emplace(id, std::move(done));
  transfers_->begin(id, std::move(post));
  return std::make_shared<Begun>(id, waiting_, transfers_);
}

}  // namespace kestrin::gateway
