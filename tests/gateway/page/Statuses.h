// A status with something in each of its members, for tests.
//
// Threads: one. Lifetime: plain values. Errors: none.
#pragma once

#include "tools/gateway/message/Status.h"

namespace kestrin::gateway::test {

inline Record frameNumber(RecordNumber number) {
  Record record;
  record.number = number;
  record.reader = "C0:00:00:00:00:01";
  record.name = "KVR-0001";
  record.link = 1;
  record.wallMs = 1'800'000'000'000;
  record.monoMs = 5;
  record.bytes = {0xBB, 0x02};
  return record;
}

inline Status someStatus() {
  Status status;
  status.gateway = "hall-1";
  status.boot = "b";
  status.version = "1.0.0";
  status.radio = "simulated";
  status.promise = "at least once to each declared consumer: store";
  status.atUtc = "2027-01-15T08:00:00.000Z";
  status.startedUtc = "2027-01-15T07:00:00.250Z";
  status.broker = {true, "broker:8883", "2027-01-15T07:00:01.000Z", 7};
  status.log = "0123456789abcdef0123456789abcdef";
  status.first = 40;
  status.last = 100;
  status.synced = 99;
  status.published = 90;
  status.forgotten = 39;
  status.bytes = 4096;
  status.budget = 1'048'576;
  status.commits = {{"store", 39}};
  ReaderStatus reader;
  reader.key = "KVR-0001";
  reader.reader = "C0:00:00:00:00:01";
  reader.name = "KVR-0001";
  reader.phase = "pluggedIn";
  reader.sinceUtc = "2027-01-15T07:30:00.000Z";
  reader.signal = -61;
  reader.frames = 61;
  reader.minutes = {0, 1, 60};
  status.readers = {reader};
  status.frames = {frameNumber(100)};
  status.gapCount = 1;
  Record gap;
  gap.kind = RecordKind::gap;
  gap.number = 50;
  gap.gap = Gap{status.log, 41, 49, GapReason::refused};
  status.gaps = {gap};
  status.trouble = {"no broker"};
  return status;
}

}  // namespace kestrin::gateway::test
