#include "tools/kestrin/recording/RecordedEventJson.h"

#include <KestrinBLESDK/recording/RecordedFields.h>
#include <KestrinBLESDK/recording/RecordingStream.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/kestrin/recording/JsonPlaces.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

using Json = nlohmann::json;

// Longer than any run, and so short that a double still tells microseconds apart.
constexpr double kLongestRecordedTime = 1.0e9;

/// A line that is being read: its JSON, and where in it what stands.
class LineReading {
 public:
  explicit LineReading(std::string_view line) : line_(line), places_(line) { parse(); }

  [[nodiscard]] const std::optional<RecordLineError>& error() const { return error_; }

  /// The field, null when it is not there or there has been an error before.
  const Json* find(std::string_view key) const {
    if (error_) return nullptr;
    const auto found = json_.find(std::string(key));
    return found == json_.end() ? nullptr : &*found;
  }
  const Json* need(std::string_view key, std::string_view what) {
    const Json* const value = find(key);
    if (value == nullptr && !error_) {
      fail(1, "the field \"" + std::string(key) + "\" is missing: " + std::string(what));
    }
    return value;
  }
  void refuse(std::string_view key, const std::string& text) { fail(places_.columnOf(key), text); }

  template <class T>
  void take(std::string_view key, bool (Json::*isRight)() const noexcept, std::string_view right,
            std::optional<T>& value) {
    const Json* const json = find(key);
    if (json == nullptr) return;
    if (!(json->*isRight)()) {
      return refuse(key, "\"" + std::string(key) + "\" is to be " + std::string(right));
    }
    value = json->get<T>();
  }
  void takeText(std::string_view key, std::optional<std::string>& value) {
    take(key, &Json::is_string, "a text", value);
  }
  void takeList(std::string_view key, std::optional<std::vector<std::string>>& value);
  void takeTime(std::string_view key, std::optional<Time>& value);
  void takeBytes(std::string_view key, std::optional<std::vector<std::uint8_t>>& value);

 private:
  void parse();
  void fail(std::size_t column, std::string text, bool cut = false) {
    if (!error_) error_ = RecordLineError{column, std::move(text), cut};
  }

  const std::string_view line_;
  const JsonPlaces places_;
  Json json_;
  std::optional<RecordLineError> error_;
};

void LineReading::parse() {
  if (line_.size() > kLongestRecordLine) {
    return fail(kLongestRecordLine + 1,
                "the line is longer than " + std::to_string(kLongestRecordLine) + " characters");
  }
  if (const auto column = places_.deeperThan(kDeepestRecordNesting)) {
    return fail(*column, "more than " + std::to_string(kDeepestRecordNesting) +
                             " brackets stand within each other; a recording needs 2");
  }
  if (!line_.starts_with('{')) return fail(1, "a line is one JSON object, which begins with {");
  try {
    json_ = Json::parse(line_);
  } catch (const Json::parse_error& error) {
    const std::string_view whole = error.what();
    const std::size_t begin = whole.find("syntax error");
    const bool cut = error.byte > line_.size();
    return fail(std::min(error.byte, line_.size() + 1),
                "this is not JSON: " +
                    printable(begin == std::string_view::npos ? whole : whole.substr(begin)),
                cut);
  } catch (const Json::out_of_range& error) {
    return fail(1, "a number is too large to be read");
  }
  if (const auto repeated = places_.repeatedKey()) {
    fail(repeated->column, "the field \"" + printable(repeated->key) + "\" stands here twice");
  }
}

void LineReading::takeList(std::string_view key, std::optional<std::vector<std::string>>& value) {
  const Json* const json = find(key);
  if (json == nullptr) return;
  if (!json->is_array() || !std::all_of(json->begin(), json->end(),
                                        [](const Json& entry) { return entry.is_string(); })) {
    return refuse(key, "\"" + std::string(key) + "\" is to be a list of texts");
  }
  value = json->get<std::vector<std::string>>();
}

void LineReading::takeTime(std::string_view key, std::optional<Time>& value) {
  std::optional<double> seconds;
  take(key, &Json::is_number, "a number of seconds", seconds);
  if (!seconds) return;
  if (!(*seconds >= 0 && *seconds <= kLongestRecordedTime)) {
    return refuse(key, "\"" + std::string(key) + "\" is to be from 0 to 1000000000 seconds");
  }
  value = std::chrono::microseconds(std::llround(*seconds * 1e6));
}

void LineReading::takeBytes(std::string_view key, std::optional<std::vector<std::uint8_t>>& value) {
  std::optional<std::string> text;
  take(key, &Json::is_string, "a text of hexadecimal digits", text);
  if (!text) return;
  std::vector<std::uint8_t> bytes;
  if (const auto error = appendHex(*text, bytes)) {
    // An escape in the text moves what follows it; then the text's beginning has to do.
    const std::size_t begin = places_.columnOf(key);
    const bool plain = line_.substr(begin).starts_with(*text);
    return fail(plain ? begin + error->column : begin, error->text);
  }
  value = std::move(bytes);
}

std::string joinedKinds() {
  std::string all;
  for (const RecordedKindInfo& info : recordedKinds()) {
    if (!all.empty()) all += ", ";
    all += info.text;
  }
  return all;
}

void takeKind(LineReading& line, RecordedEvent& event) {
  std::optional<std::string> kind;
  if (line.need("kind", "it names what has happened") == nullptr) return;
  line.takeText("kind", kind);
  if (!kind) return;
  const RecordedKindInfo* const info = findRecordedKind(*kind);
  if (info == nullptr) {
    return line.refuse(
        "kind", "'" + printable(*kind) + "' is not a kind of event; there are " + joinedKinds());
  }
  event.kind = info->kind;
  for (const std::string_view key : info->needed) {
    if (!key.empty()) line.need(key, "events of the kind " + std::string(info->text) + " have it");
  }
  std::optional<std::string> direction;
  line.takeText("direction", direction);
  if (direction && *direction != recordedDirection(info->direction)) {
    line.refuse("direction", "the direction of the kind " + std::string(info->text) + " is " +
                                 std::string(recordedDirection(info->direction)));
  }
}

void takeName(LineReading& line, RecordedEvent& event) {
  std::optional<std::vector<std::uint8_t>> bytes;
  line.takeBytes("nameBytes", bytes);
  if (bytes) event.name = std::string(bytes->begin(), bytes->end());
}

}  // namespace

std::variant<RecordedEvent, RecordLineError> readEventLine(std::string_view text) {
  LineReading line(text);
  RecordedEvent event;
  std::optional<Time> time;
  line.need("time", "it is the number of seconds since the beginning");
  line.takeTime("time", time);
  event.time = time.value_or(Time::zero());
  takeKind(line, event);
  for (const auto& field : kRecordedTexts) line.takeText(field.key, event.*field.member);
  takeName(line, event);
  for (const auto& field : kRecordedLists) line.takeList(field.key, event.*field.member);
  line.takeBytes("bytes", event.bytes);
  for (const auto& field : kRecordedNumbers) {
    line.take(field.key, &Json::is_number_integer, "a whole number", event.*field.member);
  }
  line.takeTime("seconds", event.seconds);
  for (const auto& field : kRecordedTruths) {
    line.take(field.key, &Json::is_boolean, "true or false", event.*field.member);
  }
  if (line.error()) return *line.error();
  return event;
}

std::variant<RecordingHeader, RecordLineError> readHeaderLine(std::string_view text) {
  LineReading line(text);
  std::optional<std::string> format;
  std::optional<std::int64_t> version;
  line.need("format", "a recording begins with {\"format\":\"kestrin-recording\",\"version\":1");
  line.takeText("format", format);
  if (format && *format != kRecordingFormat) {
    line.refuse("format", "'" + printable(*format) + "' is not a format of this program; that is " +
                              kRecordingFormat);
  }
  line.need("version", "this program reads version 1");
  line.take("version", &Json::is_number_integer, "a whole number", version);
  if (version && *version != kRecordingVersion) {
    line.refuse("version",
                "this is version " + std::to_string(*version) + "; this program reads version 1");
  }
  RecordingHeader header;
  std::optional<std::string> program;
  std::optional<std::string> command;
  std::optional<std::string> radio;
  line.takeText("program", program);
  line.takeText("command", command);
  line.takeText("radio", radio);
  line.takeText("started", header.started);
  if (line.error()) return *line.error();
  header.program = program.value_or("");
  header.command = command.value_or("");
  header.radio = radio.value_or("");
  return header;
}

}  // namespace kestrin::app
