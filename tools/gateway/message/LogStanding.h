// What a gateway's information and its health both say of its log, for consumers.
//
// Threads: pure functions.
// Lifetime: plain values.
// Errors: what cannot be read says what is wrong and what would be right.
#pragma once

#include "tools/gateway/log/Log.h"

#include <optional>
#include <string>
#include <string_view>

namespace kestrin::gateway {

struct LogStanding {
  LogIdentity log;
  RecordNumber first = 1;      ///< The lowest number that is kept.
  RecordNumber published = 0;  ///< Up to here everything has been published; health only.
};

/// Reads the payload of the topics `info` and `health`.
std::optional<LogStanding> logStandingOf(std::string_view payload, std::string& error);

}  // namespace kestrin::gateway
