// What a configuration that is right becomes, and what of it a reload can take up.
#include <fstream>
#include <iterator>

#include "gateway/config/ConfigTexts.h"

namespace kestrin::gateway {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

TEST(Config, TheLeastThatItNeedsLeavesEverythingElseAtWhatIsUsual) {
  Config usual;
  usual.name = "dock";
  usual.log.folder = "/log";
  usual.broker.host = "localhost";
  usual.broker.port = 1883;
  usual.readers = {{"KVR-0417", false}};
  EXPECT_EQ(configOf(ConfigText{}.text()), usual);
}

TEST(Config, TakesEveryKey) {
  const Config config = configOf(R"([gateway]
name = "Dock_4-b"
format = "cbor"
consumers = ["stock", "audit"]
[radio]
kind = "simulated"
script = "/readers"
[log]
directory = "/log"
budget = "4 GiB"
sync = "20 ms"
[broker]
host = "broker.example"
port = 1234
protocol = "3.1.1"
user = "me"
password_file = "/password"
keep_alive = "2 min"
window = 7
[broker.tls]
ca = "/ca"
certificate = "/certificate"
key = "/key"
[[reader]]
address = "c0:00:00:00:00:0a"
[[reader]]
name = "Lager Süd"
[[webhook]]
name = "erp"
url = "https://erp.example:8443/frames?site=4"
token_file = "/token"
headers_file = "/headers"
ca = "/erp-ca"
batch = 20
timeout = "5 s"
[[webhook]]
name = "local"
url = "http://[::1]:80"
)");
  Config whole;
  whole.name = "Dock_4-b";
  whole.format = FrameFormat::cbor;
  whole.consumers = {"stock", "audit"};
  whole.radio = RadioChoice::simulated;
  whole.simulatedScript = "/readers";
  whole.log = {"/log", 4ULL << 30U, 20ms};
  whole.broker = {"broker.example", 1234, 4, "me",
                  "/password",      120s, 7, {true, "/ca", "/certificate", "/key"}};
  whole.readers = {{"C0:00:00:00:00:0A", true}, {"Lager Süd", false}};
  whole.webhooks = {
      {"erp", "https://erp.example:8443/frames?site=4", "/token", "/headers", "/erp-ca", 20, 5s},
      {"local", "http://[::1]:80"}};
  EXPECT_EQ(config, whole);
}

TEST(Config, TheExampleIsRightAsItStandsAndWithEveryCommentedKey) {
  std::ifstream file(KESTRIN_EXAMPLE_CONFIG);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  const Config config = configOf(text);
  EXPECT_EQ(config.name, "warehouse-3");
  EXPECT_EQ(config.readers.size(), 2U);
  // What is commented out says what holds without it, but for the adapter, the simulated radio's
  // script, the page's names and token, and the webhook.
  std::size_t keys = 0;
  for (std::size_t at = text.find("\n#"); at != std::string::npos; at = text.find("\n#", at + 1)) {
    const bool key = at + 2 < text.size() && text[at + 2] >= 'a' && text[at + 2] <= 'z';
    const bool isSection = text.compare(at + 2, 2, "[[") == 0;
    if (!(key || isSection) || text.compare(at + 2, 6, "script") == 0) continue;
    text.erase(at + 1, 1);
    ++keys;
  }
  EXPECT_EQ(keys, 24U);
  Config adapted = config;
  adapted.adapter = "hci0";
  adapted.page.names = {"gateway.example"};
  adapted.page.tokenFile = "page.token";
  adapted.webhooks = {
      {"erp", "https://erp.example/frames", "webhook.token", "webhook.headers", "ca.pem"}};
  EXPECT_EQ(configOf(text), adapted);
}

TEST(Config, ABudgetIsASizeOrANumberOfBytes) {
  ConfigText text;
  const auto budget = [&text](const std::string& value) {
    text.log = "[log]\ndirectory = \"/log\"\nbudget = " + value + "\n";
    return configOf(text.text()).log.budget;
  };
  EXPECT_EQ(budget("\"1 MiB\""), 1U << 20U);
  EXPECT_EQ(budget("1048576"), 1U << 20U);
  EXPECT_EQ(budget("\"10TB\""), 10'000'000'000'000U);
}

TEST(Config, ASyncOfNothingMeansEachRecord) {
  ConfigText text;
  text.log += "sync = 0\n";
  EXPECT_EQ(configOf(text.text()).log.syncInterval, 0ms);
  text.log = "[log]\ndirectory = \"/log\"\nsync = \"0 ms\"\n";
  EXPECT_EQ(configOf(text.text()).log.syncInterval, 0ms);
}

TEST(Config, TlsIsOnWhereItsSectionStandsAndDecidesThePort) {
  ConfigText text;
  text.broker += "[broker.tls]\n";
  EXPECT_TRUE(configOf(text.text()).broker.tls.on);
  EXPECT_EQ(configOf(text.text()).broker.port, 8883);
  text.broker += "on = false\n";
  EXPECT_FALSE(configOf(text.text()).broker.tls.on);
  EXPECT_EQ(configOf(text.text()).broker.port, 1883);
}

TEST(Config, NamesOfFilesCountFromItsOwnFolder) {
  ConfigText text;
  text.log = "[log]\ndirectory = \"log\"\n";
  text.broker += "user = \"me\"\npassword_file = \"../secret\"\n[broker.tls]\nca = \"/ca\"\n";
  const Config beside = configOf(text.text(), "/etc/kestrin/gateway.toml");
  EXPECT_EQ(beside.log.folder, "/etc/kestrin/log");
  EXPECT_EQ(beside.broker.passwordFile, "/etc/kestrin/../secret");
  EXPECT_EQ(beside.broker.tls.caFile, "/ca");
  EXPECT_EQ(configOf(text.text()).log.folder, "log");
}

TEST(Config, APasswordMayGoWithoutTlsToThisMachineOnly) {
  for (const char* const host : {"localhost", "127.0.0.1", "127.3.2.1", "::1"}) {
    ConfigText text;
    text.broker = std::string("[broker]\nhost = \"") + host + "\"\nuser = \"me\"\n" +
                  "password_file = \"/password\"\n";
    EXPECT_EQ(configOf(text.text()).broker.host, host);
  }
}

TEST(Config, ReadersMayBeNone) {
  ConfigText text;
  text.gateway = "reader = []\n" + text.gateway;
  text.more.clear();
  EXPECT_TRUE(configOf(text.text()).readers.empty());
}

TEST(Config, AReloadTakesReadersConsumersAndWebhooksUp) {
  const Config before = configOf(ConfigText{}.text());
  Config after = before;
  after.readers = {{"C0:00:00:00:00:01", true}};
  after.consumers = {"stock"};
  after.webhooks = {{"erp", "https://erp.example"}};
  EXPECT_EQ(needsRestart(before, after), Names());
}

TEST(Config, WhateverElseChangesTakesARestart) {
  const Config before = configOf(ConfigText{}.text());
  Config after = before;
  after.name = "gate";
  after.format = FrameFormat::cbor;
  after.radio = RadioChoice::simulated;
  after.adapter = "hci1";
  after.simulatedScript = "/readers";
  after.log = {"/other", 1U << 20U, 1ms};
  after.broker = {"other", 1, 5, "me", "/password", 7s, 3, {true, "/ca", "/certificate", "/key"}};
  const Names all{"gateway.name",         "gateway.format",    "radio.kind",
                  "radio.adapter",        "radio.script",      "log.directory",
                  "log.budget",           "log.sync",          "broker.host",
                  "broker.port",          "broker.protocol",   "broker.user",
                  "broker.password_file", "broker.keep_alive", "broker.window",
                  "broker.tls.on",        "broker.tls.ca",     "broker.tls.certificate",
                  "broker.tls.key"};
  EXPECT_EQ(needsRestart(before, after), all);
  EXPECT_EQ(needsRestart(after, before), all);
  after = before;
  after.broker.port = 1884;
  EXPECT_EQ(needsRestart(before, after), Names{"broker.port"});
}

}  // namespace
}  // namespace kestrin::gateway
