// `kestrin demo`: the main job on the simulated radio, as a timeline.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/recording/RecordedManager.h"
#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/commands/DemoTimeline.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/radio/RecordedEnvironment.h"
#include "tools/kestrin/radio/SimulatedScene.h"
#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Time kScanTime = seconds(1);
constexpr Time kPause = milliseconds(250);  // Between chapters, for the person who reads along.
constexpr Time kPatience = seconds(10);     // Far longer than anything here takes.

RecordingHeader headerOf(const DemoRequest& request) {
  RadioRequest radio;
  radio.kind = RadioKind::simulated;
  radio.virtualTime = request.virtualTime;
  return recordingHeader("demo", radio);
}

class Demo {
 public:
  Demo(const DemoRequest& request, Console& console,
       const std::shared_ptr<CommandRecording>& recording)
      : request_(request),
        console_(console),
        timeline_(std::make_shared<DemoTimeline>(console, logSink(request.log))),
        simulated_(sceneOptions(request.virtualTime, timeline_)),
        scene_(simulated_),
        loop_(simulated_.runLoop()),
        recorded_(recordedPlatform(simulated_.platform(), recording)),
        manager_(std::make_unique<RecordedManager>(recorded_.platform)) {
    if (recording) recording->setLoop(simulated_.platform().mainRunLoop.lock());
    manager_->setDelegate(timeline_);
    manager_->setRcpReceiverDelegate(timeline_);
    scene_.setObserver(
        [this](const std::string& /*name*/, const NSData& piece) { timeline_->piece(piece); });
  }

  /// False when something that should have happened has not, which has been told.
  bool run() {
    timeline_->begin(simulated_.platform().mainRunLoop.lock());
    const bool whole =
        scan() && workStandardReader() && loseLink() && workAgain() && workKvrReader();
    if (whole) tellFigures();
    return whole;
  }

 private:
  bool expect(bool happened, const std::string& what) {
    if (!happened && !unread()) {
      console_.note("the demo went wrong: " + what + " within " + secondsText(kPatience) + " s");
    }
    return happened;
  }

  template <class Done>
  bool await(const std::string& what, Done done) {
    const auto doneOrUnread = [&] { return done() || unread(); };
    return expect(loop_.runUntil(loop_.now() + kPatience, doneOrUnread), what);
  }

  void pass(Time duration) {
    loop_.runUntil(loop_.now() + duration, [this] { return unread(); });
  }

  /// Whether nobody reads the timeline any more, so that there is nothing left to wait for.
  [[nodiscard]] bool unread() const { return console_.outputError().has_value(); }

  std::shared_ptr<CBPeripheral> accepted(const SceneReader& reader) const {
    const auto& readers = timeline_->readers();
    const std::string wanted = reader.device().peripheral()->identifier();
    const auto found = std::find_if(readers.begin(), readers.end(), [&](const auto& candidate) {
      return candidate->identifier() == wanted;
    });
    return found == readers.end() ? nullptr : *found;
  }

  void chapter(std::string_view title) {
    pass(kPause);
    timeline_->chapter(title);
  }

  bool scan() {
    timeline_->chapter("Scan: the name filter among readers and other devices");
    timeline_->application("scanBLE");
    manager_->scanBLE();
    pass(kScanTime);
    return expect(accepted(scene_.standardReader()) && accepted(scene_.kvrReader()),
                  "the scan did not find the readers");
  }

  bool plugIn(const std::shared_ptr<CBPeripheral>& reader) {
    timeline_->application("connectBLE '" + printable(reader->name().value_or("")) + "'");
    manager_->connectBLE(reader);
    return await("the reader was not plugged in", [this] { return timeline_->plugged(); });
  }

  bool send(std::uint8_t code, const std::vector<std::uint8_t>& payload, std::size_t answers) {
    const auto frame = buildRcpFrame(0x00, code, payload);
    timeline_->application("send   " + countOf(frame->length(), "byte") + ": " +
                           describeFrame(frame->span()));
    ++framesSent_;
    const std::size_t wanted = timeline_->received() + answers;
    if (!expect(manager_->send(frame), "the frame was not sent")) return false;
    return await("the answer did not come", [&] { return timeline_->received() >= wanted; });
  }

  static std::vector<std::uint8_t> longPayload() {
    std::vector<std::uint8_t> payload(37);
    for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<std::uint8_t>(i);
    return payload;
  }

  bool workStandardReader() {
    chapter("A reader of the standard family: link-up with get-reader-info");
    if (!plugIn(accepted(scene_.standardReader()))) return false;
    chapter("A command of 45 bytes goes out in slices, its answer comes in pieces");
    if (!send(0x46, longPayload(), 1)) return false;
    chapter("The reader reports two tags; the pieces are cut through the frames");
    std::vector<std::uint8_t> reports;
    for (const std::uint8_t number : {std::uint8_t{1}, std::uint8_t{2}}) {
      const NSData report = SceneReader::tagReport(number);
      reports.insert(reports.end(), report.begin(), report.end());
    }
    const std::size_t wanted = timeline_->received() + 2;
    scene_.standardReader().notify(NSData(reports));
    return await("the tag reports did not come", [&] { return timeline_->received() >= wanted; });
  }

  bool loseLink() {
    chapter("The link is lost");
    timeline_->air("the link to '" + scene_.standardReader().name() + "' breaks");
    scene_.standardReader().device().simulateLinkLoss();
    ++linkLosses_;
    return await("the loss was not reported", [this] { return !timeline_->plugged(); });
  }

  bool close() {
    timeline_->application("close");
    const std::size_t wanted = timeline_->plugReports() + 2;
    manager_->close();
    return await("the link did not come down",
                 [&] { return !manager_->open() && timeline_->plugReports() >= wanted; });
  }

  bool workAgain() {
    chapter("The application connects again, and closes: two reports");
    return plugIn(manager_->pripheral()) && send(0x03, {0xB1}, 1) && close();
  }

  bool workKvrReader() {
    chapter("A reader of the KVR-Q62T family: its values come raw, as notified");
    timeline_->setRaw(true);
    return plugIn(accepted(scene_.kvrReader())) && send(0x46, longPayload(), 3) && close();
  }

  void tellFigures() {
    std::size_t writes = 0;
    std::size_t bytes = 0;
    for (const SceneReader* reader : {&scene_.standardReader(), &scene_.kvrReader()}) {
      for (const auto& write : reader->device().writes()) {
        ++writes;
        bytes += write.value.length();
      }
    }
    console_.line("");
    console_.line("Figures: " + timeline_->seenFigures() + "; " +
                  countOf(framesSent_ + timeline_->readerInfoRequests(), "frame") + " sent in " +
                  countOf(writes, "write") + " of " + countOf(bytes, "byte") + "; " +
                  timeline_->receivedFigures() + "; " + countOf(linkLosses_, "link") + " lost; " +
                  millisecondsText(timeline_->elapsed()) + " s");
  }

  const DemoRequest& request_;
  Console& console_;
  const std::shared_ptr<DemoTimeline> timeline_;
  simulated::SimulatedPlatform simulated_;
  SimulatedScene scene_;
  MainRunLoop& loop_;
  const RecordedPlatform recorded_;
  const std::unique_ptr<RecordedManager> manager_;
  std::size_t framesSent_ = 0;
  std::size_t linkLosses_ = 0;
};

}  // namespace

int runDemo(const DemoRequest& request, Console& console) {
  std::shared_ptr<CommandRecording> recording;
  if (request.record) {
    recording = CommandRecording::open(*request.record, headerOf(request), console);
    if (!recording) return kFailure;
  }
  bool whole = Demo(request, console, recording).run();
  if (recording) whole = recording->finish() && whole;
  const int printed = finishOutput(console);
  return whole ? printed : kFailure;
}

}  // namespace kestrin::app
