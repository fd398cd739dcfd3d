// A recorded event in words, for a picture.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin::app {

/// What an event is, in a few words; not yet made safe for what shows it.
std::string eventLabel(const RecordedEvent& event);
/// `20 bytes BB 00 46 00...`.
std::string bytesLabel(const std::optional<std::vector<std::uint8_t>>& bytes);
/// The colour that an event has in a picture: a class of Svg.
std::string_view eventStyle(const RecordedEvent& event);

}  // namespace kestrin::app
