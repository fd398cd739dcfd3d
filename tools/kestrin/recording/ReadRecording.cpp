#include "tools/kestrin/recording/ReadRecording.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

/// Closes what was opened, and standard input never.
class RecordingInput {
 public:
  explicit RecordingInput(const std::string& file)
      : descriptor_(file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC)),
        name_(file == "-"    ? "standard input"
              : file.empty() ? "''"
                             : printable(file)) {}
  ~RecordingInput() {
    if (descriptor_ > STDIN_FILENO) ::close(descriptor_);
  }
  RecordingInput(const RecordingInput&) = delete;
  RecordingInput& operator=(const RecordingInput&) = delete;

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

void tell(const RecordingError& error, const RecordingInput& input, Console& console) {
  console.note(input.name() + ":" + std::to_string(error.line) + ": column " +
               std::to_string(error.column) + ": " + error.text);
}

}  // namespace

std::optional<Recording> readRecordingFile(const std::string& file, Console& console) {
  const RecordingInput input(file);
  if (!input.opened()) {
    console.note(input.name() + ": " + lastSystemError());
    return std::nullopt;
  }
  Recording recording;
  RecordingReader reader;
  std::vector<char> buffer(1U << 16);
  while (true) {
    const ssize_t length = input.read(buffer);
    if (length < 0) {
      console.note(input.name() + ": " + lastSystemError());
      return std::nullopt;
    }
    const auto error = length == 0 ? reader.finish(recording)
                                   : reader.take({buffer.data(), static_cast<std::size_t>(length)});
    if (error) {
      tell(*error, input, console);
      return std::nullopt;
    }
    if (length == 0) break;
  }
  if (recording.cutLine()) {
    console.note(input.name() + ":" + std::to_string(*recording.cutLine()) +
                 ": the recording has been cut in this line; what stands in front of it is read");
  }
  return recording;
}

}  // namespace kestrin::app
