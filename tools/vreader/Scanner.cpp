#include "tools/vreader/Scanner.h"

#include <algorithm>

namespace kestrin::vreader {

namespace {

Bytes advertisingReport(const DeviceAddress& address, hci::ReportType type, const Bytes& data) {
  ByteWriter report;
  report.u8(1).u8(static_cast<unsigned>(type));
  address.write(report);
  report.u8(static_cast<unsigned>(data.size()))
      .append(data)
      .u8(static_cast<std::uint8_t>(hci::kRssi));
  return hci::leEventPacket(hci::LeSubevent::advertisingReport, report.bytes());
}

}  // namespace

hci::ErrorCode Scanner::setParameters(ByteReader parameters) {
  if (enabled_) return hci::ErrorCode::commandDisallowed;
  const unsigned type = parameters.u8();
  parameters.u16();  // Interval and window: this radio always listens.
  parameters.u16();
  parameters.u8();  // The own address type shows in scan requests only.
  const unsigned policy = parameters.u8();
  if (parameters.overrun() || type > 1 || policy > 3) {
    return hci::ErrorCode::invalidHciCommandParameters;
  }
  active_ = type == 1;
  acceptListOnly_ = (policy & 1) != 0;
  return hci::ErrorCode::success;
}

hci::ErrorCode Scanner::setEnable(ByteReader parameters) {
  const unsigned enable = parameters.u8();
  const unsigned filterDuplicates = parameters.u8();
  if (parameters.overrun() || enable > 1 || filterDuplicates > 1) {
    return hci::ErrorCode::invalidHciCommandParameters;
  }
  enabled_ = enable == 1;
  filterDuplicates_ = filterDuplicates == 1;
  heard_.clear();
  return hci::ErrorCode::success;
}

hci::ErrorCode Scanner::addToAcceptList(const DeviceAddress& address) {
  if (acceptList_.size() == kAcceptListSize && !acceptList_.contains(address)) {
    return hci::ErrorCode::memoryCapacityExceeded;
  }
  acceptList_.insert(address);
  return hci::ErrorCode::success;
}

hci::ErrorCode Scanner::removeFromAcceptList(const DeviceAddress& address) {
  acceptList_.erase(address);
  return hci::ErrorCode::success;
}

std::vector<Bytes> Scanner::hear(const RemoteDevice& device) {
  const DeviceAddress& address = device.address();
  if (!enabled_ || (acceptListOnly_ && !accepts(address))) return {};
  std::vector<Bytes> reports;
  const Bytes advertisement = device.advertisingData();
  const Bytes response = device.scanResponseData();
  // Hosts join a scan response to the advertisement before it, so both are told where one is new.
  const bool newAdvertisement = isNew(address, hci::ReportType::advInd, advertisement);
  const bool newResponse = active_ && isNew(address, hci::ReportType::scanRsp, response);
  if (!newAdvertisement && !newResponse) return {};
  reports.push_back(advertisingReport(address, hci::ReportType::advInd, advertisement));
  if (active_) reports.push_back(advertisingReport(address, hci::ReportType::scanRsp, response));
  return reports;
}

bool Scanner::isNew(const DeviceAddress& address, hci::ReportType type, const Bytes& data) {
  return !filterDuplicates_ || heard_.emplace(address, type, data).second;
}

void Scanner::forget(const DeviceAddress& address) {
  std::erase_if(heard_, [&](const Heard& heard) { return std::get<0>(heard) == address; });
}

}  // namespace kestrin::vreader
