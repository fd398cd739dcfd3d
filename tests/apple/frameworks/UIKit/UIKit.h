// The one name that this project uses of UIKit, declared in its own words.
#pragma once
#import <Foundation/Foundation.h>
FOUNDATION_EXPORT NSNotificationName const _Nonnull UIApplicationDidEnterBackgroundNotification;
