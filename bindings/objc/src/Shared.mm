#include "Shared.h"

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/NSNotificationCenter.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"

#import <Foundation/Foundation.h>
#if __has_include(<UIKit/UIKit.h>)
#import <UIKit/UIKit.h>
#define KESTRIN_HAS_BACKGROUND 1
#endif

// Passes the application's entering the background on to the library's managers and readers.
@interface KestrinBackground : NSObject
@end
@implementation KestrinBackground
- (void)enter:(NSNotification*)notification {
  kestrin::NSNotificationCenter::defaultCenter()->postNotificationName_object(
      kestrin::UIApplicationDidEnterBackgroundNotification);
}
@end

namespace kestrin::objc {
namespace {

/// Made once, for the life of the process.
struct Process {
  std::shared_ptr<Radio> radio = corebluetooth::makeRadio(MainRunLoop::main());
  ::KestrinBackground* background = [[::KestrinBackground alloc] init];

  Process() {
    setDefaultLogSink(corebluetooth::systemLog());
    corebluetooth::hostMainRunLoop();
#if KESTRIN_HAS_BACKGROUND
    [[::NSNotificationCenter defaultCenter]
        addObserver:background
           selector:@selector(enter:)
               name: ::UIApplicationDidEnterBackgroundNotification
             object:nil];
#endif
  }
};

const Process& process() {
  static const auto* const one = new Process;
  return *one;
}

}  // namespace

const std::shared_ptr<Radio>& radio() { return process().radio; }

Platform platform() {
  Platform platform;
  platform.radio = process().radio;
  platform.mainRunLoop = MainRunLoop::main();
  return platform;
}

}  // namespace kestrin::objc
