#include "tools/kestrin/commands/RunOnRadio.h"

#include <memory>
#include <utility>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/radio/InterruptSignals.h"
#include "tools/kestrin/radio/RecordedEnvironment.h"
#include "tools/kestrin/radio/Suspension.h"
#include "tools/kestrin/screen/TerminalScreen.h"

namespace kestrin::app {
namespace {

/// Wrong uses that only the options together show.
bool fitTogether(const RadioRequest& radio, Console& console) {
  if (radio.kind == RadioKind::simulated && radio.adapter) {
    console.note("--adapter: only the real radio has adapters; leave out --radio simulated");
    return false;
  }
  if (radio.kind != RadioKind::simulated && radio.virtualTime) {
    console.note("--virtual-time: only the simulated radio has it; add --radio simulated");
    return false;
  }
  return true;
}

}  // namespace

int runOnRadio(const std::string& name, const RadioRequest& request, TerminalScreen& screen,
               Console& console, const std::function<int(RadioEnvironment&)>& command) {
  if (!fitTogether(request, console)) return kWrongUsage;
  std::shared_ptr<CommandRecording> recording;
  if (request.record) {
    recording = CommandRecording::open(*request.record, recordingHeader(name, request), console);
    if (!recording) return kFailure;
  }
  const BlockedInterruptSignals blocked;
  auto environment = makeRadioEnvironment(request, console);
  if (!environment) return kFailure;
  if (recording) {
    environment = std::make_unique<RecordedEnvironment>(std::move(environment), recording);
  }
  Suspension suspension(*environment, [&] {
    console.flush();
    screen.stepAside();
    stopThisProcess();
    screen.comeBack();
  });
  const InterruptSignals signals(environment->loop(),
                                 {.interrupt = [&] { environment->interrupt(); },
                                  .suspend = [&] { suspension.request(); },
                                  .continued =
                                      [&] {
                                        screen.comeBack();
                                        suspension.continued();
                                      },
                                  .resized = [&] { screen.forget(); },
                                  .beforeEnd = [&] { screen.putRight(); }});
  const auto sleep = watchSleep(request, *environment);
  const int status = command(*environment);
  return recording && !recording->finish() && status == kSuccess ? kFailure : status;
}

}  // namespace kestrin::app
