#include "tools/gateway/broker/MosquittoClient.h"

#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoTexts.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr int kFirstRefusal = 0x80;
// A command has 1,029 bytes at most and a frame's message is smaller than 4 KiB; what is far longer
// stays with the broker. MQTT 5 only.
constexpr std::uint32_t kLongestPacket = 1024 * 1024;
// Where Debian keeps the certificates that the system trusts.
constexpr const char* kSystemCertificates = "/etc/ssl/certs";

int noKeyPassword(char*, int, int, void*) { return 0; }

const char* textOrNull(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

bool fits(const std::string& payload) {
  return payload.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

}  // namespace

/// What the library calls, from inside of `read`, `write`, `tick` and `connect`.
struct MosquittoClient::Callbacks {
  static MosquittoClient& of(void* object) { return *static_cast<MosquittoClient*>(object); }

  static void connected(mosquitto*, void* object, int reason, int, const mqtt5__property* list) {
    of(object).connected(reason, list);
  }
  static void disconnected(mosquitto*, void* object, int reason, const mqtt5__property*) {
    of(object).disconnected(reason);
  }
  static void published(mosquitto*, void* object, int id, int reason, const mqtt5__property*) {
    of(object).published(id, reason);
  }
  static void subscribed(mosquitto*, void* object, int, int count, const int* granted,
                         const mqtt5__property*) {
    of(object).subscribed(std::vector<int>(granted, granted + count));
  }
  static void arrived(mosquitto*, void* object, const mosquitto_message* message,
                      const mqtt5__property* list) {
    of(object).arrived(*message, list);
  }
  static void logged(mosquitto*, void* object, int level, const char* text) {
    if ((level & (MOSQ_LOG_ERR | MOSQ_LOG_WARNING)) == 0) return;
    std::string& line = of(object).libraryLine_;
    // The library says that a host name is wrong, and then what became of the handshake.
    if (line.find("host name") == std::string::npos) line = text;
  }
};

MosquittoClient::MosquittoClient(LinkSettings settings) : settings_(std::move(settings)) {}

MosquittoClient::~MosquittoClient() {
  if (client_ != nullptr) mosquitto_destroy(client_);
}

void MosquittoClient::end(LinkEnd how, std::string why) {
  if (!ended_) ended_ = LinkDown{how, brokerText(settings_.config) + ": " + std::move(why)};
}

bool MosquittoClient::worked(int error, const std::string& doing) {
  if (error == MOSQ_ERR_SUCCESS) return true;
  end(LinkEnd::failed, doing + ": " + libraryText(error));
  return false;
}

bool MosquittoClient::prepareOptions() {
  const bool five = settings_.protocol == 5;
  const int version = five ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311;
  const int window = std::clamp<int>(settings_.config.window, 1, 100);
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, version);
  mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_int_option(client_, MOSQ_OPT_SEND_MAXIMUM, window);
  mosquitto_int_option(client_, MOSQ_OPT_RECEIVE_MAXIMUM, 100);
  // Otherwise the library sends from inside each call, the first packet of all before `connect`
  // returns.
  mosquitto_threaded_set(client_, true);
  mosquitto_connect_v5_callback_set(client_, Callbacks::connected);
  mosquitto_disconnect_v5_callback_set(client_, Callbacks::disconnected);
  mosquitto_publish_v5_callback_set(client_, Callbacks::published);
  mosquitto_subscribe_v5_callback_set(client_, Callbacks::subscribed);
  mosquitto_message_v5_callback_set(client_, Callbacks::arrived);
  // Only what the library says of TLS is wanted, and it writes lines for every message.
  if (settings_.config.tls.on) mosquitto_log_callback_set(client_, Callbacks::logged);
  return true;
}

bool MosquittoClient::preparePassword() {
  std::optional<std::string> password;
  if (settings_.config.passwordFile) {
    std::string error;
    password = passwordIn(*settings_.config.passwordFile, error);
    if (!password) {
      end(LinkEnd::failed, error);
      return false;
    }
  }
  if (!settings_.config.user) return true;
  return worked(
      mosquitto_username_pw_set(client_, settings_.config.user->c_str(), textOrNull(password)),
      "the user name cannot be sent");
}

bool MosquittoClient::prepareTls() {
  const TlsConfig& tls = settings_.config.tls;
  if (!tls.on) return true;
  if (!tls.caFile) mosquitto_int_option(client_, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
  if (!tls.caFile && !tls.certificateFile) return true;
  const char* folder = tls.caFile ? nullptr : kSystemCertificates;
  const int error =
      mosquitto_tls_set(client_, textOrNull(tls.caFile), folder, textOrNull(tls.certificateFile),
                        textOrNull(tls.keyFile), noKeyPassword);
  if (error == MOSQ_ERR_SUCCESS) return true;
  end(LinkEnd::failed,
      "the certificates or the key cannot be read; are the files there and readable?");
  return false;
}

bool MosquittoClient::prepareWill() {
  if (!settings_.will) return true;
  const Message& will = *settings_.will;
  std::optional<std::string> error;
  PropertyList properties = settings_.protocol == 5 ? propertiesOf(will, error) : PropertyList();
  if (error || !fits(will.payload)) {
    end(LinkEnd::failed, "the will cannot be sent: " + error.value_or("it is too long"));
    return false;
  }
  const int result =
      mosquitto_will_set_v5(client_, will.topic.c_str(), static_cast<int>(will.payload.size()),
                            will.payload.data(), will.qos, will.retain, properties.get());
  // The library frees the list when it has taken it.
  if (result == MOSQ_ERR_SUCCESS) static_cast<void>(properties.release());
  return worked(result, "the will cannot be sent");
}

bool MosquittoClient::prepare() {
  client_ = mosquitto_new(settings_.clientId.c_str(), true, this);
  if (client_ == nullptr) {
    end(LinkEnd::failed, "no connection can be prepared: " + systemText(errno));
    return false;
  }
  return prepareOptions() && preparePassword() && prepareTls() && prepareWill();
}

std::string MosquittoClient::tlsText() const {
  const auto says = [this](const char* part) {
    return libraryLine_.find(part) != std::string::npos;
  };
  if (says("host name")) {
    return "its certificate is not for \"" + settings_.config.host +
           "\"; use the name that is in it";
  }
  if (says("certificate verify failed")) {
    return "its certificate is not trusted: it has expired, is not valid yet, or is not signed "
           "by " +
           settings_.config.tls.caFile.value_or("an authority that this system knows");
  }
  if (says("certificate required") || says("handshake failure")) {
    return "it wants a client certificate; name one and its key";
  }
  if (says("wrong version number") || says("packet length too long")) {
    return "no TLS is spoken on this port; use the broker's port for TLS, or leave TLS out";
  }
  const bool otherEnded = says("alert") || says("system library") || says("unexpected eof");
  if (!libraryLine_.empty() && !otherEnded) return "TLS fails: " + libraryLine_;
  // Nothing says whether TLS had begun.
  return settings_.config.tls.certificateFile
             ? "it ends the encrypted connection; it may not accept the client certificate, or "
               "this is not its port for TLS"
             : "it ends the encrypted connection; it may want a client certificate, or this is "
               "not its port for TLS";
}

std::string MosquittoClient::connectText(int error) const {
  if (error == MOSQ_ERR_EAI) {
    return "its name is not found; is it right, and does the name service answer?";
  }
  if (error == MOSQ_ERR_TLS) return tlsText();
  if (error != MOSQ_ERR_ERRNO) return libraryText(error);
  if (errno == ECONNREFUSED) return "nobody listens there (connection refused); does it run?";
  return systemText(errno);
}

void MosquittoClient::connect() {
  if (!prepare()) return;
  mosquitto_property* list = nullptr;
  if (settings_.protocol == 5) {
    mosquitto_property_add_int32(&list, MQTT_PROP_MAXIMUM_PACKET_SIZE, kLongestPacket);
  }
  errno = 0;
  const int error = mosquitto_connect_bind_v5(
      client_, settings_.config.host.c_str(), settings_.config.port,
      static_cast<int>(settings_.config.keepAlive.count()), nullptr, list);
  const int number = errno;
  mosquitto_property_free_all(&list);
  errno = number;
  if (error != MOSQ_ERR_SUCCESS) end(LinkEnd::failed, connectText(error));
}

void MosquittoClient::connected(int reason, const mqtt5__property* properties) {
  if (reason == MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION || (settings_.protocol == 4 && reason == 1)) {
    end(LinkEnd::protocolRefused,
        settings_.protocol == 5 ? "it does not speak MQTT 5" : refusalText(1, settings_.protocol));
    return;
  }
  if (reason != 0) {
    end(LinkEnd::failed, "it refuses the connection: " + refusalText(reason, settings_.protocol));
    return;
  }
  accepted_ = true;
  const std::size_t asked = std::clamp<std::size_t>(settings_.config.window, 1, 100);
  up_.protocol = settings_.protocol;
  up_.window = asked;
  if (settings_.protocol == 5)
    up_.window = std::min<std::size_t>(asked, receiveMaximumIn(properties));
  subscribe();
}

void MosquittoClient::subscribe() {
  if (settings_.filters.empty()) {
    events_.emplace_back(up_);
    return;
  }
  std::vector<std::string> texts = settings_.filters;
  std::vector<char*> filters;
  filters.reserve(texts.size());
  for (std::string& text : texts) filters.push_back(text.data());
  // Otherwise a retained message that comes while the connection stands looks like any other.
  const int options = MQTT_SUB_OPT_RETAIN_AS_PUBLISHED;
  worked(mosquitto_subscribe_multiple(client_, nullptr, static_cast<int>(filters.size()),
                                      filters.data(), 1, options, nullptr),
         "its topics cannot be subscribed to");
}

void MosquittoClient::subscribed(const std::vector<int>& granted) {
  for (std::size_t i = 0; i < granted.size() && i < settings_.filters.size(); ++i) {
    if (granted[i] < kFirstRefusal) continue;
    end(LinkEnd::failed,
        "it refuses the subscription to " + settings_.filters[i] + ": " + reasonText(granted[i]));
    return;
  }
  events_.emplace_back(up_);
}

void MosquittoClient::disconnected(int reason) {
  if (farewell_ && reason == MOSQ_ERR_SUCCESS) {
    end(LinkEnd::farewell, "farewell is said");
  } else if (reason == MQTT_RC_SESSION_TAKEN_OVER) {
    end(LinkEnd::takenOver, "another client with the id " + settings_.clientId +
                                " has connected; give each gateway a name of its own");
  } else if (reason >= kFirstRefusal) {
    end(LinkEnd::failed, "it ends the connection: " + reasonText(reason));
  } else if (!accepted_ && settings_.protocol == 5 && reason == MOSQ_ERR_MALFORMED_PACKET) {
    // An older broker's refusal, which newer versions of the library do not read.
    end(LinkEnd::protocolRefused, "it does not speak MQTT 5");
  } else if (reason == MOSQ_ERR_KEEPALIVE) {
    end(LinkEnd::failed, "it has been silent for longer than the keep alive");
  } else if (reason == MOSQ_ERR_TLS || (settings_.config.tls.on && !accepted_)) {
    end(LinkEnd::failed, tlsText());
  } else {
    end(accepted_ ? LinkEnd::closed : LinkEnd::failed, "the connection is lost");
  }
}

void MosquittoClient::published(int messageId, int reason) {
  const auto found = inFlight_.find(messageId);
  if (found == inFlight_.end()) return;
  LinkAcknowledged acknowledged{found->second, std::nullopt};
  if (reason >= kFirstRefusal) acknowledged.refused = reasonText(reason);
  inFlight_.erase(found);
  events_.emplace_back(std::move(acknowledged));
}

void MosquittoClient::arrived(const mosquitto_message& message, const mqtt5__property* properties) {
  Message came;
  came.topic = message.topic;
  if (message.payloadlen > 0) {
    came.payload.assign(static_cast<const char*>(message.payload),
                        static_cast<std::size_t>(message.payloadlen));
  }
  came.qos = message.qos;
  came.retain = message.retain;
  readProperties(properties, came);
  events_.emplace_back(std::move(came));
}

const mqtt5__property* MosquittoClient::listFor(const Message& message,
                                                std::optional<std::string>& error) {
  const bool isPlain =
      message.responseTopic.empty() && !message.correlationData && !message.expirySeconds;
  if (isPlain && list_ && listType_ == message.contentType) return list_.get();
  list_ = propertiesOf(message, error);
  listType_ = isPlain ? std::optional(message.contentType) : std::nullopt;
  return list_.get();
}

void MosquittoClient::publish(const HandedMessage& handed) {
  const Message& message = handed.message;
  std::optional<std::string> error;
  const auto* const properties = settings_.protocol == 5 ? listFor(message, error) : nullptr;
  if (!error && !fits(message.payload)) error = "it is too long";
  if (!error) {
    int messageId = 0;
    const int result = mosquitto_publish_v5(
        client_, &messageId, message.topic.c_str(), static_cast<int>(message.payload.size()),
        message.payload.data(), message.qos, message.retain, properties);
    if (result == MOSQ_ERR_SUCCESS) {
      inFlight_.emplace(messageId, handed.id);
      return;
    }
    error = libraryText(result);
  }
  events_.emplace_back(LinkAcknowledged{handed.id, std::move(error)});
}

void MosquittoClient::sayFarewell() {
  if (std::exchange(farewell_, true)) return;
  worked(mosquitto_disconnect_v5(client_, MQTT_RC_NORMAL_DISCONNECTION, nullptr),
         "farewell cannot be said");
}

int MosquittoClient::socket() const { return mosquitto_socket(client_); }

bool MosquittoClient::wantsWrite() const { return mosquitto_want_write(client_); }

void MosquittoClient::read() {
  errno = 0;
  const int error = mosquitto_loop_read(client_, 1);
  if (error != MOSQ_ERR_SUCCESS) end(LinkEnd::failed, connectText(error));
}

void MosquittoClient::write() {
  errno = 0;
  const int error = mosquitto_loop_write(client_, 1);
  if (error != MOSQ_ERR_SUCCESS) end(LinkEnd::failed, connectText(error));
}

void MosquittoClient::tick() {
  const int error = mosquitto_loop_misc(client_);
  if (error != MOSQ_ERR_SUCCESS) end(LinkEnd::failed, connectText(error));
}

}  // namespace kestrin::gateway
