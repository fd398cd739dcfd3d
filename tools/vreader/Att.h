// The numbers of the Attribute Protocol, named as the Bluetooth Core document names them (Vol 3,
// Part F, 3.3 and 3.4), and the declarations of the Generic Attribute Profile (Vol 3, Part G, 3).
//
// Threads: constants. Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrin::vreader::att {

enum class Opcode : std::uint8_t {
  errorResponse = 0x01,
  exchangeMtuRequest = 0x02,
  exchangeMtuResponse = 0x03,
  findInformationRequest = 0x04,
  findInformationResponse = 0x05,
  findByTypeValueRequest = 0x06,
  findByTypeValueResponse = 0x07,
  readByTypeRequest = 0x08,
  readByTypeResponse = 0x09,
  readRequest = 0x0A,
  readResponse = 0x0B,
  readBlobRequest = 0x0C,
  readBlobResponse = 0x0D,
  readByGroupTypeRequest = 0x10,
  readByGroupTypeResponse = 0x11,
  writeRequest = 0x12,
  writeResponse = 0x13,
  handleValueNotification = 0x1B,
  handleValueConfirmation = 0x1E,
  writeCommand = 0x52,
};

/// An opcode with this bit is a command: it is never answered, not even with an error.
inline constexpr unsigned kCommandFlag = 0x40;

enum class ErrorCode : std::uint8_t {
  invalidHandle = 0x01,
  readNotPermitted = 0x02,
  writeNotPermitted = 0x03,
  invalidPdu = 0x04,
  requestNotSupported = 0x06,
  invalidOffset = 0x07,
  attributeNotFound = 0x0A,
  invalidAttributeValueLength = 0x0D,
  unlikelyError = 0x0E,
  unsupportedGroupType = 0x10,
  // From the common profile and service error codes (Core Supplement, Part B).
  configurationImproper = 0xFD,
};

/// The MTU of a link until it is exchanged, and the least that may be asked for.
inline constexpr std::size_t kDefaultMtu = 23;
/// The largest value of an attribute (Vol 3, Part F, 3.2.9).
inline constexpr std::size_t kLargestValue = 512;
/// The MTU that carries the largest value in one write or notification, and what this server asks
/// for.
inline constexpr std::size_t kServerMtu = 517;

// Attribute types of the Generic Attribute Profile.
inline constexpr std::uint16_t kPrimaryService = 0x2800;
inline constexpr std::uint16_t kSecondaryService = 0x2801;
inline constexpr std::uint16_t kCharacteristic = 0x2803;
inline constexpr std::uint16_t kClientCharacteristicConfiguration = 0x2902;

// The name in the Generic Access service.
inline constexpr std::uint16_t kDeviceName = 0x2A00;

// Characteristic properties (Vol 3, Part G, 3.3.1.1).
inline constexpr unsigned kPropertyRead = 0x02;
inline constexpr unsigned kPropertyWriteWithoutResponse = 0x04;
inline constexpr unsigned kPropertyWrite = 0x08;
inline constexpr unsigned kPropertyNotify = 0x10;
inline constexpr unsigned kPropertyIndicate = 0x20;

// The bits of a client characteristic configuration.
inline constexpr unsigned kNotifications = 0x0001;
inline constexpr unsigned kIndications = 0x0002;

}  // namespace kestrin::vreader::att
