// A recorded conversation as a sequence picture: application, manager, radio and reader as lines
// from top to bottom, what passes between them as arrows, in order.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <span>
#include <string>

#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin::app {

/// The picture, an SVG. `title` stands over it.
std::string sequencePicture(std::span<const RecordedEvent> events, const std::string& title);

}  // namespace kestrin::app
