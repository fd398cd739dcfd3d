#include "KestrinBLESDK/platform/Dispatch.h"

namespace kestrin {

Dispatch::~Dispatch() = default;

dispatch_queue_t Dispatch::dispatch_get_global_queue(long priority, unsigned long /*flags*/) const {
  return {priority};
}

void Dispatch::dispatch_sync(const dispatch_queue_t& /*queue*/, WorkReference work) const {
  work();
}

}  // namespace kestrin
