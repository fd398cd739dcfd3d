// The history's platform: what the world shows, and the events that it reports.
#include "model/RealHistory.h"
#include "support/KestrinBleMgrTestPeer.h"

namespace kestrin::test {
namespace {

using Peer = KestrinBleMgrTestPeer;

const NSError kError{CBATTErrorDomain, 14, "Unlikely Error"};

std::optional<NSError> errorIf(bool present) {
  return present ? std::optional(kError) : std::nullopt;
}

/// Those of `all` whose bit is set; absent, in order, or backwards.
template <class List>
std::optional<std::vector<typename List::value_type>> shown(const List& all, unsigned mask,
                                                            unsigned order) {
  if (order % 3 == 0) return std::nullopt;
  std::vector<typename List::value_type> list;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if ((mask & (1U << i)) != 0) list.push_back(all[i]);
  }
  if (order % 3 == 2) list = {list.rbegin(), list.rend()};
  return list;
}

}  // namespace

void RealHistory::take(const Step& step) {
  droppedInside_ = false;
  if (step.op < Op::newDelegate) {
    act(step);
  } else if (step.op < Op::rename) {
    prepare(step);
  } else if (step.op < Op::didUpdateState) {
    change(step);
  } else if (step.op < Op::run) {
    play(step);
  } else if (const double span = pick(kSpans, step.a); span > 0) {
    platform_.run(span);
  } else {
    platform_.runOneTurn();
  }
}

void RealHistory::prepare(const Step& step) {
  switch (step.op) {
    case Op::newDelegate:
      return makeDelegate(step.a % kDelegates, step.b);
    case Op::newReceiver:
      return makeReceiver(step.a % kReceivers, step.b);
    case Op::newManager:
      if (!managers_[step.manager]) makeManager(step.manager);
      return;
    default:
      reactions_[step.a % kSites].push_back(reactionOf(step));
  }
}

void RealHistory::change(const Step& step) {
  switch (step.op) {
    case Op::rename:
      return peripherals_[step.a % kPeripherals]->nameReads.set({pick(kNames, step.b)});
    case Op::showServices:
      peripherals_[step.a % kPeripherals]->shownServices = shown(services_, step.b, step.c);
      return;
    case Op::showCharacteristics:
      services_[step.a % kServices.size()]->shownCharacteristics =
          shown(characteristics_, step.b, step.c);
      return;
    default:
      characteristics_[step.a % kCharacteristics.size()]->propertyReads.set(
          {pick(kPropertyMasks, step.b)});
  }
}

void RealHistory::play(const Step& step) {
  platform_.play([this, step] {
    if (const auto manager = latest_[step.manager].lock()) playEvent(step, *manager);
  });
}

void RealHistory::playState(const Step& step, KestrinBleMgr& manager) {
  const auto reporting = latest_[(step.manager + step.b) % kManagers].lock();
  if (!reporting) return;
  const auto central = std::static_pointer_cast<RecordingCentral>(Peer::centralManager(*reporting));
  if (!central) return;
  central->shownState = static_cast<CBManagerState>(step.a);
  Peer::centralManagerDidUpdateState(manager, central);
}

void RealHistory::playValue(const Step& step, KestrinBleMgr& manager) {
  const auto& peripheral = peripherals_[step.a % kPeripherals];
  const auto& characteristic = characteristics_[step.b % kCharacteristics.size()];
  const auto error = errorIf(step.c >= kValues.size());
  const auto& value = pick(kValues, step.c);
  characteristic->shownValue = value ? std::optional(NSData(*value)) : std::nullopt;
  if (step.op == Op::didUpdateValue) {
    Peer::peripheral_didUpdateValueForCharacteristic_error(manager, peripheral, characteristic,
                                                           error);
  } else {
    Peer::peripheral_didUpdateNotificationStateForCharacteristic_error(manager, peripheral,
                                                                       characteristic, error);
  }
}

void RealHistory::playEvent(const Step& step, KestrinBleMgr& manager) {
  const auto central = Peer::centralManager(manager);
  const auto& peripheral = peripherals_[step.a % kPeripherals];
  switch (step.op) {
    case Op::didUpdateState:
      return playState(step, manager);
    case Op::didDiscoverPeripheral:
      return Peer::centralManager_didDiscoverPeripheral_advertisementData_RSSI(manager, central,
                                                                               peripheral, {}, -50);
    case Op::didConnect:
      return Peer::centralManager_didConnectPeripheral(manager, central, peripheral);
    case Op::didDisconnect:
      return Peer::centralManager_didDisconnectPeripheral_error(manager, central, peripheral,
                                                                errorIf(step.b == 1));
    case Op::didDiscoverServices:
      return Peer::peripheral_didDiscoverServices(manager, peripheral, errorIf(step.b == 1));
    case Op::didDiscoverCharacteristics:
      return Peer::peripheral_didDiscoverCharacteristicsForService_error(
          manager, peripheral, services_[step.b % kServices.size()], errorIf(step.c == 1));
    case Op::didUpdateValue:
    case Op::didUpdateNotificationState:
      return playValue(step, manager);
    case Op::isConnectedBLE:
      return answer("p_isConnectedBLE", Peer::p_isConnectedBLE(manager));
    default:
      return Peer::peripheralManagerDidUpdateState(manager, nullptr);
  }
}

}  // namespace kestrin::test
