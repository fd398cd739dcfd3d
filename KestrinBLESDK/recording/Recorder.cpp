#include "KestrinBLESDK/recording/Recorder.h"

#include <utility>

namespace kestrin {
namespace {

Time timeOf(const std::weak_ptr<RunLoop>& loop) {
  const auto alive = loop.lock();
  return alive ? alive->now() : Time::zero();
}

}  // namespace

RecordingSink::~RecordingSink() = default;

Recorder::Recorder(std::shared_ptr<RecordingSink> sink, std::weak_ptr<RunLoop> loop)
    : sink_(std::move(sink)), loop_(std::move(loop)), begin_(timeOf(loop_)) {}

void Recorder::take(RecordedEvent event) const noexcept {
  const auto loop = loop_.lock();
  event.time = loop ? loop->now() - begin_ : Time::zero();
  sink_->take(event);
}

}  // namespace kestrin
