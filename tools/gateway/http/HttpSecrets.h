// What a post says about who sends it, from files that only their owner can read.
//
// Threads: pure functions of the files. Lifetime: plain values. Errors: one line for a person,
// which repeats nothing of the files.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

/// The token of a file that has one line.
std::optional<std::string> tokenIn(const std::string& file, std::string& error);

/// The headers of a file that has a line "Name: value" for each.
std::optional<std::vector<std::string>> headersIn(const std::string& file, std::string& error);

}  // namespace kestrin::gateway
