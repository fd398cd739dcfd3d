/// The manager for applications in Objective-C and Swift: works a handheld RFID reader over
/// Bluetooth Low Energy.
///
/// Compiled for iOS and contract-tested on Linux; not yet run on a device.
///
/// Threads: the main thread's, where every callback comes but `dispatchRcpFrmReader:`, which may
/// come on another one while the main thread waits for it. `sharedInstance` may be called from any
/// thread; `send:`, `sendPower:` and `writeRawData:` from another than the main thread while no
/// link comes or goes, one at a time. They block their caller.
///
/// Lifetime: delegates are held weakly. Before each callback a delegate is asked whether it
/// responds to it.
///
/// Errors: there are none. A failure is a line in the system's log.
#import <CoreBluetooth/CoreBluetooth.h>
#import <Foundation/Foundation.h>
#import <KestrinBLESDK/KestrinDefines.h>

NS_ASSUME_NONNULL_BEGIN

/// The version as a number, major and minor.
KESTRIN_CONSTANT const double KestrinBLESDKVersionNumber;
/// The version as text, with a line feed and a terminating zero.
KESTRIN_CONSTANT const unsigned char KestrinBLESDKVersionString[];

/// The scan delegate.
@protocol KestrinBLEProtocols <NSObject>
@optional
/// 0 at the very start of `scanBLE`, 1 at the start of `stopSacnBLE`.
- (void)scanBleStatus:(int64_t)status;
/// A reader in range.
- (void)scanningBleDeive:(CBPeripheral*)peripheral;
@end

/// What an application hears of a connected reader. The manager takes any object; a class that
/// adopts this has its methods checked by the compiler.
@protocol RcpReceiver <NSObject>
@optional
/// Whether the reader is plugged in and its link can be used.
- (void)plugChangedStatus:(BOOL)plugged;
/// One whole, checked frame; of a reader whose name begins with "KVR-Q62T" the bytes of one
/// notification, which may be absent.
- (void)dispatchRcpFrmReader:(nullable NSData*)frame;
@end

/// The manager. `init` makes a further, independent one.
KESTRIN_CLASS
@interface KestrinBleMgr : NSObject
KESTRIN_PARTS(KestrinBleMgr)

/// The scan delegate.
@property(nonatomic, KESTRIN_WEAK, nullable) id<KestrinBLEProtocols> delegate;
/// The receiver, see `RcpReceiver`.
@property(nonatomic, KESTRIN_WEAK, nullable) id rcpReceiverDelegate;
/// The reader that the scan accepted last or that was connected to.
@property(nonatomic, readonly, nullable) CBPeripheral* pripheral;

/// The process's one manager.
+ (KestrinBleMgr*)sharedInstance;

/// Calls the scan delegate with 0, drops the link to the last reader, and scans. Always YES, also
/// with Bluetooth off: the scan then starts when it is on.
- (BOOL)scanBLE;
/// Calls the scan delegate with 1 and stops the scan.
- (void)stopSacnBLE;
/// Connects to a reader, however long that takes. The receiver hears `plugChangedStatus:` with YES
/// when the link can be used.
- (void)connectBLE:(CBPeripheral*)peripheral;
/// Whether there is a link. It opens nothing.
- (BOOL)open;
/// The same as `open`.
- (BOOL)isOpened;
/// Drops the link, stops the scan and calls the receiver with NO at once; again when the link is
/// down.
- (void)close;
/// Sends one whole frame, CRC included, in slices of 20 bytes with a pause of 0.05 s after each
/// full one. YES when the last slice was handed to the system, which says nothing of its arrival.
- (BOOL)send:(NSData*)frame;
/// The same as `send:`.
- (BOOL)sendPower:(NSData*)frame;
/// Writes one slice of at most 20 bytes.
- (BOOL)writeRawData:(NSData*)slice NS_SWIFT_NAME(writeRawData(_:));
/// Takes bytes as if the reader had sent them. Always 0.
- (int32_t)readData:(NSData*)data NS_SWIFT_NAME(readData(_:));

@end

NS_ASSUME_NONNULL_END
