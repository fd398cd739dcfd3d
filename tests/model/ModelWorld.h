// What the modelled managers stand in: virtual time with its pending requests, the peripherals and
// what they show, the delegates, and the lines that a transcript must hold. Nothing here knows the
// library's code: the rules of the run loop are those that its header promises.
//
// Threads: one. Lifetime: outlives the managers that it is handed to. Errors: none.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "model/Catalog.h"
#include "model/Step.h"

namespace kestrin::test {

class ModelManager;

/// A delegate of either kind; `first` and `second` are the two callbacks of its kind.
struct ModelDelegate {
  std::string label;
  unsigned number = 0;
  bool implementsFirst = true;
  bool implementsSecond = true;
};

struct ModelPeripheral {
  std::optional<std::string> name;
  std::optional<std::vector<unsigned>> services;
};

struct ModelCharacteristic {
  std::uint64_t properties = 0;
  std::optional<Bytes> value;
};

/// In nanoseconds.
using ModelTime = std::int64_t;

struct ModelTimer {
  ModelTime due = 0;
  std::uint64_t id = 0;
  /// Absent for an event.
  std::shared_ptr<ModelManager> target;
  std::string operation;
  std::function<void()> work;
};

class ModelWorld {
 public:
  ModelWorld();

  // What must be seen.
  void say(const std::string& line);
  /// A log line, and what the client does when it reads it.
  void log(const std::string& text);
  /// What the client does from inside the callback of that site, once.
  void reactAt(unsigned site);
  std::vector<std::string> takeLines() { return std::exchange(lines_, {}); }
  /// The central managers that must have been released since this was asked last.
  std::multiset<std::string> takeReleased() { return std::exchange(released_, {}); }
  void release(int central) {
    released_.insert("central#" + std::to_string(central) + " released");
  }

  // Time.
  [[nodiscard]] ModelTime now() const { return now_; }
  void sleep(double seconds);
  /// A restartable one-shot request.
  void rearm(const std::shared_ptr<ModelManager>& target, const std::string& operation,
             const std::string& seconds, ModelTime delay);
  /// An event, in a turn of its own.
  void play(const std::function<void()>& event);
  void run(double seconds);
  void runOneTurn();

  /// A new central manager's number.
  int makeCentral() { return ++centralsMade_; }
  int managersMade = 0;

  std::array<ModelPeripheral, kPeripherals> peripherals;
  std::array<std::optional<std::vector<unsigned>>, kServices.size()> services;
  std::array<ModelCharacteristic, kCharacteristics.size()> characteristics;
  std::array<std::deque<Step>, kSites> reactions;
  /// How the client does what it does at a site.
  std::function<void(const Step&)> act;

 private:
  [[nodiscard]] std::optional<ModelTime> nextDue() const;
  std::optional<ModelTimer> takeDue(ModelTime turnStart, std::uint64_t barrier);

  int centralsMade_ = 0;
  std::vector<std::string> lines_;
  std::multiset<std::string> released_;
  ModelTime now_ = 0;
  std::uint64_t nextTimer_ = 1;
  std::vector<ModelTimer> timers_;
};

/// The bytes as every description writes them, or the text for none.
std::string bytesText(const std::optional<Bytes>& bytes, const std::string& absent);

}  // namespace kestrin::test
