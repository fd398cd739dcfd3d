#include "BusSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace kestrin::bluez {
namespace {

constexpr std::string_view kKind = "unix:path=";
// Where the system bus is, unless the environment says otherwise (D-Bus, message bus conventions).
constexpr char kSystemBus[] = "unix:path=/run/dbus/system_bus_socket";

std::string systemBusAddress() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the bus library reads it at the same moment, too.
  const char* const named = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return named != nullptr ? named : kSystemBus;
}

CallError callError(int number) {
  const char* name = "org.freedesktop.DBus.Error.NoServer";
  if (number == ENOENT) name = "org.freedesktop.DBus.Error.FileNotFound";
  if (number == EACCES || number == EPERM) name = "org.freedesktop.DBus.Error.AccessDenied";
  return {name, std::generic_category().message(number)};
}

}  // namespace

std::optional<CallError> whyNoBusListens(const std::optional<std::string>& address) noexcept {
  const std::string text = address ? *address : systemBusAddress();
  // Several addresses and escaped characters are the bus library's to read.
  if (!text.starts_with(kKind) || text.find_first_of(";%") != std::string::npos) {
    return std::nullopt;
  }
  // Behind a comma come options, such as the bus's identity.
  const std::string_view path =
      std::string_view(text).substr(kKind.size(), text.find(',') - kKind.size());
  sockaddr_un place{};
  place.sun_family = AF_UNIX;
  if (path.size() >= sizeof place.sun_path) return callError(ENAMETOOLONG);
  std::copy(path.begin(), path.end(), std::begin(place.sun_path));
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) return callError(errno);
  const int result = ::connect(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place);
  const int error = errno;
  ::close(descriptor);
  // A bus that is too busy to take this connection at once is there all the same.
  if (result == 0 || error == EAGAIN) return std::nullopt;
  return callError(error);
}

}  // namespace kestrin::bluez
