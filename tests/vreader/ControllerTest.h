// A controller in virtual time, with a host that records and devices that do what a test says.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/simulated/VirtualClock.h"
#include "tools/vreader/Controller.h"

namespace kestrin::vreader {

class FakeDevice final : public RemoteDevice {
 public:
  explicit FakeDevice(std::uint16_t number) : address_(DeviceAddress::staticRandom(number)) {}

  [[nodiscard]] const DeviceAddress& address() const override { return address_; }
  [[nodiscard]] bool advertises() const override { return advertising && link == nullptr; }
  [[nodiscard]] Bytes advertisingData() const override { return advertisement; }
  [[nodiscard]] Bytes scanResponseData() const override { return scanResponse; }
  void connected(LinkEnd& newLink) override { link = &newLink; }
  void disconnected(std::uint8_t reason) override {
    link = nullptr;
    reasons.push_back(reason);
  }
  void received(ByteView attPdu) override {
    pdus.push_back(hex(attPdu));
    if (onReceived) onReceived();
  }

  bool advertising = true;
  Bytes advertisement{0x02, 0x01, 0x06};
  Bytes scanResponse;
  LinkEnd* link = nullptr;
  std::vector<std::uint8_t> reasons;
  std::vector<std::string> pdus;
  std::function<void()> onReceived;

 private:
  const DeviceAddress address_;
};

class ControllerTest : public testing::Test {
 protected:
  // What is on the air for no time is there at once.
  ControllerTest() { controller.setAir(Air::none); }

  std::shared_ptr<FakeDevice> addDevice() {
    auto device = std::make_shared<FakeDevice>(++devices_);
    controller.addDevice(device);
    return device;
  }

  /// Sends a command; the packets that come back at once, as hexadecimal text.
  std::vector<std::string> command(hci::Opcode opcode, const Bytes& parameters = {}) {
    controller.receive(ByteWriter()
                           .u8(0x01)
                           .u16(static_cast<unsigned>(opcode))
                           .u8(static_cast<unsigned>(parameters.size()))
                           .append(parameters)
                           .bytes());
    return packets();
  }
  /// The packets for the host since the last time.
  std::vector<std::string> packets() { return std::exchange(toHost, {}); }
  std::vector<std::string> packetsAfter(std::chrono::milliseconds time) {
    runLoop->runFor(time);
    return packets();
  }

  void scan(unsigned filterDuplicates = 1) {
    command(hci::Opcode::leSetScanParameters, {0x01, 0x10, 0x00, 0x10, 0x00, 0x00, 0x00});
    command(hci::Opcode::leSetScanEnable, {0x01, static_cast<std::uint8_t>(filterDuplicates)});
  }

  /// The parameters of LE Create Connection: an interval of 30 ms and a supervision timeout of
  /// 420 ms.
  static Bytes createConnection(std::uint16_t number, unsigned filterPolicy = 0) {
    ByteWriter parameters;
    parameters.u16(0x60).u16(0x60).u8(filterPolicy);
    DeviceAddress::staticRandom(number).write(parameters);
    return parameters.u8(0).u16(24).u16(40).u16(0).u16(42).u16(0).u16(0).take();
  }
  void connect(std::uint16_t number) {
    command(hci::Opcode::leCreateConnection, createConnection(number));
    packetsAfter(std::chrono::milliseconds(10));
  }

  void sendAcl(const Bytes& packet) {
    controller.receive(ByteWriter().u8(0x02).append(packet).bytes());
  }

  const std::shared_ptr<MainRunLoop> runLoop =
      std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  std::vector<std::string> toHost;
  std::vector<std::string> events;
  Controller controller{
      runLoop,
      DeviceAddress::fromText("C0:DE:00:00:00:00", DeviceAddress::Type::publicDevice).value(),
      [this](const Bytes& packet) { toHost.push_back(hex(packet)); },
      [this](const std::string& event) { events.push_back(event); }};

 private:
  std::uint16_t devices_ = 0;
};

}  // namespace kestrin::vreader
