#include "ObjectTree.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kestrin::bluez {
namespace {

using sdbus::Variant;
using Paths = std::vector<std::string>;

constexpr char kAdapter[] = "org.bluez.Adapter1";
constexpr char kDevice[] = "org.bluez.Device1";
constexpr char kService[] = "org.bluez.GattService1";
constexpr char kCharacteristic[] = "org.bluez.GattCharacteristic1";
const std::string kReader = "/org/bluez/hci0/dev_C0_DE_00_00_00_01";

InterfaceMap withUuid(const char* interface, const std::string& uuid) {
  return {{interface, {{"UUID", Variant(uuid)}}}};
}

class ObjectTreeTest : public testing::Test {
 protected:
  ObjectTree tree;
};

TEST_F(ObjectTreeTest, AnnouncedObjectsAreKnownAndTold) {
  const auto news = tree.add(kReader, {{kDevice, {{"Connected", Variant(true)}}},
                                       {"org.freedesktop.DBus.Properties", {}}});
  ASSERT_EQ(news.size(), 1U);
  EXPECT_EQ(news[0].kind, ObjectKind::device);
  EXPECT_EQ(news[0].device.connected, true);
  ASSERT_NE(tree.device(kReader), nullptr);
  EXPECT_EQ(tree.device(kReader)->address, "C0:DE:00:00:00:01") << "taken from the path";
}

TEST_F(ObjectTreeTest, WhatWasNeverAnnouncedDoesNotChange) {
  for (const char* interface : {kAdapter, kDevice, kService, kCharacteristic, "org.other"}) {
    EXPECT_EQ(tree.change(kReader, interface, {{"Connected", Variant(true)}}, {}).kind,
              ObjectKind::none);
  }
  EXPECT_TRUE(tree.devices().empty());
  EXPECT_TRUE(tree.remove(kReader, {kDevice}).empty());
}

TEST_F(ObjectTreeTest, ChangesReachTheirObject) {
  tree.add("/org/bluez/hci0", {{kAdapter, {}}});
  EXPECT_FALSE(tree.adapter("/org/bluez/hci0")->powered);
  tree.change("/org/bluez/hci0", kAdapter, {{"Powered", Variant(true)}}, {});
  EXPECT_TRUE(tree.adapter("/org/bluez/hci0")->powered);
  tree.add(kReader, {{kDevice, {{"RSSI", Variant(std::int16_t{-9})}}}});
  tree.change(kReader, kDevice, {}, {"RSSI"});
  EXPECT_FALSE(tree.device(kReader)->rssi);
}

TEST_F(ObjectTreeTest, ChildrenComeInHandleOrderWithoutNamelessAndForeignOnes) {
  const std::string other = kReader + "F";
  tree.add(kReader + "/service0100", withUuid(kService, "1801"));
  tree.add(kReader + "/service000a", withUuid(kService, "1800"));
  tree.add(kReader + "/service0020", withUuid(kService, "no uuid"));
  tree.add(other + "/service0001", withUuid(kService, "180f"));
  tree.add(kReader + "/service000a/char000b", withUuid(kService, "1802"));
  EXPECT_EQ(tree.servicesOf(kReader), Paths({kReader + "/service000a", kReader + "/service0100"}));
  const std::string service = kReader + "/service000a";
  tree.add(service + "/char0010", withUuid(kCharacteristic, "fff2"));
  tree.add(service + "/char000c", withUuid(kCharacteristic, "fff1"));
  tree.add(service + "/char000c/desc000d", withUuid(kCharacteristic, "2902"));
  EXPECT_EQ(tree.characteristicsOf(service), Paths({service + "/char000c", service + "/char0010"}));
}

TEST_F(ObjectTreeTest, RemovedInterfacesTakeTheirObjectWithThem) {
  tree.add(kReader, {{kDevice, {}}});
  EXPECT_TRUE(tree.remove(kReader, {"org.other"}).empty());
  EXPECT_EQ(tree.remove(kReader, {"org.other", kDevice}),
            std::vector<ObjectKind>({ObjectKind::device}));
  EXPECT_EQ(tree.device(kReader), nullptr);
}

TEST_F(ObjectTreeTest, ReplacingForgetsWhatIsNotListed) {
  tree.add("/org/bluez/hci0", {{kAdapter, {}}});
  tree.replace({{sdbus::ObjectPath(kReader), {{kDevice, {}}}}});
  EXPECT_TRUE(tree.adapters().empty());
  EXPECT_EQ(tree.devices().size(), 1U);
}

TEST_F(ObjectTreeTest, ReplacingServicesTouchesOneDeviceOnly) {
  const std::string other = "/org/bluez/hci0/dev_C0_DE_00_00_00_02";
  tree.add(kReader + "/service0001", withUuid(kService, "1800"));
  tree.add(kReader + "/service0001/char0002", withUuid(kCharacteristic, "2a00"));
  tree.add(other + "/service0001", withUuid(kService, "1800"));
  tree.replaceServices(kReader,
                       {{sdbus::ObjectPath(kReader + "/service0009"), withUuid(kService, "1801")},
                        {sdbus::ObjectPath(other + "/service0009"), withUuid(kService, "1801")}});
  EXPECT_EQ(tree.servicesOf(kReader), Paths({kReader + "/service0009"}));
  EXPECT_EQ(tree.servicesOf(other), Paths({other + "/service0001"}));
  EXPECT_EQ(tree.characteristic(kReader + "/service0001/char0002"), nullptr);
}

}  // namespace
}  // namespace kestrin::bluez
