// The scanning half of the controller: parameters, the filter accept list, and the advertising
// reports that a scan gives (Bluetooth Core Document, Vol 4, Part E, 7.8.10, 7.8.11, 7.8.14 to
// 7.8.17, 7.7.65.2).
//
// Threads: one at a time. Lifetime: a plain value. Errors: each operation returns the error code
// that the host is told.
#pragma once

#include <cstdint>
#include <set>
#include <tuple>
#include <vector>

#include "tools/vreader/Bytes.h"
#include "tools/vreader/DeviceAddress.h"
#include "tools/vreader/Hci.h"
#include "tools/vreader/RemoteDevice.h"

namespace kestrin::vreader {

class Scanner {
 public:
  /// How many devices the filter accept list holds.
  static constexpr std::size_t kAcceptListSize = 16;

  /// LE Set Scan Parameters.
  hci::ErrorCode setParameters(ByteReader parameters);
  /// LE Set Scan Enable. Each time it is given, duplicates are told apart again.
  hci::ErrorCode setEnable(ByteReader parameters);
  /// The four operations on the filter accept list.
  hci::ErrorCode addToAcceptList(const DeviceAddress& address);
  hci::ErrorCode removeFromAcceptList(const DeviceAddress& address);
  void clearAcceptList() { acceptList_.clear(); }
  [[nodiscard]] bool accepts(const DeviceAddress& address) const {
    return acceptList_.contains(address);
  }

  [[nodiscard]] bool isEnabled() const noexcept { return enabled_; }
  [[nodiscard]] bool isActive() const noexcept { return active_; }
  /// The event packets that one advertisement of a device gives: none, or a report, with the scan
  /// response's report after it in an active scan.
  std::vector<Bytes> hear(const RemoteDevice& device);
  /// A device begins to advertise again and is not a duplicate of itself.
  void forget(const DeviceAddress& address);
  /// Every device may be reported again. Controllers remember few reports and for a short time, and
  /// hosts lean on it: one that wants to connect while it scans waits for a report of that device.
  void forgetAll() { heard_.clear(); }

 private:
  using Heard = std::tuple<DeviceAddress, hci::ReportType, Bytes>;

  bool isNew(const DeviceAddress& address, hci::ReportType type, const Bytes& data);

  bool enabled_ = false;
  bool active_ = false;
  bool acceptListOnly_ = false;
  bool filterDuplicates_ = false;
  std::set<DeviceAddress> acceptList_;
  std::set<Heard> heard_;
};

}  // namespace kestrin::vreader
