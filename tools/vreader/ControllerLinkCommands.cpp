// The commands that make, change and end links: each answers with a status and tells its outcome in
// an event (Bluetooth Core Document, Vol 4, Part E, 7.1 and 7.8).

#include <algorithm>

#include "tools/vreader/Controller.h"

namespace kestrin::vreader {

using hci::ErrorCode;
using hci::Opcode;

namespace {

// What both commands that set connection parameters carry: the interval from the least to the most,
// the latency, the supervision timeout and two lengths that are hints. The shortest interval is
// taken.
ConnectionParameters readParameters(ByteReader& reader) {
  ConnectionParameters parameters;
  parameters.interval = reader.u16();
  reader.u16();
  parameters.latency = reader.u16();
  parameters.supervisionTimeout = reader.u16();
  reader.u16();
  reader.u16();
  return parameters;
}

bool areValid(const ConnectionParameters& parameters) {
  return parameters.interval >= 0x0006 && parameters.interval <= 0x0C80 &&
         parameters.latency <= 0x01F3 && parameters.supervisionTimeout >= 0x000A &&
         parameters.supervisionTimeout <= 0x0C80;
}

}  // namespace

void Controller::disconnect(ByteReader parameters) {
  const std::uint16_t handle = parameters.u16();
  if (findLink(handle) == nullptr) {
    status(Opcode::disconnect, ErrorCode::unknownConnectionIdentifier);
    return;
  }
  status(Opcode::disconnect, ErrorCode::success);
  dropLink(handle, static_cast<std::uint8_t>(ErrorCode::connectionTerminatedByLocalHost));
}

void Controller::readRemoteVersionInformation(ByteReader parameters) {
  constexpr auto kOpcode = Opcode::readRemoteVersionInformation;
  const std::uint16_t handle = parameters.u16();
  if (findLink(handle) == nullptr) {
    status(kOpcode, ErrorCode::unknownConnectionIdentifier);
    return;
  }
  status(kOpcode, ErrorCode::success);
  event(hci::EventCode::readRemoteVersionInformationComplete,
        ByteWriter().u8(hci::kSuccess).u16(handle).u8(hci::kVersion42).u16(hci::kNoCompany).u16(0));
}

void Controller::leCreateConnection(ByteReader parameters) {
  constexpr auto kOpcode = Opcode::leCreateConnection;
  parameters.u16();  // Scan interval and window: this radio always listens.
  parameters.u16();
  const unsigned filterPolicy = parameters.u8();
  Initiation initiation;
  initiation.anyInAcceptList = filterPolicy == 1;
  initiation.peer = DeviceAddress::read(parameters);
  parameters.u8();  // The own address type.
  initiation.parameters = readParameters(parameters);
  if (initiation_) {
    status(kOpcode, ErrorCode::commandDisallowed);
    return;
  }
  if (filterPolicy > 1 || !areValid(initiation.parameters)) {
    status(kOpcode, ErrorCode::invalidHciCommandParameters);
    return;
  }
  const bool linked = std::ranges::any_of(
      links_, [&](const auto& link) { return link.second->device().address() == initiation.peer; });
  if (!initiation.anyInAcceptList && linked) {
    status(kOpcode, ErrorCode::connectionAlreadyExists);
    return;
  }
  if (mostLinks_ && links_.size() >= *mostLinks_) {
    events_("NO-MORE-LINKS");
    status(kOpcode, ErrorCode::connectionLimitExceeded);
    return;
  }
  status(kOpcode, ErrorCode::success);
  initiation_ = initiation;
  advertiseIn(kFirstAdvertisement);
}

void Controller::leCreateConnectionCancel(ByteReader) {
  constexpr auto kOpcode = Opcode::leCreateConnectionCancel;
  if (!initiation_) {
    complete(kOpcode, ErrorCode::commandDisallowed);
    return;
  }
  const DeviceAddress peer = initiation_->peer;
  initiation_.reset();
  complete(kOpcode, ErrorCode::success);
  connectionComplete(ErrorCode::unknownConnectionIdentifier, 0, peer, {});
}

void Controller::leConnectionUpdate(ByteReader parameters) {
  constexpr auto kOpcode = Opcode::leConnectionUpdate;
  const std::uint16_t handle = parameters.u16();
  const ConnectionParameters wanted = readParameters(parameters);
  Link* const link = findLink(handle);
  if (link == nullptr) {
    status(kOpcode, ErrorCode::unknownConnectionIdentifier);
    return;
  }
  if (!areValid(wanted)) {
    status(kOpcode, ErrorCode::invalidHciCommandParameters);
    return;
  }
  status(kOpcode, ErrorCode::success);
  link->setParameters(wanted);
  leEvent(hci::LeSubevent::connectionUpdateComplete, ByteWriter()
                                                         .u8(hci::kSuccess)
                                                         .u16(handle)
                                                         .u16(wanted.interval)
                                                         .u16(wanted.latency)
                                                         .u16(wanted.supervisionTimeout));
}

void Controller::leReadRemoteFeatures(ByteReader parameters) {
  constexpr auto kOpcode = Opcode::leReadRemoteFeatures;
  const std::uint16_t handle = parameters.u16();
  if (findLink(handle) == nullptr) {
    status(kOpcode, ErrorCode::unknownConnectionIdentifier);
    return;
  }
  status(kOpcode, ErrorCode::success);
  leEvent(hci::LeSubevent::readRemoteFeaturesComplete,
          ByteWriter().u8(hci::kSuccess).u16(handle).zeros(8));
}

void Controller::leSetDataLength(ByteReader parameters) {
  constexpr auto kOpcode = Opcode::leSetDataLength;
  const std::uint16_t handle = parameters.u16();
  const unsigned octets = parameters.u16();
  const unsigned time = parameters.u16();
  const bool known = findLink(handle) != nullptr;
  const ErrorCode result = known ? ErrorCode::success : ErrorCode::unknownConnectionIdentifier;
  toHost_(hci::commandComplete(kOpcode,
                               ByteWriter().u8(static_cast<unsigned>(result)).u16(handle).bytes()));
  if (!known) return;
  leEvent(hci::LeSubevent::dataLengthChange,
          ByteWriter().u16(handle).u16(octets).u16(time).u16(octets).u16(time));
}

}  // namespace kestrin::vreader
