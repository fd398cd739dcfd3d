// Requests of a link on their way to the radio's thread. A link can end there before they arrive;
// then nobody else knows of them, and they are answered when the link's end is reported.
//
// Threads: any. Lifetime: one per link. Errors: none.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin::bluez {

class UntakenRequests {
 public:
  /// Answers the request with the error that it is given.
  using Refusal = std::function<void(const NSError&)>;

  /// The number of a new request; none once the link's end has been reported.
  std::optional<std::uint64_t> add(Refusal refusal);
  /// Whether the request is still to be carried out; whoever asks does that.
  bool take(std::uint64_t number);
  /// The link's end is about to be reported: what is left, in the order in which it was asked for.
  std::vector<Refusal> close();

 private:
  std::mutex mutex_;
  std::map<std::uint64_t, Refusal> refusals_;
  std::uint64_t last_ = 0;
  bool closed_ = false;
};

}  // namespace kestrin::bluez
