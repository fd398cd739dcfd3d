// The classes for Objective-C from an application's side: in real time, on Foundation's own run
// loop, which hosts the library's.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "StandIn.h"
#include "kestrin/simulated/SimulatedPlatform.h"

#import <KestrinBLESDK/KestrinBLESDK.h>
#import <UIKit/UIKit.h>

namespace {

using Words = std::vector<std::string>;

Words logged;
std::mutex logMutex;
void takeLine(NSString* line) {
  const std::scoped_lock lock(logMutex);
  logged.emplace_back([line UTF8String]);
}
bool wasLogged(const std::string& text) {
  const std::scoped_lock lock(logMutex);
  for (const auto& line : logged) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

// An application that hears everything.
@interface App : NSObject <KestrinBLEProtocols, RcpReceiver> {
 @public
  Words heard;
  CBPeripheral* found;
  std::function<void(const std::string& word)> onWord;
}
@end
@implementation App
- (void)hear:(const std::string&)word {
  EXPECT_TRUE([NSThread isMainThread]);
  heard.push_back(word);
  if (onWord) onWord(word);
}
- (void)scanBleStatus:(int64_t)status {
  [self hear:"status " + std::to_string(status)];
}
- (void)scanningBleDeive:(CBPeripheral*)peripheral {
  found = peripheral;
  [self hear:std::string("device ") + [[peripheral name] UTF8String]];
}
- (void)plugChangedStatus:(BOOL)plugged {
  [self hear:plugged ? "plugged" : "unplugged"];
}
- (void)dispatchRcpFrmReader:(NSData*)frame {
  [self hear:"frame of " + std::to_string([frame length])];
}
@end

// One that implements nothing.
@interface Deaf : NSObject <KestrinBLEProtocols>
@end
@implementation Deaf
@end

// One that decides at run time what it responds to.
@interface Moody : App {
 @public
  BOOL listens;
  int asked;
}
@end
@implementation Moody
- (BOOL)respondsToSelector:(SEL)selector {
  if (!sel_isEqual(selector, @selector(scanBleStatus:))) return [super respondsToSelector:selector];
  ++asked;
  return listens;
}
@end

namespace {

class FaceTest : public testing::Test {
 protected:
  FaceTest()
      : pool_([[NSAutoreleasePool alloc] init]),
        air_(std::make_shared<kestrin::simulated::SimulatedRadio>(kestrin::MainRunLoop::main(),
                                                                  kestrin::simulated::Options())),
        reader_(air_->addReader("KVR-1", kestrin::simulated::ReaderFamily::standard)) {
    _NSLog_printf_handler = takeLine;
    standin::use(air_, kestrin::MainRunLoop::main());
    manager_ = [[KestrinBleMgr alloc] init];
    app_ = [[App alloc] init];
    [manager_ setDelegate:app_];
    [manager_ setRcpReceiverDelegate:app_];
  }
  ~FaceTest() override {
    if (manager_ != nil) {
      app_->onWord = nullptr;
      [manager_ close];
      waitUntil([this] { return ![manager_ open] && !reader_->connected(); });
    }
    [manager_ release];
    [app_ release];
    EXPECT_EQ(standin::misuses(), Words());
    [pool_ release];
  }

  /// Turns Foundation's run loop, as an application does, in one of its modes.
  static void turn(double seconds, NSString* mode = NSDefaultRunLoopMode) {
    @autoreleasepool {
      [[NSRunLoop currentRunLoop] runMode:mode
                               beforeDate:[NSDate dateWithTimeIntervalSinceNow:seconds]];
    }
  }
  static bool waitUntil(const std::function<bool()>& done, NSString* mode = NSDefaultRunLoopMode) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      // A mode in which nothing waits is left at once.
      if (mode != NSDefaultRunLoopMode) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      turn(0.05, mode);
    }
    return true;
  }
  bool heard(const std::string& word) const {
    return std::find(app_->heard.begin(), app_->heard.end(), word) != app_->heard.end();
  }
  bool plugIn() {
    [manager_ scanBLE];
    if (!waitUntil([this] { return heard("device KVR-1"); })) return false;
    [manager_ connectBLE:app_->found];
    return waitUntil([this] { return heard("plugged"); });
  }

  NSAutoreleasePool* const pool_;
  const std::shared_ptr<kestrin::simulated::SimulatedRadio> air_;
  const std::shared_ptr<kestrin::simulated::VirtualPeripheral> reader_;
  KestrinBleMgr* manager_ = nil;
  App* app_ = nil;
};

TEST_F(FaceTest, SharedInstanceIsOneObjectOnEveryThreadAndInitMakesAnother) {
  KestrinBleMgr* ofThread = nil;
  std::thread([&ofThread] {
    @autoreleasepool {
      ofThread = [KestrinBleMgr sharedInstance];
    }
  }).join();
  EXPECT_EQ([KestrinBleMgr sharedInstance], ofThread);
  EXPECT_EQ([KestrinBleMgr sharedInstance], [KestrinBleMgr sharedInstance]);
  EXPECT_NE([KestrinBleMgr sharedInstance], manager_);
  EXPECT_EQ(KestrinBLESDKVersionNumber, 1.0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(KestrinBLESDKVersionString)),
            "@(#)PROGRAM:KestrinBLESDK  PROJECT:KestrinBLESDK-1\n");
}

TEST_F(FaceTest, BeforeAnyScanEverythingMayBeAsked) {
  EXPECT_FALSE([manager_ open]);
  EXPECT_FALSE([manager_ isOpened]);
  EXPECT_EQ([manager_ pripheral], nil);
  EXPECT_FALSE([manager_ send:[NSData dataWithBytes:"x" length:1]]);
  EXPECT_EQ([manager_ readData:[NSData data]], 0);
  [manager_ close];
  EXPECT_EQ(app_->heard, Words{"unplugged"});
}

TEST_F(FaceTest, AnApplicationScansConnectsSendsAndIsAnswered) {
  [manager_ scanBLE];
  EXPECT_EQ(app_->heard, Words{"status 0"}) << "told from inside the call";
  ASSERT_TRUE(waitUntil([this] { return heard("device KVR-1"); }));
  EXPECT_EQ([manager_ pripheral], app_ -> found);
  [manager_ connectBLE:app_->found];
  ASSERT_TRUE(waitUntil([this] { return heard("plugged"); }));
  EXPECT_TRUE([manager_ isOpened]);
  EXPECT_EQ(app_->heard[2].rfind("frame of ", 0), 0U) << "its answer to who it is";
  EXPECT_EQ([[manager_ pripheral] state], CBPeripheralStateConnected);
  const auto before = reader_->writes().size();
  std::vector<std::uint8_t> command(45, 0x11);
  EXPECT_TRUE([manager_ send:[NSData dataWithBytes:command.data() length:command.size()]]);
  ASSERT_TRUE(waitUntil([&] { return reader_->writes().size() == before + 3; }));
  EXPECT_EQ(reader_->writes()[before].value.length(), 20U);
  EXPECT_EQ(reader_->writes()[before + 2].value.length(), 5U);
  app_->heard.clear();
  const std::uint8_t question[] = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};
  EXPECT_TRUE([manager_ sendPower:[NSData dataWithBytes:question length:sizeof question]]);
  EXPECT_TRUE(waitUntil([this] { return !app_->heard.empty(); }));
  EXPECT_EQ(app_->heard[0].rfind("frame of ", 0), 0U);
  EXPECT_TRUE(wasLogged("start San"));
  EXPECT_TRUE(wasLogged("[TX BLE]"));
}

TEST_F(FaceTest, TheBackgroundClosesOnceAndOnTheNextTurn) {
  ASSERT_TRUE(plugIn());
  app_->heard.clear();
  for (int i = 0; i < 2; ++i) {
    [[NSNotificationCenter defaultCenter]
        postNotificationName:UIApplicationDidEnterBackgroundNotification
                      object:nil];
  }
  EXPECT_EQ(app_->heard, Words());
  EXPECT_TRUE([manager_ open]);
  ASSERT_TRUE(waitUntil([this] { return ![manager_ open]; }));
  turn(0.3);
  EXPECT_EQ(app_->heard, (Words{"unplugged", "unplugged"})) << "at once, and when the link is down";
  EXPECT_FALSE(reader_->connected());
}

TEST_F(FaceTest, AUserWhoScrollsDelaysNothing) {
  NSString* const scrolling = @"UITrackingRunLoopMode";
  [manager_ scanBLE];
  ASSERT_TRUE(waitUntil([this] { return heard("device KVR-1"); }, scrolling));
  [manager_ connectBLE:app_->found];
  EXPECT_TRUE(waitUntil([this] { return heard("plugged"); }, scrolling));
}

TEST_F(FaceTest, ADelegateThatImplementsNothingIsNotCalled) {
  Deaf* const deaf = [[Deaf alloc] init];
  [manager_ setDelegate:deaf];
  [manager_ setRcpReceiverDelegate:deaf];
  EXPECT_EQ([manager_ delegate], deaf);
  EXPECT_TRUE([manager_ scanBLE]);
  ASSERT_TRUE(waitUntil([this] { return [manager_ pripheral] != nil; }));
  [manager_ connectBLE:[manager_ pripheral]];
  EXPECT_TRUE(waitUntil([this] { return [manager_ isOpened] && reader_->writes().size() == 1; }));
  [manager_ stopSacnBLE];
  EXPECT_EQ(app_->heard, Words());
  [deaf release];
}

TEST_F(FaceTest, ADelegateThatGoesAwayIsForgotten) {
  @autoreleasepool {
    App* const gone = [[App alloc] init];
    [manager_ setDelegate:gone];
    [manager_ setRcpReceiverDelegate:gone];
    [manager_ scanBLE];
    EXPECT_EQ(gone->heard, Words{"status 0"});
    [gone release];
  }
  EXPECT_EQ([manager_ delegate], nil);
  EXPECT_EQ([manager_ rcpReceiverDelegate], nil);
  [manager_ stopSacnBLE];
  [manager_ close];
  [manager_ setDelegate:app_];
  [manager_ stopSacnBLE];
  EXPECT_EQ(app_->heard, Words{"status 1"});
}

TEST_F(FaceTest, ADelegateIsAskedBeforeEachCall) {
  Moody* const moody = [[Moody alloc] init];
  [manager_ setDelegate:moody];
  [manager_ stopSacnBLE];
  EXPECT_EQ(moody->heard, Words());
  moody->listens = YES;
  [manager_ stopSacnBLE];
  EXPECT_EQ(moody->heard, Words{"status 1"});
  moody->listens = NO;
  [manager_ stopSacnBLE];
  EXPECT_EQ(moody->heard, Words{"status 1"});
  EXPECT_EQ(moody->asked, 3);
  [moody release];
}

TEST_F(FaceTest, ADelegateMayCallBackIn) {
  int plugged = 0;
  app_->onWord = [&](const std::string& word) {
    if (word == "device KVR-1") [manager_ connectBLE:app_->found];
    if (word == "plugged" && ++plugged == 1) [manager_ close];
    if (word == "unplugged" && plugged == 1 && ![manager_ open]) {
      ++plugged;
      [manager_ connectBLE:app_->found];
    }
  };
  [manager_ scanBLE];
  EXPECT_TRUE(waitUntil([&] { return plugged == 3; })) << "the second time, on another link";
}

TEST_F(FaceTest, ADelegateMayLetTheManagerGo) {
  app_->onWord = [&](const std::string& word) {
    if (word != "device KVR-1") return;
    [manager_ release];
    manager_ = nil;
  };
  [manager_ scanBLE];
  EXPECT_TRUE(waitUntil([&] { return manager_ == nil; }));
  turn(0.1);
  EXPECT_EQ(app_->heard, (Words{"status 0", "device KVR-1"}));
}

class ReaderFaceTest : public FaceTest {
 protected:
  KestrinReader* make(NSString* name) {
    KestrinReaderOptions* const options = [[[KestrinReaderOptions alloc] init] autorelease];
    [options setReader:name];
    return [[KestrinReader alloc] initWithOptions:options error:nullptr];
  }
};

TEST_F(ReaderFaceTest, OptionsAreWhatTheyAreInTheLibrary) {
  KestrinReaderOptions* const options = [[[KestrinReaderOptions alloc] init] autorelease];
  EXPECT_TRUE([[options reader] isEqual:@""]);
  EXPECT_EQ([[options findLimit] doubleValue], 30);
  EXPECT_EQ([[options plugInLimit] doubleValue], 30);
  EXPECT_FALSE([options takesFirst]);
  EXPECT_TRUE([options reconnects]);
  EXPECT_EQ([options mostWaitingFrames], 64U);
  [options setReader:@"KVR"];
  [options setFindLimit:nil];
  [options setPlugInLimit:@2.5];
  [options setTakesFirst:YES];
  [options setReconnects:NO];
  [options setMostWaitingFrames:3];
  EXPECT_TRUE([[options reader] isEqual:@"KVR"]);
  EXPECT_EQ([options findLimit], nil);
  EXPECT_EQ([[options plugInLimit] doubleValue], 2.5);
  EXPECT_TRUE([options takesFirst]);
  EXPECT_FALSE([options reconnects]);
  EXPECT_EQ([options mostWaitingFrames], 3U);
}

TEST_F(ReaderFaceTest, AReaderIsFoundHeldAskedLeftAndClosed) {
  KestrinReader* const reader = make(@"KVR-1");
  Words phases;
  Words* const phasesHeard = &phases;
  [reader setOnPhase:^(KestrinReaderPhase phase) {
    phasesHeard->push_back(std::to_string(phase));
  }];
  int seen = 0;
  int* const seenHeard = &seen;
  [reader setOnSeen:^{
    ++*seenHeard;
  }];
  EXPECT_EQ([reader phase], KestrinReaderPhaseSearching);
  ASSERT_TRUE(waitUntil([&] { return [reader phase] == KestrinReaderPhasePluggedIn; }));
  EXPECT_EQ(phases, (Words{"2", "3", "4"}));
  EXPECT_EQ(seen, 1);
  EXPECT_TRUE([[reader name] isEqual:@"KVR-1"]);
  EXPECT_TRUE([[[[reader seen] objectAtIndex:0] identifier] isEqual:[reader identifier]]);
  EXPECT_TRUE([reader hasLink]);
  EXPECT_TRUE([[reader radioDescription] isEqual:@"the radio is powered on"]);

  const std::uint8_t question[] = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};
  NSData* const command = [NSData dataWithBytes:question length:sizeof question];
  int answers = 0;
  int* const answersHeard = &answers;
  [reader exchangeFrame:command
                  limit:2
             completion:^(KestrinFrame* answer, NSError* error) {
               ++*answersHeard;
               EXPECT_EQ(error, nil);
               EXPECT_EQ([answer code], 0x03);
               EXPECT_NE([answer type], 0x00);
               EXPECT_EQ([[answer data] length], [[answer payload] length] + 8);
             }];
  ASSERT_TRUE(waitUntil([&] { return answers == 1; }));
  int sent = 0;
  int* const sentHeard = &sent;
  [reader sendFrame:command
         completion:^(NSError* error) {
           ++*sentHeard;
           EXPECT_EQ(error, nil);
         }];
  ASSERT_TRUE(waitUntil([&] { return sent == 1; }));
  [reader exchangeFrame:[NSData data]
                  limit:2
             completion:^(KestrinFrame* answer, NSError* error) {
               ++*answersHeard;
               EXPECT_EQ(answer, nil);
               EXPECT_TRUE([[error domain] isEqual:KestrinErrorDomain]);
               EXPECT_EQ([error code], KestrinReaderErrorNoFrame);
             }];
  ASSERT_TRUE(waitUntil([&] { return answers == 2; }));
  const auto forgotten = [reader exchangeFrame:command
                                         limit:0.2
                                    completion:^(KestrinFrame*, NSError*) {
                                      ++*answersHeard;
                                    }];
  [reader forgetExchange:forgotten];

  int left = 0;
  int* const leftHeard = &left;
  [reader leaveWithCompletion:^{
    ++*leftHeard;
  }];
  ASSERT_TRUE(waitUntil([&] { return left == 1; }));
  EXPECT_EQ([reader phase], KestrinReaderPhaseAway);
  EXPECT_FALSE(reader_->connected());
  EXPECT_EQ(answers, 2);
  [reader comeBack];
  ASSERT_TRUE(waitUntil([&] { return [reader phase] == KestrinReaderPhasePluggedIn; }));
  int closed = 0;
  int* const closedHeard = &closed;
  [reader closeWithCompletion:^{
    ++*closedHeard;
  }];
  EXPECT_EQ([reader phase], KestrinReaderPhaseClosed);
  ASSERT_TRUE(waitUntil([&] { return closed == 1; }));
  EXPECT_FALSE(reader_->connected());
  [reader release];
}

TEST_F(ReaderFaceTest, WhatIsMissingIsTroubleAndSeveralAreToChooseFrom) {
  air_->addReader("KVR-2", kestrin::simulated::ReaderFamily::standard);
  KestrinReader* const reader = make(@"KVR");
  NSInteger trouble = 0;
  NSInteger* const troubleHeard = &trouble;
  [reader setOnTrouble:^(NSError* error) {
    *troubleHeard = [error code];
    EXPECT_NE([[error localizedDescription] length], 0U);
  }];
  ASSERT_TRUE(waitUntil([&] { return trouble == KestrinReaderErrorAmbiguous; }));
  ASSERT_EQ([[reader candidates] count], 2U);
  EXPECT_FALSE([reader chooseIdentifier:@"none"]);
  NSString* identifier = nil;
  for (KestrinSeenReader* each in [reader candidates]) {
    if ([[each name] isEqual:@"KVR-1"]) identifier = [each identifier];
  }
  ASSERT_NE(identifier, nil);
  EXPECT_TRUE([reader chooseIdentifier:identifier]);
  EXPECT_TRUE(waitUntil([&] { return [reader phase] == KestrinReaderPhasePluggedIn; }));
  [reader release];
  EXPECT_TRUE(waitUntil([&] { return !reader_->connected(); })) << "its end closes the link";
}

TEST_F(ReaderFaceTest, AHandlerMayLetItsReaderGo) {
  KestrinReader* reader = make(@"KVR-1");
  KestrinReader** const held = &reader;
  [reader setOnPhase:^(KestrinReaderPhase phase) {
    if (phase != KestrinReaderPhaseLinkingUp) return;
    [*held release];
    *held = nil;
  }];
  ASSERT_TRUE(waitUntil([&] { return reader == nil; }));
  EXPECT_TRUE(waitUntil([&] { return !reader_->connected(); }));
}

}  // namespace
