#include "Errors.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

namespace kestrin::bluez {
namespace {

// Codes of CBErrorDomain.
constexpr std::int64_t kNotConnected = 3;
constexpr std::int64_t kPeripheralDisconnected = 7;

/// `Operation failed with ATT error: 0x0e` carries the code at its end.
std::optional<std::int64_t> attErrorOf(std::string_view message) {
  static constexpr std::string_view kMark = "ATT error: 0x";
  const auto at = message.find(kMark);
  if (at == std::string_view::npos) return std::nullopt;
  const auto digits = message.substr(at + kMark.size());
  std::int64_t code = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
  if (error != std::errc{} || end == digits.data()) return std::nullopt;
  return code;
}

}  // namespace

NSError errorOf(const CallError& error) {
  if (const auto code = attErrorOf(error.message)) {
    return {.domain = CBATTErrorDomain, .code = *code, .text = error.message};
  }
  std::string text = error.message.empty() ? error.name : error.message;
  if (text.empty()) text = "the Bluetooth daemon gave no reason";
  return failure(std::move(text));
}

bool isRefusal(const CallError& error) {
  return error.name == "org.freedesktop.DBus.Error.AccessDenied" ||
         error.name == "org.freedesktop.DBus.Error.AuthFailed" ||
         isDaemonError(error, "NotAuthorized");
}

bool isDaemonError(const CallError& error, std::string_view name) {
  static constexpr std::string_view kPrefix = "org.bluez.Error.";
  return error.name.starts_with(kPrefix) &&
         std::string_view(error.name).substr(kPrefix.size()) == name;
}

NSError failure(std::string text) {
  return {.domain = CBErrorDomain, .code = 0, .text = std::move(text)};
}

NSError linkGivenUp() {
  return {.domain = CBErrorDomain, .code = kNotConnected, .text = "the link was given up"};
}

NSError linkLost(std::string why) {
  return {.domain = CBErrorDomain, .code = kPeripheralDisconnected, .text = std::move(why)};
}

}  // namespace kestrin::bluez
