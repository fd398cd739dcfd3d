// A virtual controller with one virtual device of each kind, in virtual time, as a host sees it.
//
// Threads: one. Lifetime: ends with everything in it.
// Errors: a packet for the host that is not well formed ends the process.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "fuzz/Fuzzing.h"
#include "kestrin/simulated/VirtualClock.h"
#include "tools/vreader/Controller.h"
#include "tools/vreader/VirtualDevice.h"

namespace kestrin::fuzz {

class VirtualAir {
 public:
  VirtualAir() {
    add("standard", "KVR-0001", simulated::ReaderFamily::standard);
    add("q62t", "KVR-Q62T-0001", simulated::ReaderFamily::kvrQ62T);
    add("lamp", "Lamp", std::nullopt);
  }

  [[nodiscard]] const auto& devices() const { return devices_; }
  vreader::Controller& controller() { return controller_; }
  void pass(std::chrono::milliseconds time) { runLoop_->runFor(time); }

  /// A link with each device that has none, as far as they let themselves be connected.
  void linkAll() {
    for (std::uint16_t number = 1; number <= devices_.size(); ++number) link(number);
  }
  /// Whatever has happened, a reset leaves a controller that works.
  void checkThatItWorks() {
    lastEvent_.clear();
    controller_.receive(Bytes{0x01, 0x03, 0x0C, 0x00});
    require(lastEvent_ == Bytes{0x04, 0x0E, 0x04, 0x01, 0x03, 0x0C, 0x00},
            "a reset is complete at once");
    for (const auto& device : devices_) {
      device->setSilent(false);
      device->comeBack();
      device->setAdvertising(true);
      controller_.advertisingChanged(*device);
    }
    connections_ = 0;
    linkAll();
    require(connections_ == devices_.size(), "after a reset every device can be connected");
  }

 private:
  void add(std::string id, std::string name, std::optional<simulated::ReaderFamily> family) {
    const auto number = static_cast<std::uint16_t>(devices_.size() + 1);
    devices_.push_back(std::make_shared<vreader::VirtualDevice>(
        runLoop_,
        vreader::DeviceSettings{std::move(id), vreader::DeviceAddress::staticRandom(number),
                                std::move(name), std::nullopt, family},
        [](const std::string& event) { require(!event.empty(), "an event has a text"); }));
    controller_.addDevice(devices_.back());
  }
  void link(std::uint16_t number) {
    vreader::ByteWriter command;
    command.u8(0x01).u16(0x200D).u8(25).u16(0x60).u16(0x60).u8(0);
    vreader::DeviceAddress::staticRandom(number).write(command);
    controller_.receive(command.u8(0).u16(24).u16(40).u16(0).u16(42).u16(0).u16(0).bytes());
    pass(std::chrono::milliseconds(150));
    controller_.receive(Bytes{0x01, 0x0E, 0x20, 0x00});  // Gives it up when it did not come about.
  }
  void toHost(ByteView packet) {
    require(packet.size() >= 3, "a packet has its header");
    if (packet[0] == 0x04) {
      require(packet.size() == 3U + packet[2], "an event is as long as it says");
      lastEvent_.assign(packet.begin(), packet.end());
      const bool complete = packet.size() > 4 && packet[1] == 0x3E && packet[3] == 0x01;
      if (complete && packet[4] == 0x00) ++connections_;
    } else {
      require(packet[0] == 0x02 && packet.size() >= 5, "a packet is an event or data");
      const unsigned length = packet[3] | static_cast<unsigned>(packet[4]) << 8;
      require(packet.size() == 5U + length, "data are as long as they say");
    }
  }

  const std::shared_ptr<MainRunLoop> runLoop_ =
      std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  std::vector<std::shared_ptr<vreader::VirtualDevice>> devices_;
  Bytes lastEvent_;
  std::size_t connections_ = 0;
  vreader::Controller controller_{
      runLoop_, {}, [this](const Bytes& packet) { toHost(packet); }, [](const std::string&) {}};
};

}  // namespace kestrin::fuzz
