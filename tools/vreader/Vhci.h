// The kernel's side of the controller: /dev/vhci. Opening it makes a Bluetooth adapter, closing it
// takes the adapter away again; each read and each write is one packet.
//
// Threads: one at a time. Lifetime: the adapter lives as long as this object.
// Errors: texts that say what to do.
#pragma once

#include <optional>
#include <string>

#include "tools/vreader/Bytes.h"

namespace kestrin::vreader {

class Vhci {
 public:
  Vhci() = default;
  ~Vhci();
  Vhci(const Vhci&) = delete;
  Vhci& operator=(const Vhci&) = delete;

  /// Makes the adapter; returns what went wrong, if anything.
  std::optional<std::string> open(const std::string& path);
  /// The adapter's number: 0 for hci0.
  [[nodiscard]] int adapter() const noexcept { return adapter_; }
  [[nodiscard]] int fileDescriptor() const noexcept { return descriptor_; }
  /// The next packet for the controller; absent when there is none just now.
  std::optional<Bytes> read();
  /// One packet for the host, lost while the adapter is down; returns what went wrong, if anything.
  std::optional<std::string> write(const Bytes& packet);

 private:
  std::optional<std::string> makeAdapter();

  int descriptor_ = -1;
  int adapter_ = -1;
};

}  // namespace kestrin::vreader
