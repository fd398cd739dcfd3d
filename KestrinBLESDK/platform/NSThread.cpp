#include "KestrinBLESDK/platform/NSThread.h"

#include <utility>

#include "KestrinBLESDK/platform/MainRunLoop.h"

namespace kestrin {
namespace {

class LoopThread final : public NSThread {
 public:
  explicit LoopThread(std::weak_ptr<MainRunLoop> loop) : loop_(std::move(loop)) {}
  void sleepForTimeInterval(double seconds) override {
    if (const auto loop = loop_.lock()) loop->sleepFor(timeFromSeconds(seconds));
  }

 private:
  const std::weak_ptr<MainRunLoop> loop_;
};

}  // namespace

NSThread::~NSThread() = default;

std::shared_ptr<NSThread> sleepOn(std::weak_ptr<MainRunLoop> loop) {
  return std::make_shared<LoopThread>(std::move(loop));
}

}  // namespace kestrin
