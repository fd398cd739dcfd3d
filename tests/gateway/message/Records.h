// Records and payloads as tests write them.
//
// Threads: one. Lifetime: plain values. Errors: none.
#pragma once

#include <KestrinBLESDK/RcpFrame.h>

#include <string>
#include <vector>

#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {

inline const LogIdentity kLog = "0123456789abcdef0123456789abcdef";

inline std::vector<std::uint8_t> frameOf(std::uint8_t type, std::uint8_t code,
                                         const std::vector<std::uint8_t>& payload) {
  const auto frame = buildRcpFrame(type, code, payload);
  if (!frame) return {};
  return {frame->span().begin(), frame->span().end()};
}

inline Record frameRecord() {
  Record record;
  record.number = 48213;
  record.reader = "C0:00:00:00:00:01";
  record.name = "KVR-0417";
  record.link = 17;
  record.wallMs = 1'795'352'709'123;
  record.monoMs = 5'000'000;
  record.bytes = frameOf(0x02, 0x22, {0x01, 0xAB});
  return record;
}

inline Record gapRecord() {
  Record record;
  record.number = 12;
  record.kind = RecordKind::gap;
  record.gap = Gap{"fedcba9876543210fedcba9876543210", 3, 11, GapReason::damaged};
  return record;
}

}  // namespace kestrin::gateway
