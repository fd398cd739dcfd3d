// The one type that CoreBluetooth's declarations need, in this project's own words.
#pragma once
#import <objc/NSObject.h>
@protocol OS_dispatch_queue <NSObject>
@end
typedef NSObject<OS_dispatch_queue>* dispatch_queue_t;
