#include "tools/gateway/broker/MosquittoTexts.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <system_error>

namespace kestrin::gateway {

std::string reasonText(int reason) {
  switch (reason) {
    case MQTT_RC_BAD_USERNAME_OR_PASSWORD:
      return "the user name or the password is wrong";
    case MQTT_RC_NOT_AUTHORIZED:
      return "not authorised; see the broker's passwords and access list";
    case MQTT_RC_SERVER_SHUTTING_DOWN:
      return "it shuts down";
    default:
      break;
  }
  std::string text = mosquitto_reason_string(reason);
  while (text.ends_with('.')) text.pop_back();
  if (!text.empty() && text.front() >= 'A' && text.front() <= 'Z') {
    text.front() = static_cast<char>(text.front() - 'A' + 'a');
  }
  return text + " (reason " + std::to_string(reason) + ")";
}

std::string refusalText(int code, int protocol) {
  if (protocol == 5 || code >= MQTT_RC_UNSPECIFIED) return reasonText(code);
  switch (code) {
    case 1:
      return "it does not speak MQTT 3.1.1";
    case 2:
      return "it does not take the client id";
    case 3:
      return "it is not available now";
    case 4:
      return reasonText(MQTT_RC_BAD_USERNAME_OR_PASSWORD);
    case 5:
      return reasonText(MQTT_RC_NOT_AUTHORIZED);
    default:
      return "for a reason of its own (return code " + std::to_string(code) + ")";
  }
}

std::string libraryText(int error) {
  std::string text = mosquitto_strerror(error);
  while (text.ends_with('.')) text.pop_back();
  return text;
}

std::string systemText(int number) { return std::generic_category().message(number); }

}  // namespace kestrin::gateway
