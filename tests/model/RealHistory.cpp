// The history's client, its delegates and its fields; RealHistoryEvents.cpp plays the platform.
#include "model/RealHistory.h"

#include <algorithm>

#include "support/KestrinBleMgrTestPeer.h"

namespace kestrin::test {
namespace {

using Peer = KestrinBleMgrTestPeer;

std::optional<NSData> dataOf(const std::optional<Bytes>& bytes) {
  if (!bytes) return std::nullopt;
  return NSData(*bytes);
}

template <class Scripted, class Delegate>
std::string labelOf(const std::shared_ptr<Delegate>& delegate) {
  return delegate ? dynamic_cast<const Scripted&>(*delegate).label() : "none";
}

/// `P0` as the number that it ends in.
std::string numberOf(const std::shared_ptr<CBPeripheral>& peripheral) {
  return peripheral ? peripheral->identifier().substr(1) : "none";
}

std::string listText(const std::optional<Peer::Peripherals>& list) {
  if (!list) return "none";
  std::string text = "[";
  for (const auto& peripheral : *list) text += ' ' + numberOf(peripheral);
  return text + " ]";
}

bool idle(KestrinBleMgr& manager) {
  const auto& area = Peer::_buf(manager);
  return std::ranges::count(area, 0) == static_cast<std::ptrdiff_t>(area.size()) &&
         Peer::_bufHead(manager) == 0 && !Peer::characteristic(manager);
}

}  // namespace

bool ScriptedDelegate::respondsToSelector(Selector selector) const noexcept {
  return (implemented_ & (selector == Selector::scanBleStatus ? 1U : 2U)) != 0;
}

void ScriptedDelegate::scanBleStatus(std::int64_t status) noexcept {
  history_.say(label_ + " scanBleStatus " + std::to_string(status));
  history_.reactAt(siteNumber(Site::status, number_));
}

void ScriptedDelegate::scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  history_.say(label_ + " scanningBleDeive " + peripheralText(peripheral));
  history_.reactAt(siteNumber(Site::device, number_));
}

bool ScriptedReceiver::respondsToSelector(Selector selector) const noexcept {
  return (implemented_ & (selector == Selector::plugChangedStatus ? 1U : 2U)) != 0;
}

void ScriptedReceiver::plugChangedStatus(bool plugged) noexcept {
  history_.say(label_ + " plugChangedStatus " + (plugged ? "true" : "false"));
  history_.reactAt(siteNumber(Site::plug, number_));
}

void ScriptedReceiver::dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept {
  history_.say(label_ + " dispatchRcpFrmReader " + valueText(frame));
  history_.reactAt(siteNumber(Site::frame, number_));
}

RealHistory::RealHistory() {
  for (unsigned i = 0; i < kPeripherals; ++i) {
    peripherals_[i] = platform_.peripheral("P" + std::to_string(i), kNames[i]);
  }
  for (unsigned i = 0; i < kServices.size(); ++i) {
    services_[i] = std::make_shared<RecordingService>(kServices[i]);
  }
  for (unsigned i = 0; i < kCharacteristics.size(); ++i) {
    characteristics_[i] = std::make_shared<RecordingCharacteristic>(kCharacteristics[i].given,
                                                                    kPropertyMasks.front());
  }
  platform_.onLog = [this](const std::string&) { reactAt(kLogSite); };
  for (unsigned i = 0; i < kManagers; ++i) {
    makeManager(i);
    makeDelegate(i, 3);
    makeReceiver(i, 3);
    managers_[i]->setDelegate(delegates_[i]);
    managers_[i]->setRcpReceiverDelegate(receivers_[i]);
  }
}

void RealHistory::makeManager(unsigned slot) {
  managers_[slot] = platform_.makeManager();
  latest_[slot] = managers_[slot];
  all_.push_back(managers_[slot]);
}

void RealHistory::makeDelegate(unsigned index, unsigned implemented) {
  delegates_[index] = std::make_shared<ScriptedDelegate>(
      *this, "delegate#" + std::to_string(++delegatesMade_), index, implemented);
}

void RealHistory::makeReceiver(unsigned index, unsigned implemented) {
  receivers_[index] = std::make_shared<ScriptedReceiver>(
      *this, "receiver#" + std::to_string(++delegatesMade_), index, implemented);
}

std::vector<std::string> RealHistory::takeLines() {
  std::vector<std::string> lines;
  const std::string text = platform_.takeTimed();
  for (std::size_t start = 1; start < text.size();) {
    const std::size_t end = text.find('\n', start);
    const std::string line = text.substr(start, end - start);
    start = end + 1;
    if (line.starts_with("at ")) {
      time_ = line.substr(3, line.size() - 5);
    } else if (line.ends_with(" released")) {
      // When exactly an object that nobody uses any more ends is nobody's business, only that.
      released_.insert(line);
    } else {
      std::string timed = time_;
      lines.push_back(timed.append(" s: ").append(line));
    }
  }
  return lines;
}

std::string RealHistory::numberOf(const std::shared_ptr<CBCharacteristic>& found) const {
  if (!found) return "none";
  return std::to_string(std::ranges::find(characteristics_, found) - characteristics_.begin());
}

std::string RealHistory::fieldsOf(KestrinBleMgr& manager, std::size_t number) const {
  const auto central = std::static_pointer_cast<RecordingCentral>(Peer::centralManager(manager));
  const auto& names = Peer::peripheralNameList(manager);
  const auto& received = Peer::_mutableReceivedData(manager);
  return "manager#" + std::to_string(number) + " central " +
         (central ? central->label().substr(8) : "none") + " peripheral " +
         test::numberOf(Peer::discoveredPeripheral(manager)) + " list " +
         listText(Peer::peripheralList(manager)) + " names " +
         (!names           ? "none"
          : names->empty() ? "empty"
                           : "FILLED") +
         " rx " + numberOf(Peer::rxCharacteristic(manager)) + " tx " +
         numberOf(Peer::txCharacteristic(manager)) + " connected " +
         (Peer::isConnected(manager) ? "1" : "0") + " received " +
         (received ? received->copy().description() : "none") + " delegate " +
         labelOf<ScriptedDelegate>(manager.delegate()) + " receiver " +
         labelOf<ScriptedReceiver>(manager.rcpReceiverDelegate()) +
         (idle(manager) ? " idle" : " CHANGED");
}

std::string RealHistory::fields() const {
  std::string text;
  for (std::size_t i = 0; i < all_.size(); ++i) {
    if (const auto manager = all_[i].lock()) text += fieldsOf(*manager, i + 1) + '\n';
  }
  for (unsigned i = 0; i < kDelegates; ++i) {
    text += std::string(delegates_[i] ? "delegate " : "none ") +
            (receivers_[i] ? "receiver " : "none ");
  }
  return text;
}

void RealHistory::reactAt(unsigned site) {
  if (reactions_[site].empty()) return;
  const Step reaction = reactions_[site].front();
  reactions_[site].pop_front();
  const bool outer = std::exchange(reacting_, true);
  act(reaction);
  reacting_ = outer;
}

void RealHistory::answer(const std::string& operation, bool result) {
  say(operation + " answers " + (result ? "true" : "false"));
}

void RealHistory::ask(const KestrinBleMgr& manager) {
  answer("open", manager.open());
  answer("isOpened", manager.isOpened());
  say("pripheral is " + peripheralText(manager.pripheral()));
}

void RealHistory::act(const Step& step) {
  auto& manager = managers_[step.manager];
  switch (step.op) {
    case Op::dropDelegate:
      delegates_[step.a % kDelegates].reset();
      return;
    case Op::dropReceiver:
      receivers_[step.a % kReceivers].reset();
      return;
    case Op::dropManager:
      if (manager && reacting_) droppedInside_ = true;
      manager.reset();
      return;
    case Op::enterBackground:
      if (!droppedInside_) platform_.enterBackground();
      return;
    default:
      if (manager) callManager(step, *manager);
  }
}

void RealHistory::callManager(const Step& step, KestrinBleMgr& manager) {
  const unsigned a = step.a;
  const std::optional<NSData> frame = dataOf(pick(kFramesToSend, a));
  const unsigned peripheral = a % (kPeripherals + 1);
  switch (step.op) {
    case Op::scanBLE:
      return answer("scanBLE", manager.scanBLE());
    case Op::stopSacnBLE:
      return manager.stopSacnBLE();
    case Op::connectBLE:
      return manager.connectBLE(peripheral == kPeripherals ? nullptr : peripherals_[peripheral]);
    case Op::close:
      return manager.close();
    case Op::send:
      return answer("send", manager.send(frame));
    case Op::sendPower:
      return answer("sendPower", manager.sendPower(frame));
    case Op::writeRawData:
      return answer("writeRawData", manager.writeRawData(frame));
    case Op::readData:
      if (manager.readData(NSData(pick(kValues, a).value_or(Bytes{}))) != 0) say("NOT ZERO");
      return;
    case Op::setDelegate:
      return a % 3 == 2 ? manager.setDelegate(nullptr) : manager.setDelegate(delegates_[a % 3]);
    case Op::setRcpReceiverDelegate:
      return a % 3 == 2 ? manager.setRcpReceiverDelegate(nullptr)
                        : manager.setRcpReceiverDelegate(receivers_[a % 3]);
    default:
      return ask(manager);
  }
}

}  // namespace kestrin::test
