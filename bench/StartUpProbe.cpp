// A program that does next to nothing, with the library or without it.
#ifdef KESTRIN_WITH_LIBRARY
#include <KestrinBLESDK/KestrinBleMgr.h>
#endif

#include <memory>

int main() {
#ifdef KESTRIN_WITH_LIBRARY
  const auto manager = kestrin::KestrinBleMgr::sharedInstance();
  return manager->open() ? 1 : 0;
#else
  const auto nothing = std::make_shared<bool>(false);
  return *nothing ? 1 : 0;
#endif
}
