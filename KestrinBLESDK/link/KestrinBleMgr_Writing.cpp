// Writing: a frame goes out in slices, paced by a pause and nothing else.
#include "KestrinBLESDK/KestrinBleMgr.h"

namespace kestrin {
namespace {

constexpr std::int32_t kSliceSize = 20;    // Bytes; every reader takes a write of that size.
constexpr double kInterSlicePause = 0.05;  // Seconds.

std::optional<NSData> slice(const std::optional<NSData>& frame, std::int32_t location,
                            std::int32_t length) {
  if (!frame) return std::nullopt;
  return frame->subdataWithRange(
      {static_cast<std::size_t>(location), static_cast<std::size_t>(length)});
}

}  // namespace

bool KestrinBleMgr::send(const std::optional<NSData>& frame) noexcept {
  return p_sendDataToBLE(frame);
}

bool KestrinBleMgr::sendPower(const std::optional<NSData>& frame) noexcept {
  return p_sendDataToBLE(frame);
}

bool KestrinBleMgr::p_sendDataToBLE(const std::optional<NSData>& frame) noexcept {
  return keptAlive([this, &frame] {
    // Frames of 2 GiB or more are out of range.
    const auto length = static_cast<std::int32_t>(frame ? frame->length() : 0);
    const std::int32_t full = length / kSliceSize;
    const std::int32_t rem = length % kSliceSize;
    for (std::int32_t i = 0; i < full; ++i) {
      writeRawData(slice(frame, kSliceSize * i, kSliceSize));
      platform_.thread->sleepForTimeInterval(kInterSlicePause);
    }
    // Always, by design, also when it is empty.
    return writeRawData(slice(frame, kSliceSize * full, rem));
  });
}

CBCharacteristicProperties KestrinBleMgr::txProperties() const noexcept {
  return txCharacteristic ? txCharacteristic->properties() : 0;
}

bool KestrinBleMgr::writeRawData(const std::optional<NSData>& slice) noexcept {
  return keptAlive([this, &slice] {
    if ((txProperties() & CBCharacteristicPropertyWriteWithoutResponse) != 0) {
      writeSlice(slice);
      return true;
    }
    if ((txProperties() & CBCharacteristicPropertyWrite) != 0) {
      if (discoveredPeripheral) {
        discoveredPeripheral->setNotifyValue_forCharacteristic(true, txCharacteristic);
      }
      writeSlice(slice);
      return true;
    }
    log("No write property on TX characteristic, %ld.", txProperties());
    return false;
  });
}

void KestrinBleMgr::writeSlice(const std::optional<NSData>& slice) noexcept {
  if (discoveredPeripheral) {
    // With response even where a write without one is offered, by design.
    discoveredPeripheral->writeValue_forCharacteristic_type(
        slice, txCharacteristic, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  }
  log("[TX BLE] %@", slice);
}

}  // namespace kestrin
