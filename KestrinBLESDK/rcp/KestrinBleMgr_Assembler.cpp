// The receive assembler: gathers notified bytes, finds and checks whole frames, delivers each.
//
// It looks at no byte twice within a parse, and of a frame only at the bytes that decide: a
// preamble is sought with `memchr`, a frame is read by its header and its end mark, and the CRC
// runs over it once, when its last byte is there. What can be observed (deliveries, log lines,
// their order, and the bytes that are kept) is that of going through all nine states, byte by byte.
#include <cstring>
#include <span>
#include <utility>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/rcp/FrameLayout.h"
#include "KestrinBLESDK/rcp/RcpFrmReader.h"
#include "KestrinBLESDK/rcp/Trimming.h"

namespace kestrin {
namespace {

/// A buffer of up to this many bytes keeps its memory when it is trimmed: two of the longest frames
/// and one of the longest notifications (Bluetooth Core, Vol 3, Part F, 3.2.9) fit. What a longer
/// one took, while bytes without a preamble waited in it, is given back.
constexpr std::size_t kKeptBuffer = 4096;

/// What reading a frame comes to. The record says at which byte.
enum class Verdict {
  unfinished,  ///< That byte is not there yet.
  rejected,    ///< That byte is wrong.
  whole,       ///< That byte is the last one. The CRC is not checked yet.
};

/// Takes the record on to the byte at `place`; returns whether that is there.
bool goTo(RcpFrmReader& reader, RcpFrmState state, std::size_t place,
          std::span<const std::uint8_t> bytes) noexcept {
  reader.state = state;
  reader.count = static_cast<std::uint16_t>(place + 1);
  return place < bytes.size();
}

/// Reads the frame that `bytes` begin with, from its message type on, into a cleared record.
Verdict read(std::span<const std::uint8_t> bytes, RcpFrmReader& reader) noexcept {
  if (!goTo(reader, RcpFrmState::MessageType, rcp::kTypePlace, bytes)) return Verdict::unfinished;
  if ((bytes[rcp::kTypePlace] & rcp::kReceivedTypeMask) == 0) return Verdict::rejected;
  constexpr std::size_t kHigh = rcp::kPayloadLengthPlace;
  constexpr std::size_t kLow = kHigh + 1;
  if (!goTo(reader, RcpFrmState::LengthLow, kLow, bytes)) return Verdict::unfinished;
  reader.length = static_cast<std::uint16_t>(bytes[kHigh] << 8 | bytes[kLow]);
  if (reader.length >= rcp::kRejectedPayloadLength) return Verdict::rejected;
  const std::size_t endMark = std::size_t{rcp::kHeaderLength} + reader.length;
  if (!goTo(reader, RcpFrmState::EndMark, endMark, bytes)) return Verdict::unfinished;
  if (bytes[endMark] != rcp::kEndMark) return Verdict::rejected;
  const std::size_t last = endMark + rcp::kTrailerLength - 1;
  if (!goTo(reader, RcpFrmState::CrcLow, last, bytes)) return Verdict::unfinished;
  return Verdict::whole;
}

/// Whether `bytes` are the beginning of one frame and no more: a parse of them calls nobody and
/// keeps them all. Not so a lone preamble, which a parse drops.
bool isUnfinishedFrame(std::span<const std::uint8_t> bytes) noexcept {
  RcpFrmReader reader;
  return bytes.size() > 1 && bytes[0] == rcp::kPreamble &&
         read(bytes, reader) == Verdict::unfinished;
}

}  // namespace

/// One parse of the receive buffer.
class KestrinBleMgr::Parse final {
 public:
  explicit Parse(KestrinBleMgr& manager) noexcept
      : manager_(manager),
        n_(rcp::countOf(manager._mutableReceivedData->length())),
        p_(manager._mutableReceivedData->bytes()) {}

  void run() noexcept {
    RcpFrmReader reader;
    std::int32_t i = 0;
    while (i < n_) {
      const void* preamble = p_ + i;
      if (p_[i] != rcp::kPreamble) {
        preamble = std::memchr(preamble, rcp::kPreamble, static_cast<std::size_t>(n_ - i));
        if (preamble == nullptr) break;
      }
      start_ = static_cast<std::int32_t>(static_cast<const std::uint8_t*>(preamble) - p_);
      clearRcpFrmReader(&reader);
      const std::span bytes(p_ + start_, p_ + n_);
      const Verdict verdict = read(bytes, reader);
      if (verdict == Verdict::unfinished) break;
      if (verdict == Verdict::whole) {
        takeFrame(bytes.first(reader.count));
      } else {
        reject(reader.state, bytes[reader.count - 1U]);
      }
      i = start_ + reader.count;
    }
    trim();
  }

 private:
  /// Says what is wrong with a frame: `abyte`, which stands where `state` says.
  void reject(RcpFrmState state, std::uint8_t abyte) const noexcept {
    if (state == RcpFrmState::MessageType) {
      manager_.log("[ERROR]parseFrmReader:MESSAGE");
    } else if (state == RcpFrmState::LengthLow) {
      manager_.log("[ERROR]parseFrmReader:LENGTH2");
    } else {
      manager_.log("[ERROR]parseFrmReader:ENDMARK abyte = %02X", abyte);
      manager_.log("[Test] %@", *manager_._mutableReceivedData);
    }
  }

  /// Delivers a frame if its CRC is right.
  void takeFrame(std::span<const std::uint8_t> bytes) noexcept {
    std::uint16_t acc = rcp::kCrcInitial;
    // From the message type on: the preamble is not covered, the CRC's own bytes are.
    for (const std::uint8_t abyte : bytes.subspan(1)) acc = getCrcPolynomial_acc(abyte, acc);
    if (acc != 0) {
      manager_.log("[parseRcpFrmReader] CRC_ERROR");
      return;
    }
    end_ = start_ + static_cast<std::int32_t>(bytes.size()) - 1;
    const std::optional<NSData> frame(std::in_place, bytes);
    manager_.log("[RX BLE] %@", frame);
    deliver(manager_, frame);
  }

  // Not on `this`: as long as nobody outside can reach it, its fields stay in registers.
  static void deliver(KestrinBleMgr& manager, const std::optional<NSData>& frame) noexcept {
    const auto handOver = [&manager, &frame] {
      const auto receiver = manager._rcpReceiverDelegate.lock();
      if (respondsToSelector(receiver.get(), Selector::dispatchRcpFrmReader)) {
        receiver->dispatchRcpFrmReader(frame);
      }
    };
    if (manager.hopsInPlace_) {
      handOver();
    } else {
      manager.hopTwice(handOver);
    }
  }

  void trim() const noexcept {
    NSMutableData& buffer = *manager_._mutableReceivedData;
    const auto kept = rcp::keptAfterParse(buffer.length(), start_, end_);
    const auto first = static_cast<std::size_t>(kept.first);
    const auto count = static_cast<std::size_t>(kept.count);
    if (count == buffer.length()) return;
    if (buffer.length() > kKeptBuffer) {
      buffer = NSMutableData(buffer.span().subspan(first, count));
      return;
    }
    buffer.replaceBytesInRange_withBytes_length({0, buffer.length() - count}, nullptr, 0);
  }

  KestrinBleMgr& manager_;
  const std::int32_t n_;
  const std::uint8_t* const p_;
  /// Where the last preamble is, and where the last accepted frame ends.
  std::int32_t start_ = 0;
  std::int32_t end_ = 0;
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
  gather(data);
  return parseRcpFrmReader();
}

void KestrinBleMgr::gather(const NSData& data) noexcept {
  if (!_mutableReceivedData) _mutableReceivedData.emplace();
  _mutableReceivedData->appendData(data);
}

void KestrinBleMgr::letWait(const NSData& data) noexcept {
  // A receiver feeds bytes from inside a delivery: the running parse goes over a buffer that must
  // not change under it, and each arrival has a parse of its own.
  waitingArrivals_.push_back(data);
}

bool KestrinBleMgr::gatherWaiting() noexcept {
  if (waitingArrivals_.empty()) return false;
  gather(waitingArrivals_.front());
  waitingArrivals_.pop_front();
  return true;
}

std::int32_t KestrinBleMgr::parseRcpFrmReader() noexcept {
  // Most arrivals from a link with small packets only make an unfinished frame longer.
  if (!isUnfinishedFrame(_mutableReceivedData->span())) parseBuffer();
  return 0;
}

// Out of line: an arrival that leaves a frame unfinished would make room for all of it, and cost a
// twentieth more.
[[gnu::noinline]] void KestrinBleMgr::parseBuffer() noexcept {
  keptAlive([this] {
    parsing_ = true;
    do {
      Parse(*this).run();
    } while (gatherWaiting());
    parsing_ = false;
  });
}

void KestrinBleMgr::hopTwice(WorkReference work) const noexcept {
  const Dispatch& dispatch = *platform_.dispatch;
  const auto hop = [&dispatch](WorkReference hopped) {
    dispatch.dispatch_sync(dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0),
                           hopped);
  };
  // The second hop adds nothing and is kept by design.
  hop([&hop, &work] { hop(work); });
}

}  // namespace kestrin
