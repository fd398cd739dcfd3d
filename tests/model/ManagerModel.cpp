// The model's client operations: scanning, connecting, closing, sending, and the fields as text.
#include "model/ManagerModel.h"

namespace kestrin::test {
namespace {

std::string numbersText(const std::vector<unsigned>& numbers) {
  std::string text = "[";
  for (const unsigned number : numbers) text += ' ' + std::to_string(number);
  return text + " ]";
}

std::string numberText(std::optional<unsigned> number) {
  return number ? std::to_string(*number) : "none";
}

std::string delegateText(const std::shared_ptr<ModelDelegate>& delegate) {
  return delegate ? delegate->label : "none";
}

}  // namespace

std::string peripheralLabel(std::optional<unsigned> peripheral) {
  return peripheral ? "\"P" + std::to_string(*peripheral) + '"' : "(absent)";
}

ModelManager::ModelManager(ModelWorld& world) : world_(world), number_(++world.managersMade) {
  world_.say("addObserver " + label() +
             " selector easEnterBackground name UIApplicationDidEnterBackgroundNotification"
             " object (absent)");
}

ModelManager::~ModelManager() {
  if (central) world_.release(*central);
}

std::string ModelManager::fields() const {
  return label() + " central " + (central ? std::to_string(*central) : "none") + " peripheral " +
         numberText(discoveredPeripheral) + " list " +
         (peripheralList_ ? numbersText(*peripheralList_) : "none") + " names " +
         (peripheralNameList_ ? "empty" : "none") + " rx " + numberText(rxCharacteristic_) +
         " tx " + numberText(txCharacteristic_) + " connected " + (isConnected ? "1" : "0") +
         " received " + (hasReceivedData_ ? bytesText(assembler_.kept(), "") : "none") +
         " delegate " + delegateText(delegate.lock()) + " receiver " +
         delegateText(receiver.lock()) + " idle";
}

void ModelManager::askCentral(const std::string& request) {
  if (central) world_.say("central#" + std::to_string(*central) + ' ' + request);
}

void ModelManager::askPeripheral(std::optional<unsigned> peripheral, const std::string& request) {
  if (peripheral) world_.say("peripheral " + peripheralLabel(peripheral) + ' ' + request);
}

void ModelManager::tellStatus(int status) {
  const auto listener = delegate.lock();
  if (!listener || !listener->implementsFirst) return;
  world_.say(listener->label + " scanBleStatus " + std::to_string(status));
  world_.reactAt(siteNumber(Site::status, listener->number));
}

void ModelManager::tellDevice(unsigned peripheral) {
  const auto listener = delegate.lock();
  if (!listener || !listener->implementsSecond) return;
  world_.say(listener->label + " scanningBleDeive " + peripheralLabel(peripheral));
  world_.reactAt(siteNumber(Site::device, listener->number));
}

void ModelManager::tellPlugged(bool plugged) {
  const auto listener = receiver.lock();
  if (!listener || !listener->implementsFirst) return;
  world_.say(listener->label + " plugChangedStatus " + (plugged ? "true" : "false"));
  world_.reactAt(siteNumber(Site::plug, listener->number));
}

void ModelManager::tellFrame(const std::string& frame) {
  const auto listener = receiver.lock();
  if (!listener || !listener->implementsSecond) return;
  world_.say(listener->label + " dispatchRcpFrmReader " + frame);
  world_.reactAt(siteNumber(Site::frame, listener->number));
}

bool ModelManager::scanBLE() {
  const auto self = shared_from_this();
  tellStatus(0);
  if (discoveredPeripheral) {
    askCentral("cancelPeripheralConnection " + peripheralLabel(discoveredPeripheral));
  }
  askCentral("stopScan");
  peripheralList_.emplace();
  peripheralNameList_ = true;
  const std::optional<int> previous = central;
  central = world_.makeCentral();
  world_.say("central#" + std::to_string(*central) + " initWithDelegate " + label() +
             " queue (absent)");
  if (previous) world_.release(*previous);
  startScan();
  return true;
}

void ModelManager::startScan() {
  askCentral("scanForPeripheralsWithServices (absent) options (absent)");
}

void ModelManager::stopSacnBLE() {
  const auto self = shared_from_this();
  tellStatus(1);
  askCentral("stopScan");
}

void ModelManager::connectBLE(std::optional<unsigned> peripheral) {
  askCentral("stopScan");
  discoveredPeripheral = peripheral;
  askPeripheral(discoveredPeripheral, "setDelegate " + label());
  askCentral("connectPeripheral " + peripheralLabel(discoveredPeripheral) + " options (absent)");
}

void ModelManager::close() {
  const auto self = shared_from_this();
  if (discoveredPeripheral) {
    askCentral("cancelPeripheralConnection " + peripheralLabel(discoveredPeripheral));
  }
  askCentral("stopScan");
  tellPlugged(false);
}

void ModelManager::enterBackground() {
  world_.rearm(shared_from_this(), "accessoryDidDisconnect", "0", 0);
}

bool ModelManager::isConnectedBLE() {
  const auto self = shared_from_this();
  world_.log(std::string("isConnected ") + (isConnected ? "1" : "0"));
  return isConnected;
}

bool ModelManager::send(const std::optional<Bytes>& frame) {
  const auto self = shared_from_this();
  const std::size_t length = frame ? frame->size() : 0;
  const std::size_t full = length / 20;
  const auto slice = [&](std::size_t location, std::size_t count) -> std::optional<Bytes> {
    if (!frame) return std::nullopt;
    return part(*frame, location, count);
  };
  for (std::size_t i = 0; i < full; ++i) {
    writeRawData(slice(20 * i, 20));
    world_.sleep(0.05);
  }
  return writeRawData(slice(20 * full, length % 20));
}

bool ModelManager::writeRawData(const std::optional<Bytes>& slice) {
  const auto self = shared_from_this();
  const std::uint64_t mask =
      txCharacteristic_ ? world_.characteristics[*txCharacteristic_].properties : 0;
  if ((mask & 0x04) != 0) {
    write(slice);
    return true;
  }
  if ((mask & 0x08) != 0) {
    askPeripheral(
        discoveredPeripheral,
        "setNotifyValue true for " + std::string(kCharacteristics[*txCharacteristic_].canonical));
    write(slice);
    return true;
  }
  world_.log("No write property on TX characteristic, " + std::to_string(mask) + '.');
  return false;
}

void ModelManager::write(const std::optional<Bytes>& slice) {
  askPeripheral(discoveredPeripheral,
                "writeValue " + bytesText(slice, "(absent)") + " to " +
                    std::string(kCharacteristics[*txCharacteristic_].canonical) + " type 0");
  world_.log("[TX BLE] " + bytesText(slice, "(null)"));
}

void ModelManager::readData(const Bytes& arrival) {
  const auto self = shared_from_this();
  // Bytes that arrive from inside a parse have one of their own when that has ended.
  waitingArrivals_.push_back(arrival);
  if (parsing_) return;
  parsing_ = true;
  while (!waitingArrivals_.empty()) {
    const Bytes next = waitingArrivals_.front();
    waitingArrivals_.pop_front();
    parse(next);
  }
  parsing_ = false;
}

void ModelManager::parse(const Bytes& arrival) {
  static const std::string kFrame = LiteralAssembler::deliveryOf("");
  hasReceivedData_ = true;
  assembler_.readData(arrival);
  for (const std::string& event : assembler_.take()) {
    if (!event.starts_with(kFrame)) {
      world_.log(event);
      continue;
    }
    world_.say("dispatch_sync priority 2");
    world_.say("dispatch_sync priority 2");
    tellFrame(event.substr(kFrame.size()));
  }
}

}  // namespace kestrin::test
