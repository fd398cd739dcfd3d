#include "Parts.h"

namespace standin {
namespace {

const kestrin::NSError kFailed{kestrin::CBErrorDomain, 10,
                               "The connection has failed unexpectedly."};

/// A delegate is asked for each event whether it implements it.
id<CBCentralManagerDelegate> listener(CBCentralManager* manager, SEL event) {
  id<CBCentralManagerDelegate> delegate = [manager delegate];
  return [delegate respondsToSelector:event] ? delegate : nil;
}

}  // namespace

void CentralBridge::centralManagerDidUpdateState(
    const std::shared_ptr<kestrin::CBCentralManager>&) noexcept {
  @autoreleasepool {
    if (manager == nil) return;
    CBCentralManager* const kept = [[manager retain] autorelease];
    if ([kept state] != CBManagerStatePoweredOn) {
      kept->parts->isScanning = NO;
      [kept dropAttempts];
    }
    [[kept delegate] centralManagerDidUpdateState:kept];
  }
}

void CentralBridge::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    const std::shared_ptr<kestrin::CBCentralManager>&,
    const std::shared_ptr<kestrin::CBPeripheral>& device,
    const kestrin::CBAdvertisementData& advertisement, int rssi) noexcept {
  @autoreleasepool {
    if (manager == nil) return;
    CBCentralManager* const kept = [[manager retain] autorelease];
    const bool isFirst = kept->parts->reported.insert(device->identifier()).second;
    if (!isFirst && !kept->parts->allowsDuplicates) return;
    NSMutableDictionary* fields = [NSMutableDictionary dictionary];
    if (advertisement.localName) {
      [fields setObject:string(*advertisement.localName) forKey:CBAdvertisementDataLocalNameKey];
    }
    NSMutableArray* services = [NSMutableArray array];
    for (const auto& each : advertisement.serviceUUIDs) [services addObject:uuid(each)];
    if ([services count] != 0)
      [fields setObject:services forKey:CBAdvertisementDataServiceUUIDsKey];
    // The radio below reports a device once for each name; a scan that allows duplicates gets every
    // advertisement.
    for (int i = 0; i < (kept->parts->allowsDuplicates ? 2 : 1); ++i) {
      [listener(kept, @selector(centralManager:didDiscoverPeripheral:advertisementData:RSSI:))
                 centralManager:kept
          didDiscoverPeripheral:[kept peripheralOf:device]
              advertisementData:fields
                           RSSI:@(rssi)];
    }
  }
}

void CentralBridge::centralManager_didConnectPeripheral(
    const std::shared_ptr<kestrin::CBCentralManager>&,
    const std::shared_ptr<kestrin::CBPeripheral>& device) noexcept {
  @autoreleasepool {
    if (manager == nil) return;
    CBCentralManager* const kept = [[manager retain] autorelease];
    CBPeripheral* const peripheral = [kept peripheralOf:device];
    if (peripheral->parts->silentEnds > 0) return;
    [peripheral becomeConnected:YES];
    [listener(kept, @selector(centralManager:didConnectPeripheral:)) centralManager:kept
                                                               didConnectPeripheral:peripheral];
  }
}

void CentralBridge::centralManager_didDisconnectPeripheral_error(
    const std::shared_ptr<kestrin::CBCentralManager>&,
    const std::shared_ptr<kestrin::CBPeripheral>& device,
    const std::optional<kestrin::NSError>& failure) noexcept {
  @autoreleasepool {
    if (manager == nil) return;
    CBCentralManager* const kept = [[manager retain] autorelease];
    CBPeripheral* const peripheral = [kept peripheralOf:device];
    if (peripheral->parts->silentEnds > 0) {
      --peripheral->parts->silentEnds;
      return;
    }
    const bool wasLink = peripheral->parts->linked;
    peripheral->parts->cancelled = false;
    if (!peripheral->parts->askedAgain) {
      peripheral->parts->asked = false;
      [peripheral becomeConnected:NO];
    }
    peripheral->parts->askedAgain = false;
    if (!wasLink && !state().habits.reportsCancelledAttempts) return;
    const bool off = state().radio && !state().radio->stateReason().empty();
    if (wasLink && failure && off && !state().habits.reportsLinksAtPowerOff) return;
    [kept reportEndOf:peripheral error:error(failure)];
  }
}

}  // namespace standin

@implementation CBManager
- (CBManagerState)state {
  return CBManagerStateUnknown;
}
@end

@implementation CBCentralManager
- (instancetype)initWithDelegate:(id<CBCentralManagerDelegate>)delegate
                           queue:(dispatch_queue_t)queue {
  return [self initWithDelegate:delegate queue:queue options:nil];
}
- (instancetype)initWithDelegate:(id<CBCentralManagerDelegate>)delegate
                           queue:(dispatch_queue_t)queue
                         options:(NSDictionary<NSString*, id>*)options {
  if ((self = [super init])) {
    standin::request("initWithDelegate:queue:options:");
    parts = new CBCentralManagerParts();
    standin::state().managers.insert(self);
    parts->delegate = delegate;
    parts->bridge = std::make_shared<standin::CentralBridge>();
    parts->bridge->manager = self;
    parts->central = standin::state().radio->initWithDelegate_queue(parts->bridge, nullptr);
    if (queue != nil) standin::misuse("a queue that nobody here has asked for");
    standin::state().managerOptions = options == nil ? "" : [[options description] UTF8String];
  }
  return self;
}
- (void)dealloc {
  parts->bridge->manager = nil;
  for (const auto& [identifier, peripheral] : parts->peripherals) [peripheral managerIsGone];
  delete parts;
  standin::state().managers.erase(self);
  [super dealloc];
}
- (CBManagerState)state {
  return static_cast<CBManagerState>(parts->central->state());
}
- (BOOL)isScanning {
  return parts->isScanning;
}
- (id<CBCentralManagerDelegate>)delegate {
  return parts->delegate;
}
- (void)setDelegate:(id<CBCentralManagerDelegate>)delegate {
  parts->delegate = delegate;
}
- (CBPeripheral*)peripheralOf:(const std::shared_ptr<kestrin::CBPeripheral>&)device {
  auto& known = parts->peripherals[device->identifier()];
  standin::state().seen[[[standin::identifierOf(*device) UUIDString] UTF8String]] = device;
  if (known != nil) return known;
  known = [[CBPeripheral alloc] initWith:device ofManager:self];
  return [known autorelease];
}
- (void)peripheralIsGone:(CBPeripheral*)peripheral {
  parts->peripherals.erase(peripheral->parts->device->identifier());
  if (peripheral->parts->asked)
    parts->central->cancelPeripheralConnection(peripheral->parts->device);
}
- (NSArray<CBPeripheral*>*)retrievePeripheralsWithIdentifiers:(NSArray<NSUUID*>*)identifiers {
  NSMutableArray* found = [NSMutableArray array];
  if (!standin::request("retrievePeripheralsWithIdentifiers:")) return found;
  if (identifiers == nil) standin::misuse("retrievePeripheralsWithIdentifiers: of no list");
  for (NSUUID* each in identifiers) {
    const auto known = standin::state().seen.find([[each UUIDString] UTF8String]);
    if (known != standin::state().seen.end()) [found addObject:[self peripheralOf:known->second]];
  }
  return found;
}

// Whether a request is in order.
- (BOOL)mayAsk:(const char*)selector {
  if (!standin::request(selector)) return NO;
  if ([self state] == CBManagerStatePoweredOn) return YES;
  standin::misuse(std::string(selector) + " while not powered on");
  return NO;
}
- (BOOL)mayAsk:(const char*)selector of:(CBPeripheral*)peripheral {
  if (![self mayAsk:selector]) return NO;
  if (peripheral != nil && peripheral->parts->manager == self) return YES;
  standin::misuse(std::string(selector) + " for another manager's device, or for none");
  return NO;
}

- (void)scanForPeripheralsWithServices:(NSArray<CBUUID*>*)serviceUUIDs
                               options:(NSDictionary<NSString*, id>*)options {
  if (![self mayAsk:"scanForPeripheralsWithServices:options:"]) return;
  parts->isScanning = YES;
  parts->reported.clear();
  parts->allowsDuplicates =
      [[options objectForKey:CBCentralManagerScanOptionAllowDuplicatesKey] boolValue];
  parts->central->scanForPeripheralsWithServices_options(standin::uuids(serviceUUIDs),
                                                         std::nullopt);
}
- (void)stopScan {
  if (![self mayAsk:"stopScan"]) return;
  parts->isScanning = NO;
  parts->central->stopScan();
}

- (void)connectPeripheral:(CBPeripheral*)peripheral options:(NSDictionary*)options {
  if (![self mayAsk:"connectPeripheral:options:" of:peripheral]) return;
  if (peripheral->parts->state == CBPeripheralStateDisconnected) {
    peripheral->parts->state = CBPeripheralStateConnecting;
  }
  const int attempt = ++parts->attempts[peripheral->parts->device->identifier()];
  if (standin::state().habits.firstAttempts != standin::FirstAttempts::areMade &&
      attempt <= standin::state().habits.manyFirst) {
    [self failSoon:peripheral];
  } else {
    peripheral->parts->askedAgain = peripheral->parts->cancelled;
    peripheral->parts->asked = true;
    parts->central->connectPeripheral_options(peripheral->parts->device, std::nullopt);
  }
}
- (void)failSoon:(CBPeripheral*)peripheral {
  standin::later(kestrin::Time::zero(),
                 [bridge = std::weak_ptr(parts->bridge), device = peripheral->parts->device] {
                   const auto alive = bridge.lock();
                   if (!alive || alive->manager == nil) return;
                   CBCentralManager* const kept = [[alive->manager retain] autorelease];
                   CBPeripheral* const peripheral = [kept peripheralOf:device];
                   if (peripheral->parts->state != CBPeripheralStateConnecting) return;
                   [peripheral becomeConnected:NO];
                   if (standin::state().habits.firstAttempts == standin::FirstAttempts::fail) {
                     [kept reportFailureOf:peripheral error:standin::error(standin::kFailed)];
                   } else {
                     [kept reportEndOf:peripheral error:standin::error(standin::kFailed)];
                   }
                 });
}
- (void)cancelPeripheralConnection:(CBPeripheral*)peripheral {
  if (![self mayAsk:"cancelPeripheralConnection:" of:peripheral]) return;
  if (peripheral->parts->asked) {
    peripheral->parts->cancelled = true;
    peripheral->parts->askedAgain = false;
    peripheral->parts->state =
        peripheral->parts->linked ? CBPeripheralStateDisconnecting : CBPeripheralStateDisconnected;
    if (peripheral->parts->linked && standin::state().habits.lingers > kestrin::Time::zero()) {
      standin::later(standin::state().habits.lingers,
                     [central = parts->central, device = peripheral->parts->device] {
                       central->cancelPeripheralConnection(device);
                     });
    } else {
      parts->central->cancelPeripheralConnection(peripheral->parts->device);
    }
  } else if (peripheral->parts->state == CBPeripheralStateConnecting) {
    peripheral->parts->state = CBPeripheralStateDisconnected;
    if (!standin::state().habits.reportsCancelledAttempts) return;
    standin::later(kestrin::Time::zero(),
                   [bridge = std::weak_ptr(parts->bridge), device = peripheral->parts->device] {
                     const auto alive = bridge.lock();
                     if (!alive || alive->manager == nil) return;
                     CBCentralManager* const kept = [[alive->manager retain] autorelease];
                     [kept reportEndOf:[kept peripheralOf:device] error:nil];
                   });
  }
}

// The system forgets attempts when it is not powered on any more, and does not say so.
- (void)dropAttempts {
  for (const auto& [identifier, peripheral] : parts->peripherals) {
    if (peripheral->parts->state != CBPeripheralStateConnecting) continue;
    peripheral->parts->state = CBPeripheralStateDisconnected;
    if (!peripheral->parts->asked) continue;
    peripheral->parts->asked = false;
    ++peripheral->parts->silentEnds;
    parts->central->cancelPeripheralConnection(peripheral->parts->device);
  }
}
- (void)reportEndOf:(CBPeripheral*)peripheral error:(NSError*)failure {
  [standin::listener(self, @selector(centralManager:
                               didDisconnectPeripheral:error:)) centralManager:self
                                                       didDisconnectPeripheral:peripheral
                                                                         error:failure];
}
- (void)reportFailureOf:(CBPeripheral*)peripheral error:(NSError*)failure {
  [standin::listener(self, @selector(centralManager:
                               didFailToConnectPeripheral:error:)) centralManager:self
                                                       didFailToConnectPeripheral:peripheral
                                                                            error:failure];
}
@end
