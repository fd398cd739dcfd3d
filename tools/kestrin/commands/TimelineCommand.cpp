// `kestrin timeline`: pictures of a recorded conversation.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/console/WriteAll.h"
#include "tools/kestrin/picture/SequencePicture.h"
#include "tools/kestrin/picture/TimelinePicture.h"
#include "tools/kestrin/recording/ReadRecording.h"
#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

std::vector<RecordedEvent> eventsWithin(const TimelineRequest& request,
                                        const std::vector<RecordedEvent>& events) {
  const Time from = timeFromSeconds(request.from);
  std::vector<RecordedEvent> within;
  for (const RecordedEvent& event : events) {
    const bool late = request.to && event.time > timeFromSeconds(*request.to);
    if (event.time >= from && !late) within.push_back(event);
  }
  return within;
}

std::string titleOf(const std::optional<RecordingHeader>& header) {
  if (!header) return "kestrin";
  std::string title = header->command.empty() ? "a recording" : "kestrin " + header->command;
  if (!header->radio.empty()) title += ", " + header->radio + " radio";
  if (header->started) title += ", " + *header->started;
  return title;
}

bool isPictured(const RecordedEvent& event) { return event.kind != RecordedKind::log; }

/// Why there can be no picture of these; empty when there can.
std::string whyNoPicture(const std::vector<RecordedEvent>& events) {
  const auto count =
      static_cast<std::size_t>(std::count_if(events.begin(), events.end(), isPictured));
  if (count == 0) return "there is nothing in it to be drawn";
  if (count > kMostPicturedEvents || !fitsTimeline(events)) {
    return "too much for one picture: " + countOf(count, "event") + " in " +
           secondsText(events.back().time - events.front().time) +
           " s; --from and --to take a part of it";
  }
  return "";
}

int writePicture(const std::string& picture, const TimelineRequest& request, Console& console) {
  if (!request.output) {
    console.line(picture);
    return finishOutput(console);
  }
  constexpr mode_t kEverybodys = 0666;
  const int descriptor = ::open(request.output->c_str(),
                                O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kEverybodys);
  std::optional<std::error_code> failure;
  if (descriptor < 0) {
    failure = std::error_code(errno, std::generic_category());
  } else {
    failure = writeAll(descriptor, picture + '\n');
    if (::close(descriptor) != 0 && !failure) {
      failure = std::error_code(errno, std::generic_category());
    }
  }
  if (!failure) return kSuccess;
  console.note("--output '" + printable(*request.output) + "': " + failure->message());
  return kFailure;
}

}  // namespace

int runTimeline(const TimelineRequest& request, Console& console) {
  const auto recording = readRecordingFile(request.file, console);
  if (!recording) return kFailure;
  if (!recording->isJson()) {
    console.note("'" + printable(request.file) +
                 "' has arrivals without their times; a timeline needs what --record writes");
    return kFailure;
  }
  const std::vector<RecordedEvent> events = eventsWithin(request, recording->events());
  if (const std::string reason = whyNoPicture(events); !reason.empty()) {
    console.note("'" + printable(request.file) + "': " + reason);
    return kFailure;
  }
  const std::string title = titleOf(recording->header());
  console.holdOutput();
  return writePicture(
      request.sequence ? sequencePicture(events, title) : timelinePicture(events, title), request,
      console);
}

}  // namespace kestrin::app
