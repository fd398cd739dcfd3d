// A message bus of the test's own, so that neither a Bluetooth daemon nor rights on the system bus
// are needed.
//
// Threads: one at a time. Lifetime: the bus ends with the object.
// Errors: a bus that cannot be started fails the test, saying why.
#pragma once

#include <sys/types.h>

#include <string>

namespace kestrin::bluez::test {

class PrivateBus {
 public:
  enum class Policy { open, daemonRefused };

  explicit PrivateBus(Policy policy = Policy::open);
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  [[nodiscard]] const std::string& address() const noexcept { return address_; }
  /// Ends the bus before its time. `restart` brings it back at the same address.
  void kill();
  void restart();

 private:
  void start();

  std::string folder_;
  std::string address_;
  pid_t process_ = -1;
};

}  // namespace kestrin::bluez::test
