// The numbers of the Host Controller Interface that this controller speaks, named as the Bluetooth
// Core document names them (Vol 4, Part E; error codes: Vol 1, Part F; packet types: Vol 4, Part A,
// 2).
//
// Threads: constants and pure functions. Errors: none.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/vreader/Bytes.h"

namespace kestrin::vreader::hci {

/// The first byte of each packet between host and controller.
enum class PacketType : std::uint8_t { command = 0x01, aclData = 0x02, event = 0x04 };

enum class Opcode : std::uint16_t {
  disconnect = 0x0406,
  readRemoteVersionInformation = 0x041D,
  setEventMask = 0x0C01,
  reset = 0x0C03,
  readTransmitPowerLevel = 0x0C2D,
  setEventMaskPage2 = 0x0C63,
  readLocalVersionInformation = 0x1001,
  readLocalSupportedCommands = 0x1002,
  readLocalSupportedFeatures = 0x1003,
  readBufferSize = 0x1005,
  readBdAddr = 0x1009,
  readRssi = 0x1405,
  leSetEventMask = 0x2001,
  leReadBufferSize = 0x2002,
  leReadLocalSupportedFeatures = 0x2003,
  leSetRandomAddress = 0x2005,
  leSetAdvertisingParameters = 0x2006,
  leReadAdvertisingPhysicalChannelTxPower = 0x2007,
  leSetAdvertisingData = 0x2008,
  leSetScanResponseData = 0x2009,
  leSetAdvertisingEnable = 0x200A,
  leSetScanParameters = 0x200B,
  leSetScanEnable = 0x200C,
  leCreateConnection = 0x200D,
  leCreateConnectionCancel = 0x200E,
  leReadFilterAcceptListSize = 0x200F,
  leClearFilterAcceptList = 0x2010,
  leAddDeviceToFilterAcceptList = 0x2011,
  leRemoveDeviceFromFilterAcceptList = 0x2012,
  leConnectionUpdate = 0x2013,
  leReadRemoteFeatures = 0x2016,
  leReadSupportedStates = 0x201C,
  leSetDataLength = 0x2022,
  leReadSuggestedDefaultDataLength = 0x2023,
  leWriteSuggestedDefaultDataLength = 0x2024,
  leReadMaximumDataLength = 0x202F,
};

enum class EventCode : std::uint8_t {
  disconnectionComplete = 0x05,
  readRemoteVersionInformationComplete = 0x0C,
  commandComplete = 0x0E,
  commandStatus = 0x0F,
  numberOfCompletedPackets = 0x13,
  leMeta = 0x3E,
};

enum class LeSubevent : std::uint8_t {
  connectionComplete = 0x01,
  advertisingReport = 0x02,
  connectionUpdateComplete = 0x03,
  readRemoteFeaturesComplete = 0x04,
  dataLengthChange = 0x07,
};

enum class ErrorCode : std::uint8_t {
  success = 0x00,
  unknownHciCommand = 0x01,
  unknownConnectionIdentifier = 0x02,
  memoryCapacityExceeded = 0x07,
  connectionTimeout = 0x08,
  connectionLimitExceeded = 0x09,
  connectionAlreadyExists = 0x0B,
  commandDisallowed = 0x0C,
  invalidHciCommandParameters = 0x12,
  remoteUserTerminatedConnection = 0x13,
  remoteDeviceTerminatedConnectionPowerOff = 0x15,
  connectionTerminatedByLocalHost = 0x16,
};

/// Advertising report types (Vol 4, Part E, 7.7.65.2).
enum class ReportType : std::uint8_t { advInd = 0x00, scanRsp = 0x04 };

/// The HCI version and the LL version "Bluetooth Core 4.2", which has all that is used here.
inline constexpr std::uint8_t kVersion42 = 0x08;
/// The company identifier reserved for tests: no maker stands behind this controller.
inline constexpr std::uint16_t kNoCompany = 0xFFFF;
/// The status byte of what went well.
inline constexpr std::uint8_t kSuccess = static_cast<std::uint8_t>(ErrorCode::success);
/// The received signal strength of everything on this air, in dBm.
inline constexpr std::int8_t kRssi = -50;

/// The Packet_Boundary_Flag of ACL data (Vol 4, Part E, 5.4.2).
enum class PacketBoundary : std::uint8_t {
  firstNonFlushable = 0b00,
  continuing = 0b01,
  firstFlushable = 0b10,
};

/// An event packet. Parameters are at most 255 bytes; longer ones cannot be asked for.
Bytes eventPacket(EventCode code, ByteView parameters);
/// An LE Meta event packet.
Bytes leEventPacket(LeSubevent subevent, ByteView parameters);
/// Command Complete, leaving room for one more command.
Bytes commandComplete(Opcode opcode, ByteView returnParameters);
/// Command Status, leaving room for one more command.
Bytes commandStatus(Opcode opcode, ErrorCode status);

/// What an error code means, in the document's words; "Unknown Error" for one that is not listed.
std::string_view meaning(std::uint8_t errorCode) noexcept;

}  // namespace kestrin::vreader::hci
