// Texts of a configuration that are quantities or names: sizes, durations, addresses, hosts.
//
// Threads: pure functions. Errors: absent, or false.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrin::gateway {

/// "4 GiB", "500 MB", "4096 B": a whole number and its unit.
std::optional<std::uint64_t> sizeOf(std::string_view text);
/// "50 ms", "30 s", "5 min", "1 h": a whole number and its unit.
std::optional<std::chrono::milliseconds> durationOf(std::string_view text);

/// "C0:00:00:00:00:01", in capitals whatever the text has; absent: it is not an address.
std::optional<std::string> addressOf(std::string_view text);

/// The address of a web page or service: "https://host.example:8443/path?query".
struct WebAddress {
  bool isSecure = false;
  std::string host;
};
/// Absent: the text is not one, or has a user, a fragment, or characters that stand in none.
std::optional<WebAddress> webAddressOf(std::string_view text);

/// Whether a name of a host means this machine, without asking anybody: localhost, 127.0.0.0/8,
/// ::1.
bool isLoopback(std::string_view host);

/// Whether it is an address of IPv4 or IPv6 in digits.
bool isIpAddress(const std::string& text);

/// Whether it can be a host's name: letters, digits, "-" and ".".
bool isHostName(std::string_view text);

/// A text of somebody else's for one line to a person: no control characters, and cut where it is
/// long, which is after `most` bytes. It is UTF-8.
std::string shownText(std::string_view text, std::size_t most = 60);

}  // namespace kestrin::gateway
