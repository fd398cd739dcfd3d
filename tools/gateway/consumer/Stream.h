// What a consumer has of one log: up to which number everything is done with, what came before its
// turn, and what will never come.
//
// Threads: one.
// Lifetime: a plain value.
// Errors: none.
#pragma once

#include "tools/gateway/log/Log.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <utility>

namespace kestrin::gateway {

class Stream {
 public:
  /// The highest number that a record may have: there is one behind it.
  static constexpr RecordNumber kLastNumber = std::numeric_limits<RecordNumber>::max() - 1;

  enum class Arrival : std::uint8_t {
    kept,    ///< It waits for its turn, which may have come.
    repeat,  ///< It was there before.
    noRoom,  ///< Too many wait for what is missing before them: it has to come again.
  };

  /// `next`: everything below it is done with; absent: nothing is known of the log yet.
  Stream(LogIdentity log, std::size_t mostWaiting, std::optional<RecordNumber> next)
      : log_(std::move(log)),
        mostWaiting_(mostWaiting),
        next_(next.value_or(1)),
        begun_(next.has_value()) {}

  /// The lowest number that is not done with.
  [[nodiscard]] RecordNumber next() const { return next_; }
  /// Whether a number from `next` on is known to exist and has not come.
  [[nodiscard]] bool missing() const;
  /// How many came before their turn.
  [[nodiscard]] std::size_t waiting() const { return waiting_.size(); }

  Arrival arrive(const Record& record);
  /// The numbers up to this one have been published.
  void knowOf(RecordNumber published);
  /// What has not come and is below `first` will not come. Before anything was taken that is no
  /// loss: the log was there before its consumer.
  void beginAt(RecordNumber first, GapReason why);

  /// Numbers from `next` on that will not come; they are done with then.
  std::optional<Gap> takeLost();
  /// The record whose turn it is; null when it has not come.
  [[nodiscard]] const Record* ready() const;
  /// The record whose turn it was is done with. Returns what a gap record among them says is lost
  /// of the numbers that this consumer began behind.
  std::optional<Gap> pass();

 private:
  [[nodiscard]] std::optional<Gap> gapAtNext() const;

  LogIdentity log_;
  std::size_t mostWaiting_;
  RecordNumber next_ = 1;
  RecordNumber base_ = 1;  // What is below was never this consumer's.
  bool begun_ = false;
  RecordNumber highest_ = 0;
  RecordNumber first_ = 1;
  GapReason whyFirst_ = GapReason::budget;
  std::map<RecordNumber, Record> waiting_;
  std::map<RecordNumber, Gap> gaps_;  // Those in `waiting_` that are about this log.
};

}  // namespace kestrin::gateway
