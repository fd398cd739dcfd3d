#include "KestrinBLESDK/recording/RecordedPlatform.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/recording/Recorder.h"

namespace kestrin {
namespace {

/// A delayed request on its way: told when it is armed, when it runs and when it is dropped.
class RecordedRequest {
 public:
  RecordedRequest(std::shared_ptr<Recorder> recorder, std::shared_ptr<void> target,
                  const SEL& selector, std::shared_ptr<void> object)
      : recorder_(std::move(recorder)),
        target_(std::move(target)),
        selector_(selector),
        object_(std::move(object)) {}

  [[nodiscard]] bool is(const void* target, const SEL& selector, const void* object) const {
    return target_.get() == target && selector_ == selector && object_.get() == object;
  }
  void tell(RecordedKind kind, std::optional<Time> delay = std::nullopt) const {
    RecordedEvent event;
    event.kind = kind;
    event.operation = std::string(selector_.name);
    event.seconds = delay;
    recorder_->take(std::move(event));
  }
  /// What the loop performs in place of the request.
  static constexpr SEL selector() {
    return {"recordedRequest", [](void* request, const std::shared_ptr<void>&) noexcept {
              static_cast<RecordedRequest*>(request)->perform();
            }};
  }

 private:
  void perform() noexcept {
    tell(RecordedKind::delayFired);
    selector_.perform(target_.get(), object_);
  }

  const std::shared_ptr<Recorder> recorder_;
  const std::shared_ptr<void> target_;
  const SEL selector_;
  const std::shared_ptr<void> object_;
};

class RecordedRunLoop final : public RunLoop {
 public:
  RecordedRunLoop(std::weak_ptr<RunLoop> loop, std::shared_ptr<Recorder> recorder)
      : loop_(std::move(loop)), recorder_(std::move(recorder)) {}

  [[nodiscard]] Time now() const override {
    const auto loop = loop_.lock();
    return loop ? loop->now() : Time::zero();
  }
  void post(Task task) override {
    if (const auto loop = loop_.lock()) loop->post(std::move(task));
  }
  TimerId arm(Time delay, Task task) override {
    const auto loop = loop_.lock();
    return loop ? loop->arm(delay, std::move(task)) : TimerId{0};
  }
  void cancel(TimerId timer) override {
    if (const auto loop = loop_.lock()) loop->cancel(timer);
  }

  void performSelector_withObject_afterDelay(std::shared_ptr<void> target, const SEL& selector,
                                             std::shared_ptr<void> object,
                                             double seconds) override {
    const auto loop = loop_.lock();
    if (!loop) return;
    const auto request = std::make_shared<RecordedRequest>(recorder_, std::move(target), selector,
                                                           std::move(object));
    request->tell(RecordedKind::delayArmed, timeFromSeconds(seconds));
    {
      const std::scoped_lock lock(mutex_);
      std::erase_if(pending_, [](const auto& weak) { return weak.expired(); });
      pending_.push_back(request);
    }
    loop->performSelector_withObject_afterDelay(request, RecordedRequest::selector(), nullptr,
                                                seconds);
  }

  void cancelPreviousPerformRequestsWithTarget_selector_object(const void* target,
                                                               const SEL& selector,
                                                               const void* object) override {
    const auto loop = loop_.lock();
    if (!loop) return;
    for (const auto& request : takePending(target, selector, object)) {
      request->tell(RecordedKind::delayCancelled);
      loop->cancelPreviousPerformRequestsWithTarget_selector_object(
          request.get(), RecordedRequest::selector(), nullptr);
    }
  }

  [[nodiscard]] const std::weak_ptr<RunLoop>& inner() const noexcept { return loop_; }

 private:
  /// Those that have run, or are running, are pending no more.
  std::vector<std::shared_ptr<RecordedRequest>> takePending(const void* target, const SEL& selector,
                                                            const void* object) {
    const std::scoped_lock lock(mutex_);
    std::vector<std::shared_ptr<RecordedRequest>> taken;
    std::erase_if(pending_, [&](const auto& weak) {
      const auto request = weak.lock();
      if (!request || !request->is(target, selector, object)) return !request;
      taken.push_back(request);
      return true;
    });
    return taken;
  }

  const std::weak_ptr<RunLoop> loop_;
  const std::shared_ptr<Recorder> recorder_;
  std::mutex mutex_;
  std::vector<std::weak_ptr<RecordedRequest>> pending_;
};

class RecordedThread final : public NSThread {
 public:
  RecordedThread(std::shared_ptr<NSThread> thread, std::shared_ptr<Recorder> recorder)
      : thread_(std::move(thread)), recorder_(std::move(recorder)) {}
  void sleepForTimeInterval(double seconds) override {
    RecordedEvent event;
    event.kind = RecordedKind::pause;
    event.seconds = timeFromSeconds(seconds);
    recorder_->take(std::move(event));
    thread_->sleepForTimeInterval(seconds);
  }

 private:
  const std::shared_ptr<NSThread> thread_;
  const std::shared_ptr<Recorder> recorder_;
};

class RecordedLog final : public NSLogSink {
 public:
  RecordedLog(std::shared_ptr<NSLogSink> log, std::shared_ptr<Recorder> recorder)
      : log_(std::move(log)), recorder_(std::move(recorder)) {}
  void write(std::string_view line) noexcept override {
    RecordedEvent event;
    event.kind = RecordedKind::log;
    event.text = std::string(line);
    recorder_->take(std::move(event));
    if (log_->isListening()) log_->write(line);
  }

 private:
  const std::shared_ptr<NSLogSink> log_;
  const std::shared_ptr<Recorder> recorder_;
};

}  // namespace

RecordedPlatform recordedPlatform(const Platform& platform,
                                  const std::shared_ptr<RecordingSink>& sink) {
  if (!sink) return {platform, nullptr};
  RecordedPlatform recorded;
  recorded.platform = platform.completed();
  const auto recorder = std::make_shared<Recorder>(sink, recorded.platform.mainRunLoop);
  recorded.keep = std::make_shared<RecordedRunLoop>(recorded.platform.mainRunLoop, recorder);
  recorded.platform.mainRunLoop = recorded.keep;
  recorded.platform.radio = recordedRadio(recorded.platform.radio, recorder);
  recorded.platform.thread = std::make_shared<RecordedThread>(recorded.platform.thread, recorder);
  recorded.platform.log = std::make_shared<RecordedLog>(recorded.platform.log, recorder);
  return recorded;
}

Platform unrecorded(const Platform& platform) {
  Platform plain = platform;
  if (auto radio = unrecordedRadio(platform.radio)) plain.radio = std::move(radio);
  for (auto loop = std::dynamic_pointer_cast<RecordedRunLoop>(platform.mainRunLoop.lock()); loop;
       loop = std::dynamic_pointer_cast<RecordedRunLoop>(plain.mainRunLoop.lock())) {
    plain.mainRunLoop = loop->inner();
  }
  return plain;
}

}  // namespace kestrin
