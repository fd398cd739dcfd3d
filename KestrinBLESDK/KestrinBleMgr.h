/// \class kestrin::KestrinBleMgr
/// The manager: works a handheld RFID reader over Bluetooth Low Energy.
///
/// Scan with `scanBLE`, pick a reader that the scan delegate is given, `connectBLE` to it, hand
/// command frames to `send`, and get whole, CRC-checked frames and plugged-in reports through the
/// receiver. docs/link.md describes the life of a link.
///
/// Threads: everything happens on the main run loop of the manager's platform: call the operations
/// on the thread that turns it. `sharedInstance` may be called from any thread; `send`, `sendPower`
/// and `writeRawData` may be called from another thread than the main run loop's while no link
/// comes or goes, one at a time, and block it.
///
/// Lifetime: a manager keeps its central manager, peripheral and characteristics, and neither of
/// its delegates. A pending delayed request keeps the manager. It may be dropped at any moment,
/// also from inside a callback: whoever calls it keeps it. A radio, a run loop and a notification
/// centre hold it for the length of an event, since a weak pointer gives them no other way to it;
/// an operation of the application's that calls out and then goes on holds it by itself.
///
/// Errors: there are no error results and no exceptions. A failure is a line in the log; the
/// application learns about the link through `RcpReceiver::plugChangedStatus`.
#pragma once

#ifndef __cplusplus
#error "This header is for C++. In Objective-C: #import <KestrinBLESDK/KestrinBLESDK.h>"
#endif

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/KestrinBLEProtocols.h"
#include "KestrinBLESDK/KestrinBLESDK_vers.h"
#include "KestrinBLESDK/RcpFrame.h"
#include "KestrinBLESDK/RcpReceiver.h"
#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/Platform.h"

namespace kestrin {
/// \addtogroup application
/// @{

struct RcpFrmReader;

class KESTRIN_EXPORT KestrinBleMgr final : public std::enable_shared_from_this<KestrinBleMgr>,
                                           private CBCentralManagerDelegate,
                                           private CBPeripheralDelegate,
                                           private CBPeripheralManagerDelegate {
  // Explicit, so that no braces stand for it: only this class can name it.
  struct OnlyInit {
    explicit OnlyInit() = default;
  };

 public:
  /// `sharedInstance` The process's one manager, made on the first call, on
  /// `Platform::systemDefault()`. Safe from any thread.
  static std::shared_ptr<KestrinBleMgr> sharedInstance() noexcept;
  /// `init` A further, independent manager on `platform`.
  static std::shared_ptr<KestrinBleMgr> init(
      const Platform& platform = Platform::systemDefault()) noexcept;
  /// Not for callers: `init` makes managers.
  KestrinBleMgr(OnlyInit, const Platform& platform) noexcept;
  ~KestrinBleMgr() override;
  KestrinBleMgr(const KestrinBleMgr&) = delete;
  KestrinBleMgr& operator=(const KestrinBleMgr&) = delete;

  /// `delegate` The scan delegate; null when none is set or it is gone.
  [[nodiscard]] std::shared_ptr<KestrinBLEProtocols> delegate() const noexcept;
  /// `setDelegate:` Sets the scan delegate, held weakly. Hand over a pointer to your own class: it
  /// decides at compile time which callbacks are implemented.
  template <class Delegate>
  void setDelegate(const std::weak_ptr<Delegate>& delegate) noexcept;
  /// The same with a pointer that keeps: the manager holds it weakly all the same.
  template <class Delegate>
  void setDelegate(const std::shared_ptr<Delegate>& delegate) noexcept {
    setDelegate(std::weak_ptr<Delegate>(delegate));
  }
  /// From now on nobody is told of scans.
  void setDelegate(std::nullptr_t) noexcept { _delegate.reset(); }

  /// `rcpReceiverDelegate` The receiver; null when none is set or it is gone.
  [[nodiscard]] std::shared_ptr<RcpReceiver> rcpReceiverDelegate() const noexcept;
  /// `setRcpReceiverDelegate:` Sets the receiver, held weakly; as `setDelegate`.
  template <class Receiver>
  void setRcpReceiverDelegate(const std::weak_ptr<Receiver>& receiver) noexcept;
  /// The same with a pointer that keeps: the manager holds it weakly all the same.
  template <class Receiver>
  void setRcpReceiverDelegate(const std::shared_ptr<Receiver>& receiver) noexcept {
    setRcpReceiverDelegate(std::weak_ptr<Receiver>(receiver));
  }
  /// From now on nobody is told of plug changes and frames.
  void setRcpReceiverDelegate(std::nullptr_t) noexcept { _rcpReceiverDelegate.reset(); }

  /// `scanBLE` Calls the scan delegate with 0, drops the connection to the last reader, and scans
  /// with a fresh central manager. Always true, also with the radio off: the scan then starts when
  /// it is powered on.
  bool scanBLE() noexcept;
  /// `stopSacnBLE` Calls the scan delegate with 1 and stops the scan. A radio that is powered on
  /// later starts it again.
  void stopSacnBLE() noexcept;
  /// `connectBLE:` Stops the scan, without telling the scan delegate, and connects to `peripheral`,
  /// however long that takes. The receiver hears `plugChangedStatus(true)` when the link can be
  /// used.
  void connectBLE(const std::shared_ptr<CBPeripheral>& peripheral) noexcept;
  /// `pripheral` The reader that the scan accepted last or that was connected to; null before.
  [[nodiscard]] std::shared_ptr<CBPeripheral> pripheral() const noexcept;
  /// `open` Whether there is a link. A pure query: it opens nothing.
  [[nodiscard]] bool open() const noexcept;
  /// `isOpened` The same as `open`.
  [[nodiscard]] bool isOpened() const noexcept;
  /// `close` Drops the link or the attempt, stops the scan and calls the receiver's
  /// `plugChangedStatus(false)` at once, whether or not there was a link. `open` stays true until
  /// the link is down, which the receiver hears as a second false.
  void close() noexcept;

  /// `send:` Sends one whole frame, CRC included, in slices of 20 bytes with a pause of 0.05 s
  /// after each full one; blocks the caller for that long. A frame whose length is a multiple of 20
  /// ends with a write of no bytes. Returns whether the last slice was handed to the radio, which
  /// says nothing of its arrival. An absent frame is one write of an absent value.
  bool send(const std::optional<NSData>& frame) noexcept;
  /// `sendPower:` The same as `send`.
  bool sendPower(const std::optional<NSData>& frame) noexcept;
  /// `writeRawData:` Writes one slice of at most 20 bytes as it is; false when the reader's
  /// transmit characteristic is not known or cannot be written.
  bool writeRawData(const std::optional<NSData>& slice) noexcept;
  /// `readData:` Takes bytes as if the reader had sent them: adds them to the receive buffer and
  /// delivers every whole frame. Always 0. From inside a delivery the bytes wait until the running
  /// parse has ended.
  std::int32_t readData(const NSData& data) noexcept;

 private:
  friend class KestrinBleMgrTestPeer;

  // Frames (rcp/).
  static std::uint16_t getCrcPolynomial_acc(std::uint8_t abyte, std::uint16_t acc) noexcept;
  static void clearRcpFrmReader(RcpFrmReader* reader) noexcept;
  std::int32_t parseRcpFrmReader() noexcept;
  class Parse;  // One parse of the receive buffer.
  void gather(const NSData& data) noexcept;
  void letWait(const NSData& data) noexcept;
  bool gatherWaiting() noexcept;
  void parseBuffer() noexcept;
  void hopTwice(WorkReference work) const noexcept;

  // Background (link/KestrinBleMgr.cpp).
  void easEnterBackground() noexcept;
  void accessoryDidDisconnect() noexcept;
  void peripheralManagerDidUpdateState(const std::shared_ptr<void>& peripheral) noexcept override;

  // Scanning.
  void p_initCentralManager() noexcept;
  static bool p_isKVXDevice(std::string_view name) noexcept;
  void startScan() noexcept;
  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override;
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
      int RSSI) noexcept override;

  // Connection.
  bool p_isConnectedBLE() const noexcept;
  void p_disconnectBLE() noexcept;
  void p_getReaderInfo() noexcept;
  void p_pluggedEvent() noexcept;
  void tellPlugged(bool plugged) noexcept;
  void rearm(const SEL& request, double seconds) noexcept;
  void findCharacteristicsKVR(const std::shared_ptr<CBPeripheral>& peripheral) noexcept;
  void findCharacteristicsStandard(const std::shared_ptr<CBService>& service) noexcept;
  void takeCharacteristicKVR(const std::shared_ptr<CBPeripheral>& peripheral,
                             const std::shared_ptr<CBCharacteristic>& found) noexcept;
  void takeCharacteristicStandard(const std::shared_ptr<CBCharacteristic>& found) noexcept;
  [[nodiscard]] bool bothCharacteristicsFound() const noexcept;
  void centralManager_didConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral) noexcept override;
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                      const std::optional<NSError>& error) noexcept override;
  void peripheral_didDiscoverCharacteristicsForService_error(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::optional<NSError>& error) noexcept override;

  // Writing.
  bool p_sendDataToBLE(const std::optional<NSData>& frame) noexcept;
  [[nodiscard]] CBCharacteristicProperties txProperties() const noexcept;
  void writeSlice(const std::optional<NSData>& slice) noexcept;

  // Values.
  void peripheral_didUpdateValueForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& updated,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didUpdateNotificationStateForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& updated,
      const std::optional<NSError>& error) noexcept override;

  /// Runs `work`, which calls out and then goes on, and holds this object meanwhile.
  template <class Work>
  auto keptAlive(const Work& work) noexcept {
    const auto self = shared_from_this();
    return work();
  }

  /// An operation without arguments, as delayed requests and notification handlers name it.
  template <void (KestrinBleMgr::*Operation)() noexcept>
  static constexpr SEL selectorOf(std::string_view name) noexcept {
    return {name, [](void* target, const std::shared_ptr<void>& /*object*/) noexcept {
              (static_cast<KestrinBleMgr*>(target)->*Operation)();
            }};
  }

  /// The query before each callback; an absent delegate responds to none.
  static bool respondsToSelector(const SelectorResponder* delegate, Selector selector) noexcept {
    return delegate != nullptr && delegate->respondsToSelector(selector);
  }

  template <class... Arguments>
  void log(std::string_view format, const Arguments&... arguments) const noexcept {
    NSLog(*platform_.log, format, arguments...);
  }

  // The fields, in their declared order. `_buf`, `_bufHead`, `characteristic` and
  // `peripheralNameList` are part of the object's shape; no operation uses them.
  std::array<std::uint8_t, 255> _buf{};
  std::uint16_t _bufHead = 0;
  std::shared_ptr<CBCentralManager> centralManager;
  std::shared_ptr<CBPeripheral> discoveredPeripheral;
  std::shared_ptr<CBCharacteristic> characteristic;
  std::optional<std::vector<std::shared_ptr<CBPeripheral>>> peripheralList;
  std::optional<std::vector<std::string>> peripheralNameList;
  std::shared_ptr<CBCharacteristic> rxCharacteristic;
  std::shared_ptr<CBCharacteristic> txCharacteristic;
  bool isConnected = false;
  std::optional<NSMutableData> _mutableReceivedData;
  std::weak_ptr<KestrinBLEProtocols> _delegate;
  std::weak_ptr<RcpReceiver> _rcpReceiverDelegate;

  // What the object runs on, and what bytes wait while a parse runs.
  const Platform platform_;
  /// The dispatch is the system's own, which runs work where it is handed over.
  const bool hopsInPlace_;
  bool parsing_ = false;
  std::list<NSData> waitingArrivals_;
};

template <class Delegate>
void KestrinBleMgr::setDelegate(const std::weak_ptr<Delegate>& delegate) noexcept {
  static_assert(std::is_base_of_v<KestrinBLEProtocols, Delegate>,
                "a scan delegate derives from KestrinBLEProtocols");
  constexpr SelectorTable found = detail::implementedScanCallbacks<Delegate>();
  static_assert(
      detail::isTelling<Delegate>(found),
      "this pointer's class implements no scan callback, so nothing would ever be heard: "
      "hand over a pointer to your own class, or override respondsToSelector in this one");
  if (const auto present = delegate.lock()) {
    static_cast<SelectorResponder&>(*present).implemented_.add(found);
  }
  _delegate = delegate;
}

template <class Receiver>
void KestrinBleMgr::setRcpReceiverDelegate(const std::weak_ptr<Receiver>& receiver) noexcept {
  static_assert(std::is_base_of_v<RcpReceiver, Receiver>, "a receiver derives from RcpReceiver");
  constexpr SelectorTable found = detail::implementedReceiverCallbacks<Receiver>();
  static_assert(detail::isTelling<Receiver>(found),
                "this pointer's class implements no receiver callback, so nothing would ever be "
                "heard: hand over a pointer to your own class, or override respondsToSelector in "
                "this one");
  if (const auto present = receiver.lock()) {
    static_cast<SelectorResponder&>(*present).implemented_.add(found);
  }
  _rcpReceiverDelegate = receiver;
}

/// @}

}  // namespace kestrin
