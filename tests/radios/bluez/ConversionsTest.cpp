#include "Conversions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Errors.h"

namespace kestrin::bluez {
namespace {

using sdbus::Variant;
using Texts = std::vector<std::string>;

PropertyMap deviceMap() {
  return {{"Address", Variant(std::string("C0:DE:00:00:00:01"))},
          {"Name", Variant(std::string("KVR-1"))},
          {"RSSI", Variant(std::int16_t{-60})},
          {"Connected", Variant(true)},
          {"ServicesResolved", Variant(true)},
          {"UUIDs", Variant(Texts{"0000180a-0000-1000-8000-00805f9b34fb", "no uuid"})}};
}

TEST(Conversions, ADeviceTakesEveryPropertyThatCounts) {
  DeviceObject device;
  const auto change = update(device, deviceMap(), {});
  EXPECT_EQ(device.address, "C0:DE:00:00:00:01");
  EXPECT_EQ(device.name, "KVR-1");
  EXPECT_EQ(device.rssi, -60);
  EXPECT_TRUE(device.connected);
  EXPECT_TRUE(device.servicesResolved);
  ASSERT_EQ(device.serviceUUIDs.size(), 1U);
  EXPECT_EQ(device.serviceUUIDs[0].UUIDString(), "180A");
  EXPECT_TRUE(change.seen);
  EXPECT_TRUE(change.named);
  EXPECT_EQ(change.connected, true);
  EXPECT_EQ(change.servicesResolved, true);
}

TEST(Conversions, OnlyASignalStrengthSaysThatADeviceWasSeen) {
  DeviceObject device;
  EXPECT_FALSE(update(device, {{"Name", Variant(std::string("KVR-1"))}}, {}).seen);
  EXPECT_TRUE(update(device, {{"RSSI", Variant(std::int16_t{-1})}}, {}).seen);
  EXPECT_FALSE(update(device, {}, {"RSSI"}).seen);
  EXPECT_FALSE(device.rssi);
}

TEST(Conversions, ANameIsNewsOnlyWhenItChanges) {
  DeviceObject device;
  EXPECT_TRUE(update(device, {{"Name", Variant(std::string("A"))}}, {}).named);
  EXPECT_FALSE(update(device, {{"Name", Variant(std::string("A"))}}, {}).named);
  EXPECT_TRUE(update(device, {}, {"Name"}).named);
  EXPECT_FALSE(device.name);
  EXPECT_FALSE(update(device, {}, {"Name"}).named);
}

TEST(Conversions, AnAliasIsNoName) {
  DeviceObject device;
  update(device, {{"Alias", Variant(std::string("C0-DE-00-00-00-01"))}}, {});
  EXPECT_FALSE(device.name);
}

TEST(Conversions, APropertyOfAnotherTypeIsNotSaid) {
  DeviceObject device;
  update(device, deviceMap(), {});
  const auto change = update(device,
                             {{"Address", Variant(1.5)},
                              {"Name", Variant(Texts{"x"})},
                              {"RSSI", Variant(std::int32_t{-1})},
                              {"Connected", Variant(std::string("no"))},
                              {"ServicesResolved", Variant(std::uint8_t{0})},
                              {"UUIDs", Variant(std::string("180a"))}},
                             {});
  EXPECT_EQ(device.address, "C0:DE:00:00:00:01");
  EXPECT_EQ(device.name, "KVR-1");
  EXPECT_EQ(device.rssi, -60);
  EXPECT_TRUE(device.connected);
  EXPECT_EQ(device.serviceUUIDs.size(), 1U);
  EXPECT_FALSE(change.seen || change.named || change.connected || change.servicesResolved);
}

TEST(Conversions, AdaptersServicesAndCharacteristicsIgnoreWhatIsMalformed) {
  AdapterObject adapter{.powered = true};
  update(adapter, {{"Powered", Variant(std::int32_t{0})}});
  EXPECT_TRUE(adapter.powered);
  ServiceObject service;
  update(service, {{"UUID", Variant(std::string("ba82"))}});
  ASSERT_TRUE(service.uuid);
  EXPECT_EQ(service.uuid->UUIDString(), "BA82");
  update(service, {{"UUID", Variant(std::string("not a uuid"))}});
  EXPECT_EQ(service.uuid->UUIDString(), "BA82");
  CharacteristicObject characteristic;
  update(characteristic, {{"Flags", Variant(Texts{"read"})}, {"Notifying", Variant(true)}});
  update(characteristic, {{"Flags", Variant(true)}, {"Notifying", Variant(std::string())}});
  EXPECT_EQ(characteristic.properties, CBCharacteristicPropertyRead);
  EXPECT_TRUE(characteristic.notifying);
  EXPECT_FALSE(characteristic.uuid);
}

TEST(Conversions, UUIDTextTakesItsCanonicalForm) {
  ServiceObject service;
  update(service, {{"UUID", Variant(std::string("ba821000-3b5b-4654-85fe-e998b123adea"))}});
  EXPECT_EQ(service.uuid->UUIDString(), "BA821000-3B5B-4654-85FE-E998B123ADEA");
  update(service, {{"UUID", Variant(std::string("0000fff1-0000-1000-8000-00805f9b34fb"))}});
  EXPECT_EQ(service.uuid->UUIDString(), "FFF1");
}

TEST(Conversions, FlagsBecomeTheMaskOfTheirBits) {
  EXPECT_EQ(propertiesOfFlags({}), 0U);
  EXPECT_EQ(propertiesOfFlags({"broadcast", "read", "write-without-response", "write", "notify",
                               "indicate", "authenticated-signed-writes"}),
            0x7FU);
  EXPECT_EQ(propertiesOfFlags({"read", "notify"}), 0x12U);
  EXPECT_EQ(propertiesOfFlags({"reliable-write", "", "Write"}), 0U);
}

TEST(Conversions, AValueIsBytesAndNothingElse) {
  using Bytes = std::vector<std::uint8_t>;
  EXPECT_EQ(valueOf({{"Value", Variant(Bytes{1, 2})}}), Bytes({1, 2}));
  EXPECT_EQ(valueOf({{"Value", Variant(Bytes{})}}), Bytes{});
  EXPECT_FALSE(valueOf({{"Value", Variant(std::string("12"))}}));
  EXPECT_FALSE(valueOf({}));
}

TEST(Conversions, PathsTellParentsHandlesAndAddresses) {
  EXPECT_EQ(parentPath("/org/bluez/hci0/dev_1"), "/org/bluez/hci0");
  EXPECT_EQ(parentPath("none"), "");
  EXPECT_EQ(lastElement("/a/b"), "b");
  EXPECT_EQ(lastElement("b"), "b");
  EXPECT_EQ(handleOfPath("/x/service0010"), 0x10);
  EXPECT_EQ(handleOfPath("/x/service0010/char002a"), 0x2a);
  for (const char* wrong : {"/x/char", "/x/char002g", "/x/char12345", "/x/desc0001", "", "/"}) {
    EXPECT_FALSE(handleOfPath(wrong)) << wrong;
  }
  EXPECT_EQ(addressOfPath("/org/bluez/hci0/dev_C0_DE_00_00_00_01"), "C0:DE:00:00:00:01");
  EXPECT_EQ(addressOfPath("/org/bluez/hci0/something"), "something");
  EXPECT_EQ(addressOfPath("/org/bluez/hci0/dev_C0"), "dev_C0");
}

TEST(Conversions, HandleOrderIsByNumberAndPathsWithoutOneComeLast) {
  EXPECT_TRUE(handleOrder("/d/service000f", "/d/service0010"));
  EXPECT_TRUE(handleOrder("/d/servicef", "/d/service0010"));
  EXPECT_FALSE(handleOrder("/d/service0010", "/d/service000f"));
  EXPECT_TRUE(handleOrder("/d/serviceffff", "/d/odd"));
  EXPECT_FALSE(handleOrder("/d/odd", "/d/odd"));
}

TEST(Conversions, TheAdapterIsTheWantedOneElseTheFirstPoweredElseTheFirst) {
  const std::string first = "/org/bluez/hci0";
  const std::string second = "/org/bluez/hci2";
  const std::string tenth = "/org/bluez/hci10";
  std::map<std::string, AdapterObject> adapters{{first, {}}, {second, {}}, {tenth, {}}};
  EXPECT_EQ(chooseAdapter(adapters, std::nullopt, "", false), first);
  adapters[tenth].powered = true;
  EXPECT_EQ(chooseAdapter(adapters, std::nullopt, "", false), tenth);
  adapters[second].powered = true;
  EXPECT_EQ(chooseAdapter(adapters, std::nullopt, "", false), second) << "2 comes before 10";
  EXPECT_EQ(chooseAdapter(adapters, "hci10", second, true), tenth);
  EXPECT_EQ(chooseAdapter(adapters, "hci7", second, true), "");
  EXPECT_EQ(chooseAdapter({}, std::nullopt, second, true), "");
}

TEST(Conversions, TheAdapterInUseStaysWhileItIsOrWasPowered) {
  const std::string first = "/org/bluez/hci0";
  const std::string second = "/org/bluez/hci1";
  std::map<std::string, AdapterObject> adapters{{first, {.powered = true}}, {second, {}}};
  EXPECT_EQ(chooseAdapter(adapters, std::nullopt, second, true), second);
  EXPECT_EQ(chooseAdapter(adapters, std::nullopt, second, false), first);
  EXPECT_EQ(chooseAdapter(adapters, std::nullopt, "/org/bluez/hci9", true), first);
}

TEST(Conversions, AnAttErrorKeepsItsCode) {
  const NSError error =
      errorOf({"org.bluez.Error.Failed", "Operation failed with ATT error: 0x0e"});
  EXPECT_EQ(error.domain, CBATTErrorDomain);
  EXPECT_EQ(error.code, 0x0e);
  for (const char* text : {"Not connected", "ATT error: 0x", "ATT error: 0xzz", ""}) {
    EXPECT_EQ(errorOf({"org.bluez.Error.Failed", text}).domain, CBErrorDomain) << text;
  }
}

TEST(Conversions, AnErrorAlwaysSaysSomething) {
  EXPECT_EQ(errorOf({"org.bluez.Error.Failed", "Not connected"}).text, "Not connected");
  EXPECT_EQ(errorOf({"org.bluez.Error.Failed", ""}).text, "org.bluez.Error.Failed");
  EXPECT_FALSE(errorOf({"", ""}).text.empty());
}

TEST(Conversions, RefusalsAreToldFromOtherErrors) {
  EXPECT_TRUE(isRefusal({"org.freedesktop.DBus.Error.AccessDenied", ""}));
  EXPECT_TRUE(isRefusal({"org.freedesktop.DBus.Error.AuthFailed", ""}));
  EXPECT_TRUE(isRefusal({"org.bluez.Error.NotAuthorized", ""}));
  EXPECT_FALSE(isRefusal({"org.bluez.Error.NotPermitted", ""}));
  EXPECT_TRUE(isDaemonError({"org.bluez.Error.Failed", ""}, "Failed"));
  EXPECT_FALSE(isDaemonError({"org.bluez.Error.FailedToo", ""}, "Failed"));
  EXPECT_FALSE(isDaemonError({"org.other.Error.Failed", ""}, "Failed"));
}

}  // namespace
}  // namespace kestrin::bluez
