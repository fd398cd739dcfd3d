// What this project uses of Apple's CoreBluetooth, central role, declared in this project's own
// words under the documented names, selectors and values. `tests/corebluetooth/check-declarations`
// compares it with facts of the real interface.
#pragma once
#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

// Where a test implements the classes, each has one instance variable, which gcc's runtime wants
// declared here.
#if defined(__APPLE__)
#define STANDIN_PARTS(name)
#else
#define STANDIN_PARTS(name)    \
  {                            \
   @public                     \
    struct name##Parts* parts; \
  }
#endif

NS_ASSUME_NONNULL_BEGIN

@class CBCentralManager, CBPeripheral, CBService, CBCharacteristic, CBUUID;

typedef NS_ENUM(NSInteger, CBManagerState) {
  CBManagerStateUnknown = 0,
  CBManagerStateResetting,
  CBManagerStateUnsupported,
  CBManagerStateUnauthorized,
  CBManagerStatePoweredOff,
  CBManagerStatePoweredOn,
};
typedef NS_ENUM(NSInteger, CBPeripheralState) {
  CBPeripheralStateDisconnected = 0,
  CBPeripheralStateConnecting,
  CBPeripheralStateConnected,
  CBPeripheralStateDisconnecting,
};
typedef NS_ENUM(NSInteger, CBCharacteristicWriteType) {
  CBCharacteristicWriteWithResponse = 0,
  CBCharacteristicWriteWithoutResponse,
};
typedef NS_OPTIONS(NSUInteger, CBCharacteristicProperties) {
  CBCharacteristicPropertyBroadcast = 0x01,
  CBCharacteristicPropertyRead = 0x02,
  CBCharacteristicPropertyWriteWithoutResponse = 0x04,
  CBCharacteristicPropertyWrite = 0x08,
  CBCharacteristicPropertyNotify = 0x10,
  CBCharacteristicPropertyIndicate = 0x20,
};

FOUNDATION_EXPORT NSString* const CBErrorDomain;
FOUNDATION_EXPORT NSString* const CBATTErrorDomain;
FOUNDATION_EXPORT NSString* const CBAdvertisementDataLocalNameKey;
FOUNDATION_EXPORT NSString* const CBAdvertisementDataServiceUUIDsKey;
FOUNDATION_EXPORT NSString* const CBCentralManagerScanOptionAllowDuplicatesKey;
FOUNDATION_EXPORT NSString* const CBCentralManagerOptionShowPowerAlertKey;

@interface CBUUID : NSObject <NSCopying>
STANDIN_PARTS(CBUUID)
@property(nonatomic, readonly) NSData* data;
@property(nonatomic, readonly) NSString* UUIDString;
+ (CBUUID*)UUIDWithString:(NSString*)theString;
+ (CBUUID*)UUIDWithData:(NSData*)theData;
@end

@interface CBPeer : NSObject <NSCopying>
@property(readonly, nonatomic) NSUUID* identifier;
@end

@interface CBAttribute : NSObject
@property(readonly, nonatomic) CBUUID* UUID;
@end

@interface CBService : CBAttribute
STANDIN_PARTS(CBService)
@property(readonly, nonatomic, nullable) CBPeripheral* peripheral;
@property(readonly, nonatomic) BOOL isPrimary;
@property(retain, readonly, nullable) NSArray<CBCharacteristic*>* characteristics;
@end

@interface CBCharacteristic : CBAttribute
STANDIN_PARTS(CBCharacteristic)
@property(readonly, nonatomic, nullable) CBService* service;
@property(readonly, nonatomic) CBCharacteristicProperties properties;
@property(retain, readonly, nullable) NSData* value;
@property(readonly) BOOL isNotifying;
@end

@protocol CBPeripheralDelegate <NSObject>
@optional
- (void)peripheralDidUpdateName:(CBPeripheral*)peripheral;
- (void)peripheral:(CBPeripheral*)peripheral
    didModifyServices:(NSArray<CBService*>*)invalidatedServices;
- (void)peripheral:(CBPeripheral*)peripheral didDiscoverServices:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didDiscoverCharacteristicsForService:(CBService*)service
                                   error:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateValueForCharacteristic:(CBCharacteristic*)characteristic
                              error:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didWriteValueForCharacteristic:(CBCharacteristic*)characteristic
                             error:(nullable NSError*)error;
- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateNotificationStateForCharacteristic:(CBCharacteristic*)characteristic
                                          error:(nullable NSError*)error;
@end

@interface CBPeripheral : CBPeer
STANDIN_PARTS(CBPeripheral)
@property(unsafe_unretained, nonatomic, nullable) id<CBPeripheralDelegate> delegate;
@property(retain, readonly, nullable) NSString* name;
@property(readonly) CBPeripheralState state;
@property(retain, readonly, nullable) NSArray<CBService*>* services;
- (void)discoverServices:(nullable NSArray<CBUUID*>*)serviceUUIDs;
- (void)discoverCharacteristics:(nullable NSArray<CBUUID*>*)characteristicUUIDs
                     forService:(CBService*)service;
- (void)readValueForCharacteristic:(CBCharacteristic*)characteristic;
- (void)writeValue:(NSData*)data
    forCharacteristic:(CBCharacteristic*)characteristic
                 type:(CBCharacteristicWriteType)type;
- (void)setNotifyValue:(BOOL)enabled forCharacteristic:(CBCharacteristic*)characteristic;
@end

@protocol CBCentralManagerDelegate <NSObject>
@required
- (void)centralManagerDidUpdateState:(CBCentralManager*)central;
@optional
- (void)centralManager:(CBCentralManager*)central
    didDiscoverPeripheral:(CBPeripheral*)peripheral
        advertisementData:(NSDictionary<NSString*, id>*)advertisementData
                     RSSI:(NSNumber*)RSSI;
- (void)centralManager:(CBCentralManager*)central didConnectPeripheral:(CBPeripheral*)peripheral;
- (void)centralManager:(CBCentralManager*)central
    didFailToConnectPeripheral:(CBPeripheral*)peripheral
                         error:(nullable NSError*)error;
- (void)centralManager:(CBCentralManager*)central
    didDisconnectPeripheral:(CBPeripheral*)peripheral
                      error:(nullable NSError*)error;
@end

@interface CBManager : NSObject
@property(nonatomic, assign, readonly) CBManagerState state;
@end

@interface CBCentralManager : CBManager
STANDIN_PARTS(CBCentralManager)
@property(nonatomic, unsafe_unretained, nullable) id<CBCentralManagerDelegate> delegate;
@property(nonatomic, assign, readonly) BOOL isScanning;
- (instancetype)initWithDelegate:(nullable id<CBCentralManagerDelegate>)delegate
                           queue:(nullable dispatch_queue_t)queue;
- (instancetype)initWithDelegate:(nullable id<CBCentralManagerDelegate>)delegate
                           queue:(nullable dispatch_queue_t)queue
                         options:(nullable NSDictionary<NSString*, id>*)options;
- (NSArray<CBPeripheral*>*)retrievePeripheralsWithIdentifiers:(NSArray<NSUUID*>*)identifiers;
- (void)scanForPeripheralsWithServices:(nullable NSArray<CBUUID*>*)serviceUUIDs
                               options:(nullable NSDictionary<NSString*, id>*)options;
- (void)stopScan;
- (void)connectPeripheral:(CBPeripheral*)peripheral
                  options:(nullable NSDictionary<NSString*, id>*)options;
- (void)cancelPeripheralConnection:(CBPeripheral*)peripheral;
@end

NS_ASSUME_NONNULL_END
