// Whether bytes are CBOR as payloads have it, looked at before a decoder takes them: one that calls
// itself for what is nested could be sent so much of it that its stack ends.
//
// Threads: pure functions. Errors: in words, with the place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kestrin::gateway {

/// What is wrong with `bytes` as one item of CBOR: cut off, something behind it, nested too deeply,
/// or of a form that payloads do not have (tags, parts of unstated length). Absent: nothing.
std::optional<std::string> cborTrouble(std::string_view bytes);

}  // namespace kestrin::gateway
