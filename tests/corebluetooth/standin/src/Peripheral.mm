#include "Parts.h"

namespace standin {
namespace {

/// Whether an error says that the link has ended, and is kept to itself.
bool isSwallowed(const std::optional<kestrin::NSError>& error) {
  return error && !state().habits.answersAtLinkEnd && error->domain == kestrin::CBErrorDomain;
}

/// A delegate is asked for each event whether it implements it.
id<CBPeripheralDelegate> listener(CBPeripheral* peripheral, SEL event) {
  id<CBPeripheralDelegate> delegate = [peripheral delegate];
  return [delegate respondsToSelector:event] ? delegate : nil;
}

}  // namespace

CBService* PeripheralBridge::find(const std::shared_ptr<kestrin::CBService>& attribute) const {
  for (CBService* each in [peripheral services]) {
    if (each->parts->attribute == attribute) return each;
  }
  return nil;
}

CBCharacteristic* PeripheralBridge::find(
    const std::shared_ptr<kestrin::CBCharacteristic>& attribute) const {
  for (CBService* service in [peripheral services]) {
    for (CBCharacteristic* each in [service characteristics]) {
      if (each->parts->attribute == attribute) return each;
    }
  }
  return nil;
}

void PeripheralBridge::peripheral_didDiscoverServices(
    const std::shared_ptr<kestrin::CBPeripheral>&,
    const std::optional<kestrin::NSError>& failure) noexcept {
  @autoreleasepool {
    if (peripheral == nil || isSwallowed(failure)) return;
    CBPeripheral* const kept = [[peripheral retain] autorelease];
    if (!failure) [kept takeServices];
    [listener(kept, @selector(peripheral:didDiscoverServices:)) peripheral:kept
                                                       didDiscoverServices:error(failure)];
  }
}

void PeripheralBridge::peripheral_didDiscoverCharacteristicsForService_error(
    const std::shared_ptr<kestrin::CBPeripheral>&,
    const std::shared_ptr<kestrin::CBService>& attribute,
    const std::optional<kestrin::NSError>& failure) noexcept {
  @autoreleasepool {
    CBService* const service = find(attribute);
    if (service == nil || isSwallowed(failure)) return;
    CBPeripheral* const kept = [[peripheral retain] autorelease];
    if (!failure) [service takeCharacteristics];
    [listener(kept, @selector(peripheral:
                        didDiscoverCharacteristicsForService:error:)) peripheral:kept
                                            didDiscoverCharacteristicsForService:service
                                                                           error:error(failure)];
  }
}

void PeripheralBridge::peripheral_didUpdateValueForCharacteristic_error(
    const std::shared_ptr<kestrin::CBPeripheral>&,
    const std::shared_ptr<kestrin::CBCharacteristic>& attribute,
    const std::optional<kestrin::NSError>& failure) noexcept {
  @autoreleasepool {
    CBCharacteristic* const characteristic = find(attribute);
    if (characteristic == nil || isSwallowed(failure)) return;
    CBPeripheral* const kept = [[peripheral retain] autorelease];
    [listener(kept, @selector(peripheral:
                        didUpdateValueForCharacteristic:error:)) peripheral:kept
                                            didUpdateValueForCharacteristic:characteristic
                                                                      error:error(failure)];
  }
}

void PeripheralBridge::peripheral_didUpdateNotificationStateForCharacteristic_error(
    const std::shared_ptr<kestrin::CBPeripheral>&,
    const std::shared_ptr<kestrin::CBCharacteristic>& attribute,
    const std::optional<kestrin::NSError>& failure) noexcept {
  @autoreleasepool {
    CBCharacteristic* const characteristic = find(attribute);
    if (characteristic == nil || isSwallowed(failure)) return;
    CBPeripheral* const kept = [[peripheral retain] autorelease];
    [listener(kept, @selector(peripheral:didUpdateNotificationStateForCharacteristic:error:))
                                         peripheral:kept
        didUpdateNotificationStateForCharacteristic:characteristic
                                              error:error(failure)];
  }
}

}  // namespace standin

@implementation CBPeripheral
- (instancetype)initWith:(std::shared_ptr<kestrin::CBPeripheral>)device
               ofManager:(CBCentralManager*)manager {
  if ((self = [super init])) {
    parts = new CBPeripheralParts{.device = std::move(device),
                                  .manager = manager,
                                  .bridge = std::make_shared<standin::PeripheralBridge>(),
                                  .delegate = nil,
                                  .services = nil,
                                  .state = CBPeripheralStateDisconnected,
                                  .asked = false,
                                  .linked = false,
                                  .cancelled = false,
                                  .askedAgain = false,
                                  .silentEnds = 0,
                                  .saidItsName = false};
    parts->bridge->peripheral = self;
    ++standin::state().livePeripherals;
  }
  return self;
}
- (void)dealloc {
  if ([parts->manager state] == CBManagerStatePoweredOn &&
      (parts->state == CBPeripheralStateConnecting || parts->state == CBPeripheralStateConnected)) {
    standin::misuse("a device that nobody keeps, though a link to it was asked for");
  }
  if (parts->manager != nil) [parts->manager peripheralIsGone:self];
  [self forgetServices];
  parts->bridge->peripheral = nil;
  delete parts;
  --standin::state().livePeripherals;
  [super dealloc];
}
- (void)forgetServices {
  for (CBService* each in parts->services) each->parts->peripheral = nil;
  [parts->services release];
  parts->services = nil;
}
- (NSUUID*)identifier {
  return standin::identifierOf(*parts->device);
}
- (NSString*)name {
  if (parts->saidItsName) return @"A device's own name";
  const auto name = parts->device->name();
  return name ? standin::string(*name) : nil;
}
- (CBPeripheralState)state {
  return parts->state;
}
- (NSArray*)services {
  return parts->services;
}
- (id<CBPeripheralDelegate>)delegate {
  return parts->delegate;
}
- (void)setDelegate:(id<CBPeripheralDelegate>)delegate {
  if (![NSThread isMainThread]) standin::misuse("setDelegate: on another than the main thread");
  parts->delegate = delegate;
  if (delegate != nil) parts->device->setDelegate(parts->bridge);
}
- (void)becomeConnected:(BOOL)connected {
  parts->state = connected ? CBPeripheralStateConnected : CBPeripheralStateDisconnected;
  parts->linked = connected;
  if (connected) parts->saidItsName = true;
  [self forgetServices];
}
- (void)takeServices {
  NSMutableArray* shown = [[NSMutableArray alloc] init];
  const auto all =
      parts->device->services().value_or(std::vector<std::shared_ptr<kestrin::CBService>>());
  for (const auto& each : all) {
    CBService* known = nil;
    for (CBService* old in parts->services) {
      if (old->parts->attribute == each) known = old;
    }
    [shown addObject:known ? known
                           : [[[CBService alloc] initWith:each ofPeripheral:self] autorelease]];
  }
  [parts->services release];
  parts->services = shown;
}
- (void)managerIsGone {
  parts->manager = nil;
  [self becomeConnected:NO];
}

// Whether a request is in order.
- (BOOL)mayAsk:(const char*)selector {
  if (!standin::request(selector)) return NO;
  if (parts->manager != nil && parts->state == CBPeripheralStateConnected &&
      [parts->manager state] == CBManagerStatePoweredOn) {
    return YES;
  }
  standin::misuse(std::string(selector) + " without a link");
  return NO;
}
- (BOOL)mayAsk:(const char*)selector ofService:(CBService*)service {
  if (![self mayAsk:selector]) return NO;
  if (service != nil && [parts->services containsObject:service]) return YES;
  standin::misuse(std::string(selector) + " for an earlier link's attribute, or for none");
  return NO;
}
- (BOOL)mayAsk:(const char*)selector of:(CBCharacteristic*)characteristic {
  return [self mayAsk:selector ofService:[characteristic service]];
}

- (void)discoverServices:(NSArray<CBUUID*>*)serviceUUIDs {
  if (![self mayAsk:"discoverServices:"]) return;
  parts->device->discoverServices(standin::uuids(serviceUUIDs));
}
- (void)discoverCharacteristics:(NSArray<CBUUID*>*)characteristicUUIDs
                     forService:(CBService*)service {
  if (![self mayAsk:"discoverCharacteristics:forService:" ofService:service]) return;
  parts->device->discoverCharacteristics_forService(standin::uuids(characteristicUUIDs),
                                                    service->parts->attribute);
}
- (void)readValueForCharacteristic:(CBCharacteristic*)characteristic {
  if (![self mayAsk:"readValueForCharacteristic:" of:characteristic]) return;
  parts->device->readValueForCharacteristic(characteristic->parts->attribute);
}
- (void)writeValue:(NSData*)data
    forCharacteristic:(CBCharacteristic*)characteristic
                 type:(CBCharacteristicWriteType)type {
  if (![self mayAsk:"writeValue:forCharacteristic:type:" of:characteristic]) return;
  if (data == nil) return standin::misuse("writeValue:forCharacteristic:type: of an absent value");
  parts->device->writeValue_forCharacteristic_type(
      kestrin::NSData::dataWithBytes_length([data bytes], [data length]),
      characteristic->parts->attribute, static_cast<kestrin::CBCharacteristicWriteType>(type));
}
- (void)setNotifyValue:(BOOL)enabled forCharacteristic:(CBCharacteristic*)characteristic {
  if (![self mayAsk:"setNotifyValue:forCharacteristic:" of:characteristic]) return;
  characteristic->parts->isNotifying = enabled;
  parts->device->setNotifyValue_forCharacteristic(enabled, characteristic->parts->attribute);
}
@end
