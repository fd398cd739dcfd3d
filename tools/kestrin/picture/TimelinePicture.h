// A recorded conversation as a timeline: time to scale from left to right, a lane for each sort of
// event.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <KestrinBLESDK/platform/Clock.h>

#include <chrono>
#include <span>
#include <string>

#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin::app {

/// The picture, an SVG. `title` stands over it.
std::string timelinePicture(std::span<const RecordedEvent> events, const std::string& title);

/// How long a conversation a picture may show, silences left out, and how many events.
inline constexpr Time kLongestTimeline = std::chrono::seconds(1000);
inline constexpr std::size_t kMostPicturedEvents = 5000;
/// Whether the events are few and close enough.
bool fitsTimeline(std::span<const RecordedEvent> events);

}  // namespace kestrin::app
