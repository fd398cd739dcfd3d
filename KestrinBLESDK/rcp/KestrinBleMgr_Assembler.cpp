// The receive assembler: gathers notified bytes, finds and checks whole frames, delivers each.
//
// It does no work twice within a parse: a preamble is sought with `memchr`, a frame of the usual
// form is passed in one stride, and the CRC runs over a frame once, when its last byte is there.
// What can be observed (deliveries, log lines, their order, and the bytes that are kept) is that of
// looking at the buffer byte by byte.
//
// What every arrival and every frame passes is inlined by demand: a call costs as much there as
// what it does.
#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/rcp/FrameLayout.h"
#include "KestrinBLESDK/rcp/RcpFrmReader.h"

namespace kestrin {
namespace {

/// A buffer of up to this many bytes keeps its memory when it is trimmed: two of the longest frames
/// and one of the longest notifications (Bluetooth Core, Vol 3, Part F, 3.2.9) fit. What a longer
/// one took, while bytes without a preamble waited in it, is given back.
constexpr std::int32_t kKeptBuffer = 4096;

}  // namespace

/// One parse of the receive buffer.
class KestrinBleMgr::Parse final {
 public:
  /// Adds an arrival to the buffer, in front of its parse.
  [[gnu::always_inline]] static void gather(KestrinBleMgr& manager, const NSData& data) noexcept {
    if (!manager._mutableReceivedData) manager._mutableReceivedData.emplace();
    manager._mutableReceivedData->appendData(data);
  }

  /// Whether `bytes` are the beginning of one frame of the usual form, and no more: a parse of them
  /// tells nobody anything and keeps them all.
  [[gnu::always_inline]] static bool isUnfinished(std::span<const std::uint8_t> bytes) noexcept {
    return bytes.size() >= rcp::kHeaderLength && bytes[0] == rcp::kPreamble &&
           (bytes[1] & rcp::kReceivedTypeMask) != 0 &&
           payloadLength(bytes) < rcp::kRejectedPayloadLength &&
           bytes.size() <= rcp::kHeaderLength + std::size_t{payloadLength(bytes)};
  }

  explicit Parse(KestrinBleMgr& manager) noexcept
      : manager_(manager),
        // A buffer of 2 GiB or more counts as negative and is kept unparsed.
        n_(static_cast<std::int32_t>(manager._mutableReceivedData->length())),
        p_(manager._mutableReceivedData->bytes()) {}

  [[gnu::always_inline]] void run() noexcept {
    clearRcpFrmReader(&reader_);
    for (std::int32_t i = 0; i < n_; ++i) {
      ++reader_.count;
      i = examine(i);
    }
    trim();
  }

 private:
  [[gnu::always_inline]] static std::uint16_t payloadLength(
      std::span<const std::uint8_t> header) noexcept {
    return static_cast<std::uint16_t>(header[3] << 8 | header[4]);
  }

  /// Acts on the byte at `i` and returns the index of the last byte passed.
  [[gnu::always_inline]] std::int32_t examine(std::int32_t i) noexcept {
    switch (reader_.state) {
      case RcpFrmState::Preamble:
        i = seekPreamble(i);
        break;
      case RcpFrmState::MessageType:
        judgeMessageType(p_[i]);
        break;
      case RcpFrmState::Code:
        reader_.state = RcpFrmState::LengthHigh;
        break;
      case RcpFrmState::LengthHigh:
        reader_.length = static_cast<std::uint16_t>(p_[i] << 8);
        reader_.state = RcpFrmState::LengthLow;
        break;
      case RcpFrmState::LengthLow:
        judgeLength(p_[i]);
        break;
      case RcpFrmState::Payload:
        i = passPayload(i);
        break;
      case RcpFrmState::EndMark:
        judgeEndMark(p_[i]);
        break;
      case RcpFrmState::CrcHigh:
        reader_.state = RcpFrmState::CrcLow;
        break;
      case RcpFrmState::CrcLow:
        takeFrame(i);
        clearRcpFrmReader(&reader_);
        break;
    }
    return i;
  }

  /// Takes the frames of the usual form at and after `i`, one behind the other or with other bytes
  /// between them, and of the next what needs no look at each byte.
  [[gnu::always_inline]] std::int32_t seekPreamble(std::int32_t i) noexcept {
    for (; i < n_; ++i) {
      if (p_[i] != rcp::kPreamble) {
        const void* found = std::memchr(p_ + i, rcp::kPreamble, static_cast<std::size_t>(n_ - i));
        if (found == nullptr) break;
        i = static_cast<std::int32_t>(static_cast<const std::uint8_t*>(found) - p_);
      }
      start_ = i;
      const std::span<const std::uint8_t> rest(p_ + i, p_ + n_);
      const std::size_t whole = wholeFrame(rest);
      if (whole == 0) {
        reader_.state = RcpFrmState::MessageType;
        reader_.count = 1;
        return isUnfinished(rest) ? n_ - 1 : i;
      }
      i += static_cast<std::int32_t>(whole) - 1;
      takeFrame(i);
    }
    reader_.count = 0;
    return n_ - 1;
  }

  /// The length of the frame of the usual form that `bytes` begin with, its header and end mark
  /// right; 0 when there is no such, or not all of it.
  [[gnu::always_inline]] static std::size_t wholeFrame(
      std::span<const std::uint8_t> bytes) noexcept {
    constexpr std::size_t kShortest = rcp::kHeaderLength + rcp::kTrailerLength;
    if (bytes.size() < kShortest || (bytes[1] & rcp::kReceivedTypeMask) == 0) return 0;
    const std::size_t length = payloadLength(bytes);
    if (length >= rcp::kRejectedPayloadLength || bytes.size() < kShortest + length) return 0;
    return bytes[rcp::kHeaderLength + length] == rcp::kEndMark ? kShortest + length : 0;
  }

  [[gnu::always_inline]] void judgeMessageType(std::uint8_t abyte) noexcept {
    if ((abyte & rcp::kReceivedTypeMask) != 0) {
      reader_.state = RcpFrmState::Code;
      return;
    }
    keepManager();
    manager_.log("[ERROR]parseFrmReader:MESSAGE");
    clearRcpFrmReader(&reader_);
  }

  [[gnu::always_inline]] void judgeLength(std::uint8_t abyte) noexcept {
    reader_.length = static_cast<std::uint16_t>(reader_.length | abyte);
    if (reader_.length >= rcp::kRejectedPayloadLength) {
      clearRcpFrmReader(&reader_);
      keepManager();
      manager_.log("[ERROR]parseFrmReader:LENGTH2");
      return;
    }
    reader_.state = reader_.length != 0 ? RcpFrmState::Payload : RcpFrmState::EndMark;
  }

  /// Passes the payload byte at `i`, which the record counts already, and those after it that are
  /// there.
  [[gnu::always_inline]] std::int32_t passPayload(std::int32_t i) noexcept {
    const std::int32_t missing = rcp::kHeaderLength + reader_.length - reader_.count;
    const std::int32_t more = std::min(missing, n_ - 1 - i);
    reader_.count = static_cast<std::uint16_t>(reader_.count + more);
    if (reader_.count - reader_.length == rcp::kHeaderLength) reader_.state = RcpFrmState::EndMark;
    return i + more;
  }

  [[gnu::always_inline]] void judgeEndMark(std::uint8_t abyte) noexcept {
    if (abyte == rcp::kEndMark) {
      reader_.state = RcpFrmState::CrcHigh;
      return;
    }
    keepManager();
    manager_.log("[ERROR]parseFrmReader:ENDMARK abyte = %02X", abyte);
    manager_.log("[Test] %@", *manager_._mutableReceivedData);
    clearRcpFrmReader(&reader_);
  }

  /// Delivers the frame that ends at `i` if its CRC is right.
  [[gnu::always_inline]] void takeFrame(std::int32_t i) noexcept {
    const std::span bytes(p_ + start_, p_ + i + 1);
    std::uint16_t acc = rcp::kCrcInitial;
    // From the message type on: the preamble is not covered, the CRC's own bytes are.
    for (const std::uint8_t abyte : bytes.subspan(1)) acc = getCrcPolynomial_acc(abyte, acc);
    keepManager();
    if (acc != 0) {
      manager_.log("[parseRcpFrmReader] CRC_ERROR");
      return;
    }
    const std::optional<NSData> frame(std::in_place, bytes);
    manager_.log("[RX BLE] %@", frame);
    deliver(frame);
    end_ = i;
  }

  [[gnu::always_inline]] void deliver(const std::optional<NSData>& frame) noexcept {
    // Not `this`: as long as nobody outside can reach it, its fields stay in registers.
    const auto handOver = [&manager = manager_, &frame] {
      const auto receiver = manager._rcpReceiverDelegate.lock();
      if (respondsToSelector(receiver.get(), Selector::dispatchRcpFrmReader)) {
        receiver->dispatchRcpFrmReader(frame);
      }
    };
    if (manager_.hopsInPlace_) {
      handOver();
    } else {
      manager_.hopTwice(handOver);
    }
  }

  [[gnu::always_inline]] void trim() noexcept {
    if (n_ == end_ + 1) {
      manager_._mutableReceivedData->setLength(0);
    } else if (start_ > 0) {
      keepFrom(static_cast<std::size_t>(start_));
    }
    // From index 0 on the kept bytes are the buffer as it is.
  }

  [[gnu::always_inline]] void keepFrom(std::size_t start) noexcept {
    NSMutableData& buffer = *manager_._mutableReceivedData;
    if (n_ > kKeptBuffer) {
      buffer = NSMutableData(buffer.span().subspan(start));
    } else {
      buffer.replaceBytesInRange_withBytes_length({0, start}, nullptr, 0);
    }
  }

  /// A receiver or a log sink may drop the manager: called before either is. Not before, since most
  /// arrivals complete no frame. Outside an arrival whoever asked for the parse keeps the manager.
  [[gnu::always_inline]] void keepManager() noexcept {
    if (manager_.parsing_ && !manager_.keptWhileParsing_) {
      manager_.keptWhileParsing_ = manager_.shared_from_this();
    }
  }

  KestrinBleMgr& manager_;
  const std::int32_t n_;
  const std::uint8_t* const p_;
  /// Where the last preamble is, and where the last accepted frame ends.
  std::int32_t start_ = 0;
  std::int32_t end_ = 0;
  RcpFrmReader reader_;
};

std::uint16_t KestrinBleMgr::getCrcPolynomial_acc(std::uint8_t abyte, std::uint16_t acc) noexcept {
  return rcp::crcStep(abyte, acc);
}

void KestrinBleMgr::clearRcpFrmReader(RcpFrmReader* reader) noexcept {
  reader->state = RcpFrmState::Preamble;
  reader->count = 0;
  reader->length = 0;
}

std::int32_t KestrinBleMgr::readData(const NSData& data) noexcept {
  if (parsing_) {
    letWait(data);
    return 0;
  }
  Parse::gather(*this, data);
  // Most arrivals are the middle of a frame.
  if (!Parse::isUnfinished(_mutableReceivedData->span())) parseArrival();
  return 0;
}

[[gnu::noinline]] void KestrinBleMgr::letWait(const NSData& data) noexcept {
  // A receiver feeds bytes from inside a delivery: the running parse goes over a buffer that must
  // not change under it, and each arrival has a parse of its own.
  waitingArrivals_.push_back(data);
}

[[gnu::noinline]] void KestrinBleMgr::parseArrival() noexcept {
  parsing_ = true;
  Parse(*this).run();
  if (!waitingArrivals_.empty()) takeWaitingArrivals();
  parsing_ = false;
  // From here on nothing of this object is touched: this may be its last owner.
  const auto self = std::move(keptWhileParsing_);
}

std::int32_t KestrinBleMgr::parseRcpFrmReader() noexcept {
  Parse(*this).run();
  return 0;
}

void KestrinBleMgr::takeWaitingArrivals() noexcept {
  while (!waitingArrivals_.empty()) {
    for (const NSData& waiting : std::exchange(waitingArrivals_, {})) {
      Parse::gather(*this, waiting);
      parseRcpFrmReader();
    }
  }
}

void KestrinBleMgr::hopTwice(WorkReference work) const noexcept {
  const Dispatch& dispatch = *platform_.dispatch;
  const auto hop = [&dispatch](WorkReference hopped) {
    dispatch.dispatch_sync(dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0),
                           hopped);
  };
  // The second hop adds nothing and is kept on purpose: a platform may count on both.
  hop([&hop, &work] { hop(work); });
}

}  // namespace kestrin
