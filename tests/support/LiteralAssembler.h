// The oracle of the receive assembler: the algorithm byte by byte, exactly as it is defined, with
// nothing left out and nothing made faster. The library's assembler skips work; whatever can be
// observed of it must be what comes out here.
//
// Threads: one. Lifetime: owns its buffer and its events. Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/ReferenceFrame.h"

namespace kestrin::test {

class LiteralAssembler {
 public:
  /// The event that a test writes for a delivered frame, in order with the log lines.
  static std::string deliveryOf(const std::string& description) { return "FRAME " + description; }

  /// Takes one arrival and parses the whole buffer.
  void readData(const Bytes& arrival) {
    buffer_.insert(buffer_.end(), arrival.begin(), arrival.end());
    parse();
  }
  [[nodiscard]] const Bytes& kept() const { return buffer_; }
  /// Log lines and deliveries since the last call, in order.
  std::vector<std::string> take() { return std::exchange(events_, {}); }

 private:
  enum State {
    Preamble,
    MessageType,
    Code,
    LengthHigh,
    LengthLow,
    Payload,
    EndMark,
    CrcHigh,
    CrcLow
  };

  void parse() {
    const auto n = static_cast<std::int32_t>(buffer_.size());
    acc_ = 0;
    start_ = 0;
    end_ = 0;
    clear();
    for (std::int32_t i = 0; i < n; ++i) {
      const std::uint8_t abyte = buffer_[static_cast<std::size_t>(i)];
      count_ = static_cast<std::uint16_t>(count_ + 1);
      acc_ = referenceCrcStep(abyte, acc_);
      act(abyte, i);
    }
    trim(n);
  }

  void act(std::uint8_t abyte, std::int32_t i) {
    switch (state_) {
      case Preamble:
        if (abyte == 0xBB) {
          state_ = MessageType;
          start_ = i;
        } else {
          count_ = 0;
        }
        break;
      case MessageType:
        if ((abyte & 0x03) == 0) {
          log("[ERROR]parseFrmReader:MESSAGE");
          clear();
        } else {
          state_ = Code;
        }
        acc_ = referenceCrcStep(abyte, 0xFFFF);
        break;
      case Code:
        state_ = LengthHigh;
        break;
      case LengthHigh:
        length_ = static_cast<std::uint16_t>(abyte << 8);
        state_ = LengthLow;
        break;
      case LengthLow:
        takeLengthLow(abyte);
        break;
      case Payload:
        if (count_ - length_ == 5) state_ = EndMark;
        break;
      case EndMark:
        takeEndMark(abyte);
        break;
      case CrcHigh:
        state_ = CrcLow;
        break;
      case CrcLow:
        takeCrcLow(i);
        break;
    }
  }

  void takeLengthLow(std::uint8_t abyte) {
    length_ = static_cast<std::uint16_t>(length_ | abyte);
    if (length_ >= 0x3FE) {
      clear();
      log("[ERROR]parseFrmReader:LENGTH2");
    } else if (length_ != 0) {
      state_ = Payload;
    } else {
      state_ = EndMark;
    }
  }

  void takeEndMark(std::uint8_t abyte) {
    if (abyte != 0x7E) {
      log("[ERROR]parseFrmReader:ENDMARK abyte = " + twoDigits(abyte, "0123456789ABCDEF"));
      log("[Test] " + describe(buffer_));
      clear();
    } else {
      state_ = CrcHigh;
    }
  }

  void takeCrcLow(std::int32_t i) {
    if (acc_ == 0) {
      end_ = i;
      const auto first = static_cast<std::size_t>(start_);
      const Bytes frame = part(buffer_, first, static_cast<std::size_t>(end_) - first + 1);
      log("[RX BLE] " + describe(frame));
      events_.push_back(deliveryOf(describe(frame)));
    } else {
      log("[parseRcpFrmReader] CRC_ERROR");
    }
    clear();
  }

  void trim(std::int32_t n) {
    if (n == end_ + 1) {
      buffer_.clear();
    } else {
      buffer_ = from(buffer_, static_cast<std::size_t>(start_));
    }
  }

  void clear() {
    state_ = Preamble;
    count_ = 0;
    length_ = 0;
  }
  void log(std::string line) { events_.push_back(std::move(line)); }

  static std::string twoDigits(std::uint8_t byte, const char* digits) {
    return {digits[byte >> 4], digits[byte & 0x0F]};
  }
  static std::string describe(const Bytes& bytes) {
    std::string text = "<";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      if (i > 0 && i % 4 == 0) text += ' ';
      text += twoDigits(bytes[i], "0123456789abcdef");
    }
    return text + ">";
  }

  Bytes buffer_;
  std::vector<std::string> events_;
  State state_ = Preamble;
  std::uint16_t count_ = 0;
  std::uint16_t length_ = 0;
  std::uint16_t acc_ = 0;
  std::int32_t start_ = 0;
  std::int32_t end_ = 0;
};

}  // namespace kestrin::test
