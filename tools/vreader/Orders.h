// Orders to the virtual devices while the program runs, one per line of text.
//
// Threads: the run loop's. Lifetime: the devices and the controller outlive it.
// Errors: an order that is not understood, or cannot be carried out now, is refused with a line
// that says why; nothing has happened then.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vreader/Controller.h"
#include "tools/vreader/VirtualDevice.h"

namespace kestrin::vreader {

class Orders {
 public:
  struct Outcome {
    bool done = false;
    /// Why not, when it was not.
    std::string reason;
  };

  Orders(std::vector<std::shared_ptr<VirtualDevice>> devices, Controller& controller)
      : devices_(std::move(devices)), controller_(controller) {}

  /// Carries out one order.
  Outcome carryOut(std::string_view line);
  /// Every order with its arguments and what it does, for `--help`.
  static std::string help();

 private:
  [[nodiscard]] std::shared_ptr<VirtualDevice> find(std::string_view id) const;
  [[nodiscard]] std::string deviceIds() const;

  const std::vector<std::shared_ptr<VirtualDevice>> devices_;
  Controller& controller_;
};

}  // namespace kestrin::vreader
