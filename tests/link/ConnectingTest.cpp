// `connectBLE` and link-up.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class Connecting : public LinkTest {};
class LinkUp : public LinkTest {};

TEST_F(Connecting, StopsTheScanWithoutTellingTheDelegateThenConnects) {
  scan();
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  platform.take();
  manager->connectBLE(reader);
  EXPECT_EQ(platform.take(), R"(
central#1 stopScan
peripheral "TQM_HOLV-1" setDelegate manager#1
central#1 connectPeripheral "TQM_HOLV-1" options (absent)
)");
}

TEST_F(Connecting, ReplacesTheReaderAcceptedLast) {
  scan();
  const auto chosen = platform.peripheral("TQM_HOLV-1");
  const auto last = platform.peripheral("TQM_HOLV-2");
  platform.didDiscover(chosen);
  platform.didDiscover(last);
  platform.take();
  std::shared_ptr<CBPeripheral> atStop;
  std::shared_ptr<CBPeripheral> atSetDelegate;
  platform.onRequest = [&](const std::string& request) {
    if (request.ends_with("stopScan")) atStop = manager->pripheral();
    if (request.ends_with("setDelegate manager#1")) atSetDelegate = manager->pripheral();
  };
  manager->connectBLE(chosen);
  EXPECT_EQ(atStop, last);
  EXPECT_EQ(atSetDelegate, chosen);
  EXPECT_EQ(manager->pripheral(), chosen);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"),
            "\nperipheral \"TQM_HOLV-1\" setDelegate manager#1\n");
}

TEST_F(Connecting, RoutesThePeripheralsEventsToThisManager) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  choose(reader);
  EXPECT_EQ(reader->delegate(), Peer::asPeripheralDelegate(manager));
}

TEST_F(Connecting, LeavesTheLinkFlagAsItIsAndArmsNothing) {
  for (const bool connected : {false, true}) {
    scan();
    Peer::isConnected(*manager) = connected;
    platform.take();
    manager->connectBLE(platform.peripheral("TQM_HOLV-1"));
    EXPECT_EQ(manager->open(), connected);
    platform.take();
    platform.run(3600.0);
    EXPECT_EQ(platform.take(), kNothing);
  }
}

TEST_F(Connecting, KeepsWhatIsPendingOfTheLastLink) {
  linkUp(standardReader());
  manager->connectBLE(platform.peripheral("TQM_HOLV-2"));
  platform.take();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-2" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus true
)");
}

TEST_F(Connecting, BeforeAnyScanOnlyStoresTheReader) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  manager->connectBLE(reader);
  EXPECT_EQ(platform.take(), "\nperipheral \"TQM_HOLV-1\" setDelegate manager#1\n");
  EXPECT_EQ(manager->pripheral(), reader);
}

TEST_F(Connecting, ToNoReaderForgetsTheStoredOneAndLeavesTheRestToTheRadio) {
  const Reader reader = standardReader();
  plugIn(reader);
  manager->connectBLE(nullptr);
  EXPECT_EQ(platform.take(), R"(
central#1 stopScan
central#1 connectPeripheral (absent) options (absent)
)");
  EXPECT_EQ(manager->pripheral(), nullptr);
  manager->scanBLE();
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("central#1"), R"(
central#1 stopScan
central#1 released
)");
}

TEST_F(Connecting, ToTheReaderThatIsAlreadyStoredIsARequestLikeAnyOther) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  choose(reader);
  platform.take();
  manager->connectBLE(manager->pripheral());
  EXPECT_EQ(platform.take(), R"(
central#1 stopScan
peripheral "TQM_HOLV-1" setDelegate manager#1
central#1 connectPeripheral "TQM_HOLV-1" options (absent)
)");
}

TEST_F(LinkUp, LogsSetsTheFlagAndAsksAStandardReaderForItsOneService) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  choose(reader);
  platform.take();
  bool atLog = true;
  bool atRequest = false;
  platform.onLog = [&](const std::string&) { atLog = manager->open(); };
  platform.onRequest = [&](const std::string&) { atRequest = manager->open(); };
  platform.didConnect(reader);
  EXPECT_EQ(platform.take(), R"(
* central#1 didConnectPeripheral "TQM_HOLV-1"
log "BLE Connected"
peripheral "TQM_HOLV-1" discoverServices [BA821000-3B5B-4654-85FE-E998B123ADEA]
)");
  EXPECT_FALSE(atLog);
  EXPECT_TRUE(atRequest);
  EXPECT_TRUE(manager->open());
  EXPECT_TRUE(manager->isOpened());
}

TEST_F(LinkUp, AsksAKvrReaderForAllServices) {
  const auto reader = platform.peripheral("KVR-Q62T 0012");
  choose(reader);
  platform.take();
  platform.didConnect(reader);
  EXPECT_EQ(platform.take(), R"(
* central#1 didConnectPeripheral "KVR-Q62T 0012"
log "BLE Connected"
peripheral "KVR-Q62T 0012" discoverServices (absent)
)");
  EXPECT_TRUE(manager->open());
}

TEST_F(LinkUp, TellsTheFamilyByTheBeginningOfTheName) {
  for (const auto& [name, kvr] : kFamilies) {
    const auto reader = platform.peripheral("named", name);
    choose(reader);
    platform.take();
    platform.didConnect(reader);
    EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"),
              std::string("\nperipheral \"named\" discoverServices ") +
                  (kvr ? "(absent)" : "[BA821000-3B5B-4654-85FE-E998B123ADEA]") + "\n")
        << name.value_or("(no name)");
  }
}

TEST_F(LinkUp, ReadsTheNameOfTheConnectedPeripheralAndAsksTheStoredOne) {
  const auto kvr = platform.peripheral("KVR-Q62T 1");
  const auto standard = platform.peripheral("TQM_HOLV-1");
  choose(standard);
  platform.take();
  platform.didConnect(kvr);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"),
            "\nperipheral \"TQM_HOLV-1\" discoverServices (absent)\n");
  manager->connectBLE(kvr);
  platform.take();
  platform.didConnect(standard);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"),
            "\nperipheral \"KVR-Q62T 1\" discoverServices "
            "[BA821000-3B5B-4654-85FE-E998B123ADEA]\n");
}

TEST_F(LinkUp, WithoutAStoredReaderAsksNobody) {
  scan();
  platform.take();
  platform.didConnect(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(platform.take(), R"(
* central#1 didConnectPeripheral "TQM_HOLV-1"
log "BLE Connected"
)");
  EXPECT_TRUE(manager->open());
}

TEST_F(LinkUp, ArmsNothing) {
  connect(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), kNothing);
}

}  // namespace
}  // namespace kestrin::test
