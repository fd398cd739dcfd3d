// What the classes of the stand-in have inside, and what they share.
//
// Threads: the main thread's. Lifetime: as reference counting says; a central manager does not keep
// its devices, nor a device its central manager. Errors: as StandIn.h says.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Habits.h"
#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"

#import <CoreBluetooth/CoreBluetooth.h>

namespace standin {

struct State {
  std::shared_ptr<kestrin::Radio> radio;
  std::weak_ptr<kestrin::RunLoop> loop;
  Habits habits;
  std::vector<std::string> misuses;
  std::vector<std::string> requests;
  std::optional<std::string> raisesAt;
  std::string managerOptions;
  std::set<CBCentralManager*> managers;  // Not kept.
  int livePeripherals = 0;
  /// Every device that any central manager has seen, by its identifier.
  std::map<std::string, std::shared_ptr<kestrin::CBPeripheral>> seen;
};
State& state();

void misuse(const std::string& what);
/// Notes a request, which only the main thread may make; raises an exception where the test wants
/// that.
bool request(const char* selector);
/// Runs after a while, in a turn of its own.
void later(kestrin::Time delay, std::function<void()> task);

NSString* string(const std::string& text);
NSError* error(const std::optional<kestrin::NSError>& from);
CBUUID* uuid(const kestrin::CBUUID& value);
/// Absent for nil; anything but UUIDs in the list is a misuse.
std::optional<std::vector<kestrin::CBUUID>> uuids(NSArray* list);
/// The radio below names its devices by address; here each has an identifier instead.
NSUUID* identifierOf(const kestrin::CBPeripheral& device);

/// Passes on what the radio below reports of a linked device.
struct PeripheralBridge final : kestrin::CBPeripheralDelegate {
  CBPeripheral* peripheral = nil;  // Not kept.
  void peripheral_didDiscoverServices(const std::shared_ptr<kestrin::CBPeripheral>&,
                                      const std::optional<kestrin::NSError>&) noexcept override;
  void peripheral_didDiscoverCharacteristicsForService_error(
      const std::shared_ptr<kestrin::CBPeripheral>&, const std::shared_ptr<kestrin::CBService>&,
      const std::optional<kestrin::NSError>&) noexcept override;
  void peripheral_didUpdateValueForCharacteristic_error(
      const std::shared_ptr<kestrin::CBPeripheral>&,
      const std::shared_ptr<kestrin::CBCharacteristic>&,
      const std::optional<kestrin::NSError>&) noexcept override;
  void peripheral_didUpdateNotificationStateForCharacteristic_error(
      const std::shared_ptr<kestrin::CBPeripheral>&,
      const std::shared_ptr<kestrin::CBCharacteristic>&,
      const std::optional<kestrin::NSError>&) noexcept override;

 private:
  [[nodiscard]] CBCharacteristic* find(
      const std::shared_ptr<kestrin::CBCharacteristic>& attribute) const;
  [[nodiscard]] CBService* find(const std::shared_ptr<kestrin::CBService>& attribute) const;
};

/// Passes on what the radio below reports of a central manager.
struct CentralBridge final : kestrin::CBCentralManagerDelegate {
  CBCentralManager* manager = nil;  // Not kept.
  void centralManagerDidUpdateState(
      const std::shared_ptr<kestrin::CBCentralManager>&) noexcept override;
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<kestrin::CBCentralManager>&,
      const std::shared_ptr<kestrin::CBPeripheral>&, const kestrin::CBAdvertisementData&,
      int) noexcept override;
  void centralManager_didConnectPeripheral(
      const std::shared_ptr<kestrin::CBCentralManager>&,
      const std::shared_ptr<kestrin::CBPeripheral>&) noexcept override;
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<kestrin::CBCentralManager>&,
      const std::shared_ptr<kestrin::CBPeripheral>&,
      const std::optional<kestrin::NSError>&) noexcept override;
};

}  // namespace standin

struct CBUUIDParts {
  NSString* text;
};
struct CBServiceParts {
  std::shared_ptr<kestrin::CBService> attribute;
  CBPeripheral* peripheral;  // Not kept.
  NSMutableArray* characteristics;
};
struct CBCharacteristicParts {
  std::shared_ptr<kestrin::CBCharacteristic> attribute;
  CBService* service;  // Not kept.
  BOOL isNotifying;
};
struct CBPeripheralParts {
  std::shared_ptr<kestrin::CBPeripheral> device;
  CBCentralManager* manager;  // Not kept; nil when it is gone.
  std::shared_ptr<standin::PeripheralBridge> bridge;
  id<CBPeripheralDelegate> delegate;  // Not kept.
  NSMutableArray* services;
  CBPeripheralState state;
  // The radio below was asked for a link and has not reported the end of that; and what of it.
  bool asked;
  bool linked;
  bool cancelled;
  bool askedAgain;  // After it was cancelled.
  // Ends that the radio below is still to report and nobody is to hear of.
  int silentEnds;
  // A linked device has been asked for its own name, which is the one that the system knows from
  // then on.
  bool saidItsName;
};
struct CBCentralManagerParts {
  std::shared_ptr<standin::CentralBridge> bridge;
  std::shared_ptr<kestrin::CBCentralManager> central;
  id<CBCentralManagerDelegate> delegate;             // Not kept.
  std::map<std::string, CBPeripheral*> peripherals;  // Not kept.
  std::map<std::string, int> attempts;
  std::set<std::string> reported;  // In this scan, by the name that the radio below has for it.
  BOOL isScanning;
  BOOL allowsDuplicates;
};

@interface CBCharacteristic (StandIn)
- (instancetype)initWith:(std::shared_ptr<kestrin::CBCharacteristic>)attribute
               ofService:(CBService*)service;
@end
@interface CBService (StandIn)
- (instancetype)initWith:(std::shared_ptr<kestrin::CBService>)attribute
            ofPeripheral:(CBPeripheral*)peripheral;
- (void)takeCharacteristics;
@end
@interface CBPeripheral (StandIn)
- (instancetype)initWith:(std::shared_ptr<kestrin::CBPeripheral>)device
               ofManager:(CBCentralManager*)manager;
- (void)becomeConnected:(BOOL)connected;
- (void)takeServices;
- (void)managerIsGone;
@end
@interface CBCentralManager (StandIn)
- (CBPeripheral*)peripheralOf:(const std::shared_ptr<kestrin::CBPeripheral>&)device;
- (void)peripheralIsGone:(CBPeripheral*)peripheral;
- (void)dropAttempts;
- (void)reportEndOf:(CBPeripheral*)peripheral error:(NSError*)failure;
- (void)reportFailureOf:(CBPeripheral*)peripheral error:(NSError*)failure;
@end
