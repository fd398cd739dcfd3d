#include "radios/simulated/RandomWorkload.h"

namespace kestrin::simulated {
namespace {

Options optionsFor(std::uint64_t seed) {
  Options options;
  options.seed = seed;
  options.pieceSize = {1, 20};
  // With no latency at all, everything happens in one turn after another.
  if (seed % 3 == 0) options.latency = {Time::zero(), Time::zero()};
  if (seed % 5 == 0) options.connectionDelay = {Time::zero(), Time::zero()};
  return options;
}

}  // namespace

RandomWorkload::RandomWorkload(std::uint64_t seed)
    : random_(seed),
      loop_(std::make_shared<MainRunLoop>(std::make_shared<VirtualClock>())),
      radio_(loop_, optionsFor(seed)),
      recorder_(std::make_shared<EventRecorder>()) {
  recorder_->onEvent = [this](const Event& event) { take(event); };
  devices_ = {radio_.addReader("KVR-1", ReaderFamily::standard),
              radio_.addReader("KVR-Q62T 2", ReaderFamily::kvrQ62T),
              radio_.addPeripheral(std::nullopt)};
  for (const auto& device : devices_) device->peripheral()->setDelegate(recorder_);
  for (int i = 0; i < 2; ++i) {
    centrals_.push_back(radio_.initWithDelegate_queue(recorder_, nullptr));
  }
}

std::size_t RandomWorkload::upTo(std::size_t last) {
  return static_cast<std::size_t>(random_() % (std::uint64_t{last} + 1));
}

void RandomWorkload::run(int steps) {
  for (int i = 0; i < steps; ++i) {
    step();
    // Often several things happen before the loop turns.
    if (upTo(2) != 0) loop_->runFor(std::chrono::milliseconds(upTo(300)));
  }
  settle();
  EXPECT_EQ(recorder_->violations(), std::vector<std::string>());
}

void RandomWorkload::step() {
  switch (upTo(9)) {
    case 0:
    case 1:
    case 2:
      return connectOrCancel();
    case 3:
    case 4:
      return disturb();
    case 5:
      if (upTo(3) == 0) return replaceCentral();
      return centrals_[upTo(1)]->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
    default:
      return useLink();
  }
}

void RandomWorkload::connectOrCancel() {
  const auto& central = centrals_[upTo(1)];
  const auto peripheral = anyDevice().peripheral();
  Share& share = shares_[{central.get(), peripheral.get()}];
  if (upTo(2) == 0) {
    if (share.stage != Stage::none) ++share.reportsOwed;
    share.stage = Stage::none;
    central->cancelPeripheralConnection(peripheral);
  } else if (share.stage == Stage::none) {
    share.stage = Stage::pending;
    central->connectPeripheral_options(peripheral, std::nullopt);
  }
}

void RandomWorkload::disturb() {
  VirtualPeripheral& device = anyDevice();
  switch (upTo(7)) {
    case 0:
      return device.simulateVanishing();
    case 1:
    case 2:
      return device.simulateAppearing();
    case 3:
      return device.simulateLinkLoss();
    case 4:
      return device.simulateFailingConnections(upTo(3));
    case 5:
      return device.simulateConnectionNeverCompleting(upTo(1) == 0);
    case 6:
      return device.simulateName("N" + std::to_string(upTo(3)));
    default:
      return radio_.simulateState(upTo(2) == 0 ? CBManagerState::poweredOff
                                               : CBManagerState::poweredOn);
  }
}

void RandomWorkload::useLink() {
  VirtualPeripheral& device = anyDevice();
  const auto peripheral = device.peripheral();
  peripheral->discoverServices(std::nullopt);
  const auto services = peripheral->services();
  if (!services) return;
  for (const auto& service : *services) {
    peripheral->discoverCharacteristics_forService(std::nullopt, service);
    const auto characteristics = service->characteristics();
    if (!characteristics) continue;
    for (const auto& characteristic : *characteristics) {
      peripheral->setNotifyValue_forCharacteristic(true, characteristic);
    }
  }
  for (const auto& uuid : device.subscriptions()) {
    if (uuid == CBUUID(0xFFF2)) continue;
    for (std::size_t i = upTo(5); i > 0; --i) {
      device.simulateNotification(uuid, NSData{++notified_[peripheral.get()]});
    }
  }
}

void RandomWorkload::replaceCentral() {
  auto& central = centrals_[upTo(1)];
  std::erase_if(shares_, [&](const auto& entry) { return entry.first.first == central.get(); });
  central.reset();
  central = radio_.initWithDelegate_queue(recorder_, nullptr);
}

void RandomWorkload::take(const Event& event) {
  transcript_ += std::to_string(loop_->now().count()) + " " +
                 std::to_string(static_cast<int>(event.kind)) + " " +
                 (event.peripheral ? event.peripheral->identifier() : "") + " " +
                 event.name.value_or("-") + " " + std::to_string(event.rssi) + " " +
                 (event.value ? event.value->description() : "-") + " " +
                 (event.error ? event.error->description() : "-") + "\n";
  Share& share = shares_[{event.central, event.peripheral.get()}];
  switch (event.kind) {
    case EventKind::connected:
      EXPECT_EQ(share.stage, Stage::pending);
      EXPECT_EQ(share.reportsOwed, 0) << "a link before the end of the one before it";
      share.stage = Stage::linked;
      ++links_;
      break;
    case EventKind::disconnected:
      takeDisconnection(event, share);
      break;
    case EventKind::value:
      takeValue(event);
      break;
    default:
      break;
  }
}

void RandomWorkload::takeDisconnection(const Event& event, Share& share) {
  received_.erase(event.peripheral.get());
  if (share.reportsOwed > 0) {
    --share.reportsOwed;
    return;
  }
  EXPECT_EQ(share.stage, Stage::linked);
  EXPECT_TRUE(event.error);
  share.stage = Stage::none;
}

void RandomWorkload::takeValue(const Event& event) {
  if (event.error || !event.value || event.value->length() != 1) return;
  const std::uint8_t number = event.value->bytes()[0];
  const auto last = received_.find(event.peripheral.get());
  // Links may end without a report when their central manager is replaced.
  if (last != received_.end() && event.peripheral->services()) {
    EXPECT_GT(static_cast<std::uint8_t>(number - last->second), 0);
  }
  received_[event.peripheral.get()] = number;
  ++values_;
}

void RandomWorkload::settle() {
  radio_.simulateState(CBManagerState::poweredOn);
  for (const auto& device : devices_) {
    device->simulateFailingConnections(0);
    device->simulateConnectionNeverCompleting(false);
    device->simulateAppearing();
  }
  loop_->run();
  for (const auto& device : devices_) {
    bool wanted = false;
    for (const auto& [key, share] : shares_) {
      if (key.second != device->peripheral().get() || key.first == nullptr) continue;
      EXPECT_EQ(share.reportsOwed, 0);
      EXPECT_NE(share.stage, Stage::pending) << "an attempt was forgotten";
      wanted = wanted || share.stage == Stage::linked;
    }
    EXPECT_EQ(device->connected(), wanted);
  }
}

}  // namespace kestrin::simulated
