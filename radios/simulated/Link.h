// One link: its own attribute objects, the messages under way in both directions, and the answers
// that are still owed.
//
// Threads: on the main run loop.
// Lifetime: held by its device while it lasts, and by the peripheral object until the last report
// of its end. It holds its attribute objects; what it leaves with the run loop holds it weakly.
// Errors: an answer that is still owed when the link ends is given then, with the reason as error.
// So is what is asked after that, as long as the end is still to be reported.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "Attributes.h"
#include "RadioCore.h"

namespace kestrin::simulated {

class Link : public std::enable_shared_from_this<Link> {
 public:
  /// A message that has arrived on either side.
  using Arrival = std::function<void(RadioCore&, Device&, Link&)>;
  /// What the device does with a request: nothing, or an error.
  using AtDevice = std::function<std::optional<NSError>(RadioCore&, Device&, Link&)>;
  /// Gives the answer to the application: the event, with what went wrong.
  using Answer = std::function<void(const std::optional<NSError>&)>;

  static std::shared_ptr<Link> make(const GattLayout& layout);

  [[nodiscard]] const std::vector<std::shared_ptr<SimulatedService>>& services() const noexcept {
    return services_;
  }
  /// Those found by a discovery; absent before the first answer.
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> shownServices() const;
  /// Shows those that were asked for, all when `wanted` is absent.
  void show(const std::optional<std::vector<CBUUID>>& wanted);
  /// Every characteristic of every service, in handle order.
  [[nodiscard]] std::vector<std::shared_ptr<SimulatedCharacteristic>> characteristics() const;

  /// Sends a message to the device that needs no answer. After the link's end it goes nowhere.
  void toDevice(RadioCore& core, const std::shared_ptr<Device>& device, Arrival arrival);
  /// Sends a message to the central.
  void toCentral(RadioCore& core, const std::shared_ptr<Device>& device, Arrival arrival);
  /// Sends a request to the device, whose answer is given exactly once.
  void ask(RadioCore& core, const std::shared_ptr<Device>& device, AtDevice atDevice,
           Answer answer);

  /// Whether messages get through. A device that has vanished is silent before its link is lost.
  [[nodiscard]] bool isOpen() const noexcept { return open_; }
  /// No message gets through from now on.
  void close() noexcept { open_ = false; }
  /// Whether its end is still to be reported: what is asked of it is owed an answer as before.
  [[nodiscard]] bool awaitsReport() const noexcept { return awaitsReport_; }
  void setAwaitsReport(bool awaits) noexcept { awaitsReport_ = awaits; }
  /// Hands over the answers still owed, in the order of asking.
  std::vector<Answer> takeOwed();

 private:
  // Messages wait in line, so that one cannot overtake another however their timers fall.
  struct Direction {
    Time lastDue{};
    std::deque<Arrival> underWay;
  };

  Link() = default;
  void send(RadioCore& core, const std::shared_ptr<Device>& device, Direction Link::*direction,
            Arrival arrival);

  std::vector<std::shared_ptr<SimulatedService>> services_;
  bool servicesAnswered_ = false;
  bool open_ = true;
  bool awaitsReport_ = false;
  Direction up_;
  Direction down_;
  std::uint64_t lastRequest_ = 0;
  std::map<std::uint64_t, Answer> owed_;
};

}  // namespace kestrin::simulated
