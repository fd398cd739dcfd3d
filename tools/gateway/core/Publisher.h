// Hands the records of the log to the broker, in order, and knows which of them it has answered.
//
// It reads no further than what is synced and keeps no more than one batch and what waits for an
// acknowledgement, however many records wait in the log.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; log, window and troubles outlive it.
// Errors: what the broker refuses and what the log cannot read are troubles, and are tried again.
#pragma once

#include "tools/gateway/core/Timer.h"
#include "tools/gateway/core/Troubles.h"
#include "tools/gateway/core/Window.h"
#include "tools/gateway/log/Log.h"
#include "tools/gateway/message/Messages.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace kestrin::gateway {

class Publisher {
 public:
  struct How {
    std::string gateway;
    FrameFormat format = FrameFormat::json;
  };
  Publisher(std::weak_ptr<RunLoop> loop, Log& log, Window& window, Troubles& troubles,
            const How& how);

  /// Publishes from `number` on, as far as the log still has it.
  void restart(RecordNumber number);
  /// The same, unless `number` is still to come.
  void goBack(RecordNumber number);
  /// What the last connection has not acknowledged is over.
  void disconnected();
  void pump();
  /// False when the message is another's, or from before the last beginning.
  bool acknowledged(PublishId id, const std::optional<std::string>& refused);
  /// Hands over nothing more.
  void stop() { stopped_ = true; }

  /// The highest number that a consumer can have.
  [[nodiscard]] RecordNumber published() const noexcept { return published_; }
  /// The highest number that the broker has answered, acknowledged or refused.
  [[nodiscard]] RecordNumber answered() const noexcept { return answered_; }
  /// Up to this number the broker has acknowledged everything at least once.
  [[nodiscard]] RecordNumber settled() const noexcept { return settled_; }
  /// Whether everything that there was at the last restart has been handed over since, or nothing
  /// more is, because everything is refused.
  [[nodiscard]] bool hasCaughtUp() const noexcept;
  /// Gaps that were handed over for the first time, and the last of them, oldest first.
  [[nodiscard]] std::uint64_t gapCount() const noexcept { return gapCount_; }
  [[nodiscard]] const std::deque<Record>& lastGaps() const noexcept { return lastGaps_; }
  /// What of the records is in memory.
  [[nodiscard]] std::size_t held() const noexcept { return batch_.size() + waiting_.size(); }

 private:
  struct Waiting {
    PublishId id = 0;
    RecordNumber number = 0;
    bool answered = false;
    bool refused = false;
  };
  bool publishNext();
  bool fillBatch();
  void readFailed(const std::string& why);
  [[nodiscard]] Message messageOf(const Record& record) const;
  void takeRefusal(RecordNumber number, const std::string& why);
  void takeAcceptance(RecordNumber number);
  void settle();
  void noteGap(const Record& record);

  Log& log_;
  Window& window_;
  Troubles& troubles_;
  const Topics topics_;
  const FrameFormat format_;
  Timer readAgain_;
  RecordNumber cursor_ = 1;
  RecordNumber goal_ = 0;
  RecordNumber published_;
  RecordNumber answered_ = 0;
  RecordNumber settled_;
  std::deque<Record> batch_;
  std::uint64_t gapCount_ = 0;
  std::deque<Record> lastGaps_;
  std::deque<Waiting> waiting_;
  bool heldBack_ = false;  // Something before what is published now is not settled.
  std::size_t refusedInARow_ = 0;
  std::optional<RecordNumber> refusedFrom_;  // The lowest that is still to be taken.
  bool stopped_ = false;
};

}  // namespace kestrin::gateway
