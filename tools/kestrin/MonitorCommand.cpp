// `kestrin monitor`: prints what a reader sends until interrupted.
#include "tools/kestrin/Commands.h"
#include "tools/kestrin/Console.h"
#include "tools/kestrin/JsonReport.h"
#include "tools/kestrin/ReaderSession.h"

namespace kestrin::app {

int runMonitor(const MonitorRequest& request, RadioEnvironment& environment, Console& console) {
  const auto report = makeSessionReport(request.json, environment, console);
  ReaderSession session(environment, console, *report, request.name);
  const bool plugged = session.plugIn(timeFromSeconds(request.timeout));
  if (plugged) {
    std::optional<Time> duration;
    if (request.duration) duration = timeFromSeconds(*request.duration);
    session.listen(duration, false);
  }
  const bool down = session.close();
  const int printed = finishOutput(console);
  // An interruption is how this command is meant to end, whenever it comes.
  return down && (plugged || environment.interrupted()) ? printed : kFailure;
}

}  // namespace kestrin::app
