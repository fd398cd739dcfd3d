// What a link shows of the reader's attribute server, and the reader's name.
#include <algorithm>

#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

std::vector<std::string> namesOf(const CBPeripheral& peripheral) {
  std::vector<std::string> names;
  const auto known = peripheral.services();
  if (!known) return {"absent"};
  for (const auto& service : *known) names.push_back(service->UUID().UUIDString());
  return names;
}

std::vector<std::string> namesOf(const CBService& service) {
  std::vector<std::string> names;
  const auto known = service.characteristics();
  if (!known) return {"absent"};
  for (const auto& characteristic : *known) names.push_back(characteristic->UUID().UUIDString());
  return names;
}

using Names = std::vector<std::string>;
const Names kAbsent = {"absent"};
const std::string kDataService = dataService().UUIDString();
const std::string kCommand = commandCharacteristic().UUIDString();
const std::string kReply = replyCharacteristic().UUIDString();

TEST_P(LinkedRadioContract, ServicesAreAbsentBeforeTheFirstAnswer) {
  EXPECT_EQ(namesOf(*reader), kAbsent);
  discoverServices(*reader, std::nullopt);
  EXPECT_EQ(namesOf(*reader), kAbsent);
  ASSERT_TRUE(waitFor(EventKind::services));
  EXPECT_NE(namesOf(*reader), kAbsent);
}

TEST_P(LinkedRadioContract, ServicesAreThoseAskedForAndAddUpInHandleOrder) {
  answerServices({{dataService()}});
  EXPECT_EQ(namesOf(*reader), Names{kDataService});
  answerServices({{CBUUID(0x1819)}});
  EXPECT_EQ(namesOf(*reader), Names{kDataService});
  answerServices({{dataService(), deviceInformation()}});
  EXPECT_EQ(namesOf(*reader), (Names{"180A", kDataService}));
}

TEST_P(LinkedRadioContract, AnAbsentListAsksForEveryService) {
  answerServices(std::nullopt);
  const Names names = namesOf(*reader);
  // A stack may add services of its own; the reader's stand in handle order.
  const auto information = std::find(names.begin(), names.end(), "180A");
  EXPECT_NE(std::find(information, names.end(), kDataService), names.end());
}

TEST_P(LinkedRadioContract, AServiceThatIsNotThereIsNotFoundAndThatIsNoError) {
  answerServices({{CBUUID(0x1819)}});
  EXPECT_EQ(namesOf(*reader), Names());
}

TEST_P(LinkedRadioContract, ServicesKeepTheirObjectsForTheLengthOfALink) {
  answerServices({{dataService()}});
  const auto first = reader->services()->front();
  answerServices({{dataService()}});
  EXPECT_EQ(reader->services()->front(), first);
}

TEST_P(LinkedRadioContract, EveryRequestForServicesIsAnsweredOnce) {
  discoverServices(*reader, {{dataService()}});
  discoverServices(*reader, {{dataService()}});
  ASSERT_TRUE(waitFor(EventKind::services, 2));
  bed().settle();
  EXPECT_EQ(count(EventKind::services), 2U);
}

TEST_P(LinkedRadioContract, CharacteristicsAreThoseAskedForAndAddUpInHandleOrder) {
  answerServices({{dataService()}});
  const auto service = reader->services()->front();
  EXPECT_EQ(namesOf(*service), kAbsent);
  answerCharacteristics(service, {{replyCharacteristic()}});
  EXPECT_EQ(namesOf(*service), Names{kReply});
  answerCharacteristics(service, {{CBUUID(0x2A27)}});
  EXPECT_EQ(namesOf(*service), Names{kReply});
  // The list may name the service itself and any order.
  answerCharacteristics(service, {{dataService(), replyCharacteristic(), commandCharacteristic()}});
  EXPECT_EQ(namesOf(*service), (Names{kCommand, kReply}));
}

TEST_P(LinkedRadioContract, AnAbsentListAsksForEveryCharacteristic) {
  answerServices({{deviceInformation()}});
  const auto service = reader->services()->front();
  answerCharacteristics(service, std::nullopt);
  EXPECT_EQ(namesOf(*service), (Names{"2A27", "2A29"}));
}

TEST_P(LinkedRadioContract, CharacteristicsTellTheirPropertiesAndHaveNoValue) {
  const auto command = find(*reader, dataService(), commandCharacteristic());
  const auto reply = find(*reader, dataService(), replyCharacteristic());
  ASSERT_TRUE(command && reply);
  EXPECT_NE(command->properties() & CBCharacteristicPropertyWrite, 0U);
  EXPECT_EQ(command->properties() & CBCharacteristicPropertyNotify, 0U);
  EXPECT_NE(reply->properties() & CBCharacteristicPropertyNotify, 0U);
  EXPECT_EQ(command->value(), std::nullopt);
  EXPECT_EQ(reply->value(), std::nullopt);
}

TEST_P(LinkedRadioContract, AServiceDescribesItself) {
  answerServices({{dataService()}});
  EXPECT_NE(reader->services()->front()->debugDescription().find(kDataService), std::string::npos);
}

TEST_P(LinkedRadioContract, EachLinkHasObjectsOfItsOwn) {
  const auto old = find(*reader, dataService(), replyCharacteristic());
  const auto oldService = reader->services()->front();
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  ASSERT_TRUE(connectAndWait(*central, reader));
  EXPECT_EQ(namesOf(*reader), kAbsent);
  const auto found = find(*reader, dataService(), replyCharacteristic());
  EXPECT_NE(found, old);
  EXPECT_NE(reader->services()->front(), oldService);
}

TEST_P(LinkedRadioContract, RequestsWithoutALinkGoNowhereQuietly) {
  answerServices({{dataService()}});
  const auto service = reader->services()->front();
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  recorder().clear();
  discoverServices(*reader, std::nullopt);
  discoverCharacteristics(*reader, service, std::nullopt);
  discoverCharacteristics(*reader, nullptr, std::nullopt);
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(LinkedRadioContract, AnEarlierLinksServiceCanNotBeAskedFor) {
  answerServices({{dataService()}});
  const auto old = reader->services()->front();
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  ASSERT_TRUE(connectAndWait(*central, reader));
  recorder().clear();
  discoverCharacteristics(*reader, old, std::nullopt);
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(LinkedRadioContract, DiscoveryUnderWayAtTheLinksEndIsAnsweredOnce) {
  answerServices({{dataService()}});
  const auto service = reader->services()->front();
  discoverServices(*reader, std::nullopt);
  discoverCharacteristics(*reader, service, std::nullopt);
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  EXPECT_EQ(count(EventKind::services), 2U);
  EXPECT_EQ(count(EventKind::characteristics), 1U);
}

TEST_P(LinkedRadioContract, TheNameStaysWhatItWasForTheLengthOfALink) {
  const std::string before = bed().readerName();
  scan(*central);
  bed().rename("KVR-2");
  bed().settle();
  EXPECT_EQ(reader->name(), before);
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  EXPECT_EQ(events(EventKind::disconnected)[0].name, before);
  recorder().clear();
  scan(*central);
  ASSERT_TRUE(bed().runUntil([&] { return reader->name() == "KVR-2"; }));
}

TEST_P(LinkedRadioContract, ANameReadFromTheDeviceDoesNotReplaceTheAdvertisedOne) {
  const std::string before = bed().readerName();
  answerServices(std::nullopt);
  bed().settle();
  EXPECT_EQ(reader->name(), before);
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  EXPECT_EQ(events(EventKind::disconnected)[0].name, before);
}

}  // namespace
}  // namespace kestrin::test
