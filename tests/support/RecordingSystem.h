// The recording parts of a `RecordingPlatform` that are not Bluetooth: run loop, sleep,
// notifications, delivery of frames and log. Each records the request and then does what the real
// one does.
//
// Threads and lifetime: see RecordingPlatform.h. Errors: none.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "KestrinBLESDK/platform/Dispatch.h"
#include "KestrinBLESDK/platform/NSLog.h"
#include "KestrinBLESDK/platform/NSNotificationCenter.h"
#include "KestrinBLESDK/platform/NSThread.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "support/RecordingPlatform.h"

namespace kestrin::test {

class RecordingRunLoop final : public RunLoop {
 public:
  RecordingRunLoop(RecordingPlatform& platform, std::shared_ptr<RunLoop> loop)
      : platform_(platform), loop_(std::move(loop)) {}
  [[nodiscard]] Time now() const override { return loop_->now(); }
  void post(Task task) override {
    platform_.transcript().add("post");
    loop_->post(std::move(task));
  }
  TimerId arm(Time delay, Task task) override {
    platform_.transcript().add("arm");
    return loop_->arm(delay, std::move(task));
  }
  void cancel(TimerId timer) override {
    platform_.transcript().add("cancel a timer");
    loop_->cancel(timer);
  }
  void performSelector_withObject_afterDelay(std::shared_ptr<void> target, const SEL& selector,
                                             std::shared_ptr<void> object,
                                             double seconds) override {
    record("perform", selector, target.get(), object.get(), " after " + secondsText(seconds));
    loop_->performSelector_withObject_afterDelay(std::move(target), selector, std::move(object),
                                                 seconds);
  }
  void cancelPreviousPerformRequestsWithTarget_selector_object(const void* target,
                                                               const SEL& selector,
                                                               const void* object) override {
    record("cancel", selector, target, object, "");
    loop_->cancelPreviousPerformRequestsWithTarget_selector_object(target, selector, object);
  }

 private:
  void record(const std::string& verb, const SEL& selector, const void* target, const void* object,
              const std::string& rest) {
    platform_.recordDelay(verb + " " + std::string(selector.name) + " on " +
                          platform_.addressText(target) +
                          (object != nullptr ? " with an object" : "") + rest);
  }

  RecordingPlatform& platform_;
  const std::shared_ptr<RunLoop> loop_;
};

class RecordingThread final : public NSThread {
 public:
  RecordingThread(RecordingPlatform& platform, std::shared_ptr<NSThread> thread)
      : platform_(platform), thread_(std::move(thread)) {}
  void sleepForTimeInterval(double seconds) override {
    platform_.transcript().add("sleep " + secondsText(seconds));
    thread_->sleepForTimeInterval(seconds);
  }

 private:
  RecordingPlatform& platform_;
  const std::shared_ptr<NSThread> thread_;
};

/// The first object that observes is the platform's first manager, and so on.
class RecordingNotificationCenter final : public NSNotificationCenter {
 public:
  explicit RecordingNotificationCenter(RecordingPlatform& platform) : platform_(platform) {}
  void addObserver_selector_name_object(const std::shared_ptr<void>& observer, const SEL& selector,
                                        std::string_view name,
                                        const std::shared_ptr<void>& object) override {
    platform_.addManager(observer);
    platform_.transcript().add("addObserver " + platform_.addressText(observer.get()) +
                               " selector " + std::string(selector.name) + " name " +
                               std::string(name) + " object " + (object ? "present" : "(absent)"));
    NSNotificationCenter::addObserver_selector_name_object(observer, selector, name, object);
  }

 private:
  RecordingPlatform& platform_;
};

class RecordingDispatch final : public Dispatch {
 public:
  explicit RecordingDispatch(RecordingPlatform& platform) : platform_(platform) {}
  void dispatch_sync(const dispatch_queue_t& queue, WorkReference work) const override {
    platform_.transcript().add("dispatch_sync priority " + std::to_string(queue.priority));
    Dispatch::dispatch_sync(queue, work);
  }

 private:
  RecordingPlatform& platform_;
};

class RecordingLogSink final : public NSLogSink {
 public:
  explicit RecordingLogSink(RecordingPlatform& platform) : platform_(platform) {}
  void write(std::string_view line) noexcept override {
    platform_.transcript().add("log \"" + std::string(line) + '"');
    if (const auto listener = platform_.onLog) listener(std::string(line));
  }

 private:
  RecordingPlatform& platform_;
};

}  // namespace kestrin::test
