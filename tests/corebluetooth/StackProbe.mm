// An application in Objective-C on Foundation's run loop, over what stands in for CoreBluetooth and
// the real radio on Linux; tests/realstack/test_apple.py works it.
//
//   apple_probe NAME HEX SECONDS
//
// Scans, connects to the first reader of that name, sends the frame, listens for so long and
// closes. It prints STATUS, FOUND, PLUG, FRAME and SENT as they come, LOG with every line of the
// system's log, at the end ASKED with each request that CoreBluetooth got, MISUSE with what it
// documents as a mistake, and END.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "StandIn.h"
#include "kestrin/bluez/Bluez.h"

#import <KestrinBLESDK/KestrinBLESDK.h>

namespace {

void say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

void sayLogged(NSString* line) { say(std::string("LOG ") + [line UTF8String]); }

std::string hexOf(NSData* bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const auto* const all = static_cast<const std::uint8_t*>([bytes bytes]);
  std::string text;
  for (NSUInteger i = 0; i < [bytes length]; ++i) {
    text += kDigits[all[i] >> 4];
    text += kDigits[all[i] & 15];
  }
  return text;
}

NSData* bytesOf(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

}  // namespace

@interface Probe : NSObject <KestrinBLEProtocols, RcpReceiver> {
 @public
  KestrinBleMgr* manager;
  NSString* wanted;
  CBPeripheral* found;
  BOOL plugged;
}
@end
@implementation Probe
- (void)scanBleStatus:(int64_t)status {
  say("STATUS " + std::to_string(status));
}
- (void)scanningBleDeive:(CBPeripheral*)peripheral {
  say(std::string("FOUND ") + [[peripheral name] UTF8String]);
  if (found != nil || ![[peripheral name] isEqual:wanted]) return;
  found = peripheral;
  [manager stopSacnBLE];
  [manager connectBLE:peripheral];
}
- (void)plugChangedStatus:(BOOL)isPlugged {
  plugged = isPlugged;
  say(plugged ? "PLUG 1" : "PLUG 0");
}
- (void)dispatchRcpFrmReader:(NSData*)frame {
  say("FRAME " + hexOf(frame));
}
@end

namespace {

// As an application's main run loop does, until `done` or for so long. Returns whether it is done.
bool turnUntil(double seconds, const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    @autoreleasepool {
      [[NSRunLoop mainRunLoop] runMode:NSDefaultRunLoopMode
                            beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.2]];
    }
  }
  return true;
}

bool work(const std::string& name, const std::string& frame, double seconds) {
  Probe* const probe = [[Probe alloc] init];
  probe->wanted = [NSString stringWithUTF8String:name.c_str()];
  probe->manager = [KestrinBleMgr sharedInstance];
  [probe->manager setDelegate:probe];
  [probe->manager setRcpReceiverDelegate:probe];
  [probe->manager scanBLE];
  const bool isPluggedIn = turnUntil(90, [probe] { return probe->plugged; });
  if (isPluggedIn) {
    say([probe->manager send:bytesOf(frame)] ? "SENT 1" : "SENT 0");
    turnUntil(seconds, [] { return false; });
  }
  [probe->manager close];
  const bool isClosed = turnUntil(20, [probe] { return ![probe->manager open]; });
  for (const auto& each : standin::requests()) say("ASKED " + each);
  const auto misuses = standin::misuses();
  for (const auto& each : misuses) say("MISUSE " + each);
  return isPluggedIn && isClosed && misuses.empty();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  @autoreleasepool {
    _NSLog_printf_handler = sayLogged;
    standin::use(kestrin::bluez::makeRadio(kestrin::MainRunLoop::main()),
                 kestrin::MainRunLoop::main());
    const bool isDone = work(argv[1], argv[2], std::stod(argv[3]));
    // The radio's threads end before the process does.
    standin::use(nullptr, kestrin::MainRunLoop::main());
    say("END");
    return isDone ? EXIT_SUCCESS : EXIT_FAILURE;
  }
}
