// Fuzzes the receive assembler against its byte-by-byte twin: whatever the bytes and however they
// are cut into arrivals, deliveries, log lines, their order and the kept bytes are the same.
//
// Input: one byte n (only its low six bits count), n bytes that say where to cut, then the stream.
// The cuts are used in a circle: 0 is an arrival of no bytes, 255 the whole rest, any other the
// next arrival's length.
#include <memory>
#include <optional>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "fuzz/Fuzzing.h"
#include "support/KestrinBleMgrTestPeer.h"
#include "support/LiteralAssembler.h"
#include "support/RecordingLog.h"

namespace kestrin::fuzz {
namespace {

using test::LiteralAssembler;
using test::RecordingLog;

// Both look at every kept byte again with each arrival. After so many looks the rest of the stream
// comes at once.
constexpr std::size_t kMostLooks = 40000;
// An arrival costs even when it is empty.
constexpr std::size_t kLooksPerArrival = 40;
constexpr std::size_t kLongestStream = 4096;

class FrameWriter final : public RcpReceiver {
 public:
  explicit FrameWriter(std::shared_ptr<RecordingLog> log) : log_(std::move(log)) {}
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    require(frame.has_value(), "the assembler never delivers an absent frame");
    log_->write(LiteralAssembler::deliveryOf(frame->description()));
  }

 private:
  const std::shared_ptr<RecordingLog> log_;
};

class Comparison {
 public:
  Comparison() {
    Platform platform;
    platform.log = log_;
    platform.notificationCenter = std::make_shared<NSNotificationCenter>();
    manager_ = KestrinBleMgr::init(platform);
    manager_->setRcpReceiverDelegate(receiver_);
  }

  void arrive(ByteView bytes) {
    require(manager_->readData(NSData(bytes)) == 0, "readData returns 0");
    twin_.readData(Bytes(bytes.begin(), bytes.end()));
    require(log_->take() == twin_.take(), "deliveries and log lines are those of the twin");
    const auto& kept = KestrinBleMgrTestPeer::_mutableReceivedData(*manager_);
    require(kept.has_value(), "the buffer is there once bytes have come");
    require(std::ranges::equal(kept->span(), twin_.kept()), "the kept bytes are those of the twin");
    looks_ += kept->length() + bytes.size() + kLooksPerArrival;
  }
  [[nodiscard]] std::size_t looks() const { return looks_; }

 private:
  const std::shared_ptr<RecordingLog> log_ = std::make_shared<RecordingLog>();
  const std::shared_ptr<FrameWriter> receiver_ = std::make_shared<FrameWriter>(log_);
  std::shared_ptr<KestrinBleMgr> manager_;
  LiteralAssembler twin_;
  std::size_t looks_ = 0;
};

void run(ByteSource input) {
  const ByteView cuts = input.take(input.u8() & 0x3F);
  ByteSource stream(input.take(kLongestStream));
  Comparison comparison;
  for (std::size_t i = 0; !stream.empty(); ++i) {
    const std::uint8_t cut = cuts.empty() ? 0xFF : cuts[i % cuts.size()];
    const bool atOnce = cut == 0xFF || comparison.looks() > kMostLooks;
    comparison.arrive(atOnce ? stream.rest() : stream.take(cut));
  }
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrin::fuzz::run(kestrin::fuzz::ByteSource({data, size}));
  return 0;
}
