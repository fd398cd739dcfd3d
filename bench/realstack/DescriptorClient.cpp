// The least that a client can do: a blocking receive on the descriptor of the notifications.
#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <map>

#include "bench/realstack/BusReader.h"
#include "bench/realstack/Tally.h"

int main() {
  using namespace kestrin::bench;
  constexpr std::size_t kLargestValue = 512;
  const auto bus = sdbus::createSystemBusConnection();
  const auto characteristic = kestrin::bluez::makeProxy(*bus, kDaemon, connectToReader(*bus));
  sdbus::UnixFd descriptor;
  std::uint16_t mtu = 0;
  characteristic->callMethod("AcquireNotify")
      .onInterface(kCharacteristic)
      .withArguments(std::map<std::string, sdbus::Variant>())
      .storeResultsTo(descriptor, mtu);
  const int flags = ::fcntl(descriptor.get(), F_GETFL);
  if (flags < 0 || ::fcntl(descriptor.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) return 1;
  tally().up();
  std::array<std::uint8_t, kLargestValue> value{};
  while (true) {
    const auto length = ::recv(descriptor.get(), value.data(), value.size(), 0);
    if (length <= 0) return 1;
    tally().add(value.data(), static_cast<std::size_t>(length));
  }
}
