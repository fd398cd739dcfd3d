// The contract's bed on the radio for CoreBluetooth, over what stands in for CoreBluetooth and the
// simulated radio, in virtual time: as the documentation has it, and with each habit that it leaves
// open.
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "StandIn.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"
#include "radios/contract/AirBed.h"
#include "radios/contract/RadioContract.h"

#import <Foundation/Foundation.h>

namespace kestrin::test {
namespace {

using standin::FirstAttempts;
using standin::Habits;

class CoreBluetoothBed final : public AirBed {
 public:
  explicit CoreBluetoothBed(const Habits& habits) : pool_([[::NSAutoreleasePool alloc] init]) {
    standin::use(air_, loop_, habits);
    radio_ = corebluetooth::makeRadio(loop_);
  }
  ~CoreBluetoothBed() override {
    EXPECT_EQ(standin::misuses(), std::vector<std::string>());
    [pool_ release];
  }
  CoreBluetoothBed(const CoreBluetoothBed&) = delete;
  CoreBluetoothBed& operator=(const CoreBluetoothBed&) = delete;

 private:
  ::NSAutoreleasePool* const pool_;
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
