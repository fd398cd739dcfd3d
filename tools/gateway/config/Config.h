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

/// The status page and the figures for a monitoring system.
struct PageConfig {
  bool on = false;
  std::string address = "127.0.0.1";  ///< Of this machine, in digits.
  std::uint16_t port = 8417;
  std::vector<std::string> names{};  ///< Under which it is asked for, besides addresses.
  std::optional<std::string> tokenFile{};
  bool commands = false;  ///< Whether it takes commands for readers.
  std::optional<std::string> certificateFile{};
  std::optional<std::string> keyFile{};
  friend bool operator==(const PageConfig&, const PageConfig&) = default;
};

/// A server that gets records by HTTP, and is a declared consumer by its answers.
struct WebhookConfig {
  std::string name;  ///< As a consumer's, and not one of theirs.
  std::string url;   ///< With https, or with http to this machine.
  std::optional<std::string> tokenFile{};
  std::optional<std::string> headersFile{};
  std::optional<std::string> caFile{};  ///< Absent: the system's.
  std::uint16_t batch = 100;            ///< Records in one post, at most.
  std::chrono::milliseconds timeout{30'000};
  friend bool operator==(const WebhookConfig&, const WebhookConfig&) = default;
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
  PageConfig page{};
  std::vector<ReaderConfig> readers;
  std::vector<std::string> consumers;  ///< The declared ones.
  std::vector<WebhookConfig> webhooks{};
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

/// A file that the service manager hands over is named by this and its name there, as in
/// "credential:broker.key".
inline constexpr std::string_view kCredential = "credential:";

/// Where credentials are looked for: where $CREDENTIALS_DIRECTORY says, or nowhere, so that their
/// names stay in the configuration as they are.
enum class Credentials : std::uint8_t { needed, notLookedAt };

/// What names a gateway, a consumer or a log: [A-Za-z0-9_-]{1,64}.
bool isPlainName(std::string_view name);

/// What whoever asks for the page has to know: the one line of a file, at least 16 characters.
std::optional<std::string> readToken(const std::string& file, std::string& error);

/// The configuration in `text`, or every complaint, in the order of their places.
std::optional<Config> parseConfig(const std::string& text, const std::string& file,
                                  std::vector<ConfigComplaint>& complaints);
/// The same of a file, with what the files that it names are like (they exist, can be read).
std::optional<Config> readConfig(const std::string& file, std::vector<ConfigComplaint>& complaints,
                                 Credentials credentials = Credentials::needed);

/// What has changed and takes a restart: the keys, for example "log.directory".
std::vector<std::string> needsRestart(const Config& before, const Config& after);

}  // namespace kestrin::gateway
