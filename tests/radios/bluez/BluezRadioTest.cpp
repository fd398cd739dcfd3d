#include "radios/bluez/BluezRadioTest.h"

#include <future>
#include <utility>

#include "RadioCore.h"

namespace kestrin::bluez::test {
namespace {

constexpr auto kPatience = 20s;

}  // namespace

BluezRadioTest::BluezRadioTest(PrivateBus::Policy policy) : bus(policy) {}

BluezRadioTest::~BluezRadioTest() { EXPECT_EQ(recorder->violations(), std::vector<std::string>()); }

void BluezRadioTest::startDaemon(const std::function<void(BusService&)>& prepare) {
  daemon = std::make_unique<StandInDaemon>(bus.address(), prepare);
}

void BluezRadioTest::startRadio(std::optional<std::string> adapter) {
  session = std::make_shared<Session>(bus.address(), clock);
  if (linkNames) {
    session->post([file = *linkNames](RadioCore& core) { core.keepLinkNames(file); });
  }
  radio = std::make_shared<BluezRadio>(session, loop, std::move(adapter));
}

std::shared_ptr<CBCentralManager> BluezRadioTest::makeCentral() {
  return radio->initWithDelegate_queue(recorder, nullptr);
}

void BluezRadioTest::start() {
  startDaemon();
  startRadio();
  central = makeCentral();
  ASSERT_TRUE(waitForCount(EventKind::state, 1));
  ASSERT_EQ(central->state(), CBManagerState::poweredOn);
}

void BluezRadioTest::findReader() {
  ASSERT_NO_FATAL_FAILURE(start());
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  daemon->showReader();
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  central->stopScan();
  settle();
  peripheral = recorder->events(EventKind::sighting)[0].peripheral;
  peripheral->setDelegate(recorder);
}

void BluezRadioTest::connect() {
  ASSERT_NO_FATAL_FAILURE(findReader());
  central->connectPeripheral_options(peripheral, std::nullopt);
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
}

void BluezRadioTest::resolveServices() {
  daemon->putServices();
  daemon->changeDevice({{"ServicesResolved", sdbus::Variant(true)}});
}

void BluezRadioTest::discoverCharacteristics() {
  const auto before = count(EventKind::services);
  peripheral->discoverServices(std::nullopt);
  ASSERT_TRUE(waitForCount(EventKind::services, before + 1));
  ASSERT_TRUE(peripheral->services());
  ASSERT_EQ(peripheral->services()->size(), 1U);
  const auto service = peripheral->services()->front();
  const auto earlier = count(EventKind::characteristics);
  peripheral->discoverCharacteristics_forService(std::nullopt, service);
  ASSERT_TRUE(waitForCount(EventKind::characteristics, earlier + 1));
  const auto characteristics = *service->characteristics();
  ASSERT_EQ(characteristics.size(), 2U);
  tx = characteristics[0];
  rx = characteristics[1];
}

void BluezRadioTest::linkUp() {
  ASSERT_NO_FATAL_FAILURE(connect());
  resolveServices();
  discoverCharacteristics();
}

void BluezRadioTest::subscribe() {
  const auto before = count(EventKind::notificationState);
  peripheral->setNotifyValue_forCharacteristic(true, rx);
  ASSERT_TRUE(waitForCount(EventKind::notificationState, before + 1));
}

bool BluezRadioTest::waitFor(const std::function<bool()>& done) {
  const auto limit = loop->now() + kPatience;
  while (!done()) {
    if (loop->now() > limit) return false;
    loop->runUntil(loop->now() + 5ms, done);
  }
  return true;
}

bool BluezRadioTest::waitForCount(EventKind kind, std::size_t number) {
  return waitFor([&] { return count(kind) >= number; });
}

// The radio calls the daemon, which answers in the order in which it was asked and after what it
// has signalled before; without a daemon the bus itself answers.
void BluezRadioTest::exchange() {
  if (!session) return;
  const auto answered = std::make_shared<std::promise<void>>();
  auto future = answered->get_future();
  session->post([answered](RadioCore& core) {
    core.daemon().bus().call(
        {.path = "/", .interface = "org.freedesktop.DBus.Peer", .method = "Ping", .arguments = {}},
        [answered](const std::optional<CallError>&, sdbus::MethodReply&) {
          answered->set_value();
        });
  });
  ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
}

void BluezRadioTest::settle() {
  // An answer can bring about a call, and that another.
  for (int round = 0; round < 4; ++round) {
    if (daemon) daemon->run([](BusService&) {});
    ASSERT_NO_FATAL_FAILURE(exchange());
    while (loop->runOneTurn()) {
    }
  }
}

void BluezRadioTest::pass(Time span) {
  // What was asked before counts from before.
  ASSERT_NO_FATAL_FAILURE(settle());
  clock->sleepFor(span);
  settle();
}

std::vector<CBManagerState> BluezRadioTest::states() const {
  std::vector<CBManagerState> all;
  for (const auto& event : recorder->events(EventKind::state)) all.push_back(event.state);
  return all;
}

std::vector<NSData> BluezRadioTest::values() const {
  std::vector<NSData> all;
  for (const auto& event : recorder->events(EventKind::value)) {
    all.push_back(event.value.value_or(NSData()));
  }
  return all;
}

}  // namespace kestrin::bluez::test
