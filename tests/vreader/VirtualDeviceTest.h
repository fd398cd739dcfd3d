// Virtual devices in virtual time, with a link that records.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/RcpFrame.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/simulated/VirtualClock.h"
#include "tools/vreader/VirtualDevice.h"

namespace kestrin::vreader {

class RecordingLink final : public LinkEnd {
 public:
  void send(ByteView attPdu) override { sent.push_back(hex(attPdu)); }
  void drop(std::uint8_t reason) override {
    drops.push_back(reason);
    if (onDrop) onDrop(reason);
  }
  [[nodiscard]] std::chrono::milliseconds supervisionTimeout() const override {
    return std::chrono::milliseconds(420);
  }
  [[nodiscard]] std::uint16_t handle() const override { return 0x0040; }

  std::vector<std::string> sent;
  std::vector<std::uint8_t> drops;
  std::function<void(std::uint8_t)> onDrop;
};

class VirtualDeviceTest : public testing::Test {
 protected:
  std::shared_ptr<VirtualDevice> make(DeviceSettings settings) {
    settings.address = DeviceAddress::staticRandom(++number_);
    return std::make_shared<VirtualDevice>(
        runLoop, settings, [this](const std::string& line) { lines.push_back(line); });
  }

  void connect(VirtualDevice& device) {
    link.onDrop = [&device](std::uint8_t reason) { device.disconnected(reason); };
    device.connected(link);
  }
  static simulated::ReaderFamily familyOf(const VirtualDevice& device) {
    return device.id() == "q62t" ? simulated::ReaderFamily::kvrQ62T
                                 : simulated::ReaderFamily::standard;
  }
  /// The handle of the value of that characteristic: one per service declaration, two per
  /// characteristic, one more where it can notify.
  static std::uint16_t handleOf(const VirtualDevice& device, const CBUUID& characteristic) {
    unsigned handle = 0;
    for (const auto& service : simulated::readerLayout(familyOf(device))) {
      ++handle;
      for (const auto& each : service.characteristics) {
        handle += 2;
        if (each.uuid == characteristic) return static_cast<std::uint16_t>(handle);
        if ((each.properties & CBCharacteristicPropertyNotify) != 0) ++handle;
      }
    }
    ADD_FAILURE() << "no characteristic " << characteristic.UUIDString();
    return 0;
  }
  void subscribe(VirtualDevice& device) {
    // The configuration follows the value.
    const auto rx = simulated::readerCharacteristics(familyOf(device)).rx;
    device.received(ByteWriter().u8(0x12).u16(handleOf(device, rx) + 1U).u16(1).bytes());
    ASSERT_EQ(link.sent.back(), "13");
    link.sent.clear();
  }
  void write(VirtualDevice& device, ByteView value) {
    const auto tx = simulated::readerCharacteristics(familyOf(device)).tx;
    device.received(ByteWriter().u8(0x12).u16(handleOf(device, tx)).append(value).bytes());
  }

  [[nodiscard]] std::size_t notifications() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(link.sent, [](const auto& pdu) { return pdu.starts_with("1b"); }));
  }
  [[nodiscard]] std::string joinedNotifications() const {
    std::string joined;
    for (const auto& pdu : link.sent) {
      if (pdu.starts_with("1b")) joined += pdu.substr(6);
    }
    return joined;
  }
  [[nodiscard]] std::string lineStarting(const std::string& start) const {
    const auto found =
        std::ranges::find_if(lines, [&](const auto& line) { return line.starts_with(start); });
    return found == lines.end() ? "" : *found;
  }

  const std::shared_ptr<MainRunLoop> runLoop =
      std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  std::vector<std::string> lines;
  RecordingLink link;
  std::uint16_t number_ = 0;
  const std::shared_ptr<VirtualDevice> standard =
      make({.id = "standard",
            .address = {},
            .advertisedName = "KVR-0001",
            .gapName = std::nullopt,
            .family = simulated::ReaderFamily::standard});
  const std::shared_ptr<VirtualDevice> q62t = make({.id = "q62t",
                                                    .address = {},
                                                    .advertisedName = "KVR-Q62T 0012",
                                                    .gapName = std::nullopt,
                                                    .family = simulated::ReaderFamily::kvrQ62T});
  const std::shared_ptr<VirtualDevice> lamp = make({.id = "lamp",
                                                    .address = {},
                                                    .advertisedName = "Lamp",
                                                    .gapName = "Bulb",
                                                    .family = std::nullopt});
};

}  // namespace kestrin::vreader
