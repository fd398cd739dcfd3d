// How a reader's errors are made.
#pragma once

#include <string>
#include <utility>

#include "KestrinBLESDK/Reader.h"

namespace kestrin::reader {

inline NSError errorOf(ReaderError code, std::string text) {
  return {KestrinErrorDomain, static_cast<std::int64_t>(code), std::move(text)};
}

}  // namespace kestrin::reader
