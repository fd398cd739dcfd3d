// `scanBLE`, `stopSacnBLE` and the radio's states.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class Scanning : public LinkTest {};
class StoppingTheScan : public LinkTest {};
class RadioState : public LinkTest {};

TEST_F(Scanning, TellsTheDelegateFirstThenMakesACentralManagerAndAsksItToScan) {
  EXPECT_TRUE(manager->scanBLE());
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
  EXPECT_EQ(Peer::centralManager(*manager), platform.central());
}

TEST_F(Scanning, AgainStopsTheOldScanAndReplacesTheCentralManager) {
  manager->scanBLE();
  platform.take();
  EXPECT_TRUE(manager->scanBLE());
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(Scanning, CancelsTheConnectionToTheReaderAcceptedLast) {
  scan();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  manager->scanBLE();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(Scanning, LeavesTheFlagAndTheReaderOfAConnectionAloneAndDoesNotTellTheReceiver) {
  const Reader reader = standardReader();
  plugIn(reader);
  manager->scanBLE();
  EXPECT_TRUE(manager->open());
  EXPECT_EQ(manager->pripheral(), reader.peripheral);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(Scanning, WithoutACentralManagerCancelsNothing) {
  manager->connectBLE(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  manager->scanBLE();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(Scanning, StartsWithFreshEmptyLists) {
  scan();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  Peer::peripheralNameList(*manager)->push_back("an old name");
  ASSERT_EQ(Peer::peripheralList(*manager)->size(), 1U);
  manager->scanBLE();
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals());
  EXPECT_EQ(Peer::peripheralNameList(*manager), std::vector<std::string>());
}

// In which order the two lists are replaced cannot be seen: nobody is asked in between.
TEST_F(Scanning, ReplacesTheListsBehindTheStopAndBeforeTheCentralManagerIsMade) {
  scan();
  const auto old = Peer::centralManager(*manager);
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  Peer::peripheralNameList(*manager)->push_back("an old name");
  std::vector<std::string> seen;
  platform.onRequest = [&](const std::string& request) {
    seen.push_back(request.substr(0, request.find(' ', sizeof "central#1")) + ": " +
                   std::to_string(Peer::peripheralList(*manager)->size()) + " readers, " +
                   std::to_string(Peer::peripheralNameList(*manager)->size()) + " names, " +
                   (Peer::centralManager(*manager) == old ? "old" : "new"));
  };
  manager->scanBLE();
  EXPECT_EQ(seen, (std::vector<std::string>{
                      "central#1 cancelPeripheralConnection: 1 readers, 1 names, old",
                      "central#1 stopScan: 1 readers, 1 names, old",
                      "central#2 initWithDelegate: 0 readers, 0 names, old",
                      "central#2 scanForPeripheralsWithServices: 0 readers, 0 names, new"}));
}

TEST_F(Scanning, LooksForTheReaderToCancelWhenTheDelegateHasBeenTold) {
  scan();
  const auto reader = platform.peripheral("TQM_HOLV-1");
  delegate->onScanBleStatus = [&] { manager->connectBLE(reader); };
  platform.take();
  manager->scanBLE();
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("central#1"), R"(
central#1 stopScan
central#1 connectPeripheral "TQM_HOLV-1" options (absent)
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
central#1 released
)");
}

TEST_F(Scanning, KeepsWhatIsPendingOfTheLastLink) {
  linkUp(standardReader());
  manager->scanBLE();
  platform.take();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus true
)");
}

TEST_F(Scanning, NeverTouchesTheNameList) {
  scan();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(Peer::peripheralNameList(*manager), std::vector<std::string>());
}

TEST_F(Scanning, AnswersTrueWhateverTheRadioIsLike) {
  for (const std::int64_t state : {0, 1, 2, 3, 4, 5, 6}) {
    EXPECT_TRUE(manager->scanBLE());
    platform.didUpdateState(state);
    EXPECT_TRUE(manager->scanBLE());
  }
}

TEST_F(Scanning, TellsTheDelegateBeforeAnythingIsChanged) {
  const Reader reader = standardReader();
  plugIn(reader);
  delegate->onScanBleStatus = [&] {
    EXPECT_EQ(Peer::centralManager(*manager), platform.central());
    EXPECT_EQ(platform.take(), "\ndelegate scanBleStatus 0\n");
  };
  manager->scanBLE();
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("delegate"), kNothing);
}

TEST_F(StoppingTheScan, BeforeAnyScanOnlyTellsTheDelegate) {
  manager->stopSacnBLE();
  EXPECT_EQ(platform.take(), "\ndelegate scanBleStatus 1\n");
  EXPECT_EQ(Peer::centralManager(*manager), nullptr);
}

TEST_F(StoppingTheScan, TellsTheDelegateBeforeTheScanIsStoppedAndKeepsEverything) {
  scan();
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  const auto central = Peer::centralManager(*manager);
  platform.take();
  manager->stopSacnBLE();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 1
central#1 stopScan
)");
  EXPECT_EQ(Peer::centralManager(*manager), central);
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader});
  EXPECT_TRUE(Peer::peripheralNameList(*manager).has_value());
  EXPECT_EQ(manager->pripheral(), reader);
}

TEST_F(StoppingTheScan, DoesNotTouchALink) {
  const Reader reader = standardReader();
  plugIn(reader);
  manager->stopSacnBLE();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 1
central#1 stopScan
)");
  EXPECT_TRUE(manager->open());
}

TEST_F(StoppingTheScan, DoesNotKeepALaterPoweredOnReportFromScanning) {
  manager->scanBLE();
  manager->stopSacnBLE();
  platform.take();
  platform.didUpdateState(5);
  EXPECT_EQ(platform.take(), R"(
* central#1 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(RadioState, OtherThanPoweredOnIsOneLineInTheLog) {
  const std::pair<std::int64_t, std::string> kLines[] = {
      {0, " CBManager state is unknown"},        {1, " CBManager hardware is resetting"},
      {2, " CBManager hardware is unsupported"}, {3, " CBManager state is unauthorized"},
      {4, " CBManager is powered off"},
  };
  manager->scanBLE();
  platform.take();
  for (const auto& [state, line] : kLines) {
    platform.didUpdateState(state);
    EXPECT_EQ(platform.take(),
              "\n* central#1 didUpdateState " + std::to_string(state) + "\nlog \"" + line + "\"\n");
  }
}

TEST_F(RadioState, OfNoMeaningIsNotEvenLogged) {
  manager->scanBLE();
  platform.take();
  for (const std::int64_t state : {6, 7, 255, 1'000'000}) {
    platform.didUpdateState(state);
    EXPECT_EQ(platform.take(), "\n* central#1 didUpdateState " + std::to_string(state) + "\n");
  }
}

TEST_F(RadioState, PoweredOnLogsTwoLinesAndThenStartsTheScan) {
  manager->scanBLE();
  platform.take();
  platform.didUpdateState(5);
  EXPECT_EQ(platform.take(), R"(
* central#1 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(RadioState, PoweredOnStartsAScanEachTime) {
  manager->scanBLE();
  platform.take();
  for (const std::int64_t state : {5, 1, 5, 4, 5, 5}) platform.didUpdateState(state);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("central"), R"(
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(RadioState, PoweredOnStartsAScanAlsoWhileAReaderIsLinked) {
  plugIn(standardReader());
  platform.didUpdateState(5);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("central"),
            "\ncentral#1 scanForPeripheralsWithServices (absent) options (absent)\n");
}

TEST_F(RadioState, IsThatOfTheReportingCentralManagerWhileTheScanGoesToTheStoredOne) {
  manager->scanBLE();
  const auto stored = platform.central();
  stored->shownState = CBManagerState::poweredOff;
  const auto reporting =
      std::make_shared<RecordingCentral>(platform, 9, std::weak_ptr<CBCentralManagerDelegate>());
  reporting->shownState = CBManagerState::poweredOn;
  platform.take();
  Peer::centralManagerDidUpdateState(*manager, reporting);
  EXPECT_EQ(platform.take(), R"(
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
  stored->shownState = CBManagerState::poweredOn;
  reporting->shownState = CBManagerState::poweredOff;
  Peer::centralManagerDidUpdateState(*manager, reporting);
  EXPECT_EQ(platform.take(), "\nlog \" CBManager is powered off\"\n");
}

TEST_F(RadioState, PoweredOnWithoutAStoredCentralManagerOnlyLogs) {
  const auto reporting =
      std::make_shared<RecordingCentral>(platform, 9, std::weak_ptr<CBCentralManagerDelegate>());
  reporting->shownState = CBManagerState::poweredOn;
  Peer::centralManagerDidUpdateState(*manager, reporting);
  EXPECT_EQ(platform.take(), R"(
log " CBManager is powered on"
log "start San"
)");
}

TEST_F(RadioState, GoingOffLeavesTheLinkFlagAlone) {
  plugIn(standardReader());
  platform.didUpdateState(4);
  EXPECT_TRUE(manager->open());
  EXPECT_EQ(platform.take(), R"(
* central#1 didUpdateState 4
log " CBManager is powered off"
)");
}

}  // namespace
}  // namespace kestrin::test
