// Rounds of connect, exchange, disconnect on the real stack with random faults, and what the
// process holds after each. tests/realstack/test_stress.py runs it and does what only root may do.
//
//   stress_probe ROUNDS SEED ORDERS LOG    (kestrin-vreader's pipe and file of lines; its reader's
//   id
//                                           is `reader`)
//
// It prints a line `PLEASE WORDS` for each thing that is to be done for it (`adapter on|off`,
// `daemon stop|start`) and goes on when it reads a line. In the end it prints its figures, or what
// went wrong.
#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "realstack/StressProbeFigures.h"
#include "realstack/StressProbeRounds.h"

namespace {

using namespace kestrin::stress;

/// What a leak adds at least, in bytes, from each quarter of a series to the next.
constexpr std::size_t kLeak = 500;
/// What may be added in all, also where no two rounds can be compared, since they are too few.
constexpr std::size_t kWideTolerance = 64'000;
/// Fewer say nothing.
constexpr std::size_t kComparableLinks = 2 * kKeepingFaults;
constexpr std::size_t kComparableManagers = 6;
/// What links leave behind for a moment is waited for.
constexpr auto kSettling = std::chrono::seconds(20);

void ask(const std::string& request) {
  std::cout << "PLEASE " << request << std::endl;
  std::string answer;
  if (!std::getline(std::cin, answer) || answer != "done") {
    throw std::runtime_error("was not done: " + request);
  }
}

/// Bytes that were allocated at moments that can be compared, once there are enough of them. A
/// container that needs more room makes one step; a leak goes up all the time.
class Series {
 public:
  Series(const char* name, std::size_t enough) : name_(name), enough_(enough) {}
  void add(std::size_t allocated) { values_.push_back(allocated); }
  [[nodiscard]] bool grown() const {
    if (values_.size() < enough_) return false;
    for (std::size_t i = 1; i < kQuarters; ++i) {
      if (middleOf(i) < middleOf(i - 1) + kLeak) return false;
    }
    return true;
  }
  [[nodiscard]] std::string figures() const {
    if (values_.size() < enough_) return {};
    std::string text = " (by quarters of " + std::to_string(values_.size()) + ' ' + name_;
    for (std::size_t i = 0; i < kQuarters; ++i) text += ' ' + std::to_string(middleOf(i));
    return text + ')';
  }

 private:
  static constexpr std::size_t kQuarters = 4;

  [[nodiscard]] std::ptrdiff_t begin(std::size_t quarter) const {
    return static_cast<std::ptrdiff_t>(values_.size() * quarter / kQuarters);
  }
  [[nodiscard]] std::size_t middleOf(std::size_t quarter) const {
    std::vector<std::size_t> part(values_.begin() + begin(quarter),
                                  values_.begin() + begin(quarter + 1));
    const auto middle = part.begin() + static_cast<std::ptrdiff_t>(part.size() / 2);
    std::nth_element(part.begin(), middle, part.end());
    return *middle;
  }

  const char* const name_;
  const std::size_t enough_;
  std::vector<std::size_t> values_;
};

class Ledger {
 public:
  /// Notes what is held after a round. From the first on, descriptors and threads may not grow.
  void note(bool newManager, bool linkOfOneManager) {
    last_ = settled();
    if (!first_) first_ = last_;
    if (newManager) managers_.add(last_.allocated);
    if (linkOfOneManager) links_.add(last_.allocated);
    if (grown(last_)) throw std::runtime_error("more than at first: " + figures());
  }
  /// Throws when memory has grown.
  void judge() const {
    if (last_.allocated > first_->allocated + kWideTolerance || managers_.grown() ||
        links_.grown()) {
      throw std::runtime_error("memory grows: " + figures());
    }
  }
  [[nodiscard]] std::string latest() const {
    return std::to_string(last_.descriptors) + " descriptors, " + std::to_string(last_.threads) +
           " threads, " + std::to_string(last_.allocated) + " bytes";
  }
  [[nodiscard]] std::string figures() const {
    std::ostringstream text;
    text << "descriptors " << first_->descriptors << " -> " << last_.descriptors << ", threads "
         << first_->threads << " -> " << last_.threads << ", allocated bytes " << first_->allocated
         << " -> " << last_.allocated;
    text << managers_.figures() << links_.figures() << ", resident kB " << first_->resident / 1024
         << " -> " << last_.resident / 1024;
    return text.str();
  }

 private:
  [[nodiscard]] bool grown(const Holdings& held) const {
    return first_ && (held.descriptors > first_->descriptors || held.threads > first_->threads);
  }
  [[nodiscard]] Holdings settled() const {
    const auto end = std::chrono::steady_clock::now() + kSettling;
    Holdings held = holdings();
    while (grown(held) && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      held = holdings();
    }
    return held;
  }

  std::optional<Holdings> first_;
  Holdings last_;
  Series managers_{"new managers", kComparableManagers};
  Series links_{"links of one manager", kComparableLinks};
};

std::string figuresOf(const Rounds& rounds) {
  std::ostringstream text;
  for (std::size_t i = 0; i < kFaults; ++i) {
    text << (i == 0 ? "" : ", ") << nameOf(static_cast<Fault>(i)) << ' ' << rounds.faults[i];
  }
  text << "; " << rounds.framesAnswered << " frames answered, " << rounds.values
       << " values in bursts";
  return text.str();
}

/// In the first third managers come and go; in the rest one has to last. Both are compared from
/// when each fault has come once.
void run(std::size_t count, Rounds& rounds) {
  const auto begin = std::chrono::steady_clock::now();
  const std::size_t withNewManagers = std::max(count / 3, kFaults);
  Ledger ledger;
  for (std::size_t i = 1; i <= count; ++i) {
    try {
      const bool oneManager = i > withNewManagers;
      const Fault fault = rounds.round(!oneManager);
      const bool newManager = fault == Fault::newManager || fault == Fault::newInBurst;
      ledger.note(newManager && i > kFaults, i > withNewManagers + kKeepingFaults);
      std::cout << "ROUND " << i << ' ' << nameOf(fault) << ", " << ledger.latest() << std::endl;
    } catch (const std::exception& error) {
      throw std::runtime_error("round " + std::to_string(i) + " (" + nameOf(rounds.fault()) +
                               "): " + error.what());
    }
  }
  ledger.judge();
  const auto spent = std::chrono::steady_clock::now() - begin;
  std::cout << "FIGURES " << count << " rounds in "
            << std::chrono::duration_cast<std::chrono::seconds>(spent).count()
            << " s: " << figuresOf(rounds) << "; " << ledger.figures() << ", objects left over "
            << rounds.leftOver() << std::endl;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  try {
    if (argumentCount != 5) throw std::runtime_error("usage: stress_probe ROUNDS SEED ORDERS LOG");
    Reader reader(arguments[3], arguments[4], "reader");
    Rounds rounds(static_cast<std::uint32_t>(std::stoul(arguments[2])), reader, ask);
    run(std::stoul(arguments[1]), rounds);
    return 0;
  } catch (const std::exception& error) {
    std::cout << "WRONG " << error.what() << std::endl;
    return 1;
  }
}
