// The command line.
#include "tools/vreader/Options.h"

#include <gtest/gtest.h>

namespace kestrin::vreader {
namespace {

CommandLine parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "kestrin-vreader");
  return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, WithoutDevicesThereAreBothFamiliesAndANonReader) {
  const auto options = parse({}).options;
  ASSERT_TRUE(options);
  ASSERT_EQ(options->devices.size(), 3U);
  EXPECT_EQ(options->devices[0].family, simulated::ReaderFamily::standard);
  EXPECT_EQ(options->devices[1].family, simulated::ReaderFamily::kvrQ62T);
  EXPECT_FALSE(options->devices[2].family);
  EXPECT_EQ(options->vhci, "/dev/vhci");
  EXPECT_FALSE(options->orders);
}

TEST(Options, DevicesAreNumberedReadersFirst) {
  const auto options =
      parse({"--non-reader", "Lamp", "--reader", "KVR-1", "--reader", "KVR-Q62T 1"}).options;
  ASSERT_TRUE(options);
  ASSERT_EQ(options->devices.size(), 3U);
  EXPECT_EQ(options->devices[0].advertisedName, "KVR-1");
  EXPECT_EQ(options->devices[0].id, "1");
  EXPECT_EQ(options->devices[1].address.text(), "C0:DE:00:00:00:02");
  EXPECT_EQ(options->devices[2].advertisedName, "Lamp");
  EXPECT_EQ(options->devices[2].id, "3");
}

TEST(Options, KeysSayWhatElseADeviceIs) {
  std::string problem;
  const auto device = deviceFromText(
      "KVR-1,id=front,family=q62t,address=00:11:22:33:44:55,address-type=public,gap-name=G", true,
      1, problem);
  ASSERT_TRUE(device) << problem;
  EXPECT_EQ(device->id, "front");
  EXPECT_EQ(device->family, simulated::ReaderFamily::kvrQ62T);
  EXPECT_EQ(device->address.text(), "00:11:22:33:44:55");
  EXPECT_EQ(device->address.type, DeviceAddress::Type::publicDevice);
  EXPECT_EQ(device->gapName, "G");
}

TEST(Options, AReadersTxAndTheSizeOfItsRepliesMayBeSaid) {
  std::string problem;
  const auto device = deviceFromText("KVR-1,tx=0x12,reply-size=244", true, 1, problem);
  ASSERT_TRUE(device) << problem;
  EXPECT_EQ(device->txProperties, 0x12U);
  EXPECT_EQ(device->replySize, 244U);
  const auto plain = deviceFromText("KVR-1", true, 1, problem);
  ASSERT_TRUE(plain) << problem;
  EXPECT_FALSE(plain->txProperties);
  EXPECT_EQ(plain->replySize, 20U);
}

TEST(Options, EveryDeviceOrNoneTellsItsNotifications) {
  const auto silent = parse({});
  const auto telling = parse({"--tell-notifications"});
  ASSERT_EQ(silent.options->devices.size(), 3U);
  ASSERT_EQ(telling.options->devices.size(), 3U);
  for (const auto& device : silent.options->devices) EXPECT_FALSE(device.tellsNotifications);
  for (const auto& device : telling.options->devices) EXPECT_TRUE(device.tellsNotifications);
}

TEST(Options, LinksAreLimitedOnDemand) {
  EXPECT_FALSE(parse({}).options->mostLinks);
  EXPECT_EQ(parse({"--most-links", "4"}).options->mostLinks, 4U);
}

TEST(Options, WhatIsSentIsOnTheAirUnlessThatIsNotWanted) {
  EXPECT_EQ(parse({}).options->air, Air::oneMegabit);
  EXPECT_EQ(parse({"--air", "1M"}).options->air, Air::oneMegabit);
  EXPECT_EQ(parse({"--air", "none"}).options->air, Air::none);
}

TEST(Options, AnEmptyNameIsNone) {
  std::string problem;
  const auto device = deviceFromText(",id=nameless", false, 1, problem);
  ASSERT_TRUE(device);
  EXPECT_FALSE(device->advertisedName);
}

TEST(Options, WrongUsageEndsWithStatus2AndSaysWhatIsWrong) {
  const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
      {{"--reader", "K,family=blue"}, "there is no family \"blue\""},
      {{"--reader", "K,colour=blue"}, "there is no key \"colour\""},
      {{"--reader", "K,id="}, "an id is one word"},
      {{"--reader", "K,address=12"}, "\"12\" is not an address"},
      {{"--reader", "K,address-type=secret"}, "an address type is public or random"},
      {{"--non-reader", "L,family=standard"}, "what is not a reader has no family"},
      {{"--reader", "K,tx=0x01"}, "a mask is a sum of"},
      {{"--reader", "K,tx=0x40"}, "a mask is a sum of"},
      {{"--reader", "K,tx=all"}, "a mask is a sum of"},
      {{"--non-reader", "L,tx=0x08"}, "what is not a reader has no such characteristic"},
      {{"--reader", "K,reply-size=0"}, "a reply is cut into 1 to 512 bytes"},
      {{"--reader", "K,reply-size=513"}, "a reply is cut into 1 to 512 bytes"},
      {{"--non-reader", "L,reply-size=20"}, "what is not a reader does not reply"},
      {{"--reader", "K,id=a", "--reader", "L,id=a"}, "two devices have the id a"},
      {{"--reader", "K", "--non-reader", "L,address=C0:DE:00:00:00:01"},
       "two devices have the address C0:DE:00:00:00:01"},
      {{"--colour"}, "'--colour' is not an option of kestrin-vreader (kest"},
      {{"--raeder", "K"}, "'--raeder' is not an option of kestrin-vreader; did you mean --reader?"},
      {{"--order=P"}, "'--order' is not an option of kestrin-vreader; did you mean --orders?"},
      {{"reader"}, "'reader' is not expected here"},
      {{"--reader", "K,familiy=q62t"}, "there is no key \"familiy\"; did you mean family?"},
      {{"--reader", "K,\x1b[2J=1"}, "there is no key \"\\x1b[2J\""},
      {{"--most-links", "0"}, "--most-links"},
      {{"--air", "2M"}, "--air"},
  };
  for (const auto& [arguments, text] : cases) {
    const auto line = parse(arguments);
    EXPECT_FALSE(line.options) << text;
    EXPECT_EQ(line.exitStatus, 2) << text;
    EXPECT_NE(line.text.find(text), std::string::npos) << line.text;
    EXPECT_EQ(line.text.find('\n'), line.text.size() - 1) << "one line: " << line.text;
  }
}

TEST(Options, HelpEndsWithStatus0AndExplainsDevicesAndOrders) {
  const auto line = parse({"--help"});
  EXPECT_FALSE(line.options);
  EXPECT_EQ(line.exitStatus, 0);
  for (const char* text : {"--reader", "family=standard|q62t", "burst DEVICE", "hci_vhci"}) {
    EXPECT_NE(line.text.find(text), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace kestrin::vreader
