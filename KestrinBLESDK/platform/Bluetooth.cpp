// The central-role interfaces' anchors: their tables live here, once, and an event that a delegate
// does not handle does nothing.
#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Radio.h"

namespace kestrin {

CBCharacteristic::~CBCharacteristic() = default;
CBService::~CBService() = default;
CBPeripheral::~CBPeripheral() = default;
CBCentralManager::~CBCentralManager() = default;
Radio::~Radio() = default;

CBPeripheralDelegate::~CBPeripheralDelegate() = default;
void CBPeripheralDelegate::peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>&,
                                                          const std::optional<NSError>&) noexcept {}
void CBPeripheralDelegate::peripheral_didDiscoverCharacteristicsForService_error(
    const std::shared_ptr<CBPeripheral>&, const std::shared_ptr<CBService>&,
    const std::optional<NSError>&) noexcept {}
void CBPeripheralDelegate::peripheral_didUpdateValueForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>&, const std::shared_ptr<CBCharacteristic>&,
    const std::optional<NSError>&) noexcept {}
void CBPeripheralDelegate::peripheral_didUpdateNotificationStateForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>&, const std::shared_ptr<CBCharacteristic>&,
    const std::optional<NSError>&) noexcept {}

CBCentralManagerDelegate::~CBCentralManagerDelegate() = default;
void CBCentralManagerDelegate::centralManagerDidUpdateState(
    const std::shared_ptr<CBCentralManager>&) noexcept {}
void CBCentralManagerDelegate::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    const std::shared_ptr<CBCentralManager>&, const std::shared_ptr<CBPeripheral>&,
    const CBAdvertisementData&, int) noexcept {}
void CBCentralManagerDelegate::centralManager_didConnectPeripheral(
    const std::shared_ptr<CBCentralManager>&, const std::shared_ptr<CBPeripheral>&) noexcept {}
void CBCentralManagerDelegate::centralManager_didDisconnectPeripheral_error(
    const std::shared_ptr<CBCentralManager>&, const std::shared_ptr<CBPeripheral>&,
    const std::optional<NSError>&) noexcept {}

CBPeripheralManagerDelegate::~CBPeripheralManagerDelegate() = default;
void CBPeripheralManagerDelegate::peripheralManagerDidUpdateState(
    const std::shared_ptr<void>&) noexcept {}

}  // namespace kestrin
