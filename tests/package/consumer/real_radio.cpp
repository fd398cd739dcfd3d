// Links the real radio, which needs the message bus's library, and says whether one can be had.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <kestrin/bluez/Bluez.h>

#include <iostream>

int main() {
  kestrin::bluez::install();
  const bool isThere = kestrin::KestrinBleMgr::sharedInstance() != nullptr;
  std::cout << "version " << KestrinBLESDKVersionNumber << (isThere ? ", a manager" : "") << '\n';
  return isThere ? 0 : 1;
}
