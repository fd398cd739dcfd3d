// What a gateway comes to its broker with, and what it does not send.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "gateway/support/TestFolder.h"
#include "tools/gateway/broker/BrokerAccess.h"

namespace kestrin::gateway {
namespace {

using testing::HasSubstr;

BrokerConfig at(const std::string& host) {
  BrokerConfig config;
  config.host = host;
  config.port = 1883;
  return config;
}

TEST(BrokerAccess, TheClientIdIsMadeOfTheGatewaysNameAndNothingElse) {
  EXPECT_EQ(clientIdOf("dock-3"), "kestrin-gateway-dock-3");
  EXPECT_EQ(clientIdOf(""), "");
}

TEST(BrokerAccess, WithoutANameNoConnectionIsTried) {
  EXPECT_FALSE(whyNotTried(at("localhost"), clientIdOf("a")));
  EXPECT_THAT(whyNotTried(at("localhost"), clientIdOf("")).value_or(""), HasSubstr("no name"));
}

TEST(BrokerAccess, APasswordTravelsEncryptedOrNotAtAllExceptToThisMachine) {
  for (const char* host : {"localhost", "127.0.0.1", "127.8.9.10", "::1"}) {
    BrokerConfig config = at(host);
    config.user = "gate";
    config.passwordFile = "/somewhere";
    EXPECT_FALSE(whyNotTried(config, "id")) << host;
  }
  for (const char* host :
       {"mqtt.example", "10.0.0.1", "127.evil.example", "localhost.example", "::2", "1127.0.0.1"}) {
    BrokerConfig config = at(host);
    config.user = "gate";
    EXPECT_FALSE(whyNotTried(config, "id")) << host;
    config.passwordFile = "/somewhere";
    EXPECT_THAT(whyNotTried(config, "id").value_or(""), HasSubstr("not encrypted")) << host;
    config.tls.on = true;
    EXPECT_FALSE(whyNotTried(config, "id")) << host;
  }
}

TEST(BrokerAccess, WhatBelongsTogetherIsGivenTogether) {
  BrokerConfig config = at("localhost");
  config.passwordFile = "/somewhere";
  EXPECT_THAT(whyNotTried(config, "id").value_or(""), HasSubstr("name the user too"));
  config = at("localhost");
  config.tls.on = true;
  config.tls.certificateFile = "/somewhere";
  EXPECT_THAT(whyNotTried(config, "id").value_or(""), HasSubstr("belong together"));
  config.tls.keyFile = "/elsewhere";
  EXPECT_FALSE(whyNotTried(config, "id"));
}

TEST(BrokerAccess, AKeepAliveThatTheClientLibraryDoesNotTakeIsNamed) {
  for (const auto& [seconds, isRight] :
       {std::pair(4, false), {5, true}, {65535, true}, {65536, false}}) {
    BrokerConfig config = at("localhost");
    config.keepAlive = std::chrono::seconds(seconds);
    EXPECT_EQ(!whyNotTried(config, "id").has_value(), isRight) << seconds;
  }
}

TEST(BrokerAccess, ThePasswordIsTheOneLineOfItsFile) {
  const TestFolder folder;
  std::string error;
  EXPECT_EQ(passwordIn(folder.write("a", "secret\n"), error), "secret");
  EXPECT_EQ(passwordIn(folder.write("b", " se cret \r\n"), error), " se cret ");
  EXPECT_EQ(passwordIn(folder.write("c", "secret"), error), "secret");
  EXPECT_EQ(error, "");
  EXPECT_FALSE(passwordIn(folder.write("d", "secret\nmore\n"), error));
  EXPECT_THAT(error, HasSubstr("more than one line"));
  EXPECT_FALSE(passwordIn(folder.write("e", "\n"), error));
  EXPECT_THAT(error, HasSubstr("is empty"));
  EXPECT_FALSE(passwordIn(folder.pathOf("missing"), error));
  EXPECT_THAT(error, HasSubstr("cannot be read"));
}

TEST(BrokerAccess, AnAddressWithColonsIsShownInBrackets) {
  EXPECT_EQ(brokerText(at("mqtt.example")), "broker mqtt.example:1883");
  EXPECT_EQ(brokerText(at("::1")), "broker [::1]:1883");
}

}  // namespace
}  // namespace kestrin::gateway
