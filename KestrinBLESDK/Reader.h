/// \class kestrin::Reader
/// One reader, held: found, connected to, brought back after a loss, for as long as you keep this
/// object. Commands go out with `send` and `exchange`, frames come in by a handler, and nothing
/// blocks.
///
/// \code
/// const auto reader = Reader::create(platform, {.reader = "KVR-0417"}, {
///     .onPhase = [](Reader& reader, ReaderPhase phase) {
///       if (phase == ReaderPhase::pluggedIn) reader.send(*buildRcpFrame(0x00, 0x22, {}));
///     },
///     .onFrame = [](Reader&, const RcpFrame& frame) { show(frame.code, frame.payload); },
///     .onTrouble = [](Reader&, const NSError& trouble) { show(trouble.localizedDescription()); },
/// });
/// \endcode
///
/// A reader is in one phase at a time. These are all the ways from one to another:
///
/// | From | To | When |
/// |---|---|---|
/// | `searching` | `connecting` | the reader that is meant has been found |
/// | `connecting` | `linkingUp` | there is a link |
/// | `linkingUp` | `pluggedIn` | the link can be used |
/// | `connecting`, `linkingUp`, `pluggedIn` | `lost` | the link or the attempt has ended |
/// | `lost` | `connecting` | the pause after a loss is over |
/// | any but `away` and `closed` | `radioOff` | the radio cannot be used |
/// | `radioOff` | `searching`, `connecting` | the radio is powered on |
/// | `radioOff` | `linkingUp` | a link shows that the radio is powered on |
/// | any but `closed` | `away` | `leave`, or the application has entered the background |
/// | `away` | `searching`, `connecting`, `radioOff` | `comeBack` |
/// | any but `closed` | `closed` | `close`, or nothing is tried any more |
///
/// docs/link.md has them as a picture.
///
/// Threads: everything happens on the platform's main run loop: create, use and drop a reader on
/// the thread that turns it. Handlers are called there, one at a time, and never from inside an
/// operation of the reader.
///
/// Lifetime: dropping a reader closes its link and calls nobody again; it may be dropped at any
/// moment, also from inside a handler. A reader shares what is in its platform, but does not keep
/// the run loop.
///
/// Many readers: each of them takes a device that no other `Reader` of the process holds. Readers
/// of one platform share one watch of the radio's state, and each has a scan of its own.
///
/// Errors: what an operation cannot do, its `done` is called with, in `KestrinErrorDomain` with a
/// code of `ReaderError`; what goes wrong by itself, `onTrouble` is. Handlers must not throw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/RadioWatch.h"
#include "KestrinBLESDK/RcpFrame.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"
#include "KestrinBLESDK/platform/Platform.h"

namespace kestrin {
/// \addtogroup application
/// @{

class Reader;
namespace reader {
class ReaderCore;
}

/// Where a reader stands; the table of transitions is at `Reader`.
enum class ReaderPhase : std::uint8_t {
  radioOff,    ///< The radio is off, gone, or may not be used; waited for.
  searching,   ///< The reader that is meant is looked for. A reader begins here.
  connecting,  ///< It is known and its link is asked for.
  linkingUp,   ///< There is a link, which cannot be used yet. Frames may come already.
  pluggedIn,   ///< The link can be used.
  lost,        ///< The link has ended; the next attempt comes after a pause.
  away,        ///< Without a link until `comeBack`.
  closed,      ///< The end: nothing is tried any more.
};

/// The phase's name, as it is written in `ReaderPhase`.
KESTRIN_EXPORT std::string_view nameOf(ReaderPhase phase) noexcept;

/// Whether a reader can come from one phase directly to another.
KESTRIN_EXPORT bool mayFollow(ReaderPhase from, ReaderPhase to) noexcept;

/// Codes of `KestrinErrorDomain`, of whatever works one reader.
enum class ReaderError : std::int64_t {
  insideCallback = 10,  ///< `BlockingReader`: the run loop is being turned already.
  noRunLoop = 11,       ///< The platform's run loop is gone or cannot be turned.
  notFound = 12,        ///< The reader did not come into range in time.
  notPluggedIn = 13,    ///< The reader was found and the link did not come up in time.
  unplugged = 14,       ///< The link is down.
  notWritten = 15,      ///< The reader has no characteristic that can be written.
  noAnswer = 16,        ///< Nothing that was waited for came in time.
  stopped = 17,         ///< `BlockingReader`: somebody stopped the run loop meanwhile.
  noFrame = 18,         ///< What is to be sent is not one whole frame.
  queueFull = 19,       ///< Too many frames wait to be sent.
  ambiguous = 20,       ///< Several readers are meant.
  held = 21,            ///< Another `Reader` of this process holds the reader.
  radioOff = 22,        ///< The radio is switched off or resetting.
  radioUnusable = 23,   ///< There is no radio, or it may not be used.
};

/// What becomes of several readers in range that are meant alike.
enum class Ambiguity : std::uint8_t {
  /// None is taken: `onTrouble` is called with `ReaderError::ambiguous`, `Reader::candidates` tells
  /// them apart, and `Reader::choose` takes one. To see whether there are several, the search waits
  /// for half a second after the first, unless an identifier was given.
  refuse,
  /// The one that is seen first is taken, at once.
  takeFirst,
};

/// What a reader is to hold, and how.
struct ReaderOptions {
  /// The reader that is meant: its identifier (case does not count), its whole name, or a part of
  /// its name, in this order; every reader when empty.
  std::string reader{};
  /// How long the search may take, the time included in which the radio is off, until `onTrouble`
  /// is called with `ReaderError::notFound`. Absent: as long as it takes.
  std::optional<Time> findLimit = std::chrono::seconds(30);
  /// The same for each time from a connection request until the reader is plugged in, with
  /// `ReaderError::notPluggedIn`.
  std::optional<Time> plugInLimit = std::chrono::seconds(30);
  /// What becomes of several that are meant alike.
  Ambiguity ambiguity = Ambiguity::refuse;
  /// Whether the reader is held against losses: after one it is connected to again, at once and
  /// then after pauses of 0.5 s, 1 s, 2 s and so on up to a minute, until it is plugged in, without
  /// end; and a limit that has passed ends nothing. Otherwise the first loss, and the first limit
  /// that passes, closes it.
  bool reconnect = true;
  /// How many frames may wait to be sent, the one that is being sent included.
  std::size_t mostWaitingFrames = 64;
  /// The watch that reports the radio's state. Null: the platform's, which all readers share.
  std::shared_ptr<RadioWatch> watch{};
};

/// What a reader calls; each is optional. The reader that calls comes first.
struct ReaderHandlers {
  /// The phase has changed to `phase`. Not called for `close`.
  std::function<void(Reader& reader, ReaderPhase phase)> onPhase{};
  /// One whole, CRC-checked frame that no `exchange` waits for, valid during the call. Frames may
  /// come from `linkingUp` on: readers report by themselves who they are. Within a link a frame can
  /// come twice, and some splits of the arriving bytes lose one: docs/protocol.md says which.
  std::function<void(Reader& reader, const RcpFrame& frame)> onFrame{};
  /// From a reader whose name begins with "KVR-Q62T", which sends no whole frames: the bytes of one
  /// notification as they came.
  std::function<void(Reader& reader, const NSData& value)> onValue{};
  /// Something that a person should know, in one line: why the radio cannot be used, that no such
  /// reader is in range or that it was not plugged in within its limit, that it is refused because
  /// several are meant or another `Reader` holds it, that it was lost and stays so. Its code is a
  /// `ReaderError`.
  std::function<void(Reader& reader, const NSError& trouble)> onTrouble{};
  /// A reader was seen that was not seen before, whether or not it is meant: see `Reader::seen`.
  std::function<void(Reader& reader)> onSeen{};
};

/// A reader in range, as the search has seen it.
struct SeenReader {
  std::string name;        ///< As it came from the air; may hold any bytes.
  std::string identifier;  ///< Tells it from every other one of its radio, for example its address.
  /// Whether name and identifier are the same.
  friend bool operator==(const SeenReader&, const SeenReader&) = default;
};

class KESTRIN_EXPORT Reader final {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// What `send` calls in the end: with no error when the last slice was handed to the radio.
  using SendHandler = std::function<void(const std::optional<NSError>& error)>;
  /// What `exchange` calls in the end: with the answer, valid during the call, or with the error.
  using AnswerHandler = std::function<void(const std::optional<RcpFrame>& answer,
                                           const std::optional<NSError>& error)>;
  /// Names one exchange of a reader; never used again for another.
  using ExchangeId = std::uint64_t;

  /// A reader on `platform`, which begins to search at once. Null, with the reason in `error`, when
  /// the platform's run loop is gone.
  static std::unique_ptr<Reader> create(const Platform& platform, ReaderOptions options,
                                        ReaderHandlers handlers = {}, NSError* error = nullptr);
  /// `create` makes readers.
  Reader(Private key, const Platform& platform, ReaderOptions options, ReaderHandlers handlers);
  /// Closes the link, without waiting for its end.
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// Where the reader stands.
  [[nodiscard]] ReaderPhase phase() const noexcept;
  /// The name by which the reader was found; empty before.
  [[nodiscard]] const std::string& name() const noexcept;
  /// What tells the reader from every other one of its radio; empty before it was found.
  [[nodiscard]] const std::string& identifier() const noexcept;
  /// Whether there is a link or an attempt, which `close` and `leave` end, but not at once.
  [[nodiscard]] bool hasLink() const noexcept;
  /// Every reader that the search has seen, in the order in which they were seen first.
  [[nodiscard]] std::vector<SeenReader> seen() const;
  /// The seen readers that are meant, best matches only, without those that others hold.
  [[nodiscard]] std::vector<SeenReader> candidates() const;
  /// The watch of the radio's state.
  [[nodiscard]] const RadioWatch& radio() const noexcept;

  /// Takes one of the seen readers in the next turn, for a person who chooses among them. False
  /// when none of that identifier was seen, another `Reader` holds it, or the phase is not
  /// `searching`. Where another `Reader` takes it before the next turn, `onTrouble` is called with
  /// `ReaderError::held`.
  bool choose(std::string_view identifier);

  /// Sends a frame, CRC included, as `KestrinBleMgr::send` does: in slices of 20 bytes with a pause
  /// of 0.05 s after each full one, and a last slice that may be empty; but without blocking.
  /// Frames leave one after the other, in the order of the calls. `done` is called in a later turn:
  /// when the last slice has been handed to the radio, which says nothing of its arrival; with
  /// `unplugged` when the reader is not plugged in, or its link ends before; with `notWritten`;
  /// or with `queueFull`, and nothing of the frame is sent.
  void send(const NSData& frame, SendHandler done = {});
  /// Sends a whole frame; `done` is called with the next frame of the same code that comes after
  /// its first slice was written, which `onFrame` is then not called with. Of several exchanges
  /// with one code the first gets the first answer. `noAnswer` when none has come within `limit`
  /// after the last slice; `noFrame` when `frame` is not one whole frame; else as `send`.
  /// Returns what `forget` takes.
  ExchangeId exchange(const NSData& frame, Time limit, AnswerHandler done);
  /// Waits for an answer no longer: `done` is not called, and `onFrame` is called with the frame if
  /// it comes. The command is sent all the same. Harmless when the exchange has ended.
  void forget(ExchangeId exchange);

  /// Gives the link up until `comeBack`, in the next turn; `done` is called once it is down.
  /// Entering the background (`UIApplicationDidEnterBackgroundNotification`) does the same. Limits
  /// do not run meanwhile.
  void leave(std::function<void()> done = {});
  /// Searches or connects again, in the next turn.
  void comeBack();
  /// Ends everything: the phase is `closed` from now on, and no handler is called any more but
  /// `done` of what was to be sent, and the `done` given here, once the link is down.
  void close(std::function<void()> done = {});

 private:
  const std::shared_ptr<reader::ReaderCore> core_;
};

/// @}

}  // namespace kestrin
