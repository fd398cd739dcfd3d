/// \file
/// The log: `NSLog` formats a line and hands it to a sink. Nothing is shortened.
///
/// Threads: `NSLog` may be called from any thread; a sink must allow that. A sink is called without
/// any lock held, and may call back into the library.
///
/// Lifetime: a platform shares its sink; the process-wide default sink is kept until replaced.
///
/// Errors: none; a sink must not throw.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin {
/// \addtogroup platform
/// @{

/// Where log lines go. Derive from it and put yours into `Platform::log`, or make it the process's
/// with `setDefaultLogSink`.
class KESTRIN_EXPORT NSLogSink {
 public:
  virtual ~NSLogSink();
  /// Whether anybody reads the lines. While this returns false no line is formatted, so that a log
  /// that nobody reads costs next to nothing.
  [[nodiscard]] virtual bool isListening() const noexcept { return true; }
  /// One line, without a line end. It may hold any byte: names come from the air.
  virtual void write(std::string_view line) noexcept = 0;
};

/// Writes each line to standard error with one system call. Control characters are escaped as
/// `\xNN`, a backslash as `\\`, so that a name from the air cannot steer a terminal; the line that
/// other sinks get stays as it is.
class KESTRIN_EXPORT StandardErrorLogSink final : public NSLogSink {
 public:
  void write(std::string_view line) noexcept override;
  /// The line as it is written, without the line end.
  static std::string escaped(std::string_view line);
};

/// The process-wide sink that `Platform::systemDefault()` logs to: standard error until replaced.
/// Replacing takes effect with the next line. A null sink silences the log.
KESTRIN_EXPORT void setDefaultLogSink(std::shared_ptr<NSLogSink> sink);
/// A sink that passes each line to whichever default sink is set at that moment.
KESTRIN_EXPORT std::shared_ptr<NSLogSink> defaultLogSink();

// Not a name that an application would meet after `using namespace kestrin`.
namespace detail::nslog {

// How each kind of argument is printed. `conversion` is the text between the percent sign and the
// end of the conversion, for example "02X".
KESTRIN_EXPORT void append(std::string& line, std::string_view conversion, std::int64_t value);
inline void append(std::string& line, std::string_view, std::string_view value) { line += value; }
inline void append(std::string& line, std::string_view, const NSData& value) {
  line += value.description();
}
inline void append(std::string& line, std::string_view, const NSMutableData& value) {
  line += descriptionOfBytes(value.span());
}
inline void append(std::string& line, std::string_view, const CBUUID& value) {
  line += value.UUIDString();
}
inline void append(std::string& line, std::string_view, const NSError& value) {
  line += value.description();
}
template <std::integral T>
void append(std::string& line, std::string_view conversion, T value) {
  append(line, conversion, static_cast<std::int64_t>(value));
}
/// An absent object prints as `(null)`.
template <class T>
void append(std::string& line, std::string_view conversion, const std::optional<T>& value) {
  if (value) {
    append(line, conversion, *value);
  } else {
    line += "(null)";
  }
}

/// Moves the literal text up to the next conversion from `format` to `line` and returns the
/// conversion; empty when there is none left.
KESTRIN_EXPORT std::string_view takeConversion(std::string& line, std::string_view& format);

/// Formats a line and hands it to the sink. Apart from the question whether anybody listens, so
/// that this one can stand where the line is written and cost no call.
template <class... Arguments>
[[gnu::noinline]] void writeLine(NSLogSink& sink, std::string_view format,
                                 const Arguments&... arguments) {
  std::string line;
  (nslog::append(line, nslog::takeConversion(line, format), arguments), ...);
  line += format;
  sink.write(line);
}

}  // namespace detail::nslog

/// `NSLog` Formats a line and hands it to the sink. Known conversions: `%@` (an object), `%ld` and
/// `%hhd` (decimal), `%02X` (two upper-case hexadecimal digits).
template <class... Arguments>
void NSLog(NSLogSink& sink, std::string_view format, const Arguments&... arguments) {
  if (sink.isListening()) detail::nslog::writeLine(sink, format, arguments...);
}

/// @}

}  // namespace kestrin
