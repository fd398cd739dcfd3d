// The receive assembler: gathers notified bytes, finds and checks whole frames, delivers each.
//
// It does no work twice within a scan: a preamble is sought with `memchr`, a payload is passed in
// one stride, and the CRC runs over a frame once, when its last byte is there. What can be observed
// (deliveries, log lines, their order, and the bytes that are kept) is that of looking at the
// buffer byte by byte.
#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/rcp/FrameLayout.h"
#include "KestrinBLESDK/rcp/RcpFrmReader.h"

namespace kestrin {
namespace {

/// The index of the first preamble at or after `from`; when there is none, of the last byte, so
/// that the scan has passed them all.
std::int32_t seekPreamble(const std::uint8_t* bytes, std::int32_t from, std::int32_t n) noexcept {
  const void* found = std::memchr(bytes + from, rcp::kPreamble, static_cast<std::size_t>(n - from));
  if (found == nullptr) return n - 1;
  return static_cast<std::int32_t>(static_cast<const std::uint8_t*>(found) - bytes);
}

/// Passes the payload byte at `i` and those after it that are there, and returns the index of the
/// last one passed. The record counts the byte at `i` already.
std::int32_t passPayload(RcpFrmReader& reader, std::int32_t i, std::int32_t n) noexcept {
  const std::int32_t missing = rcp::kHeaderLength + reader.length - reader.count;
  const std::int32_t more = std::min(missing, n - 1 - i);
  reader.count = static_cast<std::uint16_t>(reader.count + more);
  if (reader.count - reader.length == rcp::kHeaderLength) reader.state = RcpFrmState::EndMark;
  return i + more;
}

}  // namespace

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
    // A receiver feeds bytes from inside a delivery: the running parse goes over a buffer that must
    // not change under it, and each arrival has a parse of its own.
    waitingArrivals_.push_back(data);
    return 0;
  }
  const auto self = shared_from_this();  // A receiver may drop the manager.
  parsing_ = true;
  takeArrival(data);
  while (!waitingArrivals_.empty()) {
    for (const NSData& waiting : std::exchange(waitingArrivals_, {})) takeArrival(waiting);
  }
  parsing_ = false;
  return 0;
}

void KestrinBleMgr::takeArrival(const NSData& data) noexcept {
  const NSData copy = NSData::dataWithData(data);
  if (_mutableReceivedData) {
    _mutableReceivedData->appendData(copy);
  } else {
    _mutableReceivedData = copy.mutableCopy();
  }
  parseRcpFrmReader();
}

std::int32_t KestrinBleMgr::parseRcpFrmReader() noexcept {
  // A buffer of 2 GiB or more counts as negative and is kept unparsed.
  const auto n = static_cast<std::int32_t>(_mutableReceivedData->length());
  const std::uint8_t* const p = _mutableReceivedData->bytes();
  std::int32_t start = 0;
  std::int32_t end = 0;
  RcpFrmReader reader;
  clearRcpFrmReader(&reader);
  for (std::int32_t i = 0; i < n; ++i) {
    ++reader.count;
    switch (reader.state) {
      case RcpFrmState::Preamble:
        i = seekPreamble(p, i, n);
        if (p[i] != rcp::kPreamble) {
          reader.count = 0;
          break;
        }
        reader.count = 1;
        reader.state = RcpFrmState::MessageType;
        start = i;
        break;
      case RcpFrmState::MessageType:
        judgeMessageType(reader, p[i]);
        break;
      case RcpFrmState::Code:
        reader.state = RcpFrmState::LengthHigh;
        break;
      case RcpFrmState::LengthHigh:
        reader.length = static_cast<std::uint16_t>(p[i] << 8);
        reader.state = RcpFrmState::LengthLow;
        break;
      case RcpFrmState::LengthLow:
        judgeLength(reader, p[i]);
        break;
      case RcpFrmState::Payload:
        i = passPayload(reader, i, n);
        break;
      case RcpFrmState::EndMark:
        judgeEndMark(reader, p[i]);
        break;
      case RcpFrmState::CrcHigh:
        reader.state = RcpFrmState::CrcLow;
        break;
      case RcpFrmState::CrcLow:
        if (judgeCrc(std::span(p + start, p + i + 1))) end = i;
        clearRcpFrmReader(&reader);
        break;
    }
  }
  trimReceivedData(n, start, end);
  return 0;
}

void KestrinBleMgr::judgeMessageType(RcpFrmReader& reader, std::uint8_t abyte) noexcept {
  if ((abyte & rcp::kReceivedTypeMask) != 0) {
    reader.state = RcpFrmState::Code;
    return;
  }
  log("[ERROR]parseFrmReader:MESSAGE");
  clearRcpFrmReader(&reader);
}

void KestrinBleMgr::judgeLength(RcpFrmReader& reader, std::uint8_t abyte) noexcept {
  reader.length = static_cast<std::uint16_t>(reader.length | abyte);
  if (reader.length >= rcp::kRejectedPayloadLength) {
    clearRcpFrmReader(&reader);
    log("[ERROR]parseFrmReader:LENGTH2");
    return;
  }
  reader.state = reader.length != 0 ? RcpFrmState::Payload : RcpFrmState::EndMark;
}

void KestrinBleMgr::judgeEndMark(RcpFrmReader& reader, std::uint8_t abyte) noexcept {
  if (abyte == rcp::kEndMark) {
    reader.state = RcpFrmState::CrcHigh;
    return;
  }
  log("[ERROR]parseFrmReader:ENDMARK abyte = %02X", abyte);
  log("[Test] %@", *_mutableReceivedData);
  clearRcpFrmReader(&reader);
}

bool KestrinBleMgr::judgeCrc(std::span<const std::uint8_t> bytes) noexcept {
  std::uint16_t acc = rcp::kCrcInitial;
  // From the message type on: the preamble is not covered, the CRC's own bytes are.
  for (const std::uint8_t abyte : bytes.subspan(1)) acc = getCrcPolynomial_acc(abyte, acc);
  if (acc != 0) {
    log("[parseRcpFrmReader] CRC_ERROR");
    return false;
  }
  const std::optional<NSData> frame(std::in_place, bytes);
  log("[RX BLE] %@", frame);
  deliver(frame);
  return true;
}

void KestrinBleMgr::deliver(const std::optional<NSData>& frame) noexcept {
  const Dispatch& dispatch = *platform_.dispatch;
  dispatch.dispatch_sync(
      dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0),
      [this, &dispatch, &frame] {
        // The second hop adds nothing and is kept on purpose: a platform may count on both.
        dispatch.dispatch_sync(
            dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0), [this, &frame] {
              const auto receiver = rcpReceiverDelegate();
              if (respondsToSelector(receiver.get(), Selector::dispatchRcpFrmReader)) {
                receiver->dispatchRcpFrmReader(frame);
              }
            });
      });
}

void KestrinBleMgr::trimReceivedData(std::int32_t length, std::int32_t start,
                                     std::int32_t end) noexcept {
  if (length == end + 1) {
    _mutableReceivedData->setLength(0);
  } else if (start > 0) {
    const auto first = static_cast<std::size_t>(start);
    _mutableReceivedData = NSMutableData(_mutableReceivedData->span().subspan(first));
  }
  // From index 0 on the kept bytes are the buffer as it is.
}

}  // namespace kestrin
