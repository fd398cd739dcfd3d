// What the assembler's tests share: a manager whose log and deliveries are kept as one list of
// events in the order in which they happened.
//
// Threads: the test's. Lifetime: each test has its own manager. Errors: none.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "support/KestrinBleMgrTestPeer.h"
#include "support/RecordingLog.h"
#include "support/ReferenceFrame.h"

namespace kestrin::test {

using Events = std::vector<std::string>;

/// Writes each delivery into the log, and then does what the test wants done inside it.
class FrameListener final : public RcpReceiver {
 public:
  explicit FrameListener(std::shared_ptr<RecordingLog> log, std::string word = "FRAME")
      : log_(std::move(log)), word_(std::move(word)) {}
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    log_->write(word_ + " " + (frame ? frame->description() : "(null)"));
    if (inside) inside();
  }
  std::function<void()> inside;

 private:
  const std::shared_ptr<RecordingLog> log_;
  const std::string word_;
};

class AssemblerTest : public ::testing::Test {
 protected:
  AssemblerTest() : AssemblerTest(nullptr) {}
  explicit AssemblerTest(std::shared_ptr<Dispatch> dispatch) {
    Platform platform;
    platform.log = log;
    platform.dispatch = std::move(dispatch);
    platform.notificationCenter = std::make_shared<NSNotificationCenter>();
    manager = KestrinBleMgr::init(platform);
    manager->setRcpReceiverDelegate(listener);
  }

  /// One arrival; the events that it led to.
  Events arrive(const Bytes& bytes) {
    EXPECT_EQ(manager->readData(NSData(bytes)), 0);
    return log->take();
  }
  /// The kept bytes. The buffer must be there.
  Bytes kept() {
    const auto& buffer = KestrinBleMgrTestPeer::_mutableReceivedData(*manager);
    if (!buffer) {
      ADD_FAILURE() << "there is no receive buffer";
      return {};
    }
    return Bytes(buffer->span().begin(), buffer->span().end());
  }

  const std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
  const std::shared_ptr<FrameListener> listener = std::make_shared<FrameListener>(log);
  std::shared_ptr<KestrinBleMgr> manager;
};

// Frames with what is heard of them, written out.
inline const Bytes kFrameA = {0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37};
inline const Events kHeardA = {"[RX BLE] <bb010300 01b17e20 37>", "FRAME <bb010300 01b17e20 37>"};
/// Without payload.
inline const Bytes kFrameB = {0xBB, 0x02, 0x11, 0x00, 0x00, 0x7E, 0xA7, 0xC5};
inline const Events kHeardB = {"[RX BLE] <bb021100 007ea7c5>", "FRAME <bb021100 007ea7c5>"};
/// With preambles and an end mark in the payload.
inline const Bytes kFrameC = {0xBB, 0x01, 0x22, 0x00, 0x03, 0xBB, 0x7E, 0xBB, 0x7E, 0xE7, 0x43};
inline const Events kHeardC = {"[RX BLE] <bb012200 03bb7ebb 7ee743>",
                               "FRAME <bb012200 03bb7ebb 7ee743>"};
/// The host's own get-reader-info command.
inline const Bytes kGetReaderInfo = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};

inline constexpr char kMessageError[] = "[ERROR]parseFrmReader:MESSAGE";
inline constexpr char kLengthError[] = "[ERROR]parseFrmReader:LENGTH2";
inline constexpr char kCrcError[] = "[parseRcpFrmReader] CRC_ERROR";

/// Events one after another.
inline Events heard(std::initializer_list<Events> parts) {
  Events all;
  for (const Events& events : parts) all.insert(all.end(), events.begin(), events.end());
  return all;
}

}  // namespace kestrin::test
