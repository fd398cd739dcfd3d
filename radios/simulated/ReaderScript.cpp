#include "kestrin/simulated/ReaderScript.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "KestrinBLESDK/RcpFrame.h"

namespace kestrin::simulated {
namespace {

/// A host cuts its commands into slices of this many bytes and ends each with a shorter one.
constexpr std::size_t kFullSlice = 20;

/// A message type that hosts accept.
constexpr std::uint8_t kReplyType = 0x01;
constexpr std::uint8_t kReaderInfoCode = 0x03;
constexpr std::uint8_t kReaderInfoKind = 0xB1;

using Bytes = std::span<const std::uint8_t>;

enum class Verdict { frame, incomplete, noFrame };

/// What `bytes`, which begin with a preamble, begin: the frame's bytes where it is whole.
Verdict judge(Bytes bytes, Bytes& frame) {
  const auto length = rcpFrameLength(bytes);
  if (!length) return Verdict::incomplete;
  // A host takes no longer frame, so an answer that echoes one would be lost on it.
  if (*length >= rcp::kSmallestFrame + rcp::kRejectedPayloadLength) return Verdict::noFrame;
  frame = bytes.first(std::min(*length, bytes.size()));
  RcpFrameError error;
  if (parseRcpFrame(frame, &error)) return Verdict::frame;
  return error.incomplete ? Verdict::incomplete : Verdict::noFrame;
}

std::size_t nextPreamble(Bytes bytes, std::size_t from) {
  const auto found =
      std::find(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), rcp::kPreamble);
  return static_cast<std::size_t>(found - bytes.begin());
}

bool asksForReaderInfo(const NSData& frame) {
  static const NSData kCommand{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};
  return frame == kCommand;
}

NSData reply(std::uint8_t code, Bytes payload) {
  return buildRcpFrame(kReplyType, code, payload).value_or(NSData());
}

}  // namespace

NSData readerInfoReply() {
  static constexpr std::string_view kText = "Virtual reader 1.0";
  std::vector<std::uint8_t> payload{kReaderInfoKind};
  payload.insert(payload.end(), kText.begin(), kText.end());
  return reply(kReaderInfoCode, payload);
}

ReaderScript defaultReaderScript() {
  return [](const NSData& frame) -> std::vector<NSData> {
    if (asksForReaderInfo(frame)) return {readerInfoReply()};
    const auto command = parseRcpFrame(frame.span());
    if (!command) return {};
    return {reply(command->code, command->payload)};
  };
}

ReaderConversation::ReaderConversation(ReaderScript script) : script_(std::move(script)) {}

void ReaderConversation::setScript(ReaderScript script) { script_ = std::move(script); }

void ReaderConversation::reset() { bytes_.clear(); }

std::vector<NSData> ReaderConversation::take(const NSData& slice) {
  bytes_.insert(bytes_.end(), slice.begin(), slice.end());
  const bool endOfCommand = slice.length() < kFullSlice;
  std::vector<NSData> replies;
  for (auto frame = takeFrame(endOfCommand); frame; frame = takeFrame(endOfCommand)) {
    if (!script_) continue;
    // A copy is played: the script may replace itself through whoever owns this conversation.
    const ReaderScript script = script_;
    for (auto& answer : script(*frame)) replies.push_back(std::move(answer));
  }
  return replies;
}

// Takes the first whole frame and what lies before it out of the buffer. Without one, only an
// incomplete frame is kept, from its preamble on.
std::optional<NSData> ReaderConversation::takeFrame(bool endOfCommand) {
  const Bytes bytes(bytes_);
  std::optional<std::size_t> incomplete;
  for (std::size_t at = nextPreamble(bytes, 0); at < bytes.size();
       at = nextPreamble(bytes, at + 1)) {
    const Bytes candidate = bytes.subspan(at);
    Bytes whole;
    const Verdict verdict = judge(candidate, whole);
    if (verdict == Verdict::frame) {
      const NSData frame(whole);
      bytes_.erase(bytes_.begin(),
                   bytes_.begin() + static_cast<std::ptrdiff_t>(at + frame.length()));
      return frame;
    }
    if (verdict == Verdict::noFrame) continue;
    if (!incomplete) incomplete = at;
    if (!endOfCommand) break;
  }
  bytes_.erase(bytes_.begin(),
               bytes_.begin() + static_cast<std::ptrdiff_t>(incomplete.value_or(bytes_.size())));
  return std::nullopt;
}

std::vector<NSData> cutIntoPieces(const NSData& bytes,
                                  const std::function<std::size_t()>& nextSize) {
  std::vector<NSData> pieces;
  for (std::size_t at = 0; at < bytes.length();) {
    const std::size_t size = std::min(
        std::max<std::size_t>(nextSize ? nextSize() : bytes.length(), 1), bytes.length() - at);
    pieces.push_back(bytes.subdataWithRange({.location = at, .length = size}));
    at += size;
  }
  return pieces;
}

std::vector<NSData> cutIntoPieces(const NSData& bytes, std::size_t size) {
  return cutIntoPieces(bytes, [size] { return size; });
}

}  // namespace kestrin::simulated
