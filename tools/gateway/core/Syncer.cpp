#include "tools/gateway/core/Syncer.h"

#include "tools/gateway/log/SyncWork.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

// A disk that has failed is not asked again at once.
constexpr Time kPauseAfterError = std::chrono::seconds(1);

}  // namespace

Syncer::Syncer(std::weak_ptr<RunLoop> loop, Log& log, std::shared_ptr<Syncing> syncing,
               Time interval, Handlers handlers)
    : log_(log),
      syncing_(std::move(syncing)),
      interval_(interval),
      handlers_(std::move(handlers)),
      timer_(std::move(loop)) {}

void Syncer::appended() {
  // A record waits no longer than its interval, though the disk has failed before it.
  if (rests_) timer_.cancel();
  touched();
}

void Syncer::touched() {
  if (running_ || timer_.isArmed()) return;
  rests_ = false;
  if (interval_ == Time::zero()) {
    begin();
  } else {
    timer_.arm(interval_, [this] { begin(); });
  }
}

void Syncer::finish(std::function<void()> done) {
  finished_.push_back(std::move(done));
  if (running_) return;
  timer_.arm(Time::zero(), [this] { begin(); });
}

void Syncer::begin() {
  timer_.cancel();
  rests_ = false;
  const auto work = log_.beginSync();
  if (!work) {
    callFinished();
    return;
  }
  running_ = true;
  goal_ = log_.next() - 1;
  syncing_->start(work, [this, work, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) ended(work);
  });
}

void Syncer::ended(const std::shared_ptr<SyncWork>& work) {
  running_ = false;
  const auto error = log_.endSync(work);
  // The records may be there though something else of the log is not.
  const bool failed = !work->ran || work->dataError;
  if (!failed && handlers_.onSynced) {
    handlers_.onSynced(error ? std::optional(error->text) : std::nullopt);
  }
  if (failed && error && handlers_.onError) handlers_.onError(error->text);
  goOn(failed, error.has_value());
}

void Syncer::goOn(bool failed, bool isTroubled) {
  const bool isAll = log_.synced() + 1 >= log_.next();
  if (failed || isAll) callFinished();
  if (isAll || running_ || timer_.isArmed()) return;
  const bool isHurried = !finished_.empty();
  rests_ = isTroubled && log_.next() - 1 == goal_;
  const Time pause =
      rests_ ? std::max(interval_, kPauseAfterError) : (isHurried ? Time::zero() : interval_);
  timer_.arm(pause, [this] { begin(); });
}

void Syncer::callFinished() {
  for (const auto& done : std::exchange(finished_, {})) done();
}

}  // namespace kestrin::gateway
