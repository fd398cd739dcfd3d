#include "tools/gateway/http/HttpSecrets.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>
#include <string_view>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLongestSecret = std::size_t{16} << 10U;

std::optional<std::string> secretIn(const std::string& file, std::string& error) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  std::string text = content.str();
  if (!stream.is_open() || stream.bad()) {
    error = file + " cannot be read; is it there, and may the gateway read it?";
    return std::nullopt;
  }
  if (text.size() > kLongestSecret) {
    error = file + " is longer than " + std::to_string(kLongestSecret) + " bytes";
    return std::nullopt;
  }
  std::erase(text, '\r');
  return text;
}

bool isNameLetter(char letter) {
  const bool isLetter = (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
  return isLetter || (letter >= '0' && letter <= '9') || letter == '-' || letter == '_';
}

bool isValue(std::string_view text) {
  return std::ranges::all_of(
      text, [](char letter) { return letter == '\t' || (letter >= ' ' && letter != 0x7F); });
}

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& each : lower) {
    if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
  }
  return lower;
}

/// Those by which the gateway and its library say what is posted.
bool isOwn(std::string_view name) {
  constexpr std::array<std::string_view, 8> kOwn{
      "content-type",     "content-length", "transfer-encoding",
      "content-encoding", "host",           "connection",
      "expect",           "upgrade"};
  const std::string lower = lowered(name);
  return lower.starts_with("kestrin-") || std::ranges::find(kOwn, lower) != kOwn.end();
}

/// Empty: nothing is wrong.
std::string troubleWith(std::string_view line) {
  const auto colon = line.find(':');
  const auto name = line.substr(0, colon);
  if (colon == std::string_view::npos || name.empty() || !std::ranges::all_of(name, isNameLetter) ||
      !isValue(line.substr(colon + 1))) {
    return "is not a header; NAME: VALUE would be right";
  }
  if (isOwn(name)) return "is a header that the gateway sets itself";
  return "";
}

}  // namespace

std::optional<std::string> tokenIn(const std::string& file, std::string& error) {
  auto text = secretIn(file, error);
  if (!text) return std::nullopt;
  if (text->ends_with('\n')) text->pop_back();
  const bool isToken = std::ranges::all_of(*text, [](char c) { return c > ' ' && c <= '~'; });
  if (!text->empty() && isToken) return text;
  error = file + " has no token; one line of printable characters without blanks would be right";
  return std::nullopt;
}

std::optional<std::vector<std::string>> headersIn(const std::string& file, std::string& error) {
  const auto text = secretIn(file, error);
  if (!text) return std::nullopt;
  std::vector<std::string> headers;
  std::istringstream stream(*text);
  std::string line;
  for (std::size_t number = 1; std::getline(stream, line); ++number) {
    if (line.empty()) continue;
    if (const auto trouble = troubleWith(line); !trouble.empty()) {
      error = file;
      error.append(": line ").append(std::to_string(number)).append(" ").append(trouble);
      return std::nullopt;
    }
    headers.push_back(line);
  }
  return headers;
}

}  // namespace kestrin::gateway
