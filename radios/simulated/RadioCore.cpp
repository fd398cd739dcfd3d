#include "RadioCore.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "CentralManager.h"
#include "Device.h"

namespace kestrin::simulated {

RadioCore::RadioCore(std::weak_ptr<RunLoop> mainRunLoop, const Options& options)
    : options_(options),
      mainRunLoop_(std::move(mainRunLoop)),
      random_(options.seed),
      state_(options.state) {}

Time RadioCore::now() const {
  const auto loop = mainRunLoop_.lock();
  return loop ? loop->now() : Time::zero();
}

void RadioCore::post(std::function<void()> task) {
  if (const auto loop = mainRunLoop_.lock()) loop->post(std::move(task));
}

void RadioCore::later(Time delay, const std::shared_ptr<Device>& device, DeviceTask task) {
  const auto loop = mainRunLoop_.lock();
  if (!loop) return;
  loop->arm(delay,
            [weak = weak_from_this(), target = std::weak_ptr(device), task = std::move(task)] {
              const auto self = weak.lock();
              const auto found = target.lock();
              if (self && found) task(*self, *found);
            });
}

void RadioCore::submit(std::function<void()> request) {
  bool first = false;
  {
    const std::scoped_lock lock(submittedMutex_);
    first = submitted_.empty();
    submitted_.push_back(std::move(request));
  }
  if (!first) return;
  post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->carryOutSubmitted();
  });
}

void RadioCore::carryOutSubmitted() {
  std::vector<std::function<void()>> requests;
  {
    const std::scoped_lock lock(submittedMutex_);
    requests.swap(submitted_);
  }
  for (const auto& request : requests) request();
}

void RadioCore::setState(CBManagerState state) {
  if (state_.exchange(state) == state) return;
  ++stateChanges_;
  for (const auto& device : devices_) device->radioSwitched(*this);
  for (const auto& central : centrals()) central->postState(state, stateChanges_);
}

void RadioCore::addCentral(const std::shared_ptr<CentralManager>& central) {
  std::erase_if(centrals_, [](const auto& known) { return known.expired(); });
  centrals_.push_back(central);
}

void RadioCore::letGo(CentralId central) {
  for (const auto& device : devices_) device->letGo(*this, central);
}

std::vector<std::shared_ptr<CentralManager>> RadioCore::centrals() {
  std::vector<std::shared_ptr<CentralManager>> living;
  for (const auto& known : centrals_) {
    if (auto central = known.lock()) living.push_back(std::move(central));
  }
  return living;
}

void RadioCore::announce(Device& device) {
  for (const auto& central : centrals()) central->listenFor(device.shared_from_this());
}

std::string RadioCore::nextAddress() const {
  char text[sizeof "C0:00:00:00:00:00"];
  const auto number = static_cast<unsigned>(devices_.size() + 1);
  std::snprintf(text, sizeof text, "C0:00:00:%02X:%02X:%02X", number >> 16 & 0xFFU,
                number >> 8 & 0xFFU, number & 0xFFU);
  return text;
}

void RadioCore::addDevice(std::shared_ptr<Device> device) {
  devices_.push_back(std::move(device));
  announce(*devices_.back());
}

}  // namespace kestrin::simulated
