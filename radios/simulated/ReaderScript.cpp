#include "kestrin/simulated/ReaderScript.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "KestrinBLESDK/RcpFrame.h"

namespace kestrin::simulated {
namespace {

constexpr std::uint8_t kPreamble = 0xBB;
constexpr std::uint8_t kEndMark = 0x7E;
constexpr std::size_t kTypePlace = 1;
constexpr std::size_t kCodePlace = 2;
constexpr std::size_t kHeaderLength = 5;
constexpr std::size_t kTrailerLength = 3;
/// A host takes no longer payload, so an answer that echoes one would be lost on it.
constexpr std::size_t kLongestPayload = 1021;
/// A host cuts its commands into slices of this many bytes and ends each with a shorter one.
constexpr std::size_t kFullSlice = 20;

/// A message type that hosts accept.
constexpr std::uint8_t kReplyType = 0x01;
constexpr std::uint8_t kReaderInfoCode = 0x03;
constexpr std::uint8_t kReaderInfoKind = 0xB1;

using Bytes = std::span<const std::uint8_t>;

enum class Verdict { frame, incomplete, noFrame };

std::size_t payloadLength(Bytes bytes) {
  return static_cast<std::size_t>(bytes[3] << 8 | bytes[4]);
}

std::size_t frameLength(Bytes bytes) {
  return kHeaderLength + payloadLength(bytes) + kTrailerLength;
}

/// What `bytes`, which begin with a preamble, begin.
Verdict judge(Bytes bytes) {
  if (bytes.size() < kHeaderLength) return Verdict::incomplete;
  if (payloadLength(bytes) > kLongestPayload) return Verdict::noFrame;
  const std::size_t endMark = kHeaderLength + payloadLength(bytes);
  if (bytes.size() > endMark && bytes[endMark] != kEndMark) return Verdict::noFrame;
  if (bytes.size() < frameLength(bytes)) return Verdict::incomplete;
  // The CRC does not cover the preamble; run over its own two bytes too it comes out as zero.
  const auto covered = bytes.subspan(kTypePlace, frameLength(bytes) - kTypePlace);
  return rcpFrameCrc(covered) == 0 ? Verdict::frame : Verdict::noFrame;
}

std::size_t nextPreamble(Bytes bytes, std::size_t from) {
  const auto found =
      std::find(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), kPreamble);
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
    const Bytes bytes = frame.span();
    if (bytes.size() < kHeaderLength + kTrailerLength) return {};
    const std::size_t payload = bytes.size() - kHeaderLength - kTrailerLength;
    return {reply(bytes[kCodePlace], bytes.subspan(kHeaderLength, payload))};
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
    const Verdict verdict = judge(candidate);
    if (verdict == Verdict::frame) {
      const NSData frame(candidate.first(frameLength(candidate)));
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
