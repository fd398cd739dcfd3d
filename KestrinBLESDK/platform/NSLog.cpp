#include "KestrinBLESDK/platform/NSLog.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <utility>

namespace kestrin {
namespace {

struct DefaultSink {
  std::mutex mutex;
  std::shared_ptr<NSLogSink> sink = std::make_shared<StandardErrorLogSink>();
};

// Never destroyed: other static objects may log while the process ends.
DefaultSink& defaultSink() {
  static auto* const instance = new DefaultSink;
  return *instance;
}

std::shared_ptr<NSLogSink> currentSink() {
  DefaultSink& holder = defaultSink();
  const std::scoped_lock lock(holder.mutex);
  return holder.sink;
}

class ForwardingLogSink final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override {
    const auto sink = currentSink();
    return sink && sink->isListening();
  }
  void write(std::string_view line) noexcept override {
    if (const auto sink = currentSink()) sink->write(line);
  }
};

void writeAll(std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;  // Nobody to tell: this is where errors are told.
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

NSLogSink::~NSLogSink() = default;

std::string StandardErrorLogSink::escaped(std::string_view line) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(line.size());
  const auto escape = [&](unsigned char byte) {
    text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0x0F]};
  };
  unsigned char before = 0;
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      text += "\\\\";
    } else if (byte < 0x20 || byte == 0x7F) {
      escape(byte);
    } else if (before == 0xC2 && byte >= 0x80 && byte < 0xA0) {
      text.pop_back();  // U+0080 to U+009F are control characters too, in two bytes of UTF-8.
      escape(before);
      escape(byte);
    } else {
      text += c;
    }
    before = byte;
  }
  return text;
}

void StandardErrorLogSink::write(std::string_view line) noexcept { writeAll(escaped(line) + '\n'); }

void setDefaultLogSink(std::shared_ptr<NSLogSink> sink) {
  DefaultSink& holder = defaultSink();
  const std::scoped_lock lock(holder.mutex);
  holder.sink.swap(sink);
  // The replaced sink is released by the parameter's end, after the lock.
}

std::shared_ptr<NSLogSink> defaultLogSink() {
  static const auto* const forwarder =
      new std::shared_ptr<NSLogSink>(std::make_shared<ForwardingLogSink>());
  return *forwarder;
}

namespace detail::nslog {

void append(std::string& line, std::string_view conversion, std::int64_t value) {
  std::array<char, 24> text{};
  const bool hexadecimal = conversion.ends_with('X');
  const int length =
      hexadecimal ? std::snprintf(text.data(), text.size(), "%02llX",
                                  static_cast<unsigned long long>(value))
                  : std::snprintf(text.data(), text.size(), "%lld", static_cast<long long>(value));
  line.append(text.data(), static_cast<std::size_t>(length));
}

std::string_view takeConversion(std::string& line, std::string_view& format) {
  const std::size_t percent = format.find('%');
  if (percent == std::string_view::npos) return {};
  const std::size_t last = format.find_first_of("@dX", percent);
  if (last == std::string_view::npos) return {};
  line += format.substr(0, percent);
  const auto conversion = format.substr(percent + 1, last - percent);
  format.remove_prefix(last + 1);
  return conversion;
}

}  // namespace detail::nslog
}  // namespace kestrin
