#include "Guarded.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"

#include <dispatch/dispatch.h>

namespace kestrin::corebluetooth {
namespace {

void turn(void* /*context*/) {
  @autoreleasepool {
    MainRunLoop::main()->runOneTurn();
  }
}

// The main queue runs in all common modes. A delayed perform or a file handle's notification would
// wait while a user scrolls.
dispatch_source_t makeSource() {
  const int descriptor = MainRunLoop::main()->fileDescriptor();
  if (descriptor < 0) {
    NSLog(*defaultLogSink(),
          "[ERROR]The main run loop is not hosted: the system has no descriptors left");
    return nullptr;
  }
  const dispatch_source_t source = dispatch_source_create(
      DISPATCH_SOURCE_TYPE_READ, static_cast<uintptr_t>(descriptor), 0, dispatch_get_main_queue());
  dispatch_source_set_event_handler_f(source, turn);
  dispatch_resume(source);
  return source;
}

}  // namespace

void hostMainRunLoop() {
  // For the life of the process, as the loop's own.
  static const dispatch_source_t source = makeSource();
  static_cast<void>(source);
}

}  // namespace kestrin::corebluetooth
