// `kestrin send`: sends frames to a reader and prints what it answers.
#include <KestrinBLESDK/platform/NSData.h>

#include <string>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/session/JsonReport.h"
#include "tools/kestrin/session/ReaderSession.h"
#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

std::string placeOf(std::size_t index, std::size_t count) {
  return "frame " + std::to_string(index + 1) + " of " + std::to_string(count);
}

/// Sends every frame; false when one could not be, which has been told.
bool sendAll(const SendRequest& request, ReaderSession& session, Console& console) {
  const std::size_t count = request.frames.size();
  for (std::size_t i = 0; i < count; ++i) {
    session.catchUp();
    if (session.ending()) {
      console.note("interrupted before " + placeOf(i, count) + " was sent");
      return false;
    }
    if (session.plugged() && session.send(NSData(request.frames[i]))) continue;
    console.note(session.readerName() + ": " +
                 (session.plugged()
                      ? placeOf(i, count) + " was refused: the reader's transmit "
                                            "characteristic is missing or cannot be "
                                            "written"
                      : "the link was lost before " + placeOf(i, count) + " was sent"));
    return false;
  }
  return true;
}

bool sendAndListen(const SendRequest& request, ReaderSession& session,
                   RadioEnvironment& environment, Console& console) {
  if (!session.plugIn(timeFromSeconds(request.timeout))) {
    if (environment.interrupted()) console.note("interrupted before the first frame was sent");
    return false;
  }
  if (!sendAll(request, session, console)) return false;
  session.listen(timeFromSeconds(request.duration), true);
  if (session.plugged() || session.ending()) return true;
  console.note(session.readerName() + ": the link was lost after the last frame was sent");
  return false;
}

}  // namespace

bool readFrames(const std::vector<std::string>& texts, SendRequest& request, Console& console) {
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::vector<std::uint8_t> bytes;
    if (const auto error = appendHex(texts[i], bytes)) {
      console.note("FRAME " + std::to_string(i + 1) + " '" + printable(texts[i]) + "', column " +
                   std::to_string(error->column) + ": " + error->text);
      return false;
    }
    request.frames.push_back(std::move(bytes));
  }
  // Only now: what is told about a command line that is refused is its first error alone.
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::string reason = whyNoFrame(request.frames[i]);
    if (!reason.empty()) {
      console.note("warning: FRAME " + std::to_string(i + 1) +
                   " is not a whole frame and is sent as " + "it is: " + reason);
    }
  }
  return true;
}

int runSend(const SendRequest& request, RadioEnvironment& environment, Console& console) {
  const auto report = makeSessionReport(request.json, environment, console);
  ReaderSession session(environment, console, *report, request.name);
  const bool sent = sendAndListen(request, session, environment, console);
  const bool down = session.close();
  const int printed = finishOutput(console);
  return sent && down ? printed : kFailure;
}

}  // namespace kestrin::app
