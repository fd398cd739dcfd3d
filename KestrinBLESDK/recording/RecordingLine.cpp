// The lines of a recording: JSON, written without a JSON library.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "KestrinBLESDK/recording/RecordedFields.h"
#include "KestrinBLESDK/recording/RecordingStream.h"

namespace kestrin {
namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr std::uint32_t kReplacement = 0xFFFD;

struct Character {
  std::size_t length = 1;
  std::optional<std::uint32_t> code;
};

/// The character that `text`, which is not empty, begins with; one byte without a code for what is
/// no UTF-8.
Character firstCharacter(std::string_view text) {
  const auto at = [&](std::size_t place) -> std::uint32_t {
    return place < text.size() ? static_cast<unsigned char>(text[place]) : 0;
  };
  const std::uint32_t first = at(0);
  if (first < 0x80) return {1, first};
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return {};
  std::uint32_t code = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xC0) != 0x80) return {};
    code = code << 6 | (at(i) & 0x3F);
  }
  static constexpr std::array<std::uint32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLeast[length] || code > 0x10FFFF || isSurrogate) return {};
  return {length, code};
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    if (!character.code) return false;
    text.remove_prefix(character.length);
  }
  return true;
}

/// One JSON object in the making.
class Line {
 public:
  /// A value that is JSON already.
  void put(std::string_view key, std::string_view json) {
    text_ += text_.empty() ? "{\"" : ",\"";
    text_.append(key).append("\":").append(json);
  }
  void putText(std::string_view key, std::string_view text) { put(key, quoted(text)); }
  void putList(std::string_view key, const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += (list.empty() ? "" : ",") + quoted(text);
    put(key, "[" + list + "]");
  }
  void putBytes(std::string_view key, std::span<const std::uint8_t> bytes) {
    std::string digits;
    for (const std::uint8_t byte : bytes) digits += {kDigits[byte >> 4], kDigits[byte & 0x0F]};
    putText(key, digits);
  }
  [[nodiscard]] std::string finish() const { return text_ + "}"; }

 private:
  static void appendUnit(std::string& text, std::uint32_t unit) {
    text += "\\u";
    for (const unsigned shift : {12U, 8U, 4U, 0U}) text += kDigits[unit >> shift & 0x0F];
  }
  static void appendCharacter(std::string& text, std::uint32_t code) {
    if (code == '"' || code == '\\') {
      text += {'\\', static_cast<char>(code)};
    } else if (code >= 0x20 && code < 0x7F) {
      text += static_cast<char>(code);
    } else if (code < 0x10000) {
      appendUnit(text, code);
    } else {
      appendUnit(text, 0xD800 + ((code - 0x10000) >> 10));
      appendUnit(text, 0xDC00 + ((code - 0x10000) & 0x3FF));
    }
  }
  static std::string quoted(std::string_view text) {
    std::string whole = "\"";
    while (!text.empty()) {
      const Character character = firstCharacter(text);
      appendCharacter(whole, character.code.value_or(kReplacement));
      text.remove_prefix(character.length);
    }
    return whole + "\"";
  }

  std::string text_;
};

/// Six digits of a second, always.
std::string microsecondsText(Time time) {
  const auto count = std::chrono::floor<std::chrono::microseconds>(time).count();
  const std::string fraction = std::to_string(count % 1000000);
  return std::to_string(count / 1000000) + '.' + std::string(6 - fraction.size(), '0') + fraction;
}

/// As few digits as the time has, one behind the point at least. Not with `std::to_chars`, which
/// takes a `double` from iOS 16.5 on.
std::string secondsText(Time time) {
  static constexpr std::size_t kPlaces = 9;
  if (time < Time::zero()) return '-' + secondsText(-time);
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
  std::string fraction = std::to_string((time - whole).count());
  fraction.insert(0, kPlaces - fraction.size(), '0');
  fraction.erase(std::max<std::size_t>(fraction.find_last_not_of('0') + 1, 1));
  return std::to_string(whole.count()) + '.' + fraction;
}

}  // namespace

std::string recordingLine(const RecordedEvent& event) {
  const RecordedKindInfo& info = recordedKindInfo(event.kind);
  Line line;
  line.put("time", microsecondsText(event.time));
  line.putText("direction", recordedDirection(info.direction));
  line.putText("kind", info.text);
  for (const auto& field : kRecordedTexts) {
    if (const auto& value = event.*field.member) line.putText(field.key, *value);
  }
  if (event.name && !isUtf8(*event.name)) {
    line.putBytes("nameBytes",
                  {reinterpret_cast<const std::uint8_t*>(event.name->data()), event.name->size()});
  }
  for (const auto& field : kRecordedLists) {
    if (const auto& value = event.*field.member) line.putList(field.key, *value);
  }
  if (event.bytes) line.putBytes("bytes", *event.bytes);
  for (const auto& field : kRecordedNumbers) {
    if (const auto& value = event.*field.member) line.put(field.key, std::to_string(*value));
  }
  if (event.seconds) line.put("seconds", secondsText(*event.seconds));
  for (const auto& field : kRecordedTruths) {
    if (const auto& value = event.*field.member) line.put(field.key, *value ? "true" : "false");
  }
  return line.finish();
}

std::string recordingLine(const RecordingHeader& header) {
  Line line;
  line.putText("format", kRecordingFormat);
  line.put("version", std::to_string(kRecordingVersion));
  line.putText("program", header.program);
  line.putText("command", header.command);
  line.putText("radio", header.radio);
  if (header.started) line.putText("started", *header.started);
  return line.finish();
}

}  // namespace kestrin
