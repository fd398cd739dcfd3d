#include "tools/vreader/Controller.h"

#include <utility>

namespace kestrin::vreader {

namespace {

// The first connection handle; smaller ones are left alone so that a log tells them from counts.
constexpr std::uint16_t kFirstHandle = 0x0040;
constexpr std::uint8_t kRoleCentral = 0x00;

}  // namespace

Controller::Controller(std::shared_ptr<RunLoop> runLoop, DeviceAddress ownAddress, HostSink toHost,
                       EventSink events)
    : runLoop_(std::move(runLoop)),
      ownAddress_(ownAddress),
      toHost_(std::move(toHost)),
      events_(std::move(events)) {}

Controller::~Controller() {
  if (advertisingTimer_) runLoop_->cancel(*advertisingTimer_);
  dropAllLinks();
}

void Controller::addDevice(std::shared_ptr<RemoteDevice> device) {
  devices_.push_back(std::move(device));
}

void Controller::receive(ByteView packet) {
  if (packet.empty()) return;
  const ByteView body = packet.subspan(1);
  switch (static_cast<hci::PacketType>(packet.front())) {
    case hci::PacketType::command:
      receiveCommand(body);
      break;
    case hci::PacketType::aclData:
      receiveAclData(body);
      break;
    case hci::PacketType::event:
      break;  // Events go the other way only.
  }
}

void Controller::receiveAclData(ByteView packet) {
  const auto acl = AclPacket::parse(packet);
  if (!acl) return;
  Link* const link = findLink(acl->handle);
  if (link == nullptr) return;  // The host sent it before it heard that the link is down.
  // First the credit, then what the packet brings about: a device that drops the link in answer
  // must not leave the host waiting for a credit on a handle that is gone.
  event(hci::EventCode::numberOfCompletedPackets, ByteWriter().u8(1).u16(acl->handle).u16(1));
  link->take(*acl);
}

void Controller::complete(hci::Opcode opcode, hci::ErrorCode status) {
  toHost_(hci::commandComplete(opcode, Bytes{static_cast<std::uint8_t>(status)}));
}

void Controller::status(hci::Opcode opcode, hci::ErrorCode status) {
  toHost_(hci::commandStatus(opcode, status));
}

void Controller::event(hci::EventCode code, const ByteWriter& parameters) {
  toHost_(hci::eventPacket(code, parameters.bytes()));
}

void Controller::leEvent(hci::LeSubevent subevent, const ByteWriter& parameters) {
  toHost_(hci::leEventPacket(subevent, parameters.bytes()));
}

void Controller::advertiseIn(Time delay) {
  if (advertisingTimer_) runLoop_->cancel(*advertisingTimer_);
  advertisingTimer_ = runLoop_->arm(delay, [this] {
    advertisingTimer_.reset();
    advertise();
  });
}

void Controller::advertise() {
  if (++advertisements_ % kDuplicateMemory == 0) scanner_.forgetAll();
  for (const auto& device : devices_) {
    if (!device->advertises()) continue;
    for (const Bytes& report : scanner_.hear(*device)) toHost_(report);
    if (isWanted(*device)) connect(device);
  }
  if (scanner_.isEnabled() || initiation_) advertiseIn(kAdvertisingInterval);
}

bool Controller::isWanted(const RemoteDevice& device) const {
  if (!initiation_) return false;
  return initiation_->anyInAcceptList ? scanner_.accepts(device.address())
                                      : initiation_->peer == device.address();
}

void Controller::connect(const std::shared_ptr<RemoteDevice>& device) {
  const ConnectionParameters parameters = initiation_->parameters;
  initiation_.reset();
  const std::uint16_t handle = freeHandle();
  auto& link = links_[handle];
  link = std::make_unique<Link>(
      handle, device, parameters,
      Link::Surroundings{.runLoop = runLoop_,
                         .air = air_,
                         .toHost = toHost_,
                         .onDrop = [this](Link& dropped, std::uint8_t reason) {
                           dropLink(dropped.handle(), reason);
                         }});
  // The device first: who follows what it says must not hear of the link from the host before.
  device->connected(*link);
  connectionComplete(hci::ErrorCode::success, handle, device->address(), parameters);
}

void Controller::connectionComplete(hci::ErrorCode status, std::uint16_t handle,
                                    const DeviceAddress& peer,
                                    const ConnectionParameters& parameters) {
  ByteWriter writer;
  writer.u8(static_cast<unsigned>(status)).u16(handle).u8(kRoleCentral);
  peer.write(writer);
  constexpr unsigned kCentralClockAccuracy = 0x00;
  writer.u16(parameters.interval)
      .u16(parameters.latency)
      .u16(parameters.supervisionTimeout)
      .u8(kCentralClockAccuracy);
  leEvent(hci::LeSubevent::connectionComplete, writer);
}

void Controller::dropLink(std::uint16_t handle, std::uint8_t reason) {
  auto link = links_.extract(handle);
  if (link.empty()) return;
  RemoteDevice& device = link.mapped()->device();
  device.disconnected(reason);
  event(hci::EventCode::disconnectionComplete,
        ByteWriter().u8(static_cast<unsigned>(hci::ErrorCode::success)).u16(handle).u8(reason));
  advertisingChanged(device);
}

void Controller::dropAllLinks() {
  // What the host does not ask about any more it is not told about.
  for (auto& [handle, link] : std::exchange(links_, {})) {
    link->device().disconnected(
        static_cast<std::uint8_t>(hci::ErrorCode::connectionTerminatedByLocalHost));
  }
}

Link* Controller::findLink(std::uint16_t handle) const {
  const auto found = links_.find(handle);
  return found == links_.end() ? nullptr : found->second.get();
}

std::uint16_t Controller::freeHandle() const {
  std::uint16_t handle = kFirstHandle;
  while (links_.contains(handle)) ++handle;
  return handle;
}

}  // namespace kestrin::vreader
