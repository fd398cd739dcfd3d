#include "kestrin/simulated/GattLayout.h"

#include <string_view>

namespace kestrin::simulated {
namespace {

// Assigned numbers of the Bluetooth SIG.
constexpr CBUUID kGenericAccess(0x1800);
constexpr CBUUID kDeviceName(0x2A00);
constexpr CBUUID kDeviceInformation(0x180A);
constexpr CBUUID kHardwareRevision(0x2A27);
constexpr CBUUID kManufacturerName(0x2A29);
constexpr CBUUID kBatteryService(0x180F);
constexpr CBUUID kBatteryLevel(0x2A19);

// BA82100n-3B5B-4654-85FE-E998B123ADEA: 0 is the data service, 1 its TX, 2 its RX.
constexpr CBUUID standardUuid(std::uint8_t last) {
  return CBUUID(CBUUID::Bytes{0xBA, 0x82, 0x10, last, 0x3B, 0x5B, 0x46, 0x54, 0x85, 0xFE, 0xE9,
                              0x98, 0xB1, 0x23, 0xAD, 0xEA});
}
constexpr CBUUID kStandardService = standardUuid(0);
constexpr CBUUID kStandardTx = standardUuid(1);
constexpr CBUUID kStandardRx = standardUuid(2);

constexpr CBUUID kKvrService(0xFFF0);
constexpr CBUUID kKvrRx(0xFFF1);
constexpr CBUUID kKvrTx(0xFFF2);

NSData text(std::string_view characters) {
  return NSData::dataWithBytes_length(characters.data(), characters.size());
}

// The name in the attribute server is not the advertised one, so that whoever confuses the two is
// found out.
GattService genericAccess() {
  return {kGenericAccess, {{kDeviceName, CBCharacteristicPropertyRead, text("Virtual")}}};
}

GattService battery() {
  return {kBatteryService, {{kBatteryLevel, CBCharacteristicPropertyRead, NSData{100}}}};
}

GattLayout standardLayout(CBCharacteristicProperties txProperties) {
  return {genericAccess(),
          {kDeviceInformation,
           {{kHardwareRevision, CBCharacteristicPropertyRead, text("1.0")},
            {kManufacturerName, CBCharacteristicPropertyRead, text("Virtual Readers")}}},
          {kStandardService,
           {{kStandardTx, txProperties, {}}, {kStandardRx, CBCharacteristicPropertyNotify, {}}}}};
}

GattLayout kvrLayout(CBCharacteristicProperties txProperties) {
  return {genericAccess(),
          {kDeviceInformation,
           {{kManufacturerName, CBCharacteristicPropertyRead, text("Virtual Readers")}}},
          {kKvrService, {{kKvrRx, CBCharacteristicPropertyNotify, {}}, {kKvrTx, txProperties, {}}}},
          battery()};
}

}  // namespace

ReaderCharacteristics readerCharacteristics(ReaderFamily family) {
  if (family == ReaderFamily::kvrQ62T) return {.tx = kKvrTx, .rx = kKvrRx};
  return {.tx = kStandardTx, .rx = kStandardRx};
}

CBUUID readerService(ReaderFamily family) {
  return family == ReaderFamily::kvrQ62T ? kKvrService : kStandardService;
}

GattLayout readerLayout(ReaderFamily family,
                        std::optional<CBCharacteristicProperties> txProperties) {
  if (family == ReaderFamily::kvrQ62T) {
    return kvrLayout(
        txProperties.value_or(CBCharacteristicPropertyWrite | CBCharacteristicPropertyNotify));
  }
  return standardLayout(txProperties.value_or(CBCharacteristicPropertyWrite |
                                              CBCharacteristicPropertyWriteWithoutResponse));
}

GattLayout nonReaderLayout() { return {genericAccess(), battery()}; }

}  // namespace kestrin::simulated
