#include <memory>
#include <optional>

#include "Devices.h"
#include "KestrinBLESDK/KestrinBleMgr.h"
#include "Shared.h"
#include "Values.h"
#include "WeakReference.h"

#import <KestrinBLESDK/KestrinManager.h>

using kestrin::corebluetooth::data;
using kestrin::corebluetooth::deviceOf;
using kestrin::corebluetooth::peripheralOf;

// The protocols have names that the library's own classes have as well.
typedef id<KestrinBLEProtocols> KestrinScanDelegate;
typedef id<RcpReceiver> KestrinReceiver;

namespace kestrin::objc {
namespace {

/// Passes what the library reports to the delegates of one manager. Each is asked before each
/// callback.
class Delegates final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  WeakReference scanDelegate;
  WeakReference receiver;

  [[nodiscard]] bool respondsToSelector(Selector selector) const noexcept override {
    @autoreleasepool {
      switch (selector) {
        case Selector::scanBleStatus:
          return [scanDelegate.get() respondsToSelector:@selector(scanBleStatus:)];
        case Selector::scanningBleDeive:
          return [scanDelegate.get() respondsToSelector:@selector(scanningBleDeive:)];
        case Selector::plugChangedStatus:
          return [receiver.get() respondsToSelector:@selector(plugChangedStatus:)];
        case Selector::dispatchRcpFrmReader:
          return [receiver.get() respondsToSelector:@selector(dispatchRcpFrmReader:)];
      }
    }
    return false;
  }
  void scanBleStatus(std::int64_t status) noexcept override {
    @autoreleasepool {
      const ::KestrinScanDelegate delegate = scanDelegate.get();
      [delegate scanBleStatus:status];
    }
  }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    @autoreleasepool {
      const ::KestrinScanDelegate delegate = scanDelegate.get();
      ::CBPeripheral* const device = deviceOf(peripheral);
      if (device != nil) [delegate scanningBleDeive:device];
    }
  }
  void plugChangedStatus(bool plugged) noexcept override {
    @autoreleasepool {
      const ::KestrinReceiver called = receiver.get();
      [called plugChangedStatus:plugged];
    }
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    @autoreleasepool {
      const ::KestrinReceiver called = receiver.get();
      [called dispatchRcpFrmReader:frame ? data(*frame) : nil];
    }
  }
};

}  // namespace
}  // namespace kestrin::objc

struct KestrinBleMgrParts {
  std::shared_ptr<kestrin::objc::Delegates> delegates;
  std::shared_ptr<kestrin::KestrinBleMgr> manager;
};

#if defined(__APPLE__)
@implementation KestrinBleMgr {
  struct KestrinBleMgrParts* parts;
}
#else
@implementation KestrinBleMgr
#endif

+ (KestrinBleMgr*)sharedInstance {
  static KestrinBleMgr* const instance = [[KestrinBleMgr alloc] init];
  return instance;
}

- (instancetype)init {
  if ((self = [super init])) {
    parts = new KestrinBleMgrParts();
    parts->delegates = std::make_shared<kestrin::objc::Delegates>();
    parts->manager = kestrin::KestrinBleMgr::init(kestrin::objc::platform());
    parts->manager->setDelegate(parts->delegates);
    parts->manager->setRcpReceiverDelegate(parts->delegates);
  }
  return self;
}

- (void)dealloc {
  delete parts;
#if !__has_feature(objc_arc)
  [super dealloc];
#endif
}

// A callback may end this object, but not the manager that an operation runs on.
- (std::shared_ptr<kestrin::KestrinBleMgr>)manager {
  return parts->manager;
}

- (id<KestrinBLEProtocols>)delegate {
  return parts->delegates->scanDelegate.get();
}
- (void)setDelegate:(id<KestrinBLEProtocols>)delegate {
  parts->delegates->scanDelegate.set(delegate);
}
- (id)rcpReceiverDelegate {
  return parts->delegates->receiver.get();
}
- (void)setRcpReceiverDelegate:(id)receiver {
  parts->delegates->receiver.set(receiver);
}
- (CBPeripheral*)pripheral {
  return deviceOf(parts->manager->pripheral());
}
- (BOOL)scanBLE {
  return [self manager]->scanBLE();
}
- (void)stopSacnBLE {
  [self manager]->stopSacnBLE();
}
- (void)connectBLE:(CBPeripheral*)peripheral {
  [self manager]->connectBLE(peripheralOf(*kestrin::objc::radio(), peripheral));
}
- (BOOL)open {
  return [self manager]->open();
}
- (BOOL)isOpened {
  return [self manager]->isOpened();
}
- (void)close {
  [self manager]->close();
}
- (BOOL)send:(NSData*)frame {
  return [self manager]->send(data(frame));
}
- (BOOL)sendPower:(NSData*)frame {
  return [self manager]->sendPower(data(frame));
}
- (BOOL)writeRawData:(NSData*)slice {
  return [self manager]->writeRawData(data(slice));
}
- (int32_t)readData:(NSData*)bytes {
  return [self manager]->readData(data(bytes).value_or(kestrin::NSData()));
}

@end
