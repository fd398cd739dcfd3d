// Who has not come on though there was something to come on to, and when to publish it again: after
// half a minute, and then after twice as long each time, up to five minutes.
//
// Threads: the main run loop's.
// Lifetime: a plain value.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Clock.h"
#include "tools/gateway/log/Log.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrin::gateway {

class Stalls {
 public:
  static constexpr Time kFirst = std::chrono::seconds(30);
  static constexpr Time kLongest = std::chrono::minutes(5);

  /// Looks at where everybody is; `answered` is the highest number that the broker has answered.
  /// Returns the number behind which to publish again, if it is time for that.
  std::optional<RecordNumber> look(const std::vector<std::pair<std::string, RecordNumber>>& where,
                                   RecordNumber answered, Time now);

 private:
  struct Stand {
    RecordNumber number = 0;
    Time since{};
    Time wait = kFirst;
  };
  static bool isDue(Stand& stand, RecordNumber number, RecordNumber answered, Time now);

  std::map<std::string, Stand> stands_;
};

}  // namespace kestrin::gateway
