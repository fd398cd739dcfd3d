// `kestrin monitor`: shows what a reader sends until interrupted.
#include <string>
#include <string_view>
#include <vector>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/screen/MonitorScreen.h"
#include "tools/kestrin/session/JsonReport.h"
#include "tools/kestrin/session/ReaderSession.h"

namespace kestrin::app {
namespace {

bool monitorReader(const MonitorRequest& request, RadioEnvironment& environment,
                   ReaderSession& session) {
  const bool plugged = session.plugIn(timeFromSeconds(request.timeout));
  if (plugged) {
    std::optional<Time> duration;
    if (request.duration) duration = timeFromSeconds(*request.duration);
    session.listen(duration, false);
  }
  // An interruption is how this command is meant to end, whenever it comes.
  return plugged || environment.interrupted();
}

bool monitorAsText(const MonitorRequest& request, RadioEnvironment& environment, Console& console) {
  const auto report = makeSessionReport(request.json, environment, console);
  ReaderSession session(environment, console, *report, request.name);
  const bool done = monitorReader(request, environment, session);
  return session.close() && done;
}

/// Has notes go to a screen for as long as it lives.
class NotesOnScreen {
 public:
  NotesOnScreen(Console& console, MonitorScreen& screen, std::vector<std::string>& notes)
      : console_(console) {
    console_.redirectNotes([&](std::string_view text) {
      notes.emplace_back(text);
      screen.note(notes.back());
    });
  }
  ~NotesOnScreen() { console_.redirectNotes({}); }
  NotesOnScreen(const NotesOnScreen&) = delete;
  NotesOnScreen& operator=(const NotesOnScreen&) = delete;

 private:
  Console& console_;
};

bool monitorOnScreen(const MonitorRequest& request, RadioEnvironment& environment,
                     Console& console) {
  std::vector<std::string> notes;
  bool done = false;
  {
    MonitorScreen screen(*request.screen, environment, request.name, request.log);
    const NotesOnScreen onScreen(console, screen, notes);
    ReaderSession session(environment, console, screen, request.name);
    screen.setSession(&session);
    done = monitorReader(request, environment, session);
    screen.closing();
    done = session.close() && done;
    screen.setSession(nullptr);
  }
  // The screen is gone, and with it what it said of the failure.
  for (const std::string& text : notes) {
    if (!done) console.note(text);
  }
  return done;
}

}  // namespace

int runMonitor(const MonitorRequest& request, RadioEnvironment& environment, Console& console) {
  const bool done = request.screen != nullptr ? monitorOnScreen(request, environment, console)
                                              : monitorAsText(request, environment, console);
  const int printed = finishOutput(console);
  return done ? printed : kFailure;
}

}  // namespace kestrin::app
