#include "model/ModelHistory.h"

namespace kestrin::test {
namespace {

/// Those of `count` things whose bit is set, as a peripheral or a service lists them.
std::optional<std::vector<unsigned>> shown(unsigned mask, unsigned order, std::size_t count) {
  if (order % 3 == 0) return std::nullopt;
  std::vector<unsigned> list;
  for (unsigned i = 0; i < count; ++i) {
    if (((mask >> i) & 1U) == 0) continue;
    list.insert(order % 3 == 1 ? list.end() : list.begin(), i);
  }
  return list;
}

}  // namespace

ModelHistory::ModelHistory() {
  world_.act = [this](const Step& reaction) {
    const bool outer = std::exchange(reacting_, true);
    act(reaction);
    reacting_ = outer;
  };
  for (unsigned i = 0; i < kManagers; ++i) {
    makeManager(i);
    makeDelegate(delegates_, i, 3, "delegate");
    makeDelegate(receivers_, i, 3, "receiver");
    managers_[i]->delegate = delegates_[i];
    managers_[i]->receiver = receivers_[i];
  }
}

void ModelHistory::makeManager(unsigned slot) {
  managers_[slot] = std::make_shared<ModelManager>(world_);
  latest_[slot] = managers_[slot];
  all_.push_back(managers_[slot]);
}

void ModelHistory::makeDelegate(std::array<std::shared_ptr<ModelDelegate>, 2>& delegates,
                                unsigned index, unsigned implemented, const std::string& kind) {
  delegates[index] = std::make_shared<ModelDelegate>(
      ModelDelegate{kind + '#' + std::to_string(++delegatesMade_), index, (implemented & 1U) != 0,
                    (implemented & 2U) != 0});
}

std::string ModelHistory::fields() const {
  std::string text;
  for (const auto& each : all_) {
    if (const auto manager = each.lock()) text += manager->fields() + '\n';
  }
  for (unsigned i = 0; i < kDelegates; ++i) {
    text += std::string(delegates_[i] ? "delegate " : "none ") +
            (receivers_[i] ? "receiver " : "none ");
  }
  return text;
}

void ModelHistory::take(const Step& step) {
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
    world_.run(span);
  } else {
    world_.runOneTurn();
  }
}

void ModelHistory::answer(const std::string& operation, bool result) {
  world_.say(operation + " answers " + (result ? "true" : "false"));
}

void ModelHistory::ask(const ModelManager& manager) {
  answer("open", manager.isConnected);
  answer("isOpened", manager.isConnected);
  world_.say("pripheral is " + peripheralLabel(manager.discoveredPeripheral));
}

void ModelHistory::act(const Step& step) {
  const unsigned a = step.a;
  switch (step.op) {
    case Op::dropDelegate:
      delegates_[a % kDelegates].reset();
      return;
    case Op::dropReceiver:
      receivers_[a % kReceivers].reset();
      return;
    case Op::dropManager:
      if (managers_[step.manager] && reacting_) droppedInside_ = true;
      managers_[step.manager].reset();
      return;
    case Op::enterBackground:
      // How long a manager that was dropped from inside itself can still be told is its own affair.
      if (droppedInside_) return;
      world_.say("* post UIApplicationDidEnterBackgroundNotification");
      for (const auto& each : all_) {
        if (const auto manager = each.lock()) manager->enterBackground();
      }
      return;
    default:
      break;
  }
  const auto manager = managers_[step.manager];
  if (!manager) return;
  const std::optional<Bytes> frame = pick(kFramesToSend, a);
  switch (step.op) {
    case Op::scanBLE:
      return answer("scanBLE", manager->scanBLE());
    case Op::stopSacnBLE:
      return manager->stopSacnBLE();
    case Op::connectBLE:
      return manager->connectBLE(a % (kPeripherals + 1) == kPeripherals
                                     ? std::nullopt
                                     : std::optional(a % (kPeripherals + 1)));
    case Op::close:
      return manager->close();
    case Op::send:
      return answer("send", manager->send(frame));
    case Op::sendPower:
      return answer("sendPower", manager->send(frame));
    case Op::writeRawData:
      return answer("writeRawData", manager->writeRawData(frame));
    case Op::readData:
      return manager->readData(pick(kValues, a).value_or(Bytes{}));
    case Op::setDelegate:
      manager->delegate = a % 3 == 2 ? nullptr : delegates_[a % 3];
      return;
    case Op::setRcpReceiverDelegate:
      manager->receiver = a % 3 == 2 ? nullptr : receivers_[a % 3];
      return;
    default:
      return ask(*manager);
  }
}

void ModelHistory::prepare(const Step& step) {
  switch (step.op) {
    case Op::newDelegate:
      return makeDelegate(delegates_, step.a % kDelegates, step.b, "delegate");
    case Op::newReceiver:
      return makeDelegate(receivers_, step.a % kReceivers, step.b, "receiver");
    case Op::newManager:
      if (!managers_[step.manager]) makeManager(step.manager);
      return;
    default:
      world_.reactions[step.a % kSites].push_back(reactionOf(step));
  }
}

void ModelHistory::change(const Step& step) {
  switch (step.op) {
    case Op::rename:
      world_.peripherals[step.a % kPeripherals].name = pick(kNames, step.b);
      return;
    case Op::showServices:
      world_.peripherals[step.a % kPeripherals].services = shown(step.b, step.c, kServices.size());
      return;
    case Op::showCharacteristics:
      world_.services[step.a % kServices.size()] = shown(step.b, step.c, kCharacteristics.size());
      return;
    default:
      world_.characteristics[step.a % kCharacteristics.size()].properties =
          pick(kPropertyMasks, step.b);
  }
}

void ModelHistory::play(const Step& step) {
  world_.play([this, step] {
    const auto manager = latest_[step.manager].lock();
    if (manager) playEvent(step, *manager);
  });
}

void ModelHistory::playEvent(const Step& step, ModelManager& manager) {
  const unsigned peripheral = step.a % kPeripherals;
  const unsigned characteristic = step.b % kCharacteristics.size();
  const bool valueError = step.c >= kValues.size();
  switch (step.op) {
    case Op::didUpdateState: {
      const auto reporting = latest_[(step.manager + step.b) % kManagers].lock();
      if (reporting && reporting->central) manager.didUpdateState(step.a);
      return;
    }
    case Op::didDiscoverPeripheral:
      return manager.didDiscoverPeripheral(peripheral);
    case Op::didConnect:
      return manager.didConnect(peripheral);
    case Op::didDisconnect:
      return manager.didDisconnect();
    case Op::didDiscoverServices:
      return manager.didDiscoverServices(peripheral, step.b == 1);
    case Op::didDiscoverCharacteristics:
      return manager.didDiscoverCharacteristics(peripheral, step.b % kServices.size(), step.c == 1);
    case Op::didUpdateValue:
      world_.characteristics[characteristic].value = pick(kValues, step.c);
      return manager.didUpdateValue(peripheral, characteristic, valueError);
    case Op::didUpdateNotificationState:
      world_.characteristics[characteristic].value = pick(kValues, step.c);
      return manager.didUpdateNotificationState(characteristic, valueError);
    case Op::isConnectedBLE:
      return answer("p_isConnectedBLE", manager.isConnectedBLE());
    default:
      return;  // The peripheral manager's report, which means nothing.
  }
}

}  // namespace kestrin::test
