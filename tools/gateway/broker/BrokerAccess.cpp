#include "tools/gateway/broker/BrokerAccess.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace kestrin::gateway {

std::string clientIdOf(const std::string& gateway) {
  return gateway.empty() ? std::string() : "kestrin-gateway-" + gateway;
}

std::string brokerText(const BrokerConfig& config) {
  const bool isV6 = config.host.find(':') != std::string::npos;
  const std::string host = isV6 ? "[" + config.host + "]" : config.host;
  return "broker " + host + ":" + std::to_string(config.port);
}

bool isLoopback(const std::string& host) {
  // A name that merely begins like an address, 127.evil.example, is looked up somewhere else.
  const bool onlyDigits = std::ranges::all_of(
      host, [](char letter) { return letter == '.' || (letter >= '0' && letter <= '9'); });
  return host == "localhost" || host == "::1" || (onlyDigits && host.starts_with("127."));
}

std::optional<std::string> whyNotTried(const BrokerConfig& config, const std::string& clientId) {
  if (clientId.empty()) {
    return "there is no name for the client id, so the broker would not know it again; give one";
  }
  if (config.host.empty()) return "no host is named; name the broker's";
  if (config.keepAlive.count() < 5 || config.keepAlive.count() > 65535) {
    return "the keep alive is " + std::to_string(config.keepAlive.count()) +
           " seconds; it may be 5 to 65535";
  }
  if (config.tls.certificateFile.has_value() != config.tls.keyFile.has_value()) {
    return "a client certificate and its key belong together, and only one of them is named";
  }
  if (config.passwordFile && !config.user) {
    return "there is a password and nobody whose it is; name the user too";
  }
  if (config.passwordFile && !config.tls.on && !isLoopback(config.host)) {
    return brokerText(config) +
           ": the password is not sent over a connection that is not encrypted; use TLS";
  }
  return std::nullopt;
}

std::optional<std::string> passwordIn(const std::string& file, std::string& error) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  std::string text = content.str();
  if (!stream.is_open() || stream.bad()) {
    error = "the password cannot be read from " + file + "; is the file there and readable?";
    return std::nullopt;
  }
  if (text.ends_with('\n')) text.pop_back();
  if (text.ends_with('\r')) text.pop_back();
  if (text.empty()) {
    error = "the password file " + file + " is empty; it holds the password on one line";
    return std::nullopt;
  }
  if (text.find_first_of(std::string("\n\0", 2)) != std::string::npos) {
    error = "the password file " + file + " has more than one line; it holds the password only";
    return std::nullopt;
  }
  return text;
}

}  // namespace kestrin::gateway
