// The one name that this project uses of UIKit.
#pragma once
#import <Foundation/Foundation.h>
FOUNDATION_EXPORT NSNotificationName const UIApplicationDidEnterBackgroundNotification;
