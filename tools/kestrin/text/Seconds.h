// Spans of time as people write them.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <KestrinBLESDK/platform/Clock.h>

#include <string>

namespace kestrin::app {

/// `30`, `0.5`.
std::string secondsText(Time duration);
/// Seconds with their thousandths, `12.050`.
std::string millisecondsText(Time duration);

}  // namespace kestrin::app
