// The example application in Objective-C, without its screen: the main job on Foundation's run
// loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "StandIn.h"
#include "kestrin/simulated/SimulatedRadio.h"
#include "kestrin/simulated/VirtualPeripheral.h"

#import "examples/apple/objc/Conversation.h"

using Words = std::vector<std::string>;

// Takes the place of the screen.
@interface Screen : NSObject {
 @public
  Words lines;
}
@end
@implementation Screen
- (void)hear:(NSNotification*)notification {
  lines.emplace_back([[[notification userInfo] objectForKey:ConversationLineKey] UTF8String]);
}
@end

namespace {

bool waitUntil(const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    @autoreleasepool {
      [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                               beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.05]];
    }
  }
  return true;
}

TEST(ObjectiveCExample, FindsAReaderConnectsAsksItAndHearsItsAnswer) {
  @autoreleasepool {
    const auto air = std::make_shared<kestrin::simulated::SimulatedRadio>(
        kestrin::MainRunLoop::main(), kestrin::simulated::Options());
    const auto reader = air->addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);
    standin::use(air, kestrin::MainRunLoop::main());
    Screen* const screen = [[Screen alloc] init];
    Conversation* const conversation = [[Conversation alloc] init];
    [[NSNotificationCenter defaultCenter] addObserver:screen
                                             selector:@selector(hear:)
                                                 name:ConversationSaidLine
                                               object:conversation];
    [conversation start];
    const auto frames = [&] {
      return std::count_if(screen->lines.begin(), screen->lines.end(),
                           [](const auto& line) { return line.rfind("frame bb0103", 0) == 0; });
    };
    // The manager asks by itself while the link comes up, the application once more.
    ASSERT_TRUE(waitUntil([&] { return frames() == 2; }));
    [conversation stop];
    ASSERT_TRUE(waitUntil([&] { return !reader->connected(); }));
    Words steps = screen->lines;
    std::erase_if(steps, [](const auto& line) { return line.rfind("frame ", 0) == 0; });
    ASSERT_GE(steps.size(), 5U);
    steps.resize(5);
    EXPECT_EQ(steps, (Words{"scanning", "found KVR-0417", "no longer scanning", "plugged in",
                            "no longer scanning"}));
    EXPECT_EQ(screen->lines.back(), "unplugged");
    EXPECT_EQ(reader->writes().size(), 2U);
    [conversation comeBack];
    ASSERT_TRUE(waitUntil([&] { return frames() == 4; }));
    [conversation stop];
    ASSERT_TRUE(waitUntil([&] { return !reader->connected(); }));
    EXPECT_EQ(standin::misuses(), Words());
    [[NSNotificationCenter defaultCenter] removeObserver:screen];
    [conversation release];
    [screen release];
  }
}

}  // namespace
