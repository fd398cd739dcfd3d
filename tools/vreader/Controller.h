// A virtual LE controller: commands and data from the host go in, events and data for the host come
// out (Bluetooth Core Document, Vol 4, Part E). On the other side of its air are virtual devices,
// any number of them, and it keeps a link with each of those that the host connects to.
//
// Threads: the run loop's.
// Lifetime: its timers end with it; a link that is up then goes down for its device.
// Errors: a malformed packet is dropped, a malformed or unknown command answered with its error
// code. Nothing is thrown.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/RunLoop.h"
#include "tools/vreader/Bytes.h"
#include "tools/vreader/DeviceAddress.h"
#include "tools/vreader/Hci.h"
#include "tools/vreader/Link.h"
#include "tools/vreader/RemoteDevice.h"
#include "tools/vreader/Scanner.h"

namespace kestrin::vreader {

class Controller {
 public:
  /// Gets each packet for the host, the packet type first.
  using HostSink = Link::HostSink;
  /// Gets one line per thing that happens to the controller itself.
  using EventSink = std::function<void(const std::string&)>;

  Controller(std::shared_ptr<RunLoop> runLoop, DeviceAddress ownAddress, HostSink toHost,
             EventSink events);
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  void addDevice(std::shared_ptr<RemoteDevice> device);
  /// One packet from the host, the packet type first.
  void receive(ByteView packet);
  /// A device begins to advertise again, or advertises something else.
  void advertisingChanged(const RemoteDevice& device) { scanner_.forget(device.address()); }

  /// The most links that are up at a time; without this call there is no limit. An attempt at one
  /// more is refused.
  void setMostLinks(std::size_t most) { mostLinks_ = most; }
  /// How long what the devices of coming links send is on the air.
  void setAir(Air air) { air_ = air; }

  /// How often each device advertises, and how soon after a scan or a connection attempt begins.
  static constexpr std::chrono::milliseconds kAdvertisingInterval{100};
  static constexpr std::chrono::milliseconds kFirstAdvertisement{10};
  /// After how many advertisements of each device duplicates are told apart again.
  static constexpr unsigned kDuplicateMemory = 10;

 private:
  // A connection that is being made.
  struct Initiation {
    bool anyInAcceptList = false;
    DeviceAddress peer;
    ConnectionParameters parameters;
  };
  // How a command is carried out. Most complete at once with their return parameters; the others
  // answer with a status and send an event later.
  struct Command;
  static std::span<const Command> commands();
  static Bytes supportedCommands();

  void receiveCommand(ByteView packet);
  void receiveAclData(ByteView packet);
  void complete(hci::Opcode opcode, hci::ErrorCode status);
  void status(hci::Opcode opcode, hci::ErrorCode status);
  void event(hci::EventCode code, const ByteWriter& parameters);
  void leEvent(hci::LeSubevent subevent, const ByteWriter& parameters);

  // Commands that complete at once: parameters to return parameters.
  Bytes accept(ByteReader parameters);
  Bytes reset(ByteReader parameters);
  Bytes readLocalVersionInformation(ByteReader parameters);
  Bytes readLocalSupportedCommands(ByteReader parameters);
  Bytes readLocalSupportedFeatures(ByteReader parameters);
  Bytes readBufferSize(ByteReader parameters);
  Bytes readBdAddr(ByteReader parameters);
  Bytes readRssi(ByteReader parameters);
  Bytes readTransmitPowerLevel(ByteReader parameters);
  Bytes leReadBufferSize(ByteReader parameters);
  Bytes leReadLocalSupportedFeatures(ByteReader parameters);
  Bytes leReadAdvertisingPhysicalChannelTxPower(ByteReader parameters);
  Bytes leSetScanParameters(ByteReader parameters);
  Bytes leSetScanEnable(ByteReader parameters);
  Bytes leReadFilterAcceptListSize(ByteReader parameters);
  Bytes leClearFilterAcceptList(ByteReader parameters);
  Bytes leAddDeviceToFilterAcceptList(ByteReader parameters);
  Bytes leRemoveDeviceFromFilterAcceptList(ByteReader parameters);
  Bytes leReadSupportedStates(ByteReader parameters);
  Bytes leReadSuggestedDefaultDataLength(ByteReader parameters);
  Bytes leReadMaximumDataLength(ByteReader parameters);

  // Commands that answer for themselves.
  void disconnect(ByteReader parameters);
  void readRemoteVersionInformation(ByteReader parameters);
  void leCreateConnection(ByteReader parameters);
  void leCreateConnectionCancel(ByteReader parameters);
  void leConnectionUpdate(ByteReader parameters);
  void leReadRemoteFeatures(ByteReader parameters);
  void leSetDataLength(ByteReader parameters);

  void advertiseIn(Time delay);
  void advertise();
  [[nodiscard]] bool isWanted(const RemoteDevice& device) const;
  void connect(const std::shared_ptr<RemoteDevice>& device);
  void connectionComplete(hci::ErrorCode status, std::uint16_t handle, const DeviceAddress& peer,
                          const ConnectionParameters& parameters);
  void dropLink(std::uint16_t handle, std::uint8_t reason);
  void dropAllLinks();
  [[nodiscard]] Link* findLink(std::uint16_t handle) const;
  [[nodiscard]] std::uint16_t freeHandle() const;

  const std::shared_ptr<RunLoop> runLoop_;
  const DeviceAddress ownAddress_;
  const HostSink toHost_;
  const EventSink events_;
  std::vector<std::shared_ptr<RemoteDevice>> devices_;
  Scanner scanner_;
  std::optional<Initiation> initiation_;
  std::map<std::uint16_t, std::unique_ptr<Link>> links_;
  std::optional<std::size_t> mostLinks_;
  Air air_ = Air::oneMegabit;
  std::optional<RunLoop::TimerId> advertisingTimer_;
  unsigned advertisements_ = 0;
};

}  // namespace kestrin::vreader
