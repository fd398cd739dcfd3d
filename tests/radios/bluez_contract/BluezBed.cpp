// The contract's bed on the real radio, in real time: the kernel's Bluetooth stack, the daemon and
// a running kestrin-vreader. It wants a machine of its own, since it switches the adapter.
//
// The environment says where kestrin-vreader takes its orders (KESTRIN_CONTRACT_ORDERS), in which
// file its lines are (KESTRIN_CONTRACT_LOG), and what the reader is called: its id
// (KESTRIN_CONTRACT_READER) and its name (KESTRIN_CONTRACT_NAME).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <utility>

#include "BusLibrary.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/bluez/Bluez.h"
#include "radios/bluez_contract/ReaderOrders.h"
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

// An attempt that has failed in the daemon after 42 s is made again after a pause, and an emulated
// machine is slow.
constexpr Time kPatience = std::chrono::minutes(2);
// A disconnection takes up to 3 s, which nothing else does.
constexpr Time kSettling = std::chrono::seconds(4);
// A call that meets the end of the adapter's power can make the kernel free a link's channel twice
// (seen with 6.1.192; the daemon dies of it), so calls are given time to be carried out first.
constexpr Time kUndisturbed = std::chrono::seconds(1);
constexpr char kAdapterPath[] = "/org/bluez/hci0";
// Of the daemons that were tried.
constexpr std::pair kLastThatForgetsToAnswer{5U, 82U};

std::string setting(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment.
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string hexOf(const NSData& value) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const auto byte : value.span()) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

class Adapter {
 public:
  Adapter()
      : proxy_(bluez::makeProxy(sdbus::createSystemBusConnection(), "org.bluez", kAdapterPath)) {}
  [[nodiscard]] bool powered() const {
    return proxy_->getProperty("Powered").onInterface(kInterface).get<bool>();
  }
  /// Of the daemon, major and minor, as its device ID has it (`d0542` for 5.66).
  [[nodiscard]] std::pair<unsigned, unsigned> daemonVersion() const {
    const auto id = proxy_->getProperty("Modalias").onInterface(kInterface).get<std::string>();
    const auto number = std::stoul(id.substr(id.size() - 4), nullptr, 16);
    return {number >> 8, number & 0xFF};
  }
  void setPowered(bool powered) {
    proxy_->setProperty("Powered").onInterface(kInterface).toValue(powered);
  }

 private:
  static constexpr char kInterface[] = "org.bluez.Adapter1";
  const std::unique_ptr<sdbus::IProxy> proxy_;
};

class BluezBed final : public ContractBed {
 public:
  BluezBed()
      : orders_(setting("KESTRIN_CONTRACT_ORDERS"), setting("KESTRIN_CONTRACT_LOG"),
                setting("KESTRIN_CONTRACT_READER")),
        loop_(std::make_shared<MainRunLoop>()) {
    clearUp();
    radio_ = bluez::makeRadio(loop_);
  }

  std::shared_ptr<Radio> radio() override { return radio_; }
  void dropRadio() override { radio_.reset(); }
  bool runUntil(const std::function<bool()>& done) override {
    // What the reader does wakes nobody here, so its lines are looked at now and then.
    const Time deadline = loop_->now() + kPatience;
    while (loop_->now() < deadline) {
      if (loop_->runUntil(loop_->now() + 20ms, done) || done()) return true;
    }
    return done();
  }
  void settle() override { loop_->runFor(kSettling); }
  void turnOnce() override { loop_->runOneTurn(); }

  [[nodiscard]] std::string readerName() const override { return setting("KESTRIN_CONTRACT_NAME"); }
  void rename(const std::string& name) override { orders_.order("rename", name); }
  void vanish() override {
    orders_.waitForRequests();
    orders_.order("vanish");
  }
  void appear() override { orders_.order("return"); }
  void dropLink() override {
    orders_.waitForRequests();
    orders_.order("drop");
  }
  void notify(const std::vector<NSData>& values) override {
    std::vector<std::string> orders;
    orders.reserve(values.size());
    for (const auto& value : values) {
      orders.push_back(value.length() == 0 ? "notify" : "notify " + hexOf(value));
    }
    orders_.tryAll(orders);
  }
  // Up to 5.82 the daemon does not answer AcquireNotify when the reader refuses, and from then on
  // answers every request for that characteristic that it is acquired already. 5.87 answers at
  // once.
  [[nodiscard]] std::string whyRefusedSubscriptionsStayRefused() const override {
    const auto [major, minor] = adapter_.daemonVersion();
    if (std::pair(major, minor) > kLastThatForgetsToAnswer) return {};
    return "BlueZ " + std::to_string(major) + '.' + std::to_string(minor) +
           " takes a refused subscription for one that it still has";
  }
  void refuseSubscriptions(bool refuse) override {
    orders_.order("refuse", refuse ? "subscriptions 0x0e" : "subscriptions off");
  }
  bool readerIsLinked() override { return orders_.linked(); }
  std::vector<NSData> writes() override { return orders_.writes(commandCharacteristic()); }

  void switchOff() override {
    orders_.waitForRequests();
    loop_->runFor(kUndisturbed);
    adapter_.setPowered(false);
  }
  void switchOn() override { adapter_.setPowered(true); }

 private:
  // A bed may go before its test's last central manager, so each clears up what the one before it
  // has left.
  void clearUp() {
    EXPECT_TRUE(orders_.waitForNoLink()) << "the link of an earlier test stays up";
    EXPECT_TRUE(orders_.waitForNoAttempt()) << "an earlier test's attempt stays pending";
    orders_.order("return");
    orders_.order("refuse", "subscriptions off");
    orders_.order("rename", readerName());
    if (!adapter_.powered()) adapter_.setPowered(true);
  }

  Adapter adapter_;
  ReaderOrders orders_;
  const std::shared_ptr<MainRunLoop> loop_;
  std::shared_ptr<Radio> radio_;
};

std::unique_ptr<ContractBed> makeBluezBed() { return std::make_unique<BluezBed>(); }

INSTANTIATE_TEST_SUITE_P(Bluez, RadioContract, testing::Values(makeBluezBed));
INSTANTIATE_TEST_SUITE_P(Bluez, LinkedRadioContract, testing::Values(makeBluezBed));

/// One line per test, as every script that works in that machine prints them, and what a test that
/// fails has to say.
class CasePrinter final : public testing::EmptyTestEventListener {
 public:
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.passed()) return;
    if (result.skipped()) {
      std::cout << "        " << result.message() << '\n';
    } else {
      std::cout << "        " << (result.file_name() != nullptr ? result.file_name() : "") << ':'
                << result.line_number() << ": " << result.message() << '\n';
    }
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    const auto& result = *test.result();
    const std::string name = test.name();
    std::cout << (result.Skipped()  ? "without"
                  : result.Passed() ? "ok     "
                                    : "FAILED ")
              << " contract: " << name.substr(0, name.find('/')) << std::endl;
  }
};

/// What the suite needs of the machine; empty when all of it is there.
std::string whatIsMissing() {
  for (const char* const name : {"KESTRIN_CONTRACT_ORDERS", "KESTRIN_CONTRACT_LOG",
                                 "KESTRIN_CONTRACT_READER", "KESTRIN_CONTRACT_NAME"}) {
    if (setting(name).empty()) return std::string(name) + " is not set";
  }
  try {
    if (!Adapter().powered()) return "the adapter is not powered";
  } catch (const sdbus::Error& error) {
    return "there is no adapter: " + error.getMessage();
  }
  return {};
}

}  // namespace
}  // namespace kestrin::test

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  // A list of the cases needs no radio.
  const std::string missing = GTEST_FLAG_GET(list_tests) ? "" : kestrin::test::whatIsMissing();
  if (!missing.empty()) {
    std::cerr << "The contract can not be tried: " << missing << '\n';
    return 1;
  }
  auto& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new kestrin::test::CasePrinter);
  const int status = RUN_ALL_TESTS();
  const bool ranAny = testing::UnitTest::GetInstance()->test_to_run_count() > 0;
  return ranAny ? status : 1;
}
