// `kestrin replay`: recorded arrivals through the assembler.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tools/kestrin/Commands.h"
#include "tools/kestrin/Console.h"
#include "tools/kestrin/Hex.h"
#include "tools/kestrin/Recording.h"

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

/// Closes what was opened, and standard input never.
class Input {
 public:
  explicit Input(const std::string& file)
      : descriptor_(file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC)),
        name_(file == "-"    ? "standard input"
              : file.empty() ? "''"
                             : printable(file)) {}
  ~Input() {
    if (descriptor_ > STDIN_FILENO) ::close(descriptor_);
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] bool opened() const { return descriptor_ >= 0; }
  ssize_t read(std::vector<char>& buffer) const {
    ssize_t length = -1;
    do {
      length = ::read(descriptor_, buffer.data(), buffer.size());
    } while (length < 0 && errno == EINTR);
    return length;
  }

 private:
  const int descriptor_;
  const std::string name_;
};

std::string lastSystemError() { return std::generic_category().message(errno); }

void tell(const RecordingError& error, const Input& input, Console& console) {
  console.note(input.name() + ":" + std::to_string(error.line) + ": column " +
               std::to_string(error.column) + ": " + error.text);
}

bool readRecording(const std::string& file, Recording& recording, Console& console) {
  const Input input(file);
  if (!input.opened()) {
    console.note(input.name() + ": " + lastSystemError());
    return false;
  }
  RecordingReader reader;
  std::vector<char> buffer(1U << 16);
  while (true) {
    const ssize_t length = input.read(buffer);
    if (length < 0) {
      console.note(input.name() + ": " + lastSystemError());
      return false;
    }
    const auto error = length == 0 ? reader.finish(recording)
                                   : reader.take({buffer.data(), static_cast<std::size_t>(length)});
    if (error) {
      tell(*error, input, console);
      return false;
    }
    if (length == 0) return true;
  }
}

}  // namespace

int runReplay(const std::string& file, Console& console) {
  Recording recording;
  if (!readRecording(file, recording, console)) return kFailure;
  console.holdOutput();
  Platform platform;
  platform.log = std::make_shared<LogLines>(console);
  const auto manager = KestrinBleMgr::init(platform);
  const auto receiver = std::make_shared<FrameLines>(console);
  manager->setRcpReceiverDelegate(receiver);
  for (std::size_t i = 0; i < recording.size() && !console.outputError(); ++i) {
    manager->readData(recording.arrival(i));
  }
  return finishOutput(console);
}

}  // namespace kestrin::app
