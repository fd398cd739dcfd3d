// The contract's bed on the simulated radio, in virtual time.
#pragma once

#include "radios/contract/ContractBed.h"

namespace kestrin::test {

std::unique_ptr<ContractBed> makeSimulatedBed();

}  // namespace kestrin::test
