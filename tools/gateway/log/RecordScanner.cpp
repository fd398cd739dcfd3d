#include "tools/gateway/log/RecordScanner.h"

#include <algorithm>
#include <span>
#include <utility>

namespace kestrin::gateway {

RecordScanner::RecordScanner(std::shared_ptr<const LogFile> file, std::uint64_t place,
                             std::optional<std::uint32_t> tag, std::size_t buffer)
    : file_(std::move(file)), tag_(tag), size_(std::max(buffer, kLargestRecord)), place_(place) {}

RecordScanner::Step RecordScanner::next() {
  place_ += head_.length;
  head_ = {};
  const Step step = look();
  if (step != Step::unreadable || bufferPlace_ == place_) return step;
  // The file may have grown, or been cut and written again, since the buffer was filled.
  return fill() ? look() : Step::failed;
}

RecordScanner::Step RecordScanner::seek() {
  head_ = {};
  while (true) {
    ++place_;
    const Step step = look();
    if (step != Step::unreadable) return step;
  }
}

RecordScanner::Step RecordScanner::look() {
  // Nearly always all of the record is there already.
  if (place_ >= bufferPlace_ && place_ - bufferPlace_ < filled_) {
    const auto at = static_cast<std::size_t>(place_ - bufferPlace_);
    const ByteView seen = ByteView(buffer_).first(filled_).subspan(at);
    if (const auto head = readHead(seen, tag_)) {
      head_ = *head;
      bytes_ = seen.first(head->length);
      return Step::record;
    }
  }
  auto seen = view(kSmallestRecord);
  if (!seen) return Step::failed;
  if (seen->empty()) return Step::end;
  const auto length = recordLength(*seen);
  if (!length) return Step::unreadable;
  seen = view(*length);
  if (!seen) return Step::failed;
  const auto head = readHead(*seen, tag_);
  if (!head) return Step::unreadable;
  head_ = *head;
  bytes_ = seen->first(head->length);
  return Step::record;
}

/// What there is from the present place on: `wanted` bytes, or fewer at the end of the file.
std::optional<ByteView> RecordScanner::view(std::size_t wanted) {
  const auto left = [this]() -> ByteView {
    if (place_ < bufferPlace_ || place_ - bufferPlace_ > filled_) return {};
    return ByteView(buffer_).first(filled_).subspan(
        static_cast<std::size_t>(place_ - bufferPlace_));
  };
  if (left().size() < wanted && !fill()) return std::nullopt;
  return left();
}

bool RecordScanner::fill() {
  const std::uint64_t left = file_->size() > place_ ? file_->size() - place_ : 0;
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size_, left));
  if (buffer_.size() < wanted) buffer_.resize(wanted);
  filled_ = 0;
  const auto error = file_->read(place_, std::span(buffer_).first(wanted), filled_);
  bufferPlace_ = place_;
  if (error) error_ = *error;
  return !error;
}

}  // namespace kestrin::gateway
