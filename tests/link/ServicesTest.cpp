// Services found: what is logged and which characteristics are asked for.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class StandardServices : public LinkTest {};
class KvrServices : public LinkTest {};
class ServicesFamily : public LinkTest {};

TEST_F(StandardServices, AreEachLoggedAndTheDataServiceIsAskedForThreeCharacteristics) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.take();
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverServices
log "Service id : BA821000-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821000-3B5B-4654-85FE-E998B123ADEA>"
log "Found correct service"
peripheral "TQM_HOLV-1" discoverCharacteristics [BA821000-3B5B-4654-85FE-E998B123ADEA BA821001-3B5B-4654-85FE-E998B123ADEA BA821002-3B5B-4654-85FE-E998B123ADEA] forService BA821000-3B5B-4654-85FE-E998B123ADEA
)");
}

// The family is told again in each report, from the name as it is by then.
TEST_F(ServicesFamily, IsToldByTheBeginningOfTheNameAtThatMoment) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  for (const auto& [name, kvr] : kFamilies) {
    reader.peripheral->nameReads.set({name});
    platform.take();
    platform.didDiscoverServices(reader.peripheral, {serviceOf("FFF0")});
    EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"),
              kvr ? "\nlog \"searching : FFF0\"\n"
                  : "\nlog \"Service id : FFF0\"\nlog \"Service Description : <service FFF0>\"\n")
        << name.value_or("(no name)");
  }
}

TEST_F(ServicesFamily, IsAskedForCharacteristicsAlsoWhenTheLinkWasLost) {
  for (const Reader& reader : {standardReader(), kvrReader()}) {
    connect(reader.peripheral);
    platform.didDisconnect(reader.peripheral);
    platform.take();
    platform.didDiscoverServices(reader.peripheral, {reader.service});
    EXPECT_NE(platform.take().find(" discoverCharacteristics "), std::string::npos);
  }
}

TEST_F(ServicesFamily, IsOneForAllServicesOfAReport) {
  const Reader reader = kvrReader();
  connect(reader.peripheral);
  platform.take();
  reader.peripheral->nameReads.set({"KVR-Q62T 0012", "TQM_HOLV-1"});
  platform.didDiscoverServices(reader.peripheral, {serviceOf("FFF0"), serviceOf("180A")});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"), R"(
log "searching : FFF0"
log "searching : 180A"
)");
}

TEST_F(StandardServices, AreWalkedToTheEndAndASecondMatchIsAskedToo) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.take();
  platform.didDiscoverServices(reader.peripheral, {serviceOf("180A"), reader.service,
                                                   serviceOf("1800"), serviceOf(kService)});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverServices
log "Service id : 180A"
log "Service Description : <service 180A>"
log "Service id : BA821000-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821000-3B5B-4654-85FE-E998B123ADEA>"
log "Found correct service"
peripheral "TQM_HOLV-1" discoverCharacteristics [BA821000-3B5B-4654-85FE-E998B123ADEA BA821001-3B5B-4654-85FE-E998B123ADEA BA821002-3B5B-4654-85FE-E998B123ADEA] forService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Service id : 1800"
log "Service Description : <service 1800>"
log "Service id : BA821000-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821000-3B5B-4654-85FE-E998B123ADEA>"
log "Found correct service"
peripheral "TQM_HOLV-1" discoverCharacteristics [BA821000-3B5B-4654-85FE-E998B123ADEA BA821001-3B5B-4654-85FE-E998B123ADEA BA821002-3B5B-4654-85FE-E998B123ADEA] forService BA821000-3B5B-4654-85FE-E998B123ADEA
)");
}

TEST_F(StandardServices, WithoutTheDataServiceAreOnlyLoggedAndTheLinkStaysUp) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.take();
  // Differs from the data service in one digit, and is the transmit characteristic's UUID.
  platform.didDiscoverServices(reader.peripheral, {serviceOf("FFF0"), serviceOf(kTx)});
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverServices
log "Service id : FFF0"
log "Service Description : <service FFF0>"
log "Service id : BA821001-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821001-3B5B-4654-85FE-E998B123ADEA>"
)");
  EXPECT_TRUE(Peer::p_isConnectedBLE(*manager));
}

TEST_F(StandardServices, ThatAreNoneOrAbsentAreNotEvenLogged) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.take();
  platform.didDiscoverServices(reader.peripheral, {});
  reader.peripheral->shownServices.reset();
  Peer::peripheral_didDiscoverServices(*manager, reader.peripheral, std::nullopt);
  EXPECT_EQ(platform.take(), "\n* \"TQM_HOLV-1\" didDiscoverServices\n");
  EXPECT_TRUE(manager->open());
}

TEST_F(StandardServices, AreThoseOfTheReportingPeripheralWhileTheStoredOneIsAsked) {
  const Reader reporting = standardReader("TQM_HOLV-1");
  connect(reporting.peripheral);
  manager->connectBLE(platform.peripheral("KVR-Q62T 2"));
  platform.take();
  platform.didDiscoverServices(reporting.peripheral, {reporting.service});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"), R"(
peripheral "KVR-Q62T 2" discoverCharacteristics [BA821000-3B5B-4654-85FE-E998B123ADEA BA821001-3B5B-4654-85FE-E998B123ADEA BA821002-3B5B-4654-85FE-E998B123ADEA] forService BA821000-3B5B-4654-85FE-E998B123ADEA
)");
}

TEST_F(StandardServices, WithoutAStoredReaderAreOnlyLogged) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  manager->connectBLE(nullptr);
  platform.take();
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverServices
log "Service id : BA821000-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821000-3B5B-4654-85FE-E998B123ADEA>"
log "Found correct service"
)");
}

TEST_F(StandardServices, OfANamelessReaderAreTreatedLikeAnyStandardReaders) {
  Reader reader = standardReader();
  reader.peripheral = platform.peripheral("nameless", std::nullopt);
  connect(reader.peripheral);
  platform.take();
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  EXPECT_NE(platform.take().find("log \"Found correct service\"\n"), std::string::npos);
}

TEST_F(StandardServices, WithAnErrorAreOneLineAndNothingElseThoughSomeAreKnown) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  reader.peripheral->shownServices = {reader.service};
  platform.take();
  platform.failToDiscoverServices(reader.peripheral, kError);
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverServices error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering services: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
)");
  EXPECT_TRUE(manager->open());
}

TEST_F(KvrServices, AreEachLoggedByUuidAndAskedForAllCharacteristics) {
  const Reader reader = kvrReader();
  connect(reader.peripheral);
  platform.take();
  platform.didDiscoverServices(reader.peripheral,
                               {serviceOf("180A"), reader.service, serviceOf(kService)});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverServices
log "searching : 180A"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService 180A
log "searching : FFF0"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService FFF0
log "searching : BA821000-3B5B-4654-85FE-E998B123ADEA"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService BA821000-3B5B-4654-85FE-E998B123ADEA
)");
}

TEST_F(KvrServices, AreAskedOfTheReportingPeripheral) {
  const Reader reporting = kvrReader();
  connect(reporting.peripheral);
  manager->connectBLE(platform.peripheral("TQM_HOLV-2"));
  platform.take();
  platform.didDiscoverServices(reporting.peripheral, {reporting.service});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"),
            "\nperipheral \"KVR-Q62T 0012\" discoverCharacteristics (absent) forService FFF0\n");
}

TEST_F(KvrServices, WithAnErrorAreOneLineAndNothingElse) {
  const Reader reader = kvrReader();
  connect(reader.peripheral);
  reader.peripheral->shownServices = {reader.service};
  platform.take();
  platform.failToDiscoverServices(reader.peripheral, kError);
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverServices error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering services: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
)");
}

TEST_F(KvrServices, ThatAreNoneAskForNothingAndTheLinkStaysUp) {
  const Reader reader = kvrReader();
  connect(reader.peripheral);
  platform.take();
  platform.didDiscoverServices(reader.peripheral, {});
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), "\n* \"KVR-Q62T 0012\" didDiscoverServices\n");
  EXPECT_TRUE(manager->open());
}

}  // namespace
}  // namespace kestrin::test
