// A reader's inside: the manager that works it, and the phase that it is in.
//
// Each operation does what is to be done first and calls a handler last: a handler may use the
// reader, or drop it.
//
// Threads: the main run loop's.
// Lifetime: events and timers hold it weakly, and keep it while they are handled; `drop` ends it.
// Errors: those of `Reader`.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/Reader.h"
#include "KestrinBLESDK/reader/Claim.h"
#include "KestrinBLESDK/reader/LinkWatch.h"
#include "KestrinBLESDK/reader/ReaderChoice.h"
#include "KestrinBLESDK/reader/SendQueue.h"
#include "KestrinBLESDK/reader/TimeLimit.h"
#include "KestrinBLESDK/recording/RecordedManager.h"

namespace kestrin::reader {

class ReaderCore final : public KestrinBLEProtocols,
                         public RcpReceiver,
                         public LinkListener,
                         public std::enable_shared_from_this<ReaderCore> {
 public:
  using SendHandler = Reader::SendHandler;
  using AnswerHandler = Reader::AnswerHandler;
  using ExchangeId = Reader::ExchangeId;

  ReaderCore(Reader& owner, const Platform& platform, ReaderOptions options,
             ReaderHandlers handlers);
  ~ReaderCore() override;
  ReaderCore(const ReaderCore&) = delete;
  ReaderCore& operator=(const ReaderCore&) = delete;

  void start();
  /// Closes the link and calls nobody again.
  void drop() noexcept;

  // What `Reader` offers.
  [[nodiscard]] ReaderPhase phase() const noexcept { return phase_; }
  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  [[nodiscard]] const std::string& identifier() const noexcept { return identifier_; }
  [[nodiscard]] bool hasLink() const noexcept { return link_ != Link::none; }
  [[nodiscard]] const ReaderChoice& choice() const noexcept { return choice_; }
  [[nodiscard]] const RadioWatch& radio() const noexcept { return *watch_; }
  bool choose(std::string_view identifier);
  void send(const NSData& frame, SendHandler done);
  ExchangeId exchange(const NSData& frame, Time limit, AnswerHandler done);
  void forget(ExchangeId exchange);
  void leaveSoon(std::function<void()> done);
  void comeBackSoon();
  void close(std::function<void()> done);

  // What the manager reports.
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& device) noexcept override;
  void plugChangedStatus(bool plugged) noexcept override;
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override;

  // What its radio reports.
  void radioReported() noexcept override;
  void linkBegan(const std::shared_ptr<CBPeripheral>& device) noexcept override;
  void linkEnded(const std::shared_ptr<CBPeripheral>& device) noexcept override;

 private:
  enum class Link : std::uint8_t { none, wanted, up };
  /// Somebody who waits for a frame with a code.
  struct Awaited {
    ExchangeId id = 0;
    std::uint8_t code = 0;
    bool begun = false;
    AnswerHandler done;
    std::optional<RunLoop::TimerId> limit;
  };

  // The phases.
  void takeRadioState(CBManagerState state);
  void radioIsOff();
  void radioIsOn();
  void take(const ReaderChoice::Seen& seen);
  void connect();
  void lose();
  void leave(std::function<void()> done);
  void comeBack();
  void makeManager();
  void connectAfterPause();
  void goOn();
  void giveUp();
  void stop();
  void whenDown(std::function<void()> done);
  void findLimitPassed();
  void plugInLimitPassed();
  void startLimit(const std::optional<Time>& limit, void (ReaderCore::*passed)());

  // The search.
  void lookAround();
  void lookLater();
  void settle();
  void refuse(ReaderError code, const std::string& text);
  void takeChosen();

  // Frames.
  [[nodiscard]] std::optional<NSError> whyNotSent() const;
  void enqueue(const NSData& frame, std::function<void()> begun, SendHandler done);
  bool write(const NSData& slice);
  void record(SendQueue::Frame& entry);
  std::vector<Awaited>::iterator awaited(ExchangeId id);
  void answer(ExchangeId id, const std::optional<RcpFrame>& frame,
              const std::optional<NSError>& error);
  void startAnswerLimit(ExchangeId id, Time limit);
  [[nodiscard]] bool takeAnswer(const RcpFrame& frame);
  void endFrames();

  // Handlers.
  void enter(ReaderPhase phase);
  void tellTrouble(ReaderError code, const std::string& text);
  /// Calls a handler, which may drop the reader: nothing but `owner_` and `phase_` may be relied on
  /// afterwards.
  template <class Handler, class... Arguments>
  void tell(Handler ReaderHandlers::*which, const Arguments&... arguments) {
    if (owner_ == nullptr) return;
    const auto handlers = handlers_;
    const auto& handler = (*handlers).*which;
    if (handler) handler(*owner_, arguments...);
  }
  void later(void (ReaderCore::*operation)());
  std::optional<RunLoop::TimerId> arm(Time delay, void (ReaderCore::*operation)());
  void disarm(std::optional<RunLoop::TimerId>& timer);

  Reader* owner_;  // Null once it is dropped.
  std::shared_ptr<const ReaderHandlers> handlers_;
  const Platform platform_;
  const ReaderOptions options_;
  const std::shared_ptr<RadioWatch> watch_;
  std::shared_ptr<void> watchToken_;
  std::shared_ptr<void> claimToken_;
  std::unique_ptr<RecordedManager> manager_;
  const std::shared_ptr<SendQueue> sends_;

  ReaderPhase phase_ = ReaderPhase::searching;
  Link link_ = Link::none;
  bool hadLink_ = false;      // The manager has had one.
  std::string radioTrouble_;  // What was last said of the radio.
  TimeLimit limit_;
  std::optional<RunLoop::TimerId> pause_;
  std::size_t attempts_ = 0;      // Since the reader was last plugged in.
  std::uint64_t departures_ = 0;  // How often it was left.

  const std::shared_ptr<Radio> radio_;  // The one itself, not one that records.
  ReaderChoice choice_;
  std::optional<RunLoop::TimerId> settling_;
  bool settled_ = false;                  // Readers have had their time to be seen.
  std::string refusal_;                   // What was last said of several, or of one that is held.
  std::shared_ptr<CBPeripheral> chosen_;  // By a person; taken in the next turn.
  std::shared_ptr<CBPeripheral> device_;
  std::unique_ptr<Claim> claim_;
  std::string name_;
  std::string identifier_;

  std::vector<Awaited> awaited_;
  ExchangeId lastAwaited_ = 0;
  std::vector<std::function<void()>> closed_;  // Who waits for the link to be down.
};

}  // namespace kestrin::reader
