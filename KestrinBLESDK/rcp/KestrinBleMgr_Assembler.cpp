// The receive assembler: gathers notified bytes, finds and checks whole frames, delivers each.
//
// It does no work twice within a parse: a preamble is sought with `memchr`, a frame is judged by
// its header and its end mark alone, and the CRC runs over it once, when its last byte is there.
// What can be observed (deliveries, log lines, their order, and the bytes that are kept) is that of
// looking at the buffer byte by byte.
//
// What every arrival and every frame passes is inlined by demand: a call costs as much there as
// what it does. What few arrivals need is kept out of line, so that the others need no room for it.
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

  /// Whether `bytes` are the beginning of one frame and no more: a parse of them tells nobody
  /// anything and keeps them all. Not so a lone preamble, which a parse drops.
  [[gnu::always_inline]] static bool isUnfinished(std::span<const std::uint8_t> bytes) noexcept {
    return bytes.size() > 1 && bytes[0] == rcp::kPreamble && judge(bytes).count > bytes.size();
  }

  explicit Parse(KestrinBleMgr& manager) noexcept
      : manager_(manager),
        // A buffer of 2 GiB or more counts as negative and is kept unparsed.
        n_(static_cast<std::int32_t>(manager._mutableReceivedData->length())),
        p_(manager._mutableReceivedData->bytes()) {}

  [[gnu::always_inline]] void run() noexcept {
    std::int32_t i = 0;
    while (i < n_) {
      const void* preamble = p_ + i;
      if (p_[i] != rcp::kPreamble) {
        preamble = std::memchr(preamble, rcp::kPreamble, static_cast<std::size_t>(n_ - i));
        if (preamble == nullptr) break;
      }
      start_ = static_cast<std::int32_t>(static_cast<const std::uint8_t*>(preamble) - p_);
      i = start_ + pass(std::span(p_ + start_, p_ + n_));
    }
    trim();
  }

 private:
  /// What decides about the frame that `bytes` begin with: the first byte that is wrong, or not
  /// there yet, or the frame's last. `count` is the number of bytes up to and with it, and more
  /// than there are when it is not there.
  [[gnu::always_inline]] static RcpFrmReader judge(std::span<const std::uint8_t> bytes) noexcept {
    RcpFrmReader reader;
    clearRcpFrmReader(&reader);
    reader.state = RcpFrmState::MessageType;
    reader.count = 2;
    if (bytes.size() < reader.count || (bytes[1] & rcp::kReceivedTypeMask) == 0) return reader;
    reader.state = RcpFrmState::LengthLow;
    reader.count = rcp::kHeaderLength;
    if (bytes.size() < reader.count) return reader;
    reader.length = static_cast<std::uint16_t>(bytes[3] << 8 | bytes[4]);
    if (reader.length >= rcp::kRejectedPayloadLength) return reader;
    const auto endMark = static_cast<std::uint16_t>(rcp::kHeaderLength + reader.length);
    reader.state = RcpFrmState::EndMark;
    reader.count = static_cast<std::uint16_t>(endMark + 1);
    if (bytes.size() < reader.count || bytes[endMark] != rcp::kEndMark) return reader;
    reader.state = RcpFrmState::CrcLow;
    reader.count = static_cast<std::uint16_t>(endMark + rcp::kTrailerLength);
    return reader;
  }

  /// Takes or rejects the frame that `bytes` begin with, and returns how many of them that passes:
  /// all of them while it is not all there.
  [[gnu::always_inline]] std::int32_t pass(std::span<const std::uint8_t> bytes) noexcept {
    const RcpFrmReader reader = judge(bytes);
    if (reader.count > bytes.size()) return static_cast<std::int32_t>(bytes.size());
    if (reader.state == RcpFrmState::CrcLow) {
      takeFrame(bytes.first(reader.count));
    } else {
      reject(manager_, reader.state, bytes[reader.count - 1U]);
    }
    return reader.count;
  }

  /// Says what is wrong with a frame: `abyte`, which stands where `state` says.
  static void reject(KestrinBleMgr& manager, RcpFrmState state, std::uint8_t abyte) noexcept {
    keep(manager);
    if (state == RcpFrmState::MessageType) {
      manager.log("[ERROR]parseFrmReader:MESSAGE");
    } else if (state == RcpFrmState::LengthLow) {
      manager.log("[ERROR]parseFrmReader:LENGTH2");
    } else {
      manager.log("[ERROR]parseFrmReader:ENDMARK abyte = %02X", abyte);
      manager.log("[Test] %@", *manager._mutableReceivedData);
    }
  }

  /// Delivers a frame if its CRC is right.
  [[gnu::always_inline]] void takeFrame(std::span<const std::uint8_t> bytes) noexcept {
    std::uint16_t acc = rcp::kCrcInitial;
    // From the message type on: the preamble is not covered, the CRC's own bytes are.
    for (const std::uint8_t abyte : bytes.subspan(1)) acc = getCrcPolynomial_acc(abyte, acc);
    keep(manager_);
    if (acc != 0) {
      manager_.log("[parseRcpFrmReader] CRC_ERROR");
      return;
    }
    end_ = start_ + static_cast<std::int32_t>(bytes.size()) - 1;
    const std::optional<NSData> frame(std::in_place, bytes);
    manager_.log("[RX BLE] %@", frame);
    deliver(frame);
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
    const auto passed = static_cast<std::size_t>(n_ == end_ + 1 ? n_ : start_);
    NSMutableData& buffer = *manager_._mutableReceivedData;
    if (passed > 0 && n_ > kKeptBuffer) {
      buffer = NSMutableData(buffer.span().subspan(passed));
    } else {
      buffer.replaceBytesInRange_withBytes_length({0, passed}, nullptr, 0);
    }
  }

  /// A receiver or a log sink may drop the manager: called before either is. Outside an arrival
  /// whoever asked for the parse keeps the manager.
  [[gnu::always_inline]] static void keep(KestrinBleMgr& manager) noexcept {
    if (manager.parsing_ && !manager.keptWhileParsing_) {
      manager.keptWhileParsing_ = manager.shared_from_this();
    }
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
  Parse::gather(*this, data);
  // What leaves a frame unfinished needs no parse.
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
  while (!waitingArrivals_.empty()) {
    for (const NSData& waiting : std::exchange(waitingArrivals_, {})) {
      Parse::gather(*this, waiting);
      parseRcpFrmReader();
    }
  }
  parsing_ = false;
  // From here on nothing of this object is touched: this may be its last owner.
  const auto self = std::move(keptWhileParsing_);
}

std::int32_t KestrinBleMgr::parseRcpFrmReader() noexcept {
  Parse(*this).run();
  return 0;
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
