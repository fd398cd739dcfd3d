// What `--json` prints: one JSON object per line, with the fields that a recording gives the same
// events.
//
// Threads: the main run loop's.
// Lifetime: outlives the session; drop it before the run loop.
// Errors: those of the console.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>

#include <memory>

#include "KestrinBLESDK/recording/RecordedEvent.h"
#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/session/SessionReport.h"

namespace kestrin::app {

class JsonReport final : public SessionReport {
 public:
  /// Counts time from now on, by this loop.
  JsonReport(Console& console, const RunLoop& loop);
  void reader(const std::string& name, const std::string& identifier) override;
  void plugged(bool isPlugged) override;
  void frame(const std::optional<NSData>& frame) override;
  void sent(const NSData& frame) override;
  void state(CBManagerState state);

 private:
  void print(RecordedEvent event);

  Console& console_;
  const RunLoop& loop_;
  const Time begin_;
};

/// What `--json` prints when `json`, else lines.
std::unique_ptr<SessionReport> makeSessionReport(bool json, RadioEnvironment& environment,
                                                 Console& console);

}  // namespace kestrin::app
