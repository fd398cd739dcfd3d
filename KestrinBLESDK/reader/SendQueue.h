// Frames on their way out: one after the other, each in slices, with a pause after every full one
// in which the run loop goes on.
//
// The writes are those of `KestrinBleMgr::send`, at the same times.
//
// Threads: the main run loop's.
// Lifetime: what waits is dropped with the queue, and nobody is called.
// Errors: handed to whoever wants to know what became of a frame.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"
#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::reader {

class SendQueue final : public std::enable_shared_from_this<SendQueue> {
 public:
  // As in the manager's own sending.
  static constexpr std::size_t kSlice = 20;  // Bytes.
  static constexpr Time kPauseAfterFullSlice = std::chrono::milliseconds(50);

  struct Frame {
    NSData bytes;
    /// Called before the first slice is written.
    std::function<void()> begun;
    /// Called at once when the last slice was written or is not written any more, if any was.
    std::function<void(bool taken)> ended;
    /// Called in a later turn than the last slice, or than `end`.
    std::function<void(const std::optional<NSError>&)> done;
  };
  /// Hands one slice to the radio; false when the reader cannot be written.
  using Write = std::function<bool(const NSData& slice)>;

  SendQueue(std::weak_ptr<RunLoop> loop, Write write);
  ~SendQueue();
  SendQueue(const SendQueue&) = delete;
  SendQueue& operator=(const SendQueue&) = delete;

  /// The frames that are not done, the one that is being sent included.
  [[nodiscard]] std::size_t size() const noexcept { return frames_.size(); }
  void add(Frame frame);
  /// Ends every frame with `error`; nothing more of them is written.
  void end(const NSError& error);
  /// Calls `done` with what became of a frame, in a later turn, unless this is dropped before.
  void finish(Frame frame, std::optional<NSError> error);
  /// From now on nobody is called.
  void drop() noexcept;

 private:
  void writeOn();
  void writeAfterPause();

  const std::weak_ptr<RunLoop> loop_;
  const Write write_;
  std::deque<Frame> frames_;
  std::size_t written_ = 0;  // Bytes of the first frame.
  bool hasBegun_ = false;    // The first frame's first slice was written.
  std::optional<RunLoop::TimerId> pause_;
  bool writing_ = false;
  bool dropped_ = false;
  std::uint64_t ends_ = 0;  // How often everything was ended, also from inside a write.
};

}  // namespace kestrin::reader
