// Fuzzes every text that `kestrin` reads, each against a plainer reading of the same text:
// hexadecimal, recordings of both forms in pieces of any size, whole recordings through `replay`
// and `timeline`, and command lines.
//
// Input: a byte that picks the kind of text, what that kind needs, the text.
#include <KestrinBLESDK/recording/RecordingStream.h>
#include <sys/mman.h>
#include <unistd.h>

#include <optional>

#include "fuzz/Fuzzing.h"
#include "support/LiteralAssembler.h"
#include "tools/kestrin/commands/CommandLine.h"
#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/picture/SequencePicture.h"
#include "tools/kestrin/picture/TimelinePicture.h"
#include "tools/kestrin/recording/RecordedEventJson.h"
#include "tools/kestrin/recording/Recording.h"
#include "tools/kestrin/text/Hex.h"

namespace kestrin::fuzz {
namespace {

using app::HexError;
using app::Recording;
using app::RecordingError;
using app::RecordingReader;

// An arrival costs as much as the bytes that are kept.
constexpr std::size_t kLongestRecording = 1500;
constexpr std::size_t kMostArguments = 12;

/// A file without a name, for what is printed and what is read.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view text = "") : descriptor_(::memfd_create("fuzz", 0)) {
    require(descriptor_ >= 0, "there is memory for a file");
    const auto written = ::write(descriptor_, text.data(), text.size());
    require(written == static_cast<ssize_t>(text.size()), "the file takes its text");
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_; }
  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
  [[nodiscard]] std::string text() const {
    std::string text(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_END)), '\0');
    const auto length = ::pread(descriptor_, text.data(), text.size(), 0);
    require(length == static_cast<ssize_t>(text.size()), "the file gives its text back");
    return text;
  }

 private:
  const int descriptor_;
};

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (auto end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
    parts.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  parts.emplace_back(text);
  return parts;
}

bool isDigit(char c) {
  return std::string_view("0123456789abcdefABCDEF").find(c) != std::string_view::npos;
}

/// Hexadecimal text word by word: each is pairs of digits. Returns the column of the first mistake.
std::optional<std::size_t> plainHex(const std::string& text, Bytes& bytes) {
  for (std::size_t at = text.find_first_not_of(" \t"); at != std::string::npos;
       at = text.find_first_not_of(" \t", at)) {
    const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
    for (; at < end; at += 2) {
      if (!isDigit(text[at])) return at + 1;
      if (at + 1 == end) return at + 1;
      if (!isDigit(text[at + 1])) return at + 2;
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    }
  }
  return std::nullopt;
}

void readHex(const std::string& text) {
  Bytes bytes;
  Bytes plain;
  const auto error = app::appendHex(text, bytes);
  const auto mistake = plainHex(text, plain);
  require(error.has_value() == mistake.has_value(), "a text is hexadecimal or it is not");
  require(!error || (error->column == *mistake && !error->text.empty()),
          "a mistake is told where it is");
  require(bytes == plain, "the bytes are those in front of the first mistake");
  Bytes again;
  require(
      !app::appendHex(app::upperHex(bytes), again) && !app::appendHex(app::lowerHex(bytes), again),
      "what is printed can be read");
  require(again == test::joined({bytes, bytes}), "what is printed are the same bytes");
}

/// A recording line by line. Returns the line and column of the first mistake.
std::optional<RecordingError> plainRecording(const std::string& text,
                                             std::vector<Bytes>& arrivals) {
  auto lines = split(text, '\n');
  if (lines.back().empty()) lines.pop_back();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].starts_with('#')) continue;
    if (lines[i].ends_with('\r')) lines[i].pop_back();
    if (const auto mistake = plainHex(lines[i], arrivals.emplace_back())) {
      return RecordingError{i + 1, *mistake, ""};
    }
  }
  return std::nullopt;
}

bool isJson(const std::string& text) { return text.starts_with('{'); }

/// Reads `text` in pieces of these sizes, at once when there are none.
std::optional<RecordingError> readInPieces(const std::string& text, ByteView cuts,
                                           Recording& recording) {
  RecordingReader reader;
  std::optional<RecordingError> error;
  std::size_t at = 0;
  for (std::size_t i = 0; at < text.size() && !error; ++i) {
    const std::size_t size = cuts.empty() ? text.size() : 1 + cuts[i % cuts.size()];
    error = reader.take(std::string_view(text).substr(at, size));
    at += size;
  }
  if (!error) error = reader.finish(recording);
  return error;
}

void checkPicture(const std::string& picture) {
  require(std::none_of(picture.begin(), picture.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\n'; }),
          "a picture has no control characters");
  std::size_t opened = 0;
  for (const char c : picture) {
    require(c != '<' || opened == 0, "a picture has no < in a text or in a tag");
    if (c == '<') ++opened;
    if (c == '>' && opened > 0) --opened;
  }
}

/// What is read of the JSON form holds together, however it came.
void readJsonRecording(const std::string& text, ByteView cuts) {
  Recording recording;
  Recording whole;
  const auto error = readInPieces(text, cuts, recording);
  const auto wholeError = readInPieces(text, {}, whole);
  require(error.has_value() == wholeError.has_value(), "pieces make no difference");
  if (error) {
    require(error->line == wholeError->line && error->column == wholeError->column,
            "nor to where a mistake is");
    const auto lines = split(text, '\n');
    require(error->line >= 1 && error->line <= lines.size(), "a mistake is in one of the lines");
    require(error->column >= 1 && error->column <= lines[error->line - 1].size() + 1,
            "at a column that the line has");
    require(!error->text.empty(), "and is told");
    return;
  }
  require(recording.events() == whole.events() && recording.cutLine() == whole.cutLine(),
          "nor to what is read");
  require(recording.size() <= recording.events().size(), "an arrival is an event");
  for (const RecordedEvent& event : recording.events()) {
    const auto again = app::readEventLine(recordingLine(event));
    require(std::holds_alternative<RecordedEvent>(again) && std::get<RecordedEvent>(again) == event,
            "what is written again is the same");
  }
  if (!app::fitsTimeline(recording.events())) return;
  checkPicture(app::timelinePicture(recording.events(), text));
  checkPicture(app::sequencePicture(recording.events(), text));
}

void readRecording(ByteSource input) {
  const ByteView cuts = input.take(input.u8() & 0x0F);
  const std::string text = textOf(input.rest());
  if (isJson(text)) {
    readJsonRecording(text, cuts);
    return;
  }
  Recording recording;
  const auto error = readInPieces(text, cuts, recording);
  std::vector<Bytes> arrivals;
  const auto mistake = plainRecording(text, arrivals);
  require(error.has_value() == mistake.has_value(), "a recording is right or it is not");
  if (error) {
    require(error->line == mistake->line && error->column == mistake->column,
            "a mistake is told with its line and column");
    return;
  }
  require(recording.size() == arrivals.size(), "every line that is not a comment is an arrival");
  for (std::size_t i = 0; i < arrivals.size(); ++i) {
    require(recording.arrival(i) == NSData(arrivals[i]), "an arrival has its line's bytes");
  }
}

/// What `replay` prints for these arrivals, by the assembler's byte-by-byte twin.
std::string plainReplay(const std::vector<Bytes>& arrivals) {
  static const std::string kDelivery = test::LiteralAssembler::deliveryOf("");
  test::LiteralAssembler assembler;
  std::string printed;
  for (const Bytes& arrival : arrivals) {
    assembler.readData(arrival);
    for (std::string event : assembler.take()) {
      if (event.starts_with(kDelivery)) {
        std::erase_if(event, [](char c) { return c == '<' || c == '>' || c == ' '; });
        printed += "FRAME " + event.substr(kDelivery.size() - 1) + '\n';
      } else {
        printed += "LOG " + event + '\n';
      }
    }
  }
  return printed;
}

void replay(ByteSource input) {
  const std::string text = textOf(input.take(kLongestRecording));
  const MemoryFile file(text);
  const MemoryFile output;
  const MemoryFile errors;
  int status = app::kSuccess;
  {
    app::Console console(output.descriptor(), errors.descriptor());
    status = app::runReplay(file.path(), console);
  }
  if (isJson(text)) {
    Recording recording;
    const bool wrong = readInPieces(text, {}, recording).has_value();
    require(status == (wrong ? app::kFailure : app::kSuccess), "the exit status tells of mistakes");
    require(!wrong || output.text().empty(), "of a damaged recording nothing is replayed");
    require(errors.text().empty() == (!wrong && !recording.cutLine()), "a cut is told");
    return;
  }
  std::vector<Bytes> arrivals;
  const bool wrong = plainRecording(text, arrivals).has_value();
  require(status == (wrong ? app::kFailure : app::kSuccess), "the exit status tells of mistakes");
  require(output.text() == (wrong ? "" : plainReplay(arrivals)), "it prints what the twin does");
  require(errors.text().empty() != wrong, "a mistake is told");
}

/// Whether the text is one line that a terminal can be shown.
bool isOneLine(const std::string& text) {
  if (text.empty() || text.back() != '\n') return false;
  return std::none_of(text.begin(), text.end() - 1,
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

/// Runs `kestrin` with these arguments; everything that it may print.
int run(const std::vector<std::string>& arguments, std::string& printed, std::string& told) {
  std::vector<const char*> pointers{"kestrin"};
  for (const auto& argument : arguments) pointers.push_back(argument.c_str());
  const MemoryFile output;
  const MemoryFile errors;
  int status = 0;
  {
    app::Console console(output.descriptor(), errors.descriptor());
    status = app::runCommandLine(static_cast<int>(pointers.size()), pointers.data(), console);
  }
  printed = output.text();
  told = errors.text();
  return status;
}

std::vector<std::string> takeArguments(ByteSource& input) {
  auto arguments = split(textOf(input.rest()), '\n');
  if (arguments.size() > kMostArguments) arguments.resize(kMostArguments);
  for (auto& argument : arguments) std::erase(argument, '\0');
  return arguments;
}

void parseCommandLine(ByteSource input) {
  auto arguments = takeArguments(input);
  // Behind this mark everything is taken as it is, and what is to refuse the line no longer does.
  std::erase(arguments, "--");
  // Twice: one may be taken for an option's value. So nothing is carried out.
  arguments.insert(arguments.end(), 2, "--no-such-option");
  std::string printed;
  std::string told;
  const int status = run(arguments, printed, told);
  if (status == app::kSuccess) {
    require(!printed.empty() && told.empty(), "only help and version are printed");
  } else {
    require(status == app::kWrongUsage, "everything else is wrong usage");
    require(printed.empty() && isOneLine(told), "wrong usage is told in one line");
  }
}

void buildFrame(ByteSource input) {
  std::vector<std::string> arguments = takeArguments(input);
  arguments.insert(arguments.begin(), {"frame", "--"});
  std::string printed;
  std::string told;
  const int status = run(arguments, printed, told);
  if (status != app::kSuccess) {
    require(status == app::kWrongUsage && printed.empty() && isOneLine(told),
            "wrong usage is told in one line");
    return;
  }
  Bytes type;
  Bytes code;
  Bytes payload;
  plainHex(arguments[2], type);
  plainHex(arguments[3], code);
  if (arguments.size() > 4) plainHex(arguments[4], payload);
  require(type.size() == 1 && code.size() == 1, "type and code are a byte each");
  const Bytes frame = test::referenceFrame(type[0], code[0], payload);
  require(printed == app::upperHex(frame) + '\n', "the frame is the right one");
}

void send(ByteSource input) {
  std::vector<std::string> arguments{
      "send",      "KVR-0417", "--radio", "simulated", "--virtual-time",
      "--timeout", "3",        "--for",   "0",         "--"};
  const auto frames = takeArguments(input);
  arguments.insert(arguments.end(), frames.begin(), frames.end());
  std::string printed;
  std::string told;
  const int status = run(arguments, printed, told);
  Bytes bytes;
  const bool wrong = std::any_of(frames.begin(), frames.end(),
                                 [&](const auto& text) { return plainHex(text, bytes); });
  require(status == (wrong ? app::kWrongUsage : app::kSuccess), "what is hexadecimal is sent");
  require(printed.empty() == wrong, "wrong usage sends nothing");
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin::fuzz;
  ByteSource input({data, size});
  const std::size_t kind = input.u8();
  if (kind == 'S') {
    send(input);
    return 0;
  }
  switch (kind % 5) {
    case 0:
      readHex(textOf(input.rest()));
      break;
    case 1:
      readRecording(input);
      break;
    case 2:
      replay(input);
      break;
    case 3:
      buildFrame(input);
      break;
    default:
      parseCommandLine(input);
      break;
  }
  return 0;
}
