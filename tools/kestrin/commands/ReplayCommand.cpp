// `kestrin replay`: recorded arrivals through the assembler.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <memory>
#include <string>
#include <string_view>

#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/recording/ReadRecording.h"
#include "tools/kestrin/text/Hex.h"

namespace kestrin::app {
namespace {

class LogLines final : public NSLogSink {
 public:
  explicit LogLines(Console& console) : console_(console) {}
  void write(std::string_view text) noexcept override {
    std::string line = "LOG ";
    line += text;
    console_.line(line);
  }

 private:
  Console& console_;
};

class FrameLines final : public RcpReceiver {
 public:
  explicit FrameLines(Console& console) : console_(console) {}
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    if (frame) console_.line("FRAME " + lowerHex(frame->span()));
  }

 private:
  Console& console_;
};

}  // namespace

int runReplay(const std::string& file, Console& console) {
  const auto recording = readRecordingFile(file, console);
  if (!recording) return kFailure;
  console.holdOutput();
  Platform platform;
  platform.log = std::make_shared<LogLines>(console);
  const auto manager = KestrinBleMgr::init(platform);
  const auto receiver = std::make_shared<FrameLines>(console);
  manager->setRcpReceiverDelegate(receiver);
  for (std::size_t i = 0; i < recording->size() && !console.outputError(); ++i) {
    if (recording->isRaw(i)) {
      receiver->dispatchRcpFrmReader(recording->arrival(i));
    } else {
      manager->readData(recording->arrival(i));
    }
  }
  return finishOutput(console);
}

}  // namespace kestrin::app
