// The client library's object for one connection, from its settings to its end. It is never used
// for a second one, so that the library's own queue and its 16-bit message ids do not outlive it.
//
// Threads: that of the connection alone. Making and connecting one may take long: names are looked
// up, files are read.
// Lifetime: destroying it closes the connection without a farewell.
// Errors: the first thing that ends the connection is `ended`, in one line for a person.
#pragma once

#include "tools/gateway/broker/Broker.h"
#include "tools/gateway/broker/MosquittoMailbox.h"
#include "tools/gateway/broker/MosquittoProperties.h"
#include "tools/gateway/config/Config.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

struct mosquitto;
struct mosquitto_message;

namespace kestrin::gateway {

struct LinkSettings {
  BrokerConfig config{};
  std::string clientId{};
  int protocol = 5;
  std::vector<std::string> filters{};
  std::optional<Message> will{};
};

class MosquittoClient {
 public:
  explicit MosquittoClient(LinkSettings settings);
  ~MosquittoClient();
  MosquittoClient(const MosquittoClient&) = delete;
  MosquittoClient& operator=(const MosquittoClient&) = delete;

  /// Reads the files, looks the name up and connects. The broker hears of it by the first `step`
  /// only, so that a connection that nobody wants any more ends unnoticed.
  void connect();
  void publish(const HandedMessage& handed);
  void sayFarewell();

  [[nodiscard]] int socket() const;
  [[nodiscard]] bool wantsWrite() const;
  void read();
  void write();
  /// The keep alive; about once a second.
  void tick();

  /// What has come since this was asked last.
  std::vector<LinkEvent>& events() { return events_; }
  [[nodiscard]] const std::optional<LinkDown>& ended() const { return ended_; }

 private:
  struct Callbacks;

  bool prepare();
  bool prepareOptions();
  bool preparePassword();
  bool prepareTls();
  bool prepareWill();
  void end(LinkEnd how, std::string why);
  /// Ends the connection when the library's call has failed.
  bool worked(int error, const std::string& doing);
  void subscribe();
  [[nodiscard]] std::string tlsText() const;
  [[nodiscard]] std::string connectText(int error) const;

  void connected(int reason, const mqtt5__property* properties);
  void disconnected(int reason);
  void published(int messageId, int reason);
  void subscribed(const std::vector<int>& granted);
  void arrived(const mosquitto_message& message, const mqtt5__property* properties);
  /// What the message brings along, good until the next call.
  const mqtt5__property* listFor(const Message& message, std::optional<std::string>& error);

  const LinkSettings settings_;
  mosquitto* client_ = nullptr;
  std::vector<LinkEvent> events_;
  std::unordered_map<int, PublishId> inFlight_;
  std::optional<LinkDown> ended_;
  std::string libraryLine_;  // The last one of trouble that the library logged.
  PropertyList list_;        // Of the last message; most that follow bring the same along.
  std::optional<std::string> listType_;  // Its content type; absent where there is more in it.
  BrokerUp up_{};
  bool accepted_ = false;  // By the broker.
  bool farewell_ = false;
};

}  // namespace kestrin::gateway
