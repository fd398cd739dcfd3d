// The part of UIKit that this project and its example use, declared in its own words.
#pragma once
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

FOUNDATION_EXPORT NSNotificationName const UIApplicationDidEnterBackgroundNotification;

typedef struct CGRect {
  double x, y, width, height;
} CGRect;
typedef NSString* UIApplicationLaunchOptionsKey;
typedef NS_OPTIONS(NSUInteger, UIViewAutoresizing) {
  UIViewAutoresizingFlexibleWidth = 1 << 1,
  UIViewAutoresizingFlexibleHeight = 1 << 4,
};
typedef NS_ENUM(NSInteger, UIBarButtonItemStyle) {
  UIBarButtonItemStylePlain = 0,
};
@class UIApplication, UINavigationItem;

@interface UIResponder : NSObject
@end
@interface UIView : UIResponder
@property(nonatomic) CGRect bounds;
@property(nonatomic) UIViewAutoresizing autoresizingMask;
- (instancetype)initWithFrame:(CGRect)frame;
- (void)addSubview:(UIView*)view;
@end
@interface UITextView : UIView
@property(null_resettable, nonatomic, copy) NSString* text;
@property(nonatomic, getter=isEditable) BOOL editable;
@end
@interface UIViewController : UIResponder
@property(null_resettable, nonatomic, strong) UIView* view;
@property(nullable, nonatomic, copy) NSString* title;
@property(nonatomic, readonly, strong) UINavigationItem* navigationItem;
- (void)viewDidLoad;
@end
@interface UINavigationController : UIViewController
- (instancetype)initWithRootViewController:(UIViewController*)rootViewController;
@end
@interface UIBarButtonItem : NSObject
- (instancetype)initWithTitle:(nullable NSString*)title
                        style:(UIBarButtonItemStyle)style
                       target:(nullable id)target
                       action:(nullable SEL)action;
@end
@interface UINavigationItem : NSObject
@property(nullable, nonatomic, strong) UIBarButtonItem* leftBarButtonItem;
@property(nullable, nonatomic, copy) NSArray<UIBarButtonItem*>* rightBarButtonItems;
@end
@interface UIScreen : NSObject
@property(class, nonatomic, readonly) UIScreen* mainScreen;
@property(nonatomic, readonly) CGRect bounds;
@end
@interface UIWindow : UIView
@property(nullable, nonatomic, strong) UIViewController* rootViewController;
- (void)makeKeyAndVisible;
@end
@protocol UIApplicationDelegate <NSObject>
@optional
@property(nullable, nonatomic, strong) UIWindow* window;
- (BOOL)application:(UIApplication*)application
    didFinishLaunchingWithOptions:
        (nullable NSDictionary<UIApplicationLaunchOptionsKey, id>*)launchOptions;
@end
FOUNDATION_EXPORT int UIApplicationMain(int argc, char* _Nullable argv[_Nonnull],
                                        NSString* _Nullable principalClassName,
                                        NSString* _Nullable delegateClassName);

NS_ASSUME_NONNULL_END
