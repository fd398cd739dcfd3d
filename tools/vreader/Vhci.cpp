#include "tools/vreader/Vhci.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tools/vreader/SystemError.h"

namespace kestrin::vreader {

namespace {

// Asks for an adapter, and is the first byte of the answer.
constexpr std::uint8_t kVendorPacket = 0xFF;
constexpr std::uint8_t kPrimaryController = 0x00;
// The longest packet: an ACL packet of the size that the controller tells the host, with headers,
// fits with room to spare, and so does a command.
constexpr std::size_t kLargestPacket = 1024;

std::string openingProblem(const std::string& path, int error) {
  switch (error) {
    case ENOENT:
    case ENODEV:
      return path + " is not there: load the kernel's module with \"modprobe hci_vhci\"";
    case EACCES:
    case EPERM:
      return "no permission for " + path + ": run as root";
    default:
      return "cannot open " + path + ": " + systemErrorText(error);
  }
}

}  // namespace

Vhci::~Vhci() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<std::string> Vhci::open(const std::string& path) {
  descriptor_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ < 0) return openingProblem(path, errno);
  auto problem = makeAdapter();
  if (problem) return path + " makes no adapter: " + *problem;
  return std::nullopt;
}

std::optional<std::string> Vhci::makeAdapter() {
  const std::array<std::uint8_t, 2> request{kVendorPacket, kPrimaryController};
  if (::write(descriptor_, request.data(), request.size()) < 0) return systemErrorText(errno);
  constexpr int kWaitMilliseconds = 5000;
  pollfd readable{descriptor_, POLLIN, 0};
  if (::poll(&readable, 1, kWaitMilliseconds) != 1) return "the kernel does not answer";
  // The answer: the same packet type, the kind of controller, the adapter's number.
  const auto answer = read();
  if (!answer) return "the kernel does not answer";
  ByteReader reader(*answer);
  const bool isAnswer = reader.u8() == kVendorPacket;
  reader.u8();
  adapter_ = reader.u16();
  if (!isAnswer || reader.overrun()) return "the kernel's answer is " + hex(*answer);
  return std::nullopt;
}

std::optional<Bytes> Vhci::read() {
  Bytes packet(kLargestPacket);
  const ssize_t size = ::read(descriptor_, packet.data(), packet.size());
  if (size <= 0) return std::nullopt;
  packet.resize(static_cast<std::size_t>(size));
  return packet;
}

std::optional<std::string> Vhci::write(const Bytes& packet) {
  if (::write(descriptor_, packet.data(), packet.size()) >= 0) return std::nullopt;
  // An adapter that is down, as a block takes it without a word to the controller, hears nothing.
  if (errno == ENXIO) return std::nullopt;
  return systemErrorText(errno);
}

}  // namespace kestrin::vreader
