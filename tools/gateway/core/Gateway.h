// The gateway whole: what its readers send goes into the log, from there to the broker, and leaves
// the log when the declared consumers have it.
//
// Threads: the main run loop's.
// Lifetime: dropping it without `stop` is what a kill is: nothing more is said, and the log keeps
// what it has.
// Errors: a line each by `Parts::say`, and in the health topic as long as they last.
#pragma once

#include "tools/gateway/config/Config.h"
#include "tools/gateway/core/Activity.h"
#include "tools/gateway/core/Commands.h"
#include "tools/gateway/core/Commits.h"
#include "tools/gateway/core/HeldReaders.h"
#include "tools/gateway/core/Outbox.h"
#include "tools/gateway/core/Parts.h"
#include "tools/gateway/core/Publisher.h"
#include "tools/gateway/core/Pulse.h"
#include "tools/gateway/core/Recorder.h"
#include "tools/gateway/core/Replays.h"
#include "tools/gateway/core/Stalls.h"
#include "tools/gateway/core/Syncer.h"
#include "tools/gateway/core/Webhooks.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

class Gateway {
 public:
  using Answered = std::function<void(const std::string& answer)>;

  /// Begins at once.
  Gateway(Parts parts, Config config);
  ~Gateway() = default;
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  /// Takes what has changed in the configuration; returns the keys whose change takes a restart.
  std::vector<std::string> reload(const Config& config);
  /// Leaves the readers, puts the log on the disk, gives the broker a few seconds and says that it
  /// is offline; then calls `done`.
  void stop(std::function<void()> done);

  [[nodiscard]] const Log& log() const noexcept { return *parts_.log; }
  [[nodiscard]] const Activity& activity() const noexcept { return activity_; }
  [[nodiscard]] const Publisher& publisher() const noexcept { return publisher_; }
  /// How everything is at the moment.
  [[nodiscard]] Status status();
  /// Gives a reader a command, as a message on its topic does; `answered` is called once, perhaps
  /// from inside, with what would be published to the response topic.
  void command(const std::string& reader, const std::string& payload, Answered answered);
  /// What is wrong at the moment, a line each.
  [[nodiscard]] std::vector<std::string> troubles() { return troubles_.lines(); }
  /// How it stands, in one line.
  [[nodiscard]] std::string standing() const;

 private:
  enum class Stand : std::uint8_t { runs, leavesReaders, syncs, saysFarewell, ended };

  Troubles::Handlers troubleHandlers();
  Syncer::Handlers syncHandlers();
  Commands::Handlers commandHandlers();
  Webhooks::How webhookHow();
  HeldReaders::Handlers readerHandlers();
  BrokerHandlers brokerHandlers();

  void up(const BrokerUp& broker);
  void down(const std::string& why);
  void answer(Message message);
  [[nodiscard]] std::vector<ReaderStatus> readerStatus() const;
  void acknowledged(PublishId id, const std::optional<std::string>& refused);
  void took(const Message& message);
  void tookReplay(const Message& message);
  void beginAgain(RecordNumber from);
  void appended(const Record& record, std::optional<RecordNumber> number);
  void pump();
  void forgetSoon();
  void forget();
  void beat();
  void lookForSilence();
  void lookForStalls();
  void noteState(const std::optional<std::string>& error);
  void sayReader(const std::string& identifier, const std::optional<ReaderState>& state);
  void removeOldReaders();
  void removed(const std::string& topic);
  void takeFindings(const std::vector<std::string>& findings);
  void sayState(bool online);
  void sayInfo();
  void sayPromise();
  [[nodiscard]] std::string promise() const;
  [[nodiscard]] Health health();
  void readersLeft();
  void logSynced();
  void farewellSaid();
  void ended();
  [[nodiscard]] Time now() const;
  void say(const Line& line) const;

  Parts parts_;
  Config config_;
  const Topics topics_;
  Troubles troubles_;
  Window window_;
  Outbox outbox_;
  Publisher publisher_;
  Commits commits_;
  Webhooks webhooks_;
  Stalls stalls_;
  std::int64_t brokerSinceMs_ = 0;  // When its connection came or went.
  const std::int64_t startedMs_;
  Activity activity_;
  std::map<std::string, Answered> asked_;  // By what stands for a response topic.
  std::uint64_t asks_ = 0;
  Time heardOfBroker_{};  // When it last answered, or had nothing to answer.
  Syncer syncer_;
  Recorder recorder_;
  Replays replays_;
  Pulse pulse_;
  Timer forget_;
  Timer limit_;
  Commands commands_;
  Stand stand_ = Stand::runs;
  std::function<void()> stopped_{};
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  HeldReaders readers_;
};

}  // namespace kestrin::gateway
