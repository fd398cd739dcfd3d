#include "Parts.h"

#include <mutex>
#include <utility>

NSString* const CBErrorDomain = @"CBErrorDomain";
NSString* const CBATTErrorDomain = @"CBATTErrorDomain";
NSString* const CBAdvertisementDataLocalNameKey = @"kCBAdvDataLocalName";
NSString* const CBAdvertisementDataServiceUUIDsKey = @"kCBAdvDataServiceUUIDs";
NSString* const CBCentralManagerScanOptionAllowDuplicatesKey = @"kCBScanOptionAllowDuplicates";
NSString* const CBCentralManagerOptionShowPowerAlertKey = @"kCBInitOptionShowPowerAlert";

namespace standin {

State& state() {
  static auto* const one = new State;
  return *one;
}

void misuse(const std::string& what) {
  // The one thing that is asked for on a wrong thread.
  static std::mutex mutex;
  const std::scoped_lock lock(mutex);
  state().misuses.push_back(what);
}

bool request(const char* selector) {
  if (![NSThread isMainThread]) {
    misuse(std::string(selector) + " on another than the main thread");
    return false;
  }
  state().requests.emplace_back(selector);
  if (state().raisesAt == selector) {
    [NSException raise:NSInternalInconsistencyException format:@"%s is refused", selector];
  }
  return true;
}

void later(kestrin::Time delay, std::function<void()> task) {
  if (const auto loop = state().loop.lock()) loop->arm(delay, std::move(task));
}

NSString* string(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()]; }

NSError* error(const std::optional<kestrin::NSError>& from) {
  if (!from) return nil;
  return [NSError errorWithDomain:string(from->domain)
                             code:from->code
                         userInfo:@{NSLocalizedDescriptionKey : string(from->text)}];
}

CBUUID* uuid(const kestrin::CBUUID& value) {
  return [CBUUID UUIDWithString:string(value.UUIDString())];
}

std::optional<std::vector<kestrin::CBUUID>> uuids(NSArray* list) {
  if (list == nil) return std::nullopt;
  std::vector<kestrin::CBUUID> values;
  for (id each in list) {
    if ([each isKindOfClass:[CBUUID class]]) {
      values.push_back(*kestrin::CBUUID::UUIDWithString([[each UUIDString] UTF8String]));
    } else {
      misuse("something else than a UUID in a list of UUIDs");
    }
  }
  return values;
}

NSUUID* identifierOf(const kestrin::CBPeripheral& device) {
  std::string digits;
  for (const char each : device.identifier()) {
    if (each != ':') digits += each;
  }
  return
      [[[NSUUID alloc] initWithUUIDString:string("00000000-0000-4000-8000-" + digits)] autorelease];
}

}  // namespace standin
