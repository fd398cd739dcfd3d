#include "tools/kestrin/session/JsonReport.h"

#include <KestrinBLESDK/recording/RecordingStream.h>

#include <utility>

#include "tools/kestrin/console/Console.h"

namespace kestrin::app {
namespace {

void putBytes(const NSData& data, RecordedEvent& event) {
  const auto bytes = data.span();
  event.bytes.emplace(bytes.begin(), bytes.end());
}

}  // namespace

JsonReport::JsonReport(Console& console, const RunLoop& loop)
    : console_(console), loop_(loop), begin_(loop.now()) {}

void JsonReport::print(RecordedEvent event) {
  event.time = loop_.now() - begin_;
  console_.line(recordingLine(event));
}

void JsonReport::reader(const std::string& name, const std::string& identifier) {
  RecordedEvent event;
  event.kind = RecordedKind::reader;
  event.name = name;
  event.identifier = identifier;
  print(std::move(event));
}

void JsonReport::plugged(bool isPlugged) {
  RecordedEvent event;
  event.kind = RecordedKind::plug;
  event.plugged = isPlugged;
  print(std::move(event));
}

void JsonReport::frame(const std::optional<NSData>& frame) {
  RecordedEvent event;
  event.kind = RecordedKind::frame;
  if (frame) putBytes(*frame, event);
  print(std::move(event));
}

void JsonReport::sent(const NSData& frame) {
  RecordedEvent event;
  event.kind = RecordedKind::sent;
  event.accepted = true;
  putBytes(frame, event);
  print(std::move(event));
}

void JsonReport::state(CBManagerState state) {
  RecordedEvent event;
  event.kind = RecordedKind::state;
  event.state = recordedState(state);
  print(std::move(event));
}

std::unique_ptr<SessionReport> makeSessionReport(bool json, RadioEnvironment& environment,
                                                 Console& console) {
  if (json) return std::make_unique<JsonReport>(console, environment.loop());
  return std::make_unique<LineReport>(console);
}

}  // namespace kestrin::app
