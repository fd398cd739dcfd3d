// The contract's bed on the radio for CoreBluetooth, over what stands in for CoreBluetooth and the
// simulated radio, in virtual time: as the documentation has it, and with each habit that it leaves
// open.
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "StandIn.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"
#include "kestrin/simulated/SimulatedPlatform.h"
#include "radios/contract/ContractBed.h"
#include "radios/contract/RadioContract.h"

#import <Foundation/Foundation.h>

namespace kestrin::test {
namespace {

using simulated::ReaderFamily;
using standin::FirstAttempts;
using standin::Habits;

class CoreBluetoothBed final : public ContractBed {
 public:
  explicit CoreBluetoothBed(const Habits& habits)
      : pool_([[::NSAutoreleasePool alloc] init]),
        loop_(std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>())),
        air_(std::make_shared<simulated::SimulatedRadio>(loop_, simulated::Options())),
        reader_(air_->addReader(readerName(), ReaderFamily::standard)) {
    // Others are in range too: what the contract says of the reader must not depend on silence.
    air_->addReader("KVR-Q62T 0012", ReaderFamily::kvrQ62T);
    air_->addPeripheral("Lamp");
    air_->addPeripheral(std::nullopt);
    standin::use(air_, loop_, habits);
    radio_ = corebluetooth::makeRadio(loop_);
  }
  ~CoreBluetoothBed() override {
    EXPECT_EQ(standin::misuses(), std::vector<std::string>());
    [pool_ release];
  }
  CoreBluetoothBed(const CoreBluetoothBed&) = delete;
  CoreBluetoothBed& operator=(const CoreBluetoothBed&) = delete;

  std::shared_ptr<Radio> radio() override { return radio_; }
  void dropRadio() override { radio_.reset(); }
  bool runUntil(const std::function<bool()>& done) override {
    return loop_->runUntil(loop_->now() + kPatience, done);
  }
  void settle() override { loop_->runFor(kSettling); }
  void turnOnce() override { loop_->runOneTurn(); }

  [[nodiscard]] std::string readerName() const override { return "KVR-1"; }
  void rename(const std::string& name) override { reader_->simulateName(name); }
  void vanish() override { reader_->simulateVanishing(); }
  void appear() override { reader_->simulateAppearing(); }
  void dropLink() override { reader_->simulateLinkLoss(); }
  void notify(const std::vector<NSData>& values) override {
    for (const auto& value : values) reader_->simulateNotification(replyCharacteristic(), value);
  }
  void refuseSubscriptions(bool refuse) override {
    reader_->simulateSubscriptionError(
        refuse ? std::optional(NSError{CBATTErrorDomain, 0x0E, "Unlikely error"}) : std::nullopt);
  }
  bool readerIsLinked() override { return reader_->connected(); }
  std::vector<NSData> writes() override {
    std::vector<NSData> values;
    for (const auto& write : reader_->writes()) {
      if (write.characteristic == commandCharacteristic()) values.push_back(write.value);
    }
    return values;
  }

  void switchOff() override { air_->simulateState(CBManagerState::poweredOff); }
  void switchOn() override { air_->simulateState(CBManagerState::poweredOn); }

 private:
  static constexpr Time kPatience = std::chrono::minutes(2);
  static constexpr Time kSettling = std::chrono::seconds(5);

  ::NSAutoreleasePool* const pool_;
  const std::shared_ptr<MainRunLoop> loop_;
  const std::shared_ptr<simulated::SimulatedRadio> air_;
  const std::shared_ptr<simulated::VirtualPeripheral> reader_;
  std::shared_ptr<Radio> radio_;
};

struct Named {
  const char* name;
  Habits habits;
};

const Named kAll[] = {
    {"AsDocumented", {}},
    {"RequestsAtTheEndOfALinkAreNotAnswered", {.answersAtLinkEnd = false}},
    {"LinksThatEndWithThePowerAreNotReported", {.reportsLinksAtPowerOff = false}},
    {"CancelledAttemptsAreNotReported", {.reportsCancelledAttempts = false}},
    {"AttemptsEndAsLinksDo", {.firstAttempts = FirstAttempts::endUnconnected}},
    {"AllAtOnce",
     {.answersAtLinkEnd = false,
      .reportsLinksAtPowerOff = false,
      .reportsCancelledAttempts = false,
      .firstAttempts = FirstAttempts::endUnconnected}},
};

std::vector<ContractBedFactory> beds() {
  std::vector<ContractBedFactory> all;
  for (const auto& each : kAll) {
    all.emplace_back([&each] { return std::make_unique<CoreBluetoothBed>(each.habits); });
  }
  return all;
}

std::string nameOf(const testing::TestParamInfo<ContractBedFactory>& info) {
  return kAll[info.index].name;
}

INSTANTIATE_TEST_SUITE_P(CoreBluetooth, RadioContract, testing::ValuesIn(beds()), nameOf);
INSTANTIATE_TEST_SUITE_P(CoreBluetooth, LinkedRadioContract, testing::ValuesIn(beds()), nameOf);

}  // namespace
}  // namespace kestrin::test
