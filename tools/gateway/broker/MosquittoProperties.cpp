#include "tools/gateway/broker/MosquittoProperties.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

namespace kestrin::gateway {
namespace {

struct Freed {
  void operator()(void* memory) const { std::free(memory); }
};

/// A list that the library's functions add to.
class Builder {
 public:
  Builder() = default;
  ~Builder() { mosquitto_property_free_all(&first_); }
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;

  void addText(int identifier, const std::string& text) {
    if (text.empty() || error_ != MOSQ_ERR_SUCCESS) return;
    error_ = mosquitto_property_add_string(&first_, identifier, text.c_str());
  }
  void addBytes(int identifier, const std::string& bytes) {
    if (error_ != MOSQ_ERR_SUCCESS) return;
    if (bytes.size() > std::numeric_limits<std::uint16_t>::max()) {
      error_ = MOSQ_ERR_PAYLOAD_SIZE;
      return;
    }
    error_ = mosquitto_property_add_binary(&first_, identifier, bytes.data(),
                                           static_cast<std::uint16_t>(bytes.size()));
  }
  void addNumber(int identifier, std::uint32_t number) {
    if (error_ != MOSQ_ERR_SUCCESS) return;
    error_ = mosquitto_property_add_int32(&first_, identifier, number);
  }
  [[nodiscard]] int error() const { return error_; }
  PropertyList taken() { return PropertyList(std::exchange(first_, nullptr)); }

 private:
  mosquitto_property* first_ = nullptr;
  int error_ = MOSQ_ERR_SUCCESS;
};

std::string textIn(const mosquitto_property* list, int identifier) {
  char* text = nullptr;
  if (mosquitto_property_read_string(list, identifier, &text, false) == nullptr) return {};
  const std::unique_ptr<char, Freed> owned(text);
  return text == nullptr ? std::string() : std::string(text);
}

std::optional<std::string> bytesIn(const mosquitto_property* list, int identifier) {
  void* bytes = nullptr;
  std::uint16_t length = 0;
  if (mosquitto_property_read_binary(list, identifier, &bytes, &length, false) == nullptr) {
    return std::nullopt;
  }
  const std::unique_ptr<void, Freed> owned(bytes);
  return bytes == nullptr ? std::string() : std::string(static_cast<const char*>(bytes), length);
}

}  // namespace

void PropertiesFreed::operator()(mqtt5__property* first) const {
  mosquitto_property_free_all(&first);
}

PropertyList propertiesOf(const Message& message, std::optional<std::string>& error) {
  Builder builder;
  builder.addText(MQTT_PROP_CONTENT_TYPE, message.contentType);
  builder.addText(MQTT_PROP_RESPONSE_TOPIC, message.responseTopic);
  if (message.correlationData) {
    builder.addBytes(MQTT_PROP_CORRELATION_DATA, *message.correlationData);
  }
  if (message.expirySeconds) {
    builder.addNumber(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, *message.expirySeconds);
  }
  if (builder.error() == MOSQ_ERR_SUCCESS) return builder.taken();
  error = std::string("its properties cannot be sent: ") + mosquitto_strerror(builder.error());
  return nullptr;
}

void readProperties(const mqtt5__property* list, Message& message) {
  message.contentType = textIn(list, MQTT_PROP_CONTENT_TYPE);
  message.responseTopic = textIn(list, MQTT_PROP_RESPONSE_TOPIC);
  message.correlationData = bytesIn(list, MQTT_PROP_CORRELATION_DATA);
  std::uint32_t seconds = 0;
  if (mosquitto_property_read_int32(list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &seconds, false) !=
      nullptr) {
    message.expirySeconds = seconds;
  }
}

std::uint16_t receiveMaximumIn(const mqtt5__property* list) {
  std::uint16_t most = std::numeric_limits<std::uint16_t>::max();
  mosquitto_property_read_int16(list, MQTT_PROP_RECEIVE_MAXIMUM, &most, false);
  return most;
}

}  // namespace kestrin::gateway
