#include "KestrinBLESDK/reader/Claim.h"

#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace kestrin::reader {
namespace {

using Listener = std::function<void()>;

struct Claims {
  std::mutex mutex;
  std::set<std::shared_ptr<CBPeripheral>> held;
  std::vector<std::weak_ptr<Listener>> listeners;
};

Claims& claims() {
  static auto* const all = new Claims;
  return *all;
}

}  // namespace

std::unique_ptr<Claim> Claim::take(const std::shared_ptr<CBPeripheral>& device) {
  const std::scoped_lock lock(claims().mutex);
  if (!claims().held.insert(device).second) return nullptr;
  return std::make_unique<Claim>(device);
}

bool Claim::isHeld(const std::shared_ptr<CBPeripheral>& device) {
  const std::scoped_lock lock(claims().mutex);
  return claims().held.contains(device);
}

std::vector<std::shared_ptr<CBPeripheral>> Claim::held() {
  const std::scoped_lock lock(claims().mutex);
  return {claims().held.begin(), claims().held.end()};
}

std::shared_ptr<void> Claim::onRelease(std::function<void()> listener) {
  auto kept = std::make_shared<Listener>(std::move(listener));
  const std::scoped_lock lock(claims().mutex);
  std::erase_if(claims().listeners, [](const auto& each) { return each.expired(); });
  claims().listeners.push_back(kept);
  return kept;
}

Claim::~Claim() {
  std::vector<std::weak_ptr<Listener>> listeners;
  {
    const std::scoped_lock lock(claims().mutex);
    claims().held.erase(device_);
    listeners = claims().listeners;
  }
  for (const auto& each : listeners) {
    if (const auto listener = each.lock()) (*listener)();
  }
}

}  // namespace kestrin::reader
