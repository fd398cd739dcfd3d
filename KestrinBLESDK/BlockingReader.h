/// \class kestrin::BlockingReader
/// A reader worked step by step, for scripts and tests: each operation turns the main run loop
/// until it is done or its time is over.
///
/// \code
/// NSError error;
/// auto reader = BlockingReader::connect(platform, "KVR", 30s, &error);
/// if (!reader) return fail(error.localizedDescription());
/// auto answer = reader->exchange(*buildRcpFrame(0x00, 0x22, {}), 5s, &error);
/// \endcode
///
/// An application with an event loop of its own uses `Reader` instead, which this is a shell of.
///
/// Threads: the one that turns the platform's run loop, outside of every callback: what would have
/// to wait for itself is refused with an error that says so.
///
/// Lifetime: dropping it closes the link without waiting for the link's end. It is not connected to
/// again when its link is lost.
///
/// Errors: told where the caller asks, in `KestrinErrorDomain` with a code of `ReaderError`.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KestrinBLESDK/Reader.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"
#include "KestrinBLESDK/platform/Platform.h"

namespace kestrin {
/// \addtogroup application
/// @{

/// The codes of its errors, by the name that they had first.
using BlockingError = ReaderError;

class KESTRIN_EXPORT BlockingReader {
 public:
  /// Scans, connects to the first reader whose name contains `name` (case counts; every reader's
  /// does if empty) or whose identifier it is, and returns when it is plugged in. Null when that
  /// takes longer than `limit`.
  static std::unique_ptr<BlockingReader> connect(const Platform& platform, std::string_view name,
                                                 Time limit, NSError* error = nullptr);
  /// Closes the link, without waiting for its end.
  ~BlockingReader();
  BlockingReader(const BlockingReader&) = delete;
  BlockingReader& operator=(const BlockingReader&) = delete;

  /// The name by which the reader was found.
  [[nodiscard]] const std::string& name() const noexcept { return reader_->name(); }
  /// Whether the reader is plugged in.
  [[nodiscard]] bool isPluggedIn() const noexcept;

  /// Hands one whole frame to the radio, which takes 0.05 s per full slice of 20 bytes. False, with
  /// the reason in `error`, when it cannot be written or the link ends before it has left. What it
  /// is made of is not looked at.
  bool send(const NSData& frame, NSError* error = nullptr);
  /// The next frame that has come or comes within `limit`, in the order of arrival; of a reader
  /// whose name begins with "KVR-Q62T" the next notification's bytes. Absent, with the reason in
  /// `error`, when none comes.
  std::optional<NSData> receive(Time limit, NSError* error = nullptr);
  /// Sends a frame and returns the first frame with the same code that comes after it within
  /// `limit`. Other frames are kept for `receive`. A reader whose name begins with "KVR-Q62T" sends
  /// no whole frames: `send` and `receive` are for that one.
  std::optional<NSData> exchange(const NSData& frame, Time limit, NSError* error = nullptr);
  /// Closes the link and returns when it is down; false when that takes longer than `limit`.
  bool close(Time limit, NSError* error = nullptr);

 private:
  struct Arrivals;

  BlockingReader(std::shared_ptr<MainRunLoop> loop, std::unique_ptr<Arrivals> arrivals,
                 std::unique_ptr<Reader> reader);
  bool canBeUsed(NSError* error) const;

  const std::shared_ptr<MainRunLoop> loop_;
  const std::unique_ptr<Arrivals> arrivals_;
  const std::unique_ptr<Reader> reader_;
};

/// @}

}  // namespace kestrin
