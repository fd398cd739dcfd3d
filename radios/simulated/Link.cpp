#include "Link.h"

#include <algorithm>
#include <utility>

#include "Device.h"

namespace kestrin::simulated {

std::shared_ptr<Link> Link::make(const GattLayout& layout) {
  std::shared_ptr<Link> link(new Link());
  for (const auto& service : layout) {
    link->services_.push_back(std::make_shared<SimulatedService>(service, link));
  }
  return link;
}

std::optional<std::vector<std::shared_ptr<CBService>>> Link::shownServices() const {
  if (!servicesAnswered_) return std::nullopt;
  std::vector<std::shared_ptr<CBService>> found;
  for (const auto& service : services_) {
    if (service->shown) found.push_back(service);
  }
  return found;
}

void Link::show(const std::optional<std::vector<CBUUID>>& wanted) {
  servicesAnswered_ = true;
  for (const auto& service : services_) {
    if (isWanted(wanted, service->UUID())) service->shown = true;
  }
}

std::vector<std::shared_ptr<SimulatedCharacteristic>> Link::characteristics() const {
  std::vector<std::shared_ptr<SimulatedCharacteristic>> all;
  for (const auto& service : services_) {
    all.insert(all.end(), service->all().begin(), service->all().end());
  }
  return all;
}

void Link::send(RadioCore& core, const std::shared_ptr<Device>& device, Direction Link::*direction,
                Arrival arrival) {
  Direction& line = this->*direction;
  const Time now = core.now();
  line.lastDue = std::max(line.lastDue, now + core.random().between(core.options().latency));
  line.underWay.push_back(std::move(arrival));
  core.later(line.lastDue - now, device,
             [weak = weak_from_this(), direction](RadioCore& radio, Device& target) {
               const auto link = weak.lock();
               if (!link) return;
               auto& underWay = (link.get()->*direction).underWay;
               const Arrival arrived = std::move(underWay.front());
               underWay.pop_front();
               if (link->open_) arrived(radio, target, *link);
             });
}

void Link::toDevice(RadioCore& core, const std::shared_ptr<Device>& device, Arrival arrival) {
  if (!awaitsReport_) send(core, device, &Link::up_, std::move(arrival));
}

void Link::toCentral(RadioCore& core, const std::shared_ptr<Device>& device, Arrival arrival) {
  send(core, device, &Link::down_, std::move(arrival));
}

void Link::ask(RadioCore& core, const std::shared_ptr<Device>& device, AtDevice atDevice,
               Answer answer) {
  const std::uint64_t request = ++lastRequest_;
  owed_.emplace(request, std::move(answer));
  toDevice(core, device,
           [request, perform = std::move(atDevice)](RadioCore& radio, Device& target, Link& link) {
             const auto error = perform(radio, target, link);
             link.toCentral(radio, target.shared_from_this(),
                            [request, error](RadioCore&, Device&, Link& answered) {
                              auto owed = answered.owed_.extract(request);
                              if (owed) owed.mapped()(error);
                            });
           });
}

std::vector<Link::Answer> Link::takeOwed() {
  std::vector<Answer> answers;
  for (auto& [request, answer] : owed_) answers.push_back(std::move(answer));
  owed_.clear();
  return answers;
}

}  // namespace kestrin::simulated
