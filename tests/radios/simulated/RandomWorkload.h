// Random requests and faults on a simulated radio, drawn from one seed, with a model of what every
// central manager is owed.
//
// Threads: one. Lifetime: one workload per run. Errors: what breaks a promise fails the test.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "radios/simulated/SimulatedRadioTest.h"

namespace kestrin::simulated {

class RandomWorkload {
 public:
  explicit RandomWorkload(std::uint64_t seed);

  /// Does so many random things, then clears every obstacle and waits until all is quiet.
  void run(int steps);
  /// Every event with its time, a line each.
  [[nodiscard]] const std::string& transcript() const noexcept { return transcript_; }
  /// How many links and notified values there were.
  [[nodiscard]] std::size_t links() const noexcept { return links_; }
  [[nodiscard]] std::size_t values() const noexcept { return values_; }

 private:
  enum class Stage { none, pending, linked };
  /// What a central manager has of a device, as far as it has been told.
  struct Share {
    Stage stage = Stage::none;
    int reportsOwed = 0;  // Of cancellations.
  };
  using Key = std::pair<const CBCentralManager*, const CBPeripheral*>;

  std::size_t upTo(std::size_t last);
  VirtualPeripheral& anyDevice() { return *devices_[upTo(devices_.size() - 1)]; }
  void step();
  void connectOrCancel();
  void disturb();
  void useLink();
  void replaceCentral();
  void take(const Event& event);
  void takeDisconnection(const Event& event, Share& share);
  void takeValue(const Event& event);
  void settle();

  std::mt19937_64 random_;
  const std::shared_ptr<MainRunLoop> loop_;
  SimulatedRadio radio_;
  const std::shared_ptr<EventRecorder> recorder_;
  std::vector<std::shared_ptr<VirtualPeripheral>> devices_;
  std::vector<std::shared_ptr<CBCentralManager>> centrals_;
  std::map<Key, Share> shares_;
  std::map<const CBPeripheral*, std::uint8_t> notified_;
  std::map<const CBPeripheral*, std::uint8_t> received_;  // Last on the present link.
  std::string transcript_;
  std::size_t links_ = 0;
  std::size_t values_ = 0;
};

}  // namespace kestrin::simulated
