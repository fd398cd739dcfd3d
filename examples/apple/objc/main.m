// The application: one screen with what is said, and three buttons.
#import <UIKit/UIKit.h>

#import "Conversation.h"

@interface LinesController : UIViewController
@end

@implementation LinesController {
  Conversation *_conversation;
  UITextView *_lines;
}

- (void)viewDidLoad {
  [super viewDidLoad];
  self.title = @"Reader";
  _lines = [[UITextView alloc] initWithFrame:self.view.bounds];
  _lines.autoresizingMask = UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight;
  _lines.editable = NO;
  [self.view addSubview:_lines];
  self.navigationItem.leftBarButtonItem = [self button:@"Scan" action:@selector(scan)];
  self.navigationItem.rightBarButtonItems =
      @[ [self button:@"Close" action:@selector(giveUp)], [self button:@"Again" action:@selector(comeBack)] ];
  _conversation = [[Conversation alloc] init];
  [[NSNotificationCenter defaultCenter] addObserver:self
                                           selector:@selector(hear:)
                                               name:ConversationSaidLine
                                             object:_conversation];
}

- (UIBarButtonItem *)button:(NSString *)title action:(SEL)action {
  return [[UIBarButtonItem alloc] initWithTitle:title style:UIBarButtonItemStylePlain target:self action:action];
}

- (void)scan {
  [_conversation start];
}

- (void)comeBack {
  [_conversation comeBack];
}

- (void)giveUp {
  [_conversation stop];
}

- (void)hear:(NSNotification *)notification {
  NSString *line = notification.userInfo[ConversationLineKey];
  _lines.text = [_lines.text stringByAppendingFormat:@"%@\n", line];
}

@end

@interface AppDelegate : UIResponder <UIApplicationDelegate>
@property(nonatomic, strong, nullable) UIWindow *window;
@end

@implementation AppDelegate

- (BOOL)application:(UIApplication *)application
    didFinishLaunchingWithOptions:(nullable NSDictionary<UIApplicationLaunchOptionsKey, id> *)launchOptions {
  self.window = [[UIWindow alloc] initWithFrame:UIScreen.mainScreen.bounds];
  self.window.rootViewController =
      [[UINavigationController alloc] initWithRootViewController:[[LinesController alloc] init]];
  [self.window makeKeyAndVisible];
  return YES;
}

@end

int main(int argc, char *argv[]) {
  @autoreleasepool {
    return UIApplicationMain(argc, argv, nil, NSStringFromClass([AppDelegate class]));
  }
}
