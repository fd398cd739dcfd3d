// A small attribute database and an application that records, for tests of the ATT server.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tools/vreader/AttServer.h"

namespace kestrin::vreader {

class RecordingApplication final : public AttServer::Application {
 public:
  std::optional<std::uint8_t> refusal(AttServer::Access access) override {
    const auto found = refusals.find(access);
    return found == refusals.end() ? std::nullopt : std::optional(found->second);
  }
  void wasRead(const Attribute& attribute) override {
    events.push_back("read " + attribute.characteristic.UUIDString());
  }
  void wasWritten(const Attribute& attribute, ByteView value, AttServer::WriteType type) override {
    const bool isCommand = type == AttServer::WriteType::command;
    events.push_back((isCommand ? "command " : "write ") + attribute.characteristic.UUIDString() +
                     " " + hex(value));
  }
  void writeNotPermitted(const Attribute& attribute, ByteView value) override {
    events.push_back("not permitted " + attribute.characteristic.UUIDString() + " " + hex(value));
  }
  void subscriptionChanged(const Attribute& configuration, unsigned bits) override {
    events.push_back("subscribe " + configuration.characteristic.UUIDString() + " " +
                     std::to_string(bits));
  }
  void mtuExchanged(std::size_t mtu) override { events.push_back("mtu " + std::to_string(mtu)); }

  std::map<AttServer::Access, std::uint8_t> refusals;
  std::vector<std::string> events;
};

/// Handles: 1 service 1800, 2 and 3 name; 4 service 180F (battery), 5 and 6 level; 7 service FFF0,
/// 8 and 9 FFF1 (notify) with configuration 10, 11 and 12 FFF2 (write and write without response);
/// 13 a service of 128 bits, 14 and 15 a characteristic of 128 bits (indicate) with
/// configuration 16.
class AttServerTest : public testing::Test {
 protected:
  AttServerTest() {
    database.addService(CBUUID(0x1800));
    database.addCharacteristic(CBUUID(0x2A00), att::kPropertyRead, {'N', 'a', 'm', 'e'});
    database.addService(CBUUID(0x180F));
    database.addCharacteristic(CBUUID(0x2A19), att::kPropertyRead, Bytes(60, 0x55));
    database.addService(CBUUID(0xFFF0));
    database.addCharacteristic(CBUUID(0xFFF1), att::kPropertyNotify);
    database.addCharacteristic(CBUUID(0xFFF2),
                               att::kPropertyWrite | att::kPropertyWriteWithoutResponse);
    database.addService(CBUUID::UUIDWithString("BA821000-3B5B-4654-85FE-E998B123ADEA").value());
    database.addCharacteristic(
        CBUUID::UUIDWithString("BA821002-3B5B-4654-85FE-E998B123ADEA").value(),
        att::kPropertyIndicate);
  }

  /// The answer to a request as hexadecimal text; "none" when there is none.
  std::string ask(const Bytes& request) {
    const auto answer = server.answer(request);
    if (!answer) return "none";
    EXPECT_LE(answer->size(), server.mtu());
    return hex(*answer);
  }
  /// Raises the MTU to the largest.
  void exchangeMtu() { ask({0x02, 0x05, 0x02}); }

  AttributeDatabase database;
  RecordingApplication application;
  AttServer server{database, application};
};

}  // namespace kestrin::vreader
