// The way of a link's requests from the application's side to the radio's thread. The link can end
// there before they arrive; then nobody else knows of them, and they are answered when the link's
// end is reported.
//
// Threads: as each operation says.
// Lifetime: one per link, kept by the link and by the services and characteristics it brought.
// Errors: none; what is asked when the radio has ended goes nowhere.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "BusThread.h"
#include "KestrinBLESDK/platform/CBPeripheral.h"

namespace kestrin::bluez {

class Service;
class Characteristic;

/// What is asked of a link. Which members count depends on the kind.
struct LinkRequest {
  /// `takeOver` is the link's own: it subscribes once more where another program's subscription was
  /// shared, and reports nothing.
  enum class Kind {
    discoverServices,
    discoverCharacteristics,
    read,
    subscribe,
    takeOver,
    unsubscribe,
    write
  };
  Kind kind = Kind::read;
  std::optional<std::vector<CBUUID>> wanted = std::nullopt;
  std::shared_ptr<Service> service = nullptr;
  std::shared_ptr<Characteristic> characteristic = nullptr;
  NSData value = {};
  CBCharacteristicWriteType type = CBCharacteristicWriteType::CBCharacteristicWriteWithResponse;

  /// Whether the application hears that it has ended so. After a read the value says it all.
  [[nodiscard]] bool isReported(const std::optional<NSError>& error) const noexcept {
    return kind != Kind::write && kind != Kind::takeOver && (kind != Kind::read || error);
  }
};

class LinkLine final : public std::enable_shared_from_this<LinkLine> {
 public:
  using CarryOut = std::function<void(LinkRequest)>;

  LinkLine(std::uint64_t number, std::weak_ptr<BusThread> thread);

  /// Any thread. No other link of the process has the same.
  [[nodiscard]] std::uint64_t number() const noexcept { return number_; }
  /// Any thread: runs `task` on the radio's thread, unless that has ended.
  void post(BusThread::Task task) const;

  /// The radio's thread: who carries requests out from now on; null: nobody.
  void serve(CarryOut carryOut) { carryOut_ = std::move(carryOut); }

  /// Any thread: has the request carried out, if the link is still up by then.
  void ask(LinkRequest request);
  /// Any thread: the link's end is about to be reported. Returns what nobody has carried out, in
  /// the order in which it was asked for, and takes nothing more.
  std::vector<LinkRequest> close();

 private:
  void arrived(std::uint64_t request);

  const std::uint64_t number_;
  const std::weak_ptr<BusThread> thread_;
  CarryOut carryOut_;
  std::mutex mutex_;  // Guards what follows.
  std::map<std::uint64_t, LinkRequest> underway_;
  std::uint64_t last_ = 0;
  bool closed_ = false;
};

}  // namespace kestrin::bluez
