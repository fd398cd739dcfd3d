/// \file
/// How a virtual reader behaves, with no radio in it: slices of commands in, frames of replies out.
/// Virtual readers of every kind play the same script.
///
/// Threads: a `ReaderConversation` belongs to one thread at a time; the functions are pure.
///
/// Lifetime: a conversation owns its copy of the script.
///
/// Errors: bytes that are not a frame are skipped; a script must not throw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

/// A reader's answer: one whole command frame in, whole reply frames out, none for no answer.
using ReaderScript = std::function<std::vector<NSData>(const NSData& frame)>;

/// Answers get-reader-info with a reader-info frame, and every other frame with one of message type
/// 0x01, the same code and the same payload.
KESTRIN_EXPORT ReaderScript defaultReaderScript();

/// What the default script answers to get-reader-info: message type 0x01, code 0x03, payload 0xB1
/// and a text in ASCII.
KESTRIN_EXPORT NSData readerInfoReply();

/// Takes the slices that a host writes, finds the command frames in them and plays the script.
///
/// A frame is a preamble, type, code, a payload length of at most 1,021, so many bytes, an end mark
/// and a CRC that is right. At a preamble that begins no such frame the search goes on behind it. A
/// slice shorter than 20 bytes ends a host's command, so a frame that is still incomplete then is
/// given up as soon as a whole one stands behind its preamble. At most one frame's bytes are kept.
class KESTRIN_EXPORT ReaderConversation {
 public:
  /// A null script answers nothing.
  explicit ReaderConversation(ReaderScript script = defaultReaderScript());

  /// The reply frames to one written slice, which may be empty.
  std::vector<NSData> take(const NSData& slice);
  /// Replaces the script from the next frame on; bytes of an incomplete frame are kept.
  void setScript(ReaderScript script);
  /// Forgets an incomplete frame, as a reader does when its link ends.
  void reset();
  /// The bytes of an incomplete frame that are kept.
  [[nodiscard]] std::size_t waiting() const noexcept { return bytes_.size(); }

 private:
  std::optional<NSData> takeFrame(bool endOfCommand);

  ReaderScript script_;
  std::vector<std::uint8_t> bytes_;
};

/// Cuts `bytes` into the values of successive notifications. `nextSize` is asked for the size of
/// each piece; zero counts as one. Nothing is cut from no bytes.
KESTRIN_EXPORT std::vector<NSData> cutIntoPieces(const NSData& bytes,
                                                 const std::function<std::size_t()>& nextSize);
/// The same with pieces of one size.
KESTRIN_EXPORT std::vector<NSData> cutIntoPieces(const NSData& bytes, std::size_t size);

/// @}

}  // namespace kestrin::simulated
