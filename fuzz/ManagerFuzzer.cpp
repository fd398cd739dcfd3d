// Fuzzes the manager by any order of client calls and platform events, legal and illegal:
// characteristics before services, a disconnection before a connection, values after `close`,
// events of a central manager that was replaced. Managers and delegates come and go meanwhile, also
// from inside callbacks.
//
// Input: steps, each an operation and what it needs. Every one of them is bounded.
#include <memory>
#include <optional>

#include "fuzz/Application.h"
#include "support/KestrinBleMgrTestPeer.h"
#include "support/RecordingPlatform.h"

namespace kestrin::fuzz {
namespace {

using Peer = KestrinBleMgrTestPeer;
using test::Characteristics;
using test::RecordingCentral;
using test::RecordingCharacteristic;
using test::RecordingPeripheral;
using test::RecordingPlatform;
using test::RecordingService;

constexpr std::size_t kMostSteps = 200;
constexpr std::size_t kMostCentrals = 6;
constexpr char kStandardService[] = "BA821000-3B5B-4654-85FE-E998B123ADEA";
constexpr std::array kNames{"KVR-0417", "KVR-Q62T-1", "TQM_HOLV", "Lamp", "", "KVR-Q62T-2"};

/// What a peripheral has, whether or not it has been shown.
struct Device {
  std::shared_ptr<RecordingPeripheral> peripheral;
  test::Services services;
  Characteristics characteristics;
};

std::optional<NSError> takeError(ByteSource& input) {
  if (!input.flag()) return std::nullopt;
  return NSError{CBATTErrorDomain, input.u8(), "Unlikely Error"};
}

/// The entries of `all` whose bits are set in the next byte.
template <class List>
List takeSome(const List& all, ByteSource& input) {
  const unsigned wanted = input.u8();
  List some;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if ((wanted >> i & 1) != 0) some.push_back(all[i]);
  }
  return some;
}

class Fuzzer {
 public:
  explicit Fuzzer(ByteSource input) : input_(input) {
    for (const char* name : kNames) addDevice(name);
  }

  void run() {
    for (std::size_t i = 0; i < kMostSteps && !input_.empty(); ++i) {
      step();
      application_.check();
      keepCentrals();
      platform_.transcript().take();
    }
    application_.dropEverything();
    if (!loopGone_) platform_.run(10);
    require(application_.allGone(), "a manager ends with its owner and its pending requests");
  }

 private:
  void addDevice(const std::string& name);
  void step();
  void centralEvent();
  void connection(const std::shared_ptr<RecordingCentral>& central, const Device& device,
                  bool connected);
  void discovery(const Device& device);
  void value(const Device& device);
  void passTime();
  void keepCentrals();
  template <class Event>
  void play(const Event& event);
  /// Tells the manager that is the peripheral's delegate, if there is one.
  template <class Event>
  void tell(const Device& device, const Event& event);

  const Device& pickDevice() { return devices_[input_.below(devices_.size())]; }

  ByteSource input_;
  RecordingPlatform platform_;
  std::vector<Device> devices_;
  std::vector<std::shared_ptr<RecordingCentral>> centrals_;
  bool loopGone_ = false;
  Application application_{platform_.platform(),
                           [this](ByteSource& input) -> std::shared_ptr<CBPeripheral> {
                             const std::size_t index = input.below(devices_.size() + 1);
                             if (index == devices_.size()) return nullptr;
                             return devices_[index].peripheral;
                           }};
};

void Fuzzer::addDevice(const std::string& name) {
  const bool absent = name.empty();
  Device device;
  device.peripheral =
      platform_.peripheral(absent ? "nameless" : name, absent ? std::nullopt : std::optional(name));
  for (const char* uuid : {kStandardService, "FFF0", "180A"}) {
    device.services.push_back(std::make_shared<RecordingService>(uuid));
  }
  const auto add = [&](const char* uuid, CBCharacteristicProperties properties) {
    device.characteristics.push_back(std::make_shared<RecordingCharacteristic>(uuid, properties));
  };
  add("BA821001-3B5B-4654-85FE-E998B123ADEA", 0x0C);
  add("BA821002-3B5B-4654-85FE-E998B123ADEA", 0x10);
  add("FFF1", 0x12);
  add("FFF2", 0x18);
  add("2A27", 0x02);
  add("2A29", 0x02);
  add("BA821001-3B5B-4654-85FE-E998B123ADEA", 0x00);
  devices_.push_back(std::move(device));
}

template <class Event>
void Fuzzer::play(const Event& event) {
  if (loopGone_) {
    event();
  } else {
    platform_.play(event);
  }
}

template <class Event>
void Fuzzer::tell(const Device& device, const Event& event) {
  play([&] {
    if (const auto delegate = device.peripheral->delegate()) event(*delegate, device.peripheral);
  });
}

void Fuzzer::step() {
  switch (input_.below(8)) {
    case 0:
    case 1:
      application_.act(input_);
      break;
    case 2:
      application_.arm(input_);
      break;
    case 3:
    case 4:
      centralEvent();
      break;
    case 5:
      discovery(pickDevice());
      break;
    case 6:
      value(pickDevice());
      break;
    default:
      passTime();
      break;
  }
}

void Fuzzer::centralEvent() {
  if (centrals_.empty()) return;
  // The last one is that of the manager that scanned last.
  const std::size_t back = input_.below(2) == 0 ? 0 : input_.below(centrals_.size());
  const auto central = centrals_[centrals_.size() - 1 - back];
  const std::size_t kind = input_.below(4);
  const Device& device = pickDevice();
  if (kind == 0) {
    central->shownState = static_cast<CBManagerState>(input_.below(8));
    play([&] {
      if (const auto delegate = central->delegate())
        delegate->centralManagerDidUpdateState(central);
    });
  } else if (kind == 1) {
    play([&] {
      if (const auto delegate = central->delegate()) {
        delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(
            central, device.peripheral, {}, -50);
      }
    });
  } else {
    connection(central, device, kind == 2);
  }
}

void Fuzzer::connection(const std::shared_ptr<RecordingCentral>& central, const Device& device,
                        bool connected) {
  const auto error = takeError(input_);
  play([&] {
    const auto delegate = central->delegate();
    if (!delegate) return;
    if (connected) {
      delegate->centralManager_didConnectPeripheral(central, device.peripheral);
    } else {
      delegate->centralManager_didDisconnectPeripheral_error(central, device.peripheral, error);
    }
  });
}

void Fuzzer::discovery(const Device& device) {
  const bool ofServices = input_.flag();
  const auto& service = device.services[input_.below(device.services.size())];
  const auto error = takeError(input_);
  if (ofServices) {
    if (!error) device.peripheral->shownServices = takeSome(device.services, input_);
    tell(device, [&](CBPeripheralDelegate& delegate, const auto& peripheral) {
      delegate.peripheral_didDiscoverServices(peripheral, error);
    });
  } else {
    if (!error) service->shownCharacteristics = takeSome(device.characteristics, input_);
    tell(device, [&](CBPeripheralDelegate& delegate, const auto& peripheral) {
      delegate.peripheral_didDiscoverCharacteristicsForService_error(peripheral, service, error);
    });
  }
}

void Fuzzer::value(const Device& device) {
  const bool ofState = input_.flag();
  const auto& characteristic = device.characteristics[input_.below(device.characteristics.size())];
  const auto error = takeError(input_);
  characteristic->shownValue = takeValue(input_);
  const bool raw = device.peripheral->name().value_or("").starts_with("KVR-Q62T");
  if (raw && !ofState) application_.expect(Application::Deliveries::anything);
  tell(device, [&](CBPeripheralDelegate& delegate, const auto& peripheral) {
    if (ofState) {
      delegate.peripheral_didUpdateNotificationStateForCharacteristic_error(peripheral,
                                                                            characteristic, error);
    } else {
      delegate.peripheral_didUpdateValueForCharacteristic_error(peripheral, characteristic, error);
    }
  });
  application_.expect(Application::Deliveries::wholeFrames);
}

void Fuzzer::passTime() {
  static constexpr std::array kSeconds{0.0, 0.05, 0.5, 1.5, 2.0, 10.0};
  const std::size_t choice = input_.u8();
  if (loopGone_) return;
  if (choice == 0xFF) {
    platform_.dropRunLoop();
    loopGone_ = true;
  } else {
    platform_.run(kSeconds[choice % kSeconds.size()]);
  }
}

void Fuzzer::keepCentrals() {
  for (std::size_t i = 0; i < Application::kManagers; ++i) {
    const auto& manager = application_.manager(i);
    if (!manager) continue;
    const auto central =
        std::dynamic_pointer_cast<RecordingCentral>(Peer::centralManager(*manager));
    if (!central || std::ranges::find(centrals_, central) != centrals_.end()) continue;
    if (centrals_.size() == kMostCentrals) centrals_.erase(centrals_.begin());
    centrals_.push_back(central);
  }
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrin::fuzz::Fuzzer(kestrin::fuzz::ByteSource({data, size})).run();
  return 0;
}
