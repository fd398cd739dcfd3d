#include "KestrinBLESDK/platform/NSNotificationCenter.h"

namespace kestrin {

NSNotificationCenter::~NSNotificationCenter() = default;

const std::shared_ptr<NSNotificationCenter>& NSNotificationCenter::defaultCenter() {
  static const auto* const center =
      new std::shared_ptr<NSNotificationCenter>(std::make_shared<NSNotificationCenter>());
  return *center;
}

void NSNotificationCenter::addObserver_selector_name_object(const std::shared_ptr<void>& observer,
                                                            const SEL& selector,
                                                            std::string_view name,
                                                            const std::shared_ptr<void>& object) {
  if (!observer || selector.perform == nullptr) return;
  const std::scoped_lock lock(mutex_);
  std::erase_if(observations_, [](const auto& known) { return known.observer.expired(); });
  observations_.push_back({observer, selector, std::string(name), object.get()});
}

void NSNotificationCenter::postNotificationName_object(std::string_view name,
                                                       const std::shared_ptr<void>& object) {
  struct Call {
    std::shared_ptr<void> observer;
    SEL selector;
  };
  std::vector<Call> calls;
  {
    const std::scoped_lock lock(mutex_);
    for (const auto& known : observations_) {
      if (known.name != name) continue;
      if (known.sender != nullptr && known.sender != object.get()) continue;
      if (auto observer = known.observer.lock()) calls.push_back({observer, known.selector});
    }
  }
  for (const auto& call : calls) call.selector.perform(call.observer.get(), object);
}

}  // namespace kestrin
