// What a gateway is told in its configuration file. docs/gateway.md has the table of keys.
//
// Threads: pure functions.
// Lifetime: plain values.
// Errors: a file that is not right gives every complaint at once: file, line, key, what is wrong,
// what would be right.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

enum class FrameFormat : std::uint8_t { json, cbor };

struct ReaderConfig {
  std::string reader;  ///< A whole name or an address.
  bool isAddress = false;
  friend bool operator==(const ReaderConfig&, const ReaderConfig&) = default;
};

struct TlsConfig {
  bool on = false;
  std::optional<std::string> caFile{};  ///< Absent: the system's.
  std::optional<std::string> certificateFile{};
  std::optional<std::string> keyFile{};
  friend bool operator==(const TlsConfig&, const TlsConfig&) = default;
};

struct BrokerConfig {
  std::string host;
  std::uint16_t port = 0;  ///< 8883 with TLS and 1883 without where the file says nothing.
  int protocol = 0;        ///< 5 or 4 (MQTT 3.1.1); 0: 5, and 4 where the broker refuses it.
  std::optional<std::string> user{};
  std::optional<std::string> passwordFile{};
  std::chrono::seconds keepAlive{30};
  std::uint16_t window = 100;
  TlsConfig tls{};
  friend bool operator==(const BrokerConfig&, const BrokerConfig&) = default;
};

struct LogConfig {
  std::string folder;
  std::uint64_t budget = 1ULL << 30U;
  std::chrono::milliseconds syncInterval{50};  ///< 0: each record.
  friend bool operator==(const LogConfig&, const LogConfig&) = default;
};

enum class RadioChoice : std::uint8_t { bluez, simulated };

struct Config {
  std::string
      name;  ///< The gateway's: [A-Za-z0-9_-]{1,64}, part of every topic and the client's id.
  RadioChoice radio = RadioChoice::bluez;
  std::optional<std::string> adapter{};
  std::optional<std::string> simulatedScript{};  ///< With the simulated radio: see docs/gateway.md.
  FrameFormat format = FrameFormat::json;
  LogConfig log{};
  BrokerConfig broker{};
  std::vector<ReaderConfig> readers;
  std::vector<std::string> consumers;  ///< The declared ones.
  friend bool operator==(const Config&, const Config&) = default;
};

struct ConfigComplaint {
  std::string file;
  std::uint32_t line = 0;    ///< From 1; 0 where the whole file cannot be read.
  std::uint32_t column = 0;  ///< The same.
  std::string key;           ///< For example "broker.port"; empty where the file is not TOML.
  std::string text;          ///< What is wrong, and what would be right.
  /// As it is printed: "gateway.toml:12:3: broker.port: ...".
  [[nodiscard]] std::string printed() const;
};

/// What names a gateway, a consumer or a log: [A-Za-z0-9_-]{1,64}.
bool isPlainName(std::string_view name);

/// The configuration in `text`, or every complaint, in the order of their places.
std::optional<Config> parseConfig(const std::string& text, const std::string& file,
                                  std::vector<ConfigComplaint>& complaints);
/// The same of a file, with what the files that it names are like (they exist, can be read).
std::optional<Config> readConfig(const std::string& file, std::vector<ConfigComplaint>& complaints);

/// What has changed and takes a restart: the keys, for example "log.directory".
std::vector<std::string> needsRestart(const Config& before, const Config& after);

}  // namespace kestrin::gateway
