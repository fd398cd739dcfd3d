// Encrypted connections: whose certificate is believed, and what is said when it is not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "gateway/broker/BrokerPeer.h"
#include "gateway/support/MosquittoProcess.h"
#include "gateway/support/TestCertificates.h"

namespace kestrin::gateway {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class MosquittoTlsTest : public testing::Test {
 protected:
  void startBroker(const CertificateFiles& server, const std::string& more = "") {
    ASSERT_FALSE(certificates.failure()) << *certificates.failure();
    mosquitto.configure("allow_anonymous true\ncafile " + certificates.authority() + "\ncertfile " +
                        server.certificate + "\nkeyfile " + server.key + "\n" + more);
    const auto failure = mosquitto.start();
    ASSERT_FALSE(failure) << *failure;
  }
  BrokerSettings settings() {
    BrokerSettings made = settingsFor(mosquitto.port());
    made.config.host = "localhost";
    made.config.tls.on = true;
    made.config.tls.caFile = certificates.authority();
    return made;
  }
  std::string failureWith(const BrokerSettings& chosen) {
    BrokerPeer peer(loop, chosen);
    peer.start();
    EXPECT_TRUE(peer.goesDown());
    EXPECT_TRUE(peer.ups.empty());
    EXPECT_THAT(peer.lastDown(), Not(HasSubstr("\n")));
    return peer.lastDown();
  }
  bool works(const BrokerSettings& chosen) {
    BrokerPeer peer(loop, chosen);
    peer.start({"a"});
    return waitUntil(loop, [&] { return !peer.ups.empty() || !peer.downs.empty(); }) &&
           !peer.ups.empty() && peer.isAcknowledged(peer.broker->publish({"a", "x"})) &&
           peer.receives(1);
  }

  Loop loop = std::make_shared<MainRunLoop>();
  TestCertificates certificates;
  MosquittoProcess mosquitto;
};

TEST_F(MosquittoTlsTest, ACertificateOfTheGivenAuthorityForTheHostIsBelieved) {
  startBroker(certificates.makeFor("localhost"));
  EXPECT_TRUE(works(settings()));
}

TEST_F(MosquittoTlsTest, ACertificateOfAnotherAuthorityIsNotTrusted) {
  startBroker(certificates.makeFor("localhost"));
  const TestCertificates others;
  BrokerSettings chosen = settings();
  chosen.config.tls.caFile = others.authority();
  EXPECT_THAT(failureWith(chosen), HasSubstr("is not signed by " + others.authority()));
  chosen.config.tls.caFile.reset();
  EXPECT_THAT(failureWith(chosen), HasSubstr("not signed by an authority that this system knows"));
}

TEST_F(MosquittoTlsTest, AnExpiredCertificateIsNotTrusted) {
  startBroker(certificates.makeExpiredFor("localhost"));
  EXPECT_THAT(failureWith(settings()), HasSubstr("its certificate is not trusted: it has expired"));
}

TEST_F(MosquittoTlsTest, ACertificateForAnotherHostIsNotBelieved) {
  startBroker(certificates.makeFor("elsewhere.example"));
  EXPECT_THAT(failureWith(settings()), HasSubstr("its certificate is not for \"localhost\""));
}

TEST_F(MosquittoTlsTest, APortWithoutTlsIsNamed) {
  ASSERT_FALSE(mosquitto.start());
  EXPECT_THAT(failureWith(settings()), HasSubstr("TLS"));
}

TEST_F(MosquittoTlsTest, APortWithTlsIsNotSpokenToWithout) {
  startBroker(certificates.makeFor("localhost"));
  BrokerSettings chosen = settings();
  chosen.config.tls = {};
  EXPECT_THAT(failureWith(chosen), HasSubstr("broker localhost"));
}

TEST_F(MosquittoTlsTest, AClientCertificateIsGivenWhereTheBrokerWantsOne) {
  startBroker(certificates.makeFor("localhost"), "require_certificate true\n");
  // The broker may be gone before its word is read.
  EXPECT_THAT(failureWith(settings()), AnyOf(HasSubstr("it wants a client certificate"),
                                             HasSubstr("it may want a client certificate")));
  const CertificateFiles client = certificates.makeFor("gate-1");
  BrokerSettings chosen = settings();
  chosen.config.tls.certificateFile = client.certificate;
  chosen.config.tls.keyFile = client.key;
  EXPECT_TRUE(works(chosen));
  TestCertificates others;
  const CertificateFiles unknown = others.makeFor("gate-1");
  chosen.config.tls.certificateFile = unknown.certificate;
  chosen.config.tls.keyFile = unknown.key;
  EXPECT_THAT(failureWith(chosen), HasSubstr("it may not accept the client certificate"));
  chosen.config.tls.keyFile = client.key;
  EXPECT_THAT(failureWith(chosen), HasSubstr("key"));
  chosen.config.tls.keyFile = certificates.folder().pathOf("missing");
  EXPECT_THAT(failureWith(chosen), HasSubstr("cannot be read"));
}

TEST_F(MosquittoTlsTest, CertificatesThatChangeAreReadAgainWithoutTheWill) {
  startBroker(certificates.makeFor("localhost"),
              "require_certificate true\nuse_identity_as_username true\n");
  const CertificateFiles first = certificates.makeFor("gate-1");
  const CertificateFiles second = certificates.makeFor("gate-2");
  BrokerSettings chosen = settings();
  chosen.config.tls.certificateFile = first.certificate;
  chosen.config.tls.keyFile = first.key;
  BrokerPeer peer(loop, chosen);
  peer.start({"state"}, Message{.topic = "state", .payload = "offline", .retain = true});
  ASSERT_TRUE(peer.comesUp());
  EXPECT_THAT(mosquitto.output(), HasSubstr("u'gate-1'"));
  std::filesystem::rename(second.certificate, first.certificate);
  std::filesystem::rename(second.key, first.key);
  peer.broker->reloadCertificates();
  EXPECT_FALSE(peer.broker->publish({"a", "x"}));
  ASSERT_TRUE(peer.comesUp(2));
  EXPECT_THAT(mosquitto.output(), HasSubstr("u'gate-2'"));
  EXPECT_EQ(peer.downs.size(), 1U);
  EXPECT_THAT(peer.lastDown(), HasSubstr("to read certificates and keys again"));
  EXPECT_TRUE(peer.isAcknowledged(peer.broker->publish({"state", "x"})));
  ASSERT_TRUE(peer.receives(1));
  EXPECT_EQ(peer.messages.front().payload, "x") << "the will was published";
}

TEST_F(MosquittoTlsTest, CertificatesThatAreMendedEndALongPause) {
  startBroker(certificates.makeFor("localhost"));
  BrokerSettings chosen = settings();
  chosen.pauses.first = std::chrono::hours(1);
  chosen.pauses.longest = std::chrono::hours(1);
  chosen.config.tls.caFile = certificates.folder().pathOf("later");
  BrokerPeer peer(loop, chosen);
  peer.start();
  ASSERT_TRUE(peer.goesDown());
  EXPECT_THAT(peer.lastDown(), HasSubstr("cannot be read"));
  std::filesystem::copy(certificates.authority(), *chosen.config.tls.caFile);
  peer.broker->reloadCertificates();
  EXPECT_TRUE(peer.comesUp());
}

}  // namespace
}  // namespace kestrin::gateway
