// The radio that a gateway works with, as its configuration says.
//
// Threads: one thread makes it, turns its loop and drops it.
// Lifetime: drop everything that uses the platform before, and the loop behind it.
// Errors: one line for a person.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/Platform.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/config/Config.h"

namespace kestrin::gateway {

class GatewayRadio {
 public:
  GatewayRadio() = default;
  virtual ~GatewayRadio() = default;
  GatewayRadio(const GatewayRadio&) = delete;
  GatewayRadio& operator=(const GatewayRadio&) = delete;
  [[nodiscard]] virtual Platform platform() const = 0;
};

struct RadioRequest {
  RadioChoice choice = RadioChoice::bluez;
  std::optional<std::string> adapter{};
  /// Where the real radio keeps the names of linked readers for the next start.
  std::optional<std::string> linkNames{};
  std::optional<std::string> script{};
  std::vector<ReaderConfig> readers{};
  /// Where the simulated readers write down what they have sent, a line each: name, tab, bytes.
  std::optional<std::string> sent{};
  /// Whether the library's log goes to standard error.
  bool log = false;
};

/// Null, with the reason in `error`, when this build or this machine does not have it.
std::unique_ptr<GatewayRadio> makeRadio(const std::shared_ptr<MainRunLoop>& loop,
                                        const RadioRequest& request, std::string& error);

}  // namespace kestrin::gateway
