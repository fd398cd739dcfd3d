#include "Session.h"

#include <chrono>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "RadioCore.h"

namespace kestrin::bluez {
namespace {

// A little more than the thread itself takes for its last calls.
constexpr auto kLongestEnd = std::chrono::milliseconds(2500);

struct Sessions {
  std::mutex mutex;
  std::map<std::string, std::weak_ptr<Session>> byBus;
};

Sessions& sessions() {
  static auto* const all = new Sessions;  // Static objects may still use it at exit.
  return *all;
}

}  // namespace

std::shared_ptr<Session> Session::forBus(const std::optional<std::string>& busAddress) {
  auto& all = sessions();
  std::shared_ptr<Session> session;  // Released without the lock.
  const std::scoped_lock lock(all.mutex);
  auto& known = all.byBus[busAddress.value_or("")];
  session = known.lock();
  if (!session) {
    session = std::make_shared<Session>(busAddress);
    known = session;
  }
  return session;
}

Session::Session(const std::optional<std::string>& busAddress, std::shared_ptr<Clock> clock)
    : bus_(busAddress.value_or("")) {
  thread_ = BusThread::create(std::move(clock));
  if (!thread_) return;
  auto core = std::make_shared<RadioCore>(thread_, bus_, busAddress);
  try {
    std::promise<void> ended;
    ended_ = ended.get_future();
    runner_ = std::thread([thread = thread_, core, ended = std::move(ended)]() mutable {
      core->start();
      thread->run();
      core->stop();
      ended.set_value();
    });
    core_ = std::move(core);
  } catch (const std::system_error&) {
    thread_.reset();
  }
}

Session::~Session() {
  if (!core_) return;
  post([](RadioCore& core) { core.shutDown(); });
  // The last hold can be released on the radio's thread, or on one that this thread waits for; so
  // the wait has a limit. The thread keeps what it needs and ends by itself.
  const bool ended =
      !thread_->isCurrent() && ended_.wait_for(kLongestEnd) == std::future_status::ready;
  if (ended) {
    runner_.join();
  } else {
    runner_.detach();
  }
}

void Session::post(Work work) const {
  if (!core_) return;
  // The thread keeps the core for as long as it runs tasks.
  thread_->post([core = core_.get(), work = std::move(work)] { work(*core); });
}

}  // namespace kestrin::bluez
