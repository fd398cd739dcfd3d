// How a gateway is, at one moment: for whoever watches it.
//
// Threads: a plain value; one that nobody changes any more may be read by any thread.
// Lifetime: plain values.
// Errors: what cannot be read says what is wrong.
#pragma once

#include "tools/gateway/log/Record.h"
#include "tools/gateway/message/Messages.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

struct ReaderStatus {
  std::string key;     ///< As the configuration names it.
  std::string reader;  ///< Its identifier.
  std::string name;    ///< As it came from the air.
  std::string phase, sinceUtc, trouble;
  std::optional<int> signal{};  ///< In dBm, as the last search has heard it.
  std::uint64_t frames = 0;     ///< Frames and values that came since the gateway was started.
  std::vector<std::uint64_t>
      minutes{};  ///< The same of each minute of the last hour, oldest first.
  friend bool operator==(const ReaderStatus&, const ReaderStatus&) = default;
};

struct BrokerStatus {
  bool up = false;
  std::string address, sinceUtc;
  std::uint64_t inFlight = 0;  ///< Messages that wait for its acknowledgement.
  friend bool operator==(const BrokerStatus&, const BrokerStatus&) = default;
};

struct Status {
  std::string gateway, boot, version, radio, adapter, promise, atUtc, startedUtc;
  BrokerStatus broker{};
  std::string log;  ///< Its identity.
  RecordNumber first = 0, last = 0, synced = 0, published = 0, forgotten = 0;
  std::uint64_t bytes = 0, budget = 0;
  std::vector<std::pair<std::string, RecordNumber>> commits{};
  std::vector<ReaderStatus> readers{};
  std::vector<Record> frames{};  ///< The last that came, oldest first.
  std::uint64_t gapCount = 0;    ///< Gaps that were handed to the broker since the start.
  std::vector<Record> gaps{};    ///< The last of them, oldest first.
  std::vector<std::string> trouble{};
  friend bool operator==(const Status&, const Status&) = default;
};

std::string textOf(const Status& status);
std::optional<Status> statusOf(std::string_view text, std::string& error);

/// Frames that came; `left` more of the same time are not shown.
std::string framesText(std::span<const Record> frames, std::uint64_t left);

}  // namespace kestrin::gateway
