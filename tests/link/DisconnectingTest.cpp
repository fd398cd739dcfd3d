// Link loss, `close` and the connection query.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class LinkLoss : public LinkTest {};
class Closing : public LinkTest {};
class ConnectionQuery : public LinkTest {};

TEST_F(LinkLoss, LogsClearsTheFlagAndTellsTheReceiver) {
  const Reader reader = standardReader();
  plugIn(reader);
  bool atLog = false;
  bool atCallback = true;
  platform.onLog = [&](const std::string&) { atLog = manager->open(); };
  receiver->onPlugChangedStatus = [&] { atCallback = manager->open(); };
  platform.didDisconnect(reader.peripheral);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
  EXPECT_TRUE(atLog);
  EXPECT_FALSE(atCallback);
  EXPECT_FALSE(manager->open());
}

TEST_F(LinkLoss, DoesNotLookAtTheErrorOrThePeripheral) {
  plugIn(standardReader());
  platform.didDisconnect(platform.peripheral("another"), kError);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDisconnectPeripheral "another" error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
  EXPECT_FALSE(manager->open());
}

TEST_F(LinkLoss, KeepsEverythingElseAndNeitherScansNorConnectsAgain) {
  const Reader reader = standardReader();
  plugIn(reader);
  platform.didUpdateValue(reader.peripheral, reader.rx, NSData{0xBB, 0x01});
  platform.didDisconnect(reader.peripheral);
  EXPECT_EQ(manager->pripheral(), reader.peripheral);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
  EXPECT_EQ(bufferedIn(*manager), (NSData{0xBB, 0x01}));
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader.peripheral});
  platform.take();
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(LinkLoss, WithoutALinkIsReportedAllTheSame) {
  scan();
  platform.take();
  platform.didDisconnect(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(platform.take(), R"(
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
}

TEST_F(Closing, CancelsStopsAndTellsFalseAtOnceAndAgainWhenTheLinkIsDown) {
  const Reader reader = standardReader();
  plugIn(reader);
  manager->close();
  EXPECT_EQ(platform.take(), R"(
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
)");
  EXPECT_TRUE(manager->open());
  platform.didDisconnect(reader.peripheral);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
  EXPECT_FALSE(manager->open());
}

TEST_F(Closing, WithoutAReaderOnlyStopsTheScanAndTells) {
  scan();
  platform.take();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
central#1 stopScan
receiver plugChangedStatus false
)");
}

TEST_F(Closing, WithAReaderButWithoutACentralManagerOnlyTells) {
  manager->connectBLE(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  manager->close();
  EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus false\n");
}

TEST_F(Closing, ClearsNoFieldAndTellsFalseEachTime) {
  const Reader reader = standardReader();
  plugIn(reader);
  manager->close();
  manager->close();
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("receiver"), R"(
receiver plugChangedStatus false
receiver plugChangedStatus false
)");
  EXPECT_EQ(manager->pripheral(), reader.peripheral);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
  EXPECT_NE(Peer::centralManager(*manager), nullptr);
}

TEST_F(Closing, CancelsNoPendingReport) {
  linkUp(standardReader());
  manager->close();
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("cancel"), kNothing);
  platform.run(2.0);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("receiver"),
            "\nreceiver plugChangedStatus true\n");
}

TEST_F(Closing, GivesUpAnAttemptThatHasNotSucceeded) {
  choose(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
)");
  EXPECT_FALSE(manager->open());
}

TEST_F(Closing, TellsTheConstantFalseAlsoWhileTheFlagIsTrue) {
  connect(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  manager->close();
  EXPECT_TRUE(manager->open());
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("receiver"),
            "\nreceiver plugChangedStatus false\n");
}

TEST_F(ConnectionQuery, LogsTheFlagAndAnswersIt) {
  EXPECT_FALSE(Peer::p_isConnectedBLE(*manager));
  EXPECT_EQ(platform.take(), "\nlog \"isConnected 0\"\n");
  connect(platform.peripheral("TQM_HOLV-1"));
  platform.take();
  EXPECT_TRUE(Peer::p_isConnectedBLE(*manager));
  EXPECT_EQ(platform.take(), "\nlog \"isConnected 1\"\n");
}

}  // namespace
}  // namespace kestrin::test
