#include "KestrinBLESDK/platform/Dispatch.h"

namespace kestrin {

Dispatch::~Dispatch() = default;

const std::shared_ptr<Dispatch>& Dispatch::system() {
  static const auto* const own = new std::shared_ptr<Dispatch>(std::make_shared<Dispatch>());
  return *own;
}

dispatch_queue_t Dispatch::dispatch_get_global_queue(long priority, unsigned long /*flags*/) const {
  return {priority};
}

void Dispatch::dispatch_sync(const dispatch_queue_t& /*queue*/, WorkReference work) const {
  work();
}

}  // namespace kestrin
