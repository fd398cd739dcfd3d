// When everything has come to rest, and how it stands where it does not.
//
// Threads: one. Lifetime: plain functions. Errors: none.
#pragma once

#include "gateway/core/ConsumerProcess.h"
#include "tools/gateway/core/Gateway.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrin::gateway::test {

using Consumers = std::vector<std::unique_ptr<ConsumerProcess>>;

/// Everything is on the disk, and every consumer is done with it.
bool isAtRest(const Log& log, const Consumers& consumers);
/// A line for a person.
std::string standOf(Gateway& gateway, const Consumers& consumers);
/// The variable of the environment, or what is usual.
std::uint32_t environmentNumber(const char* name, std::uint32_t usual);

}  // namespace kestrin::gateway::test
