/// \file
/// The fields of a recorded event by their names in a recording, for what writes them and what
/// reads them.
///
/// Threads: constants.
///
/// Errors: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin {
/// \addtogroup recording
/// @{

/// A field that is more than a number of its own.
template <class T>
struct RecordedField {
  /// Its name.
  std::string_view key;
  /// Where its value is.
  std::optional<T> RecordedEvent::*member;
};

/// Fields with a text.
inline constexpr RecordedField<std::string> kRecordedTexts[] = {
    {"operation", &RecordedEvent::operation},   {"name", &RecordedEvent::name},
    {"identifier", &RecordedEvent::identifier}, {"state", &RecordedEvent::state},
    {"service", &RecordedEvent::service},       {"characteristic", &RecordedEvent::characteristic},
    {"error", &RecordedEvent::error},           {"text", &RecordedEvent::text},
};
/// Fields with a list of texts.
inline constexpr RecordedField<std::vector<std::string>> kRecordedLists[] = {
    {"services", &RecordedEvent::services},
    {"characteristics", &RecordedEvent::characteristics},
    {"properties", &RecordedEvent::properties},
};
/// Fields with a whole number.
inline constexpr RecordedField<std::int64_t> kRecordedNumbers[] = {
    {"status", &RecordedEvent::status},
    {"rssi", &RecordedEvent::rssi},
};
/// Fields that are true or false.
inline constexpr RecordedField<bool> kRecordedTruths[] = {
    {"plugged", &RecordedEvent::plugged},
    {"enabled", &RecordedEvent::enabled},
    {"accepted", &RecordedEvent::accepted},
};

/// @}

}  // namespace kestrin
