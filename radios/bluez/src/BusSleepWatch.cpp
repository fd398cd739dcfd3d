#include "BusSleepWatch.h"

#include <chrono>
#include <string>
#include <system_error>
#include <utility>

#include "Posting.h"

namespace kestrin::bluez {
namespace {

constexpr Time kLook = std::chrono::milliseconds(10);
// What the radio was asked last still has to leave the process.
constexpr Time kLastWords = std::chrono::milliseconds(200);

void logLine(NSLogSink& log, const std::string& why) {
  NSLog(log, "the machine's sleep is not watched: %@", why);
}

}  // namespace

SleepWatch::~SleepWatch() = default;

class BusSleepWatch::OnMainLoop : public std::enable_shared_from_this<OnMainLoop> {
 public:
  OnMainLoop(const Platform& platform, SleepOptions options)
      : platform_(platform.completed()), options_(std::move(options)) {}

  [[nodiscard]] const Platform& platform() const { return platform_; }

  void sleep(std::function<void()> release) {
    release_ = std::move(release);
    if (options_.beforeSleep) options_.beforeSleep();
    platform_.notificationCenter->postNotificationName_object(
        UIApplicationDidEnterBackgroundNotification);
    ++sleeps_;
    if (options_.isDown) {
      look(sleeps_);
    } else {
      later(kEnough, &OnMainLoop::letSleep, sleeps_);
    }
  }

  void wake() {
    ++sleeps_;  // What still waits for the last sleep is late.
    if (options_.afterWake) options_.afterWake();
  }

 private:
  void look(std::uint64_t sleep) {
    if (options_.isDown()) {
      later(kLastWords, &OnMainLoop::letSleep, sleep);
    } else {
      later(kLook, &OnMainLoop::look, sleep);
    }
  }

  void letSleep(std::uint64_t /*sleep*/) { release_(); }

  void later(Time delay, void (OnMainLoop::*what)(std::uint64_t), std::uint64_t sleep) {
    const auto loop = platform_.mainRunLoop.lock();
    if (!loop) return;
    loop->arm(delay, [weak = weak_from_this(), what, sleep] {
      const auto self = weak.lock();
      if (self && self->sleeps_ == sleep) (self.get()->*what)(sleep);
    });
  }

  const Platform platform_;
  const SleepOptions options_;
  std::function<void()> release_;
  std::uint64_t sleeps_ = 0;
};

BusSleepWatch::BusSleepWatch(const Platform& platform, SleepOptions options,
                             std::shared_ptr<Clock> clock) {
  auto address = options.busAddress;
  onMainLoop_ = std::make_shared<OnMainLoop>(platform, std::move(options));
  const auto log = onMainLoop_->platform().log;
  thread_ = BusThread::create(std::move(clock));
  if (!thread_) {
    logLine(*log, "no descriptors are left");
    return;
  }
  const std::weak_ptr<OnMainLoop> weak = onMainLoop_;
  const std::weak_ptr<RunLoop> loop = onMainLoop_->platform().mainRunLoop;
  SleepListener listener;
  listener.sleeps = [this, weak, loop] {
    // This object waits for the thread before it goes, so both are there in a task of the thread.
    auto release = [thread = std::weak_ptr(thread_), core = core_.get()] {
      if (const auto running = thread.lock()) running->post([core] { core->release(); });
    };
    postTo(loop, [weak, release = std::move(release)] {
      if (const auto self = weak.lock()) self->sleep(release);
    });
  };
  listener.wakes = [weak, loop] {
    postTo(loop, [weak] {
      if (const auto self = weak.lock()) self->wake();
    });
  };
  listener.trouble = [log](const std::string& why) { logLine(*log, why); };
  core_ = std::make_shared<SleepCore>(*thread_, std::move(address), std::move(listener));
  try {
    runner_ = std::thread([thread = thread_, core = core_] {
      core->start();
      thread->run();
      core->stop();
    });
  } catch (const std::system_error& error) {
    logLine(*log, error.what());
  }
}

BusSleepWatch::~BusSleepWatch() {
  onMainLoop_.reset();
  if (!runner_.joinable()) return;
  thread_->post([thread = thread_.get()] { thread->end(); });
  runner_.join();
}

std::shared_ptr<SleepWatch> watchSleep(const Platform& platform, SleepOptions options) {
  return std::make_shared<BusSleepWatch>(platform, std::move(options));
}

}  // namespace kestrin::bluez
