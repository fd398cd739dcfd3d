#include "fuzz/Application.h"

#include <utility>

#include "support/KestrinBleMgrTestPeer.h"
#include "support/ReferenceFrame.h"

namespace kestrin::fuzz {
namespace {

using Peer = KestrinBleMgrTestPeer;

// Each may hold a central manager and pending requests.
constexpr std::size_t kMostManagers = 12;
constexpr std::size_t kLongestReaction = 24;

bool isWholeFrame(ByteView frame) {
  if (frame.size() < 8 || frame[0] != 0xBB || (frame[1] & 0x03) == 0) return false;
  const std::size_t length = static_cast<std::size_t>(frame[3]) << 8 | frame[4];
  return length <= 1021 && frame.size() == length + 8 && frame[5 + length] == 0x7E &&
         test::referenceCrc(frame.subspan(1)) == 0;
}

bool passesNameFilter(std::string_view name) {
  for (const std::string_view part : {"TQM_HOLV", "R7ZTM", "KVR", "417", "58"}) {
    if (name.find(part) != std::string_view::npos) return true;
  }
  return false;
}

bool isOneOf(const CBUUID& uuid, std::string_view a, std::string_view b) {
  return uuid.UUIDString() == a || uuid.UUIDString() == b;
}

}  // namespace

std::optional<NSData> takeValue(ByteSource& input) {
  switch (input.below(4)) {
    case 0:
      return std::nullopt;
    case 1: {
      const std::uint8_t type = input.u8();
      const std::uint8_t code = input.u8();
      return NSData(test::referenceFrame(type, code, input.block()));
    }
    default:
      return NSData(input.block());
  }
}

class Application::ScanListener final : public KestrinBLEProtocols {
 public:
  explicit ScanListener(Application& application) : application_(application) {}
  void scanBleStatus(std::int64_t status) noexcept override {
    require(status == 0 || status == 1, "the scan state is 0 or 1");
    application_.react(Callback::scanState);
  }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    require(peripheral != nullptr, "an accepted reader is there");
    application_.react(Callback::device);
  }

 private:
  Application& application_;
};

class Application::Receiver final : public RcpReceiver {
 public:
  explicit Receiver(Application& application) : application_(application) {}
  void plugChangedStatus(bool plugged) noexcept override {
    application_.plugged(plugged);
    application_.react(Callback::plug);
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    application_.delivered(frame);
    application_.react(Callback::frame);
  }

 private:
  Application& application_;
};

class Application::Log final : public NSLogSink {
 public:
  explicit Log(Application& application) : application_(application) {}
  void write(std::string_view line) noexcept override {
    require(!line.empty(), "no log line is empty");
    application_.react(Callback::log);
  }

 private:
  Application& application_;
};

Application::Application(Platform platform, Pick pick)
    : platform_(std::move(platform)), pick_(std::move(pick)) {
  platform_.log = std::make_shared<Log>(*this);
  for (Slot& slot : slots_) {
    makeManager(slot);
    setListener(slot);
    setReceiver(slot);
  }
}

Application::~Application() = default;

void Application::act(ByteSource& input) {
  const std::uint8_t choice = input.u8();
  Slot& slot = slots_[choice & 1];
  if ((choice & 2) != 0) {
    change(slot, input);
  } else {
    call(slot, input);
  }
}

void Application::call(Slot& slot, ByteSource& input) {
  // By the plain pointer: nothing of the caller's keeps the manager while a callback drops it.
  KestrinBleMgr* const manager = slot.manager.get();
  if (manager == nullptr) return;
  switch (input.below(10)) {
    case 0:
      require(manager->scanBLE(), "scanBLE returns true");
      break;
    case 1:
      manager->stopSacnBLE();
      break;
    case 2:
      manager->connectBLE(pick_(input));
      break;
    case 3:
      manager->close();
      break;
    case 4:
      manager->send(takeValue(input));
      break;
    case 5:
      manager->sendPower(takeValue(input));
      break;
    case 6:
      manager->writeRawData(takeValue(input));
      break;
    case 7:
    case 8:
      require(manager->readData(takeValue(input).value_or(NSData())) == 0, "readData returns 0");
      break;
    default:
      manager->connectBLE(manager->pripheral());
      break;
  }
}

void Application::change(Slot& slot, ByteSource& input) {
  switch (input.below(9)) {
    case 0:
      slot.manager.reset();
      break;
    case 1:
      makeManager(slot);
      break;
    case 2:
      slot.listener.reset();
      break;
    case 3:
      slot.receiver.reset();
      break;
    case 4:
      setListener(slot);
      break;
    case 5:
      setReceiver(slot);
      break;
    case 6:
      if (slot.manager) slot.manager->setDelegate(nullptr);
      slot.listener.reset();
      break;
    case 7:
      if (slot.manager) slot.manager->setRcpReceiverDelegate(nullptr);
      slot.receiver.reset();
      break;
    default:
      platform_.notificationCenter->postNotificationName_object(
          UIApplicationDidEnterBackgroundNotification);
      break;
  }
}

void Application::makeManager(Slot& slot) {
  if (made_.size() == kMostManagers) return;
  slot.manager = KestrinBleMgr::init(platform_);
  made_.push_back(slot.manager);
  slot.listener.reset();
  slot.receiver.reset();
}

void Application::setListener(Slot& slot) {
  if (!slot.manager) return;
  slot.listener = std::make_shared<ScanListener>(*this);
  slot.manager->setDelegate(slot.listener);
}

void Application::setReceiver(Slot& slot) {
  if (!slot.manager) return;
  slot.receiver = std::make_shared<Receiver>(*this);
  slot.manager->setRcpReceiverDelegate(slot.receiver);
}

void Application::arm(ByteSource& input) {
  auto& reactions = armed_[input.below(armed_.size())];
  const ByteView reaction = input.take(input.u8() % kLongestReaction);
  reactions.emplace_back(reaction.begin(), reaction.end());
}

void Application::react(Callback callback) {
  auto& reactions = armed_[static_cast<std::size_t>(callback)];
  if (reactions.empty()) return;
  const Bytes reaction = std::move(reactions.front());
  reactions.pop_front();
  ByteSource input(reaction);
  act(input);
}

void Application::plugged(bool plugged) const {
  if (!plugged) return;
  const auto managers = living();
  require(std::ranges::any_of(managers, [](const auto& manager) { return manager->open(); }),
          "plugged in is told only while there is a link");
}

void Application::delivered(const std::optional<NSData>& frame) const {
  if (deliveries_ == Deliveries::anything) return;
  require(frame && isWholeFrame(frame->span()), "what the assembler delivers is a whole frame");
}

std::vector<std::shared_ptr<KestrinBleMgr>> Application::living() const {
  std::vector<std::shared_ptr<KestrinBleMgr>> managers;
  for (const auto& weak : made_) {
    if (auto manager = weak.lock()) managers.push_back(std::move(manager));
  }
  return managers;
}

void Application::check() const {
  for (const auto& manager : living()) checkManager(*manager);
  for (const Slot& slot : slots_) {
    require(!slot.listener || slot.listener.use_count() == 1, "a scan delegate is held weakly");
    require(!slot.receiver || slot.receiver.use_count() == 1, "a receiver is held weakly");
    if (!slot.manager) continue;
    require(slot.manager->delegate() == slot.listener, "the scan delegate is the one that was set");
    require(slot.manager->rcpReceiverDelegate() == slot.receiver,
            "the receiver is the one that was set");
  }
}

void Application::checkManager(KestrinBleMgr& manager) {
  require(manager.open() == manager.isOpened(), "open and isOpened are the same");
  require(manager.open() == Peer::isConnected(manager), "open tells the link flag");
  require(manager.pripheral() == Peer::discoveredPeripheral(manager),
          "pripheral tells the remembered reader");
  const auto& list = Peer::peripheralList(manager);
  require(list.has_value() == (Peer::centralManager(manager) != nullptr),
          "the lists come with the first central manager");
  for (const auto& peripheral : list.value_or(Peer::Peripherals())) {
    require(peripheral != nullptr, "the list holds readers only");
    require(passesNameFilter(peripheral->name().value_or("")),
            "the list holds accepted names only");
  }
  if (const auto& tx = Peer::txCharacteristic(manager)) {
    require(isOneOf(tx->UUID(), "BA821001-3B5B-4654-85FE-E998B123ADEA", "FFF2"),
            "TX is a transmit characteristic");
  }
  if (const auto& rx = Peer::rxCharacteristic(manager)) {
    require(isOneOf(rx->UUID(), "BA821002-3B5B-4654-85FE-E998B123ADEA", "FFF1"),
            "RX is a receive characteristic");
  }
  require(Peer::peripheralNameList(manager).value_or(std::vector<std::string>()).empty() &&
              Peer::_bufHead(manager) == 0 && !Peer::characteristic(manager) &&
              Peer::_buf(manager) == std::array<std::uint8_t, 255>{},
          "the idle fields stay as they are");
}

void Application::dropEverything() {
  for (auto& reactions : armed_) reactions.clear();
  for (Slot& slot : slots_) slot = {};
}

bool Application::allGone() const { return living().empty(); }

}  // namespace kestrin::fuzz
