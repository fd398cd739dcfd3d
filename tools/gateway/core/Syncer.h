// Brings what was appended to the disk: an interval after the first record that is not there yet,
// or at once when the interval is zero.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; the log outlives it. Nobody is called once it is dropped.
// Errors: reported; the records stay and are tried again.
#pragma once

#include "tools/gateway/core/Syncing.h"
#include "tools/gateway/core/Timer.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

class Syncer {
 public:
  struct Handlers {
    /// More records are on the disk; `stateError`: but not what is forgotten and committed.
    std::function<void(const std::optional<std::string>& stateError)> onSynced{};
    /// No more records are.
    std::function<void(const std::string&)> onError{};
  };
  Syncer(std::weak_ptr<RunLoop> loop, Log& log, std::shared_ptr<Syncing> syncing, Time interval,
         Handlers handlers);

  /// To be called behind each append.
  void appended();
  /// The same of anything else in the log, which can wait where the disk has failed.
  void touched();
  /// Calls `done` once everything that was appended is on the disk, or could not be brought there.
  void finish(std::function<void()> done);

 private:
  void begin();
  void ended(const std::shared_ptr<SyncWork>& work);
  void goOn(bool failed, bool isTroubled);
  void callFinished();

  Log& log_;
  const std::shared_ptr<Syncing> syncing_;
  const Time interval_;
  const Handlers handlers_;
  Timer timer_;
  bool running_ = false;
  bool rests_ = false;     // The timer is armed for a pause after an error.
  RecordNumber goal_ = 0;  // Of the sync that is running.
  std::vector<std::function<void()>> finished_;
  const std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

}  // namespace kestrin::gateway
