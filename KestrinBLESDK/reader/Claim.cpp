#include "KestrinBLESDK/reader/Claim.h"

#include <map>
#include <mutex>
#include <utility>

namespace kestrin::reader {
namespace {

struct Listener {
  std::weak_ptr<RunLoop> loop;
  std::function<void()> task;
};

struct Claims {
  std::mutex mutex;
  std::map<const CBPeripheral*, Claim::Held> held;
  std::vector<std::weak_ptr<Listener>> listeners;
};

Claims& claims() {
  static auto* const all = new Claims;
  return *all;
}

}  // namespace

std::unique_ptr<Claim> Claim::take(const Held& held) {
  auto claim = std::make_unique<Claim>(held.device);
  const CBPeripheral* const device = held.device.get();
  const std::scoped_lock lock(claims().mutex);
  if (claims().held.try_emplace(device, held).second) return claim;
  // It is not this one's to give up.
  claim->device_.reset();
  return nullptr;
}

bool Claim::isHeld(const std::shared_ptr<CBPeripheral>& device) {
  const std::scoped_lock lock(claims().mutex);
  return claims().held.contains(device.get());
}

std::vector<SeenReader> Claim::heldOf(const std::shared_ptr<Radio>& radio) {
  std::vector<SeenReader> readers;
  const std::scoped_lock lock(claims().mutex);
  for (const auto& [device, held] : claims().held) {
    if (held.radio == radio) readers.push_back(held.reader);
  }
  return readers;
}

std::shared_ptr<void> Claim::onRelease(std::weak_ptr<RunLoop> loop, std::function<void()> task) {
  auto kept = std::make_shared<Listener>(Listener{std::move(loop), std::move(task)});
  const std::scoped_lock lock(claims().mutex);
  std::erase_if(claims().listeners, [](const auto& each) { return each.expired(); });
  claims().listeners.push_back(kept);
  return kept;
}

Claim::~Claim() {
  if (!device_) return;
  Held held;  // Outlives the lock: a radio may end with its last claim.
  std::vector<std::weak_ptr<Listener>> listeners;
  {
    const std::scoped_lock lock(claims().mutex);
    const auto found = claims().held.find(device_.get());
    held = std::move(found->second);
    claims().held.erase(found);
    listeners = claims().listeners;
  }
  for (const auto& each : listeners) {
    const auto listener = each.lock();
    const auto loop = listener ? listener->loop.lock() : nullptr;
    if (loop) loop->post(listener->task);
  }
}

}  // namespace kestrin::reader
