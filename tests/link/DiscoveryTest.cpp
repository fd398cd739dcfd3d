// Discovered peripherals and the reader-name filter.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

using Peer = KestrinBleMgrTestPeer;

class Discovery : public LinkTest {
 protected:
  Discovery() {
    scan();
    platform.take();
  }
};

TEST_F(Discovery, LogsAcceptsStoresAppendsAndTells) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
delegate scanningBleDeive "TQM_HOLV-1"
)");
  EXPECT_EQ(manager->pripheral(), reader);
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader});
}

// Which of the two comes first cannot be seen: nobody is asked in between.
TEST_F(Discovery, HasStoredAndAppendedWhenTheDelegateIsTold) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  int told = 0;
  delegate->onScanningBleDeive = [&] {
    ++told;
    EXPECT_EQ(manager->pripheral(), reader);
    EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader});
  };
  platform.didDiscover(reader);
  EXPECT_EQ(told, 1);
}

TEST_F(Discovery, LogsBeforeAnyTestAndBeforeAnythingIsStored) {
  int logged = 0;
  platform.onLog = [&](const std::string&) {
    ++logged;
    EXPECT_EQ(manager->pripheral(), nullptr);
  };
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(logged, 1);
}

TEST_F(Discovery, LogsEveryReportAlsoOfWhatIsNotAccepted) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  platform.take();
  platform.didDiscover(reader);
  platform.didDiscover(platform.peripheral("Headset"));
  platform.didDiscover(platform.peripheral("nameless", std::nullopt));
  platform.didDiscover(platform.peripheral("empty", ""));
  EXPECT_EQ(platform.take(), R"~(
* central#1 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
* central#1 didDiscoverPeripheral "Headset"
log "DiscoverPeripheral  Headset"
* central#1 didDiscoverPeripheral "nameless"
log "DiscoverPeripheral  (null)"
* central#1 didDiscoverPeripheral "empty"
log "DiscoverPeripheral  "
)~");
  EXPECT_EQ(manager->pripheral(), reader);
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader});
}

TEST_F(Discovery, PrintsTheNameAsItIsWhateverItHolds) {
  platform.didDiscover(platform.peripheral("odd", "%@ %d KVR\n%"));
  EXPECT_EQ(platform.take(), R"(
* central#1 didDiscoverPeripheral "odd"
log "DiscoverPeripheral  %@ %d KVR
%"
delegate scanningBleDeive "odd"
)");
}

TEST_F(Discovery, AcceptsOneReaderOnceInARow) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  for (int i = 0; i < 3; ++i) platform.didDiscover(reader);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("delegate"),
            "\ndelegate scanningBleDeive \"TQM_HOLV-1\"\n");
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader});
}

TEST_F(Discovery, ComparesWithTheReaderAcceptedLastOnlySoABAIsThree) {
  const auto a = platform.peripheral("TQM_HOLV-A");
  const auto b = platform.peripheral("TQM_HOLV-B");
  for (const auto& reader : {a, b, a}) platform.didDiscover(reader);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("delegate"), R"(
delegate scanningBleDeive "TQM_HOLV-A"
delegate scanningBleDeive "TQM_HOLV-B"
delegate scanningBleDeive "TQM_HOLV-A"
)");
  EXPECT_EQ(Peer::peripheralList(*manager), (Peer::Peripherals{a, b, a}));
  EXPECT_EQ(manager->pripheral(), a);
}

TEST_F(Discovery, ComparesByIdentityNotByNameOrIdentifier) {
  const auto one = platform.peripheral("TQM_HOLV-1");
  const auto twin = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(one);
  platform.didDiscover(twin);
  EXPECT_EQ(Peer::peripheralList(*manager), (Peer::Peripherals{one, twin}));
}

TEST_F(Discovery, OfWhatWasNotAcceptedInBetweenDoesNotCount) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  platform.didDiscover(platform.peripheral("Headset"));
  platform.didDiscover(reader);
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals{reader});
}

TEST_F(Discovery, DoesNotAcceptTheLastReaderAgainInALaterScan) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  scan();
  platform.take();
  platform.didDiscover(reader);
  EXPECT_EQ(platform.take(), R"(
* central#2 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
)");
  EXPECT_EQ(Peer::peripheralList(*manager), Peer::Peripherals());
}

TEST_F(Discovery, DoesNotAcceptTheChosenReaderWhichReplacedTheOneAcceptedLast) {
  const auto a = platform.peripheral("TQM_HOLV-A");
  const auto b = platform.peripheral("TQM_HOLV-B");
  platform.didDiscover(a);
  platform.didDiscover(b);
  manager->connectBLE(a);
  platform.take();
  platform.didDiscover(a);
  platform.didDiscover(b);
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("delegate"),
            "\ndelegate scanningBleDeive \"TQM_HOLV-B\"\n");
}

TEST_F(Discovery, ReadsTheNameAfreshForLogPresenceAndFilter) {
  const auto renamed = platform.peripheral("renamed");
  renamed->nameReads.set({"first", "second", "KVR"});
  platform.didDiscover(renamed);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDiscoverPeripheral "renamed"
log "DiscoverPeripheral  first"
delegate scanningBleDeive "renamed"
)");
  const auto vanished = platform.peripheral("vanished");
  vanished->nameReads.set({"KVR", std::nullopt, "KVR"});
  platform.didDiscover(vanished);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDiscoverPeripheral "vanished"
log "DiscoverPeripheral  KVR"
)");
  const auto spoiled = platform.peripheral("spoiled");
  spoiled->nameReads.set({"KVR", "KVR", "Headset"});
  platform.didDiscover(spoiled);
  const auto lost = platform.peripheral("lost");
  lost->nameReads.set({"KVR", "KVR", std::nullopt});
  platform.didDiscover(lost);
  EXPECT_EQ(manager->pripheral(), renamed);
}

TEST_F(Discovery, TellsTheKnownReaderByIdentityBeforeItsNameIsLookedAtAgain) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  platform.didDiscover(reader);
  reader->nameReads.set({"for the log", "not read", "nor this"});
  platform.didDiscover(reader);
  EXPECT_EQ(reader->name(), "not read");
}

TEST_F(Discovery, AcceptsAPeripheralThatGotItsNameLater) {
  const auto reader = platform.peripheral("late", std::nullopt);
  platform.didDiscover(reader);
  EXPECT_EQ(manager->pripheral(), nullptr);
  reader->nameReads.set({"KVR-1"});
  platform.didDiscover(reader);
  EXPECT_EQ(manager->pripheral(), reader);
}

TEST_F(Discovery, IgnoresAdvertisementDataAndSignalStrength) {
  const CBAdvertisementData reader{.localName = "KVR-Q62T 1",
                                   .serviceUUIDs = {*CBUUID::UUIDWithString(kService)}};
  platform.didDiscover(platform.peripheral("Headset"), reader, 20);
  EXPECT_EQ(manager->pripheral(), nullptr);
  const CBAdvertisementData headset{.localName = "Headset", .serviceUUIDs = {}};
  const auto weak = platform.peripheral("KVR-1");
  platform.didDiscover(weak, headset, -127);
  EXPECT_EQ(manager->pripheral(), weak);
}

TEST_F(Discovery, DoesNotEndTheScan) {
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("central"), kNothing);
}

// Neither the order of the fragments nor that the search ends at the first that is found can be
// seen: the answer does not say which it was.
TEST(NameFilter, PassesEveryNameThatHoldsAFragment) {
  for (const char* name :
       {"TQM_HOLV", "R7ZTM", "KVR", "417", "58", "KVR-Q62T", "TQM_HOLV-1", "xR7ZTM",
        "KVR-Q62T 0012", "Tag417", "Speaker 58", "1580", "aKVRb", "4417", " TQM_HOLV ", "KVKVR"}) {
    EXPECT_TRUE(Peer::p_isKVXDevice(name)) << name;
  }
}

TEST(NameFilter, StopsEveryOtherName) {
  for (const char* name : {"", "kvr-q62t", "KV R", "R7ZT", "TQM_HOL", "tqm_holv", "TQM-HOLV",
                           "r7ztm", "Kvr", "41 7", "5-8", "85", "41", "714", "Q62T", "Headset"}) {
    EXPECT_FALSE(Peer::p_isKVXDevice(name)) << name;
  }
}

TEST(NameFilter, LooksAtTheWholeNameAlsoBehindAZeroByte) {
  EXPECT_TRUE(Peer::p_isKVXDevice(std::string_view("a\0KVR", 5)));
}

}  // namespace
}  // namespace kestrin::test
