#include "tools/gateway/message/LogStanding.h"

#include <nlohmann/json.hpp>

namespace kestrin::gateway {
namespace {

std::optional<RecordNumber> numberOf(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_unsigned()) return std::nullopt;
  return found->get<RecordNumber>();
}

bool isIdentity(const std::string& text) {
  constexpr std::size_t kIdentityDigits = 32;
  return text.size() == kIdentityDigits &&
         text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

std::optional<LogStanding> logStandingOf(std::string_view payload, std::string& error) {
  const auto object = nlohmann::json::parse(payload, nullptr, false);
  if (!object.is_object()) {
    error = "not a JSON object, as in {\"v\":1,\"log\":\"...\",\"first\":1}";
    return std::nullopt;
  }
  const auto log = object.find("log");
  if (log == object.end() || !log->is_string() || !isIdentity(log->get<std::string>())) {
    error = "log: not 32 lower-case hexadecimal digits";
    return std::nullopt;
  }
  const auto first = numberOf(object, "first");
  if (!first) {
    error = "first: not a number from 0 on";
    return std::nullopt;
  }
  return LogStanding{log->get<std::string>(), *first, numberOf(object, "published").value_or(0)};
}

}  // namespace kestrin::gateway
