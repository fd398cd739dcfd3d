// The main queue's source, on GNUstep's run loop.
#include <dispatch/dispatch.h>

#include <stdexcept>

#import <UIKit/UIKit.h>

NSNotificationName const UIApplicationDidEnterBackgroundNotification =
    @"UIApplicationDidEnterBackgroundNotification";

struct dispatch_source_type_s {};
static const dispatch_source_type_s theReadType;
const dispatch_source_type_s* const standin_source_type_read = &theReadType;

// The common modes, the second of which is the one of a user who scrolls.
static NSArray* commonModes() { return @[ NSDefaultRunLoopMode, @"UITrackingRunLoopMode" ]; }

@interface StandInSource : NSObject <RunLoopEvents> {
 @public
  void* descriptor;
  dispatch_function_t handler;
  BOOL suspended;
}
@end
@implementation StandInSource
- (void)watch {
  for (NSString* mode in commonModes()) {
    [[NSRunLoop mainRunLoop] addEvent:descriptor type:ET_RDESC watcher:self forMode:mode];
  }
}
- (void)rest {
  for (NSString* mode in commonModes()) {
    [[NSRunLoop mainRunLoop] removeEvent:descriptor type:ET_RDESC forMode:mode all:YES];
  }
}
- (void)receivedEvent:(void*)data
                 type:(RunLoopEventType)type
                extra:(void*)extra
              forMode:(NSString*)mode {
  [self rest];
  handler(nullptr);
  [self watch];
}
@end

dispatch_queue_t dispatch_get_main_queue(void) { return [NSRunLoop mainRunLoop]; }

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle,
                                         uintptr_t mask, dispatch_queue_t queue) {
  if (type != DISPATCH_SOURCE_TYPE_READ || mask != 0 || queue != dispatch_get_main_queue()) {
    throw std::logic_error("a source of another kind than this project uses");
  }
  StandInSource* const source = [[StandInSource alloc] init];
  source->descriptor = reinterpret_cast<void*>(handle);
  source->suspended = YES;
  return source;
}

void dispatch_source_set_event_handler_f(dispatch_source_t source, dispatch_function_t handler) {
  static_cast<StandInSource*>(source)->handler = handler;
}

void dispatch_resume(dispatch_source_t source) {
  StandInSource* const resumed = source;
  if (resumed->suspended) [resumed watch];
  resumed->suspended = NO;
}
