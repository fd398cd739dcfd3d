// The commands of the controller: one table that says which there are, and what each does. What the
// host is told about supported commands comes from the same table (Bluetooth Core Document, Vol 4,
// Part E, 6.27 and 7).

#include <algorithm>
#include <array>

#include "tools/vreader/Controller.h"

namespace kestrin::vreader {

using hci::ErrorCode;
using hci::Opcode;

namespace {

constexpr std::size_t kAclPackets = 16;
// The time on air of the longest data packet, in microseconds (Vol 6, Part B, 4.5.10).
constexpr std::uint16_t kLargestTransmissionTime = 2120;
constexpr std::uint8_t kLeFeatureDataLengthExtension = 1U << 5;
// LMP features, byte 4: BR/EDR Not Supported and LE Supported (Controller).
constexpr std::uint8_t kLeOnly = (1U << 5) | (1U << 6);
constexpr std::uint8_t kTransmitPower = 4;

Bytes justStatus(ErrorCode status) { return {static_cast<std::uint8_t>(status)}; }

}  // namespace

struct Controller::Command {
  Opcode opcode{};
  std::size_t parameterLength = 0;
  // Where the command stands in the mask of supported commands; the command that reads the mask has
  // no place in it.
  struct Place {
    std::size_t octet;
    unsigned bit;
  };
  std::optional<Place> place;
  Bytes (Controller::*complete)(ByteReader) = nullptr;
  void (Controller::*start)(ByteReader) = nullptr;
};

std::span<const Controller::Command> Controller::commands() {
  using C = Controller;
  using Place = Command::Place;
  static constexpr std::array kCommands{
      Command{Opcode::disconnect, 3, Place{0, 5}, nullptr, &C::disconnect},
      Command{Opcode::readRemoteVersionInformation, 2, Place{2, 7}, nullptr,
              &C::readRemoteVersionInformation},
      Command{Opcode::setEventMask, 8, Place{5, 6}, &C::accept, nullptr},
      Command{Opcode::reset, 0, Place{5, 7}, &C::reset, nullptr},
      Command{Opcode::readTransmitPowerLevel, 3, Place{10, 2}, &C::readTransmitPowerLevel, nullptr},
      Command{Opcode::readLocalVersionInformation, 0, Place{14, 3}, &C::readLocalVersionInformation,
              nullptr},
      Command{Opcode::readLocalSupportedCommands, 0, std::nullopt, &C::readLocalSupportedCommands,
              nullptr},
      Command{Opcode::readLocalSupportedFeatures, 0, Place{14, 5}, &C::readLocalSupportedFeatures,
              nullptr},
      Command{Opcode::readBufferSize, 0, Place{14, 7}, &C::readBufferSize, nullptr},
      Command{Opcode::readBdAddr, 0, Place{15, 1}, &C::readBdAddr, nullptr},
      Command{Opcode::readRssi, 2, Place{15, 5}, &C::readRssi, nullptr},
      Command{Opcode::setEventMaskPage2, 8, Place{22, 2}, &C::accept, nullptr},
      Command{Opcode::leSetEventMask, 8, Place{25, 0}, &C::accept, nullptr},
      Command{Opcode::leReadBufferSize, 0, Place{25, 1}, &C::leReadBufferSize, nullptr},
      Command{Opcode::leReadLocalSupportedFeatures, 0, Place{25, 2},
              &C::leReadLocalSupportedFeatures, nullptr},
      Command{Opcode::leSetRandomAddress, 6, Place{25, 4}, &C::accept, nullptr},
      // Nobody on this air listens to what the host advertises.
      Command{Opcode::leSetAdvertisingParameters, 15, Place{25, 5}, &C::accept, nullptr},
      Command{Opcode::leReadAdvertisingPhysicalChannelTxPower, 0, Place{25, 6},
              &C::leReadAdvertisingPhysicalChannelTxPower, nullptr},
      Command{Opcode::leSetAdvertisingData, 32, Place{25, 7}, &C::accept, nullptr},
      Command{Opcode::leSetScanResponseData, 32, Place{26, 0}, &C::accept, nullptr},
      Command{Opcode::leSetAdvertisingEnable, 1, Place{26, 1}, &C::accept, nullptr},
      Command{Opcode::leSetScanParameters, 7, Place{26, 2}, &C::leSetScanParameters, nullptr},
      Command{Opcode::leSetScanEnable, 2, Place{26, 3}, &C::leSetScanEnable, nullptr},
      Command{Opcode::leCreateConnection, 25, Place{26, 4}, nullptr, &C::leCreateConnection},
      Command{Opcode::leCreateConnectionCancel, 0, Place{26, 5}, nullptr,
              &C::leCreateConnectionCancel},
      Command{Opcode::leReadFilterAcceptListSize, 0, Place{26, 6}, &C::leReadFilterAcceptListSize,
              nullptr},
      Command{Opcode::leClearFilterAcceptList, 0, Place{26, 7}, &C::leClearFilterAcceptList,
              nullptr},
      Command{Opcode::leAddDeviceToFilterAcceptList, 7, Place{27, 0},
              &C::leAddDeviceToFilterAcceptList, nullptr},
      Command{Opcode::leRemoveDeviceFromFilterAcceptList, 7, Place{27, 1},
              &C::leRemoveDeviceFromFilterAcceptList, nullptr},
      Command{Opcode::leConnectionUpdate, 14, Place{27, 2}, nullptr, &C::leConnectionUpdate},
      Command{Opcode::leReadRemoteFeatures, 2, Place{27, 5}, nullptr, &C::leReadRemoteFeatures},
      Command{Opcode::leReadSupportedStates, 0, Place{28, 3}, &C::leReadSupportedStates, nullptr},
      Command{Opcode::leSetDataLength, 6, Place{33, 6}, nullptr, &C::leSetDataLength},
      Command{Opcode::leReadSuggestedDefaultDataLength, 0, Place{33, 7},
              &C::leReadSuggestedDefaultDataLength, nullptr},
      Command{Opcode::leWriteSuggestedDefaultDataLength, 4, Place{34, 0}, &C::accept, nullptr},
      Command{Opcode::leReadMaximumDataLength, 0, Place{35, 3}, &C::leReadMaximumDataLength,
              nullptr},
  };
  return kCommands;
}

void Controller::receiveCommand(ByteView packet) {
  ByteReader reader(packet);
  const auto opcode = static_cast<Opcode>(reader.u16());
  const std::size_t length = reader.u8();
  const ByteView parameters = reader.rest();
  if (reader.overrun() || parameters.size() != length) return;
  const auto all = commands();
  const auto command = std::ranges::find(all, opcode, &Command::opcode);
  if (command == all.end()) {
    events_("UNKNOWN-COMMAND " + hexWord(static_cast<std::uint16_t>(opcode)));
    status(opcode, ErrorCode::unknownHciCommand);
  } else if (length != command->parameterLength) {
    if (command->complete != nullptr) {
      complete(opcode, ErrorCode::invalidHciCommandParameters);
    } else {
      status(opcode, ErrorCode::invalidHciCommandParameters);
    }
  } else if (command->complete != nullptr) {
    toHost_(hci::commandComplete(opcode, (this->*command->complete)(ByteReader(parameters))));
  } else {
    (this->*command->start)(ByteReader(parameters));
  }
}

Bytes Controller::supportedCommands() {
  Bytes mask(64);
  for (const Command& command : commands()) {
    if (!command.place) continue;
    mask[command.place->octet] |= static_cast<std::uint8_t>(1U << command.place->bit);
  }
  return mask;
}

Bytes Controller::accept(ByteReader) { return justStatus(ErrorCode::success); }

Bytes Controller::reset(ByteReader) {
  dropAllLinks();
  initiation_.reset();
  scanner_ = Scanner();
  return justStatus(ErrorCode::success);
}

Bytes Controller::readLocalVersionInformation(ByteReader) {
  return ByteWriter()
      .u8(hci::kSuccess)
      .u8(hci::kVersion42)
      .u16(0)
      .u8(hci::kVersion42)
      .u16(hci::kNoCompany)
      .u16(0)
      .take();
}

Bytes Controller::readLocalSupportedCommands(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).append(supportedCommands()).take();
}

Bytes Controller::readLocalSupportedFeatures(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).zeros(4).u8(kLeOnly).zeros(3).take();
}

Bytes Controller::readBufferSize(ByteReader) {
  // No buffers but those for LE, see LE Read Buffer Size.
  return ByteWriter().u8(hci::kSuccess).zeros(7).take();
}

Bytes Controller::readBdAddr(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).append(ownAddress_.bytes).take();
}

Bytes Controller::readRssi(ByteReader parameters) {
  const std::uint16_t handle = parameters.u16();
  const bool known = findLink(handle) != nullptr;
  return ByteWriter()
      .u8(static_cast<unsigned>(known ? ErrorCode::success
                                      : ErrorCode::unknownConnectionIdentifier))
      .u16(handle)
      .u8(static_cast<std::uint8_t>(hci::kRssi))
      .take();
}

Bytes Controller::readTransmitPowerLevel(ByteReader parameters) {
  const std::uint16_t handle = parameters.u16();
  const bool known = findLink(handle) != nullptr;
  return ByteWriter()
      .u8(static_cast<unsigned>(known ? ErrorCode::success
                                      : ErrorCode::unknownConnectionIdentifier))
      .u16(handle)
      .u8(kTransmitPower)
      .take();
}

Bytes Controller::leReadBufferSize(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).u16(Link::kLargestAclData).u8(kAclPackets).take();
}

Bytes Controller::leReadLocalSupportedFeatures(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).u8(kLeFeatureDataLengthExtension).zeros(7).take();
}

Bytes Controller::leReadAdvertisingPhysicalChannelTxPower(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).u8(kTransmitPower).take();
}

Bytes Controller::leReadSupportedStates(ByteReader) {
  // Scanning, initiating and links in the central role, in every combination (Vol 4, Part E,
  // 7.8.27): the 42 states that the document numbers.
  return ByteWriter()
      .u8(hci::kSuccess)
      .append({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x03, 0x00, 0x00})
      .take();
}

Bytes Controller::leReadSuggestedDefaultDataLength(ByteReader) {
  return ByteWriter()
      .u8(hci::kSuccess)
      .u16(Link::kLargestAclData)
      .u16(kLargestTransmissionTime)
      .take();
}

Bytes Controller::leReadMaximumDataLength(ByteReader) {
  return ByteWriter()
      .u8(hci::kSuccess)
      .u16(Link::kLargestAclData)
      .u16(kLargestTransmissionTime)
      .u16(Link::kLargestAclData)
      .u16(kLargestTransmissionTime)
      .take();
}

Bytes Controller::leSetScanParameters(ByteReader parameters) {
  return justStatus(scanner_.setParameters(parameters));
}

Bytes Controller::leSetScanEnable(ByteReader parameters) {
  const bool before = scanner_.isEnabled();
  const ErrorCode result = scanner_.setEnable(parameters);
  if (scanner_.isEnabled()) advertiseIn(kFirstAdvertisement);
  if (scanner_.isEnabled() != before) {
    events_(!scanner_.isEnabled() ? "SCAN off"
            : scanner_.isActive() ? "SCAN active"
                                  : "SCAN passive");
  }
  return justStatus(result);
}

Bytes Controller::leReadFilterAcceptListSize(ByteReader) {
  return ByteWriter().u8(hci::kSuccess).u8(Scanner::kAcceptListSize).take();
}

Bytes Controller::leClearFilterAcceptList(ByteReader) {
  scanner_.clearAcceptList();
  return justStatus(ErrorCode::success);
}

Bytes Controller::leAddDeviceToFilterAcceptList(ByteReader parameters) {
  return justStatus(scanner_.addToAcceptList(DeviceAddress::read(parameters)));
}

Bytes Controller::leRemoveDeviceFromFilterAcceptList(ByteReader parameters) {
  return justStatus(scanner_.removeFromAcceptList(DeviceAddress::read(parameters)));
}

}  // namespace kestrin::vreader
