#include "radios/contract/SimulatedBed.h"

#include <gtest/gtest.h>

#include "radios/contract/AirBed.h"
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

class SimulatedBed final : public AirBed {
 public:
  SimulatedBed() { radio_ = air_; }
  void dropRadio() override {
    AirBed::dropRadio();
    air_.reset();
  }
};

}  // namespace

std::unique_ptr<ContractBed> makeSimulatedBed() { return std::make_unique<SimulatedBed>(); }

INSTANTIATE_TEST_SUITE_P(Simulated, RadioContract, testing::Values(makeSimulatedBed));
INSTANTIATE_TEST_SUITE_P(Simulated, LinkedRadioContract, testing::Values(makeSimulatedBed));

}  // namespace kestrin::test
