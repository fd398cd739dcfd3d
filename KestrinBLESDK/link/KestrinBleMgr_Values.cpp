// Values: what becomes of each value that the reader notifies or that a read brings.
#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/link/RadioMistakes.h"
#include "KestrinBLESDK/link/ReaderLayout.h"
#include "KestrinBLESDK/platform/NSString.h"

namespace kestrin {

void KestrinBleMgr::peripheral_didUpdateValueForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<CBCharacteristic>& updated,
    const std::optional<NSError>& error) noexcept {
  if (error) {
    log(" [ERROR] %@", error->localizedDescription());
    return;
  }
  if (!hasCharacteristic(updated)) return;
  if (updated->UUID().hasUUIDString(reader::kManufacturerName)) {
    log("BLE_D5_NOVA_Manufacturer_Name : %@",
        initWithData_encoding(updated->value(), NSStringEncoding::NSASCIIStringEncoding));
    return;
  }
  if (!hasPeripheral(peripheral)) return;
  if (hasPrefix(peripheral->name(), reader::kKVRNamePrefix)) {
    // Raw, whatever it is: also only a part of a frame, also an absent value.
    const auto receiver = rcpReceiverDelegate();
    if (respondsToSelector(receiver.get(), Selector::dispatchRcpFrmReader)) {
      receiver->dispatchRcpFrmReader(updated->value());
    }
    return;
  }
  if (const auto value = updated->value()) readData(*value);
}

void KestrinBleMgr::peripheral_didUpdateNotificationStateForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& updated,
    const std::optional<NSError>& error) noexcept {
  // Unlike a value's error this one does not end the handling, and no family has a direct route.
  if (error) log("[ERROR]: %@", error->localizedDescription());
  if (!hasCharacteristic(updated)) return;
  if (const auto value = updated->value()) readData(*value);
}

}  // namespace kestrin
