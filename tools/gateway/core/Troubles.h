// What is wrong at the moment, a line each, for the health topic and for the gateway's own log.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Clock.h"
#include "tools/gateway/core/Line.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

class Troubles {
 public:
  struct Handlers {
    std::function<Time()> now;
    /// A line for a person, said once for each change.
    std::function<void(const Line&)> say{};
    std::function<void()> onChange{};
  };
  explicit Troubles(Handlers handlers) : handlers_(std::move(handlers)) {}

  /// Something is wrong until it is cleared. `what` tells it from others, for example "broker"; its
  /// first word is the reason in the line.
  void set(const std::string& what, Line line);
  /// Something was wrong: shown for ten minutes.
  void note(const std::string& what, Line line);
  void clear(const std::string& what);
  /// The lines, oldest notes left out; at most as many as a message can hold well.
  [[nodiscard]] std::vector<std::string> lines();

 private:
  struct Trouble {
    std::string line;
    std::optional<Time> until{};
  };
  void put(const std::string& what, Line line, std::optional<Time> until);
  void makeRoom();

  const Handlers handlers_;
  std::map<std::string, Trouble> all_;
};

}  // namespace kestrin::gateway
