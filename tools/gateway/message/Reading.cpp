// What comes in: deliveries for consumers, and for the gateway what others publish.
#include <KestrinBLESDK/RcpFrame.h>

#include <array>

#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/message/Members.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

// The longest frame of all, twice in hexadecimal, and room for what is added later.
constexpr std::size_t kLongestDelivery = std::size_t{1} << 20U;
constexpr std::size_t kLongestOther = std::size_t{1} << 14U;

constexpr std::string_view kReasonsRight = "budget, damaged or refused";
constexpr std::string_view kTimeRight = "a time as in 2026-11-22T13:05:09.123Z";

struct ReasonWord {
  GapReason reason;
  std::string_view word;
};
constexpr std::array<ReasonWord, 3> kReasons{{{GapReason::budget, "budget"},
                                              {GapReason::damaged, "damaged"},
                                              {GapReason::refused, "refused"}}};

void refuseWord(Members& members, std::string_view name, std::string_view word,
                std::string_view right) {
  members.refuse(name,
                 '"' + shown(word) + "\" is not known; " + std::string(right) + " would be right");
}

void takeGap(Members& members, Record& record) {
  record.kind = RecordKind::gap;
  members.enter("gap");
  Gap gap;
  gap.log = members.plainName("log");
  gap.from = members.number("from", 1);
  gap.to = members.number("to", gap.from);
  const std::string word = members.text("reason", kReasonsRight);
  const auto reason = gapReasonOf(word);
  if (!reason) refuseWord(members, "reason", word, kReasonsRight);
  gap.reason = reason.value_or(GapReason::budget);
  members.enter("");
  record.gap = std::move(gap);
}

void takeKind(Members& members, Record& record) {
  constexpr std::string_view kRight = "frame or value";
  if (!members.has("kind")) return;
  const std::string kind = members.text("kind", kRight);
  if (kind == "value") record.kind = RecordKind::value;
  if (kind != "value" && kind != "frame") refuseWord(members, "kind", kind, kRight);
}

void takeTime(Members& members, Record& record) {
  const std::string at = members.text("at", kTimeRight);
  const auto wallMs = wallMsOf(at);
  if (!wallMs) refuseWord(members, "at", at, kTimeRight);
  record.wallMs = wallMs.value_or(0);
}

void takeFrame(Members& members, Record& record) {
  takeKind(members, record);
  record.reader = members.airText("reader");
  record.name = members.airText("name");
  record.link = members.number("link", 0);
  takeTime(members, record);
  record.monoMs = members.signedNumber("mono");
  record.bytes = members.bytes("bytes");
}

/// What has been read, unless something in it was wrong.
template <class T>
std::optional<T> unlessWrong(const Members& members, T value, std::string& error) {
  error = members.error();
  if (!error.empty()) return std::nullopt;
  return value;
}

void checkCommand(Members& members, const std::vector<std::uint8_t>& bytes) {
  if (bytes.size() > kLongestCommand) {
    return members.refuse("bytes", "the frame has " + std::to_string(bytes.size()) +
                                       " bytes; at most " + std::to_string(kLongestCommand) +
                                       " would be right");
  }
  RcpFrameError error;
  if (!parseRcpFrame(bytes, &error)) {
    members.refuse("bytes", "this is not one whole frame: " + error.text);
  }
}

}  // namespace

std::string_view wordOf(GapReason reason) {
  for (const ReasonWord& each : kReasons) {
    if (each.reason == reason) return each.word;
  }
  return "";
}

std::optional<GapReason> gapReasonOf(std::string_view word) {
  for (const ReasonWord& each : kReasons) {
    if (each.word == word) return each.reason;
  }
  return std::nullopt;
}

std::optional<Delivery> deliveryOf(std::string_view payload, std::string& error) {
  Members members(payload, kLongestDelivery);
  Delivery delivery;
  delivery.log = members.plainName("log");
  delivery.record.number = members.number("n", 1);
  if (members.has("gap")) {
    takeGap(members, delivery.record);
  } else {
    takeFrame(members, delivery.record);
  }
  return unlessWrong(members, std::move(delivery), error);
}

std::optional<Commit> commitOf(std::string_view payload, std::string& error) {
  Members members(payload, kLongestOther);
  Commit commit;
  commit.log = members.plainName("log");
  commit.number = members.number("n", 0);
  return unlessWrong(members, std::move(commit), error);
}

std::optional<Replay> replayOf(std::string_view payload, std::string& error) {
  Members members(payload, kLongestOther);
  Replay replay;
  replay.log = members.plainName("log");
  replay.from = members.number("from", 1);
  replay.consumer = members.plainName("consumer");
  return unlessWrong(members, std::move(replay), error);
}

std::optional<Command> commandOf(std::string_view payload, std::string& error) {
  Members members(payload, kLongestOther);
  Command command{members.bytes("bytes")};
  checkCommand(members, command.bytes);
  return unlessWrong(members, std::move(command), error);
}

}  // namespace kestrin::gateway
