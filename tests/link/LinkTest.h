// What the tests of the link logic share: a recording platform with one manager and both delegates
// set, readers of both families, and the way from nothing to a link that can be used.
//
// Threads: the test's own. Lifetime: one test. Errors: none.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "kestrin/simulated/VirtualClock.h"
#include "support/KestrinBleMgrTestPeer.h"
#include "support/RecordingDelegates.h"
#include "support/RecordingPlatform.h"

namespace kestrin::test {

/// What the transcript gives when nothing was recorded.
inline constexpr char kNothing[] = "\n";

inline constexpr char kService[] = "BA821000-3B5B-4654-85FE-E998B123ADEA";
inline constexpr char kTx[] = "BA821001-3B5B-4654-85FE-E998B123ADEA";
inline constexpr char kRx[] = "BA821002-3B5B-4654-85FE-E998B123ADEA";

/// A whole frame as a reader sends it: type 1, code 3, one byte of payload.
inline const NSData kFrame{0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37};
inline const NSError kError{"CBATTErrorDomain", 14, "Unlikely Error"};

/// Names, and whether a reader of that name is of the KVR-Q62T family.
inline const std::vector<std::pair<std::optional<std::string>, bool>> kFamilies = {
    {"KVR-Q62T", true},  {"KVR-Q62T 0012", true}, {"KVR-Q62Tx", true}, {std::nullopt, false},
    {"", false},         {"KVR-Q62", false},      {"KVR", false},      {"kvr-q62t 0012", false},
    {"Kvr-Q62T", false}, {"xKVR-Q62T", false},    {" KVR-Q62T", false}};

/// A reader with one data service.
struct Reader {
  std::shared_ptr<RecordingPeripheral> peripheral;
  std::shared_ptr<RecordingService> service;
  std::shared_ptr<RecordingCharacteristic> rx;
  std::shared_ptr<RecordingCharacteristic> tx;
};

inline std::shared_ptr<RecordingCharacteristic> characteristicOf(
    std::string_view uuid, CBCharacteristicProperties properties = 0x12) {
  return std::make_shared<RecordingCharacteristic>(uuid, properties);
}

/// The bytes that wait in the receive buffer; absent when nothing ever came.
inline std::optional<NSData> bufferedIn(KestrinBleMgr& manager) {
  const auto& data = KestrinBleMgrTestPeer::_mutableReceivedData(manager);
  return data ? std::optional(data->copy()) : std::nullopt;
}

inline std::shared_ptr<RecordingService> serviceOf(std::string_view uuid) {
  return std::make_shared<RecordingService>(uuid);
}

class LinkTest : public ::testing::Test {
 protected:
  using Peer = KestrinBleMgrTestPeer;

  explicit LinkTest(
      const std::shared_ptr<Clock>& clock = std::make_shared<simulated::VirtualClock>())
      : platform(clock) {
    manager->setDelegate(delegate);
    manager->setRcpReceiverDelegate(receiver);
    platform.take();
  }

  Reader standardReader(const std::string& name = "TQM_HOLV-1",
                        CBCharacteristicProperties txProperties = 0x0C) {
    return {platform.peripheral(name), serviceOf(kService), characteristicOf(kRx, 0x10),
            characteristicOf(kTx, txProperties)};
  }
  Reader kvrReader(const std::string& name = "KVR-Q62T 0012") {
    return {platform.peripheral(name), serviceOf("FFF0"), characteristicOf("FFF1", 0x10),
            characteristicOf("FFF2", 0x1C)};
  }

  /// Scans with the radio powered on.
  void scan() {
    manager->scanBLE();
    platform.didUpdateState(5);
  }
  /// Scans, finds the peripheral and asks for the connection.
  void choose(const std::shared_ptr<RecordingPeripheral>& peripheral) {
    scan();
    platform.didDiscover(peripheral);
    manager->connectBLE(peripheral);
  }
  /// The same, and the link comes up.
  void connect(const std::shared_ptr<RecordingPeripheral>& peripheral) {
    choose(peripheral);
    platform.didConnect(peripheral);
  }
  /// The same, until the reader's characteristics are known and both delays are pending; forgets
  /// what was recorded on the way.
  void linkUp(const Reader& reader) {
    connect(reader.peripheral);
    platform.didDiscoverServices(reader.peripheral, {reader.service});
    platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
    platform.take();
  }
  /// The same, and 2 s later the reader is plugged in.
  void plugIn(const Reader& reader) {
    linkUp(reader);
    platform.run(2.0);
    platform.takeTimed();
  }

  /// Replaces the manager by one whose memory is given back the moment it ends. `init` allocates a
  /// manager together with what its weak pointers count, so that its memory stays while the
  /// notification centre remembers it, and use after its end would go unseen.
  void useManagerWithMemoryOfItsOwn() {
    static constexpr SEL kEasEnterBackground{
        "easEnterBackground", [](void* target, const std::shared_ptr<void>&) noexcept {
          Peer::easEnterBackground(*static_cast<KestrinBleMgr*>(target));
        }};
    manager = Peer::withMemoryOfItsOwn(platform.platform());
    manager->setDelegate(delegate);
    manager->setRcpReceiverDelegate(receiver);
    platform.platform().notificationCenter->addObserver_selector_name_object(
        manager, kEasEnterBackground, UIApplicationDidEnterBackgroundNotification, nullptr);
    platform.take();
  }

  RecordingPlatform platform;
  std::shared_ptr<KestrinBleMgr> manager = platform.makeManager();
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>(platform);
  std::shared_ptr<RecordingReceiver> receiver = std::make_shared<RecordingReceiver>(platform);
};

}  // namespace kestrin::test
