#include "Centrals.h"

#include <algorithm>
#include <utility>

#include "Conversions.h"
#include "Peripheral.h"
#include "Posting.h"
#include "StateReason.h"

namespace kestrin::bluez {
namespace {

// A daemon that has just come takes its name first and its adapters up after that.
constexpr Time kArrival = std::chrono::seconds(5);
// A daemon that ends drops its adapters first and its name after that.
constexpr Time kDeparture = std::chrono::seconds(1);
// "Not available" (Bluetooth Core, Vol 4, Part E, 7.7.65.2).
constexpr int kNoSignalStrength = 127;

bool isWanted(const Centrals::UUIDs& wanted, const std::vector<CBUUID>& advertised) {
  return !wanted || std::any_of(wanted->begin(), wanted->end(), [&](const CBUUID& uuid) {
    return std::find(advertised.begin(), advertised.end(), uuid) != advertised.end();
  });
}

}  // namespace

void StateBoard::set(std::string reason) {
  const std::scoped_lock lock(mutex_);
  reason_ = std::move(reason);
}

std::string StateBoard::get() const {
  const std::scoped_lock lock(mutex_);
  return reason_;
}

Centrals::Centrals(BusThread& thread, Daemon& daemon, std::string bus)
    : thread_(thread), daemon_(daemon), bus_(std::move(bus)) {}

void Centrals::addRadio(std::uint64_t id, const std::shared_ptr<StateBoard>& board,
                        const std::optional<std::string>& adapter) {
  radios_[id] = {.board = board, .use = {.wanted = adapter, .path = {}}};
  updateStates();
}

// A new central manager is a new try: what was refused before may be allowed now.
void Centrals::add(CentralSetup setup) {
  Record record;
  record.use.wanted = setup.adapter;
  record.setup = std::move(setup);
  refused_.clear();
  const auto id = record.setup.id;
  records_.emplace(id, std::move(record));
  updateStates();
}

std::optional<LinkHolder> Centrals::holder(std::uint64_t id) const {
  const auto found = records_.find(id);
  if (found == records_.end()) return std::nullopt;
  const CentralSetup& setup = found->second.setup;
  return LinkHolder{setup.id, setup.front, setup.delegate, setup.loop};
}

void Centrals::daemonChanged() {
  refused_.clear();
  thread_.cancel(settlingEnd_);
  settling_ = false;
  if (daemon_.availability() == Availability::ready && daemon_.tree().adapters().empty()) {
    settle(kArrival);
  }
  updateStates();
}

void Centrals::adapterRemoved() {
  settle(kDeparture);
  updateStates();
}

void Centrals::settle(Time span) {
  thread_.cancel(settlingEnd_);
  settling_ = true;
  settlingEnd_ = thread_.arm(span, [this] {
    settlingEnd_.reset();
    settling_ = false;
    updateStates();
  });
}

void Centrals::refuse(const std::string& adapter) {
  refused_.insert(adapter);
  updateStates();
}

void Centrals::updateStates() {
  for (auto& [id, radio] : radios_) {
    choose(radio.use);
    if (const auto board = radio.board.lock()) board->set(reasonOf(radio.use));
  }
  for (auto& [id, record] : records_) updateState(record);
}

void Centrals::choose(AdapterUse& use) const {
  const auto& adapters = daemon_.tree().adapters();
  const auto path = chooseAdapter(adapters, use.wanted, use.path, use.wasPowered);
  if (path != use.path) use.wasPowered = false;
  use.path = path;
  if (path.empty()) return;
  use.wasThere = true;
  use.wasPowered = use.wasPowered || adapters.at(path).powered;
}

CBManagerState Centrals::stateOf(const AdapterUse& use) const {
  const auto away = use.wasThere ? CBManagerState::resetting : CBManagerState::unsupported;
  switch (daemon_.availability()) {
    case Availability::unknown:
      return CBManagerState::unknown;
    case Availability::noBus:
    case Availability::noDaemon:
    case Availability::notAnswering:
      return away;
    case Availability::refused:
      return CBManagerState::unauthorized;
    case Availability::ready:
      break;
  }
  if (use.path.empty()) return settling_ ? away : CBManagerState::unsupported;
  if (refused_.contains(use.path)) return CBManagerState::unauthorized;
  const bool powered = daemon_.tree().adapters().at(use.path).powered;
  return powered ? CBManagerState::poweredOn : CBManagerState::poweredOff;
}

std::string Centrals::reasonOf(const AdapterUse& use) const {
  return stateReason({.availability = daemon_.availability(),
                      .state = stateOf(use),
                      .adapter = std::string(lastElement(use.path)),
                      .wantedAdapter = use.wanted,
                      .busTrouble = daemon_.busTrouble()});
}

void Centrals::updateState(Record& record) {
  choose(record.use);
  const CBManagerState state = stateOf(record.use);
  if (state != CBManagerState::poweredOn) record.scan.reset();
  if (state == CBManagerState::unknown || record.reported == state) return;
  record.reported = state;
  postTo(record.setup.loop, [front = record.setup.front, state] {
    if (const auto central = front.lock()) central->deliverState(state);
  });
}

bool Centrals::scan(std::uint64_t id, std::uint64_t number, const UUIDs& services) {
  const auto found = records_.find(id);
  if (found == records_.end()) return false;
  Record& record = found->second;
  if (stateOf(record.use) != CBManagerState::poweredOn) return false;
  record.scan = number;
  record.services = services;
  record.sightings.clear();
  return true;
}

void Centrals::stopScan(std::uint64_t id) {
  const auto found = records_.find(id);
  if (found != records_.end()) found->second.scan.reset();
}

bool Centrals::scansOn(const std::string& adapter) const {
  return std::any_of(records_.begin(), records_.end(), [&](const auto& entry) {
    return entry.second.scan && entry.second.use.path == adapter;
  });
}

void Centrals::sighted(const std::string& device, const std::optional<std::string>& name,
                       bool seen) {
  const auto* object = daemon_.tree().device(device);
  if (object == nullptr) return;
  const std::string adapter(parentPath(device));
  for (auto& [id, record] : records_) {
    if (!record.scan || record.use.path != adapter) continue;
    if (!isWanted(record.services, object->serviceUUIDs)) continue;
    const auto known = record.sightings.find(device);
    const bool first = known == record.sightings.end();
    if (first ? !seen : known->second == name) continue;
    record.sightings[device] = name;
    report(record, device, *object, name);
  }
}

void Centrals::report(Record& record, const std::string& device, const DeviceObject& object,
                      const std::optional<std::string>& name) const {
  auto peripheral = Peripheral::of(bus_, device, object.address);
  CBAdvertisementData data{.localName = name, .serviceUUIDs = object.serviceUUIDs};
  postTo(record.setup.loop,
         [front = record.setup.front, scan = *record.scan, peripheral = std::move(peripheral),
          data = std::move(data), rssi = object.rssi.value_or(kNoSignalStrength)] {
           const auto central = front.lock();
           if (central) central->deliverSighting(scan, peripheral, data, rssi);
         });
}

}  // namespace kestrin::bluez
