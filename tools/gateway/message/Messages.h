// What goes through the broker, as texts and back: docs/gateway.md has the table of topics and
// payloads.
//
// Threads: pure functions.
// Lifetime: plain values.
// Errors: what cannot be read says what is wrong and what would be right.
#pragma once

#include "tools/gateway/broker/Broker.h"
#include "tools/gateway/config/Config.h"
#include "tools/gateway/log/Log.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

/// The topics of one gateway: kestrin/v1/GATEWAY/...
class Topics {
 public:
  explicit Topics(std::string gateway);
  [[nodiscard]] std::string state() const;
  [[nodiscard]] std::string info() const;
  [[nodiscard]] std::string gap() const;
  [[nodiscard]] std::string health() const;
  [[nodiscard]] std::string readerState(std::string_view reader) const;
  [[nodiscard]] std::string readerFrame(std::string_view reader) const;
  [[nodiscard]] std::string readerCommand(std::string_view reader) const;
  [[nodiscard]] std::string commit(std::string_view consumer) const;
  [[nodiscard]] std::string replay() const;
  /// What a gateway subscribes to.
  [[nodiscard]] std::vector<std::string> filters() const;
  /// What a consumer subscribes to for its deliveries: the frames of every reader, and the gaps.
  [[nodiscard]] std::vector<std::string> deliveryFilters() const;
  /// The reader of a command's topic, or the consumer of a commit's; absent: it is another topic.
  [[nodiscard]] std::optional<std::string> commandedReader(std::string_view topic) const;
  [[nodiscard]] std::optional<std::string> committingConsumer(std::string_view topic) const;

 private:
  [[nodiscard]] std::string ofReader(std::string_view reader, std::string_view what) const;

  std::string base_;
};

/// How a reader is named in topics: its address with colons as it is, other than [A-Za-z0-9:_.-] as
/// %XX; a single % where it has no characters.
std::string topicPart(std::string_view reader);
/// The other way; absent when `topicPart` does not make it.
std::optional<std::string> readerOfTopicPart(std::string_view part);

struct GatewayState {
  bool online = false;
  std::string boot;
};
struct GatewayInfo {
  std::string boot, version, radio, adapter, log, promise;
  RecordNumber first = 0, next = 0;
  std::vector<std::string> consumers;
};
struct ReaderState {
  std::string phase, name, reader, sinceUtc, trouble;
};
struct Health {
  std::string log;
  RecordNumber first = 0, last = 0, synced = 0, published = 0, forgotten = 0;
  std::uint64_t bytes = 0, budget = 0;
  std::vector<std::pair<std::string, RecordNumber>> commits;
  std::vector<std::string> trouble;
};

std::string textOf(const GatewayState& state);
std::string textOf(const GatewayInfo& info);
std::string textOf(const ReaderState& state);
std::string textOf(const Health& health);

/// How payloads name a reason: budget, damaged, refused.
std::string_view wordOf(GapReason reason);
std::optional<GapReason> gapReasonOf(std::string_view word);

// Text from the air may be any bytes, payloads may not: where "name" is not UTF-8 it is shown with
// U+FFFD for what is wrong, and "nameHex" beside it has the bytes. So it is with "reader".

/// A frame or value, or a gap, as payload. Of a gap it has number and gap only.
std::string payloadOf(const Record& record, const LogIdentity& log, FrameFormat format);

/// The other way, for consumers; JSON or CBOR, told by the first byte. Members that are not known
/// are ignored.
struct Delivery {
  LogIdentity log;
  Record record;
  friend bool operator==(const Delivery&, const Delivery&) = default;
};
std::optional<Delivery> deliveryOf(std::string_view payload, std::string& error);

struct Commit {
  LogIdentity log;
  RecordNumber number = 0;
  friend bool operator==(const Commit&, const Commit&) = default;
};
std::string textOf(const Commit& commit);
std::optional<Commit> commitOf(std::string_view payload, std::string& error);

/// Asks for everything from `from` on once more.
struct Replay {
  LogIdentity log;
  RecordNumber from = 0;
  std::string consumer;
  friend bool operator==(const Replay&, const Replay&) = default;
};
std::string textOf(const Replay& replay);
std::optional<Replay> replayOf(std::string_view payload, std::string& error);

/// The most bytes that a command may have: what the longest frame to a reader has.
inline constexpr std::size_t kLongestCommand = 1029;

/// A command: {"bytes":"bb00..."}: one whole frame, checked. Blanks may stand between its bytes; in
/// CBOR a byte string may stand there.
struct Command {
  std::vector<std::uint8_t> bytes;
};
std::optional<Command> commandOf(std::string_view payload, std::string& error);
/// What is published to the command's response topic: handed to the radio, or why not.
std::string commandAnswer(bool handed, const std::string& why);

/// 2026-11-22T13:05:09.123Z. Years before 0 and after 9999 have a sign and at least six digits.
std::string utcText(std::int64_t wallMs);
/// The other way; absent for any other text.
std::optional<std::int64_t> wallMsOf(std::string_view utcText);

}  // namespace kestrin::gateway
