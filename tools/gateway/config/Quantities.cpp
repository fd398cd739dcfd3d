#include "tools/gateway/config/Quantities.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <span>

namespace kestrin::gateway {
namespace {

struct Unit {
  std::string_view name;
  std::uint64_t factor;
};
constexpr Unit kSizes[]{
    {"B", 1},
    {"kB", 1'000},
    {"MB", 1'000'000},
    {"GB", 1'000'000'000},
    {"TB", 1'000'000'000'000},
    {"KiB", 1ULL << 10U},
    {"MiB", 1ULL << 20U},
    {"GiB", 1ULL << 30U},
    {"TiB", 1ULL << 40U},
};
constexpr Unit kDurations[]{{"ms", 1}, {"s", 1'000}, {"min", 60'000}, {"h", 3'600'000}};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::optional<std::uint64_t> wholeOf(std::string_view digits) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

/// A whole number and one of `units`, with or without a blank between.
std::optional<std::uint64_t> quantityOf(std::string_view text, std::span<const Unit> units) {
  const auto digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const auto number = wholeOf(text.substr(0, digits));
  auto name = text.substr(digits);
  if (name.starts_with(' ')) name.remove_prefix(1);
  for (const Unit& unit : units) {
    if (unit.name != name || !number) continue;
    if (*number > std::numeric_limits<std::uint64_t>::max() / unit.factor) return std::nullopt;
    return *number * unit.factor;
  }
  return std::nullopt;
}

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

constexpr std::size_t kLongestWebAddress = 900;
constexpr const char* kHostLetters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";

/// Neither blanks nor controls, and nothing that programs read in different ways.
bool isOfWebAddress(char c) {
  return c > ' ' && c <= '~' && std::string_view("\"<>\\^`{|}#@").find(c) == std::string_view::npos;
}

bool isPort(std::string_view digits) {
  const auto port = wholeOf(digits);
  return port && *port > 0 && *port <= 65'535;
}

bool isLoopbackAddress(std::string_view host) {
  for (int part = 0; part < 4; ++part) {
    const auto end = std::min(host.find('.'), host.size());
    const auto digits = host.substr(0, end);
    const auto number = wholeOf(digits);
    if (!number || *number > 255 || (part == 0 && *number != 127)) return false;
    // Some read such digits as octal ones, and find another machine.
    if (digits.size() > 1 && digits.starts_with('0')) return false;
    if ((end == host.size()) != (part == 3)) return false;
    host.remove_prefix(std::min(end + 1, host.size()));
  }
  return true;
}

}  // namespace

std::optional<std::uint64_t> sizeOf(std::string_view text) { return quantityOf(text, kSizes); }

std::optional<std::chrono::milliseconds> durationOf(std::string_view text) {
  constexpr std::uint64_t kLongest = 1ULL << 40U;  // 34 years.
  const auto ms = quantityOf(text, kDurations);
  if (!ms || *ms > kLongest) return std::nullopt;
  return std::chrono::milliseconds(static_cast<std::int64_t>(*ms));
}

std::optional<std::string> addressOf(std::string_view text) {
  constexpr std::size_t kLength = 17;
  if (text.size() != kLength) return std::nullopt;
  std::string address(text);
  for (std::size_t i = 0; i < kLength; ++i) {
    address[i] = upper(address[i]);
    const bool digit = isDigit(address[i]) || (address[i] >= 'A' && address[i] <= 'F');
    if (i % 3 == 2 ? address[i] != ':' : !digit) return std::nullopt;
  }
  return address;
}

std::optional<WebAddress> webAddressOf(std::string_view text) {
  WebAddress address;
  address.isSecure = text.starts_with("https://");
  if (!address.isSecure && !text.starts_with("http://")) return std::nullopt;
  if (text.size() > kLongestWebAddress || !std::ranges::all_of(text, isOfWebAddress)) {
    return std::nullopt;
  }
  text.remove_prefix(text.find("//") + 2);
  text = text.substr(0, text.find_first_of("/?"));
  const auto bracket = text.starts_with('[') ? text.find(']') : 0;
  if (bracket == std::string_view::npos) return std::nullopt;
  const auto colon = text.find(':', bracket);
  const auto host = text.substr(0, colon);
  if (colon != std::string_view::npos && !isPort(text.substr(colon + 1))) return std::nullopt;
  address.host = bracket > 0 ? host.substr(1, bracket - 1) : host;
  const char* const letters = bracket > 0 ? "0123456789abcdefABCDEF:." : kHostLetters;
  const bool isWhole = bracket == 0 || bracket + 1 == host.size();
  const bool isHost = address.host.find_first_not_of(letters) == std::string::npos;
  if (address.host.empty() || !isWhole || !isHost) return std::nullopt;
  return address;
}

bool isLoopback(std::string_view host) {
  constexpr std::string_view kName = "LOCALHOST";
  const bool named = std::equal(host.begin(), host.end(), kName.begin(), kName.end(),
                                [](char a, char b) { return upper(a) == b; });
  return named || host == "::1" || isLoopbackAddress(host);
}

bool isIpAddress(const std::string& text) {
  in6_addr address{};
  return text.find('\0') == std::string::npos &&
         (::inet_pton(AF_INET, text.c_str(), &address) == 1 ||
          ::inet_pton(AF_INET6, text.c_str(), &address) == 1);
}

bool isHostName(std::string_view text) {
  constexpr std::size_t kLongest = 253;
  return !text.empty() && text.size() <= kLongest &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                  c == '-' || c == '.';
         });
}

std::string shownText(std::string_view text, std::size_t most) {
  std::string line;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const bool begins = (byte & 0xC0U) != 0x80U;
    if (begins && line.size() >= most) return line + "...";
    const auto next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    // The second set of control characters is C2 80 to C2 9F.
    const bool pair = byte == 0xC2 && next >= 0x80 && next < 0xA0;
    if (pair) ++at;
    line += byte < 0x20 || byte == 0x7F || pair ? '?' : text[at];
  }
  return line;
}

}  // namespace kestrin::gateway
