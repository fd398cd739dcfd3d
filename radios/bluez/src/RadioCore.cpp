#include "RadioCore.h"

#include <utility>

#include "Conversions.h"
#include "Numbering.h"

namespace kestrin::bluez {
namespace {

// A disconnection takes 2 to 3 s, and one that waits for a silent peer longer.
constexpr Time kDisconnectLimit = std::chrono::seconds(35);
constexpr Time kFarewellLimit = std::chrono::seconds(2);

}  // namespace

RadioCore::RadioCore(const std::shared_ptr<BusThread>& thread, const std::string& bus,
                     const std::optional<std::string>& busAddress)
    : thread_(*thread),
      sharedThread_(thread),
      daemon_(*thread, busAddress, *this),
      centrals_(*thread, daemon_, bus) {}

void RadioCore::stop() {
  links_.clear();
  discoveries_.clear();
  daemon_.stop();
}

void RadioCore::forEachLink(const std::function<void(Link&)>& action) {
  // A link that ends takes itself out of the map.
  const auto links = links_;
  for (const auto& [device, link] : links) action(*link);
}

void RadioCore::shutDown() {
  forEachLink([](Link& link) { link.letGoOfAll(); });
  thread_.arm(kFarewellLimit, [this] { thread_.end(); });
  if (!daemon_.bus().isOpen()) {
    leaveBus();
    return;
  }
  // The bus takes messages in order: when it has answered this one, it has passed the others on.
  daemon_.bus().call({.destination = kBusName,
                      .path = "/org/freedesktop/DBus",
                      .interface = kBusName,
                      .method = "GetId",
                      .limit = kFarewellLimit,
                      .arguments = {}},
                     [this](const std::optional<CallError>&, sdbus::MethodReply&) { leaveBus(); });
}

void RadioCore::leaveBus() { thread_.end(); }

void RadioCore::removeCentral(std::uint64_t id) {
  centrals_.remove(id);
  updateScans();
  forEachLink([id](Link& link) { link.letGo(id); });
}

Discovery& RadioCore::discovery(const std::string& adapter) {
  auto& discovery = discoveries_[adapter];
  if (!discovery) {
    discovery = std::make_shared<Discovery>(
        thread_, daemon_, adapter,
        Discovery::Events{.started = [this, adapter] { sweep(adapter); },
                          .refused =
                              [this, adapter] {
                                centrals_.refuse(adapter);
                                updateScans();
                              }});
  }
  return *discovery;
}

void RadioCore::updateScans() {
  for (const auto& [path, adapter] : daemon_.tree().adapters()) {
    discovery(path).setScans(centrals_.scansOn(path));
  }
}

void RadioCore::scan(std::uint64_t central, std::uint64_t number, const Centrals::UUIDs& services) {
  if (!centrals_.scan(central, number, services)) return;
  updateScans();
  for (const auto& [adapter, discovery] : discoveries_) {
    if (discovery->isOn()) sweep(adapter);
  }
}

void RadioCore::stopScan(std::uint64_t central) {
  centrals_.stopScan(central);
  updateScans();
}

// A device has a signal strength from the moment it is seen until the daemon's discovery ends, so
// those that have one now count as seen, whoever asked for that discovery.
void RadioCore::sweep(const std::string& adapter) {
  if (!centrals_.scansOn(adapter)) return;
  for (const auto& [path, device] : daemon_.tree().devices()) {
    if (parentPath(path) != adapter) continue;
    if (device.rssi) centrals_.sighted(path, advertisedName(path), true);
    sightLeftOver(path);
  }
}

bool RadioCore::isLeftOver(const std::string& device) const {
  const auto* object = daemon_.tree().device(device);
  return object != nullptr && object->connected && object->servicesResolved &&
         !links_.contains(device) && !disconnections_.contains(device) &&
         !daemon_.tree().servicesOf(device).empty() && !daemon_.tree().isListenedTo(device);
}

// A linked device does not advertise, so nobody would ever find it again. It may be another
// program's that does not listen: whoever connects shares the link then, and nothing is ended here.
void RadioCore::sightLeftOver(const std::string& device) {
  if (!isLeftOver(device)) return;
  const auto found = names_.find(device);
  const auto& name = found == names_.end() ? daemon_.tree().device(device)->name : found->second;
  centrals_.sighted(device, name, true);
}

std::shared_ptr<Link> RadioCore::link(const std::string& device) const {
  const auto found = links_.find(device);
  return found == links_.end() ? nullptr : found->second;
}

void RadioCore::connect(std::uint64_t central, const std::shared_ptr<Peripheral>& peripheral) {
  const auto holder = centrals_.holder(central);
  if (!holder) return;
  auto& entry = links_[peripheral->path()];
  if (!entry) {
    LinkHost& host = *this;
    auto line = std::make_shared<LinkLine>(nextId(), sharedThread_);
    entry = std::make_shared<Link>(host, thread_, daemon_, std::move(line), peripheral);
  }
  const auto link = entry;
  link->addHolder(*holder);
  writeLinkNames();
}

void RadioCore::cancel(std::uint64_t central, const std::string& device) {
  if (const auto held = link(device)) held->letGo(central);
}

void RadioCore::beginSearch(const std::string& device, std::uint64_t link) {
  discovery(std::string(parentPath(device))).addSearch(link);
}

void RadioCore::endSearch(const std::string& device, std::uint64_t link) {
  discovery(std::string(parentPath(device))).removeSearch(link);
}

void RadioCore::refused(const std::string& device) {
  centrals_.refuse(std::string(parentPath(device)));
  updateScans();
}

void RadioCore::linkEnded(const std::string& device, std::uint64_t link) {
  const auto found = links_.find(device);
  if (found == links_.end() || found->second->number() != link) return;
  links_.erase(found);
  writeLinkNames();
}

std::optional<std::string> RadioCore::advertisedName(const std::string& device) const {
  const auto found = names_.find(device);
  return found == names_.end() ? std::nullopt : found->second;
}

void RadioCore::keepLinkNames(const std::string& file) {
  linkNames_.use(file);
  recallLinkNames();
}

void RadioCore::recallLinkNames() {
  for (const auto& [device, name] : linkNames_.left()) {
    const auto* object = daemon_.tree().device(device);
    if (object != nullptr && object->connected) names_.try_emplace(device, name);
  }
}

void RadioCore::writeLinkNames() {
  LinkNames::Names names;
  for (const auto& [device, link] : links_) {
    if (const auto name = advertisedName(device)) names.emplace(device, *name);
  }
  // Those that nobody has taken over yet may be left once more.
  for (const auto& [device, name] : linkNames_.left()) {
    const auto* object = daemon_.tree().device(device);
    if (object != nullptr && object->connected) names.try_emplace(device, name);
  }
  linkNames_.keep(names);
}

void RadioCore::disconnect(const std::string& device, std::function<void()> report) {
  const auto number = nextId();
  disconnections_[device] = {number, std::move(report)};
  daemon_.call(device, kDeviceInterface, "Disconnect", kDisconnectLimit, {},
               [this, device, number](const std::optional<CallError>&, sdbus::MethodReply&) {
                 const auto found = disconnections_.find(device);
                 if (found == disconnections_.end() || found->second.number != number) return;
                 endDisconnection(device);
               });
}

// The report is due as soon as the link is down. A new attempt waits for the call's answer, since
// the call would end that attempt too.
void RadioCore::disconnected(const std::string& device) {
  const auto found = disconnections_.find(device);
  if (found == disconnections_.end()) return;
  if (const auto report = std::exchange(found->second.report, {})) report();
}

void RadioCore::endDisconnection(const std::string& device) {
  disconnected(device);
  disconnections_.erase(device);
  if (const auto waiting = link(device)) waiting->resume();
}

}  // namespace kestrin::bluez
