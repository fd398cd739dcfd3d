// A frame as programs in C see it.
#pragma once

#include "KestrinBLESDK/RcpFrame.h"
#include "kestrin/kestrin.h"

namespace kestrin::c {

inline kestrin_frame frameOf(const RcpFrame& frame) noexcept {
  return {sizeof(kestrin_frame), frame.type,         frame.code,        frame.payload.data(),
          frame.payload.size(),  frame.bytes.data(), frame.bytes.size()};
}

}  // namespace kestrin::c
