// The Bluetooth daemon as the radio sees it: whether it is there, and its objects kept up to date.
//
// Signals are subscribed to before the objects are listed, so nothing that changes in between is
// missed. The daemon is never started from here: a call to its name would do that.
//
// Threads: the radio's own thread. Lifetime: the listener outlives it.
// Errors: nothing is thrown; a bus or a daemon that goes away is waited for and tried again with a
// growing pause.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Bus.h"
#include "BusThread.h"
#include "ObjectTree.h"

namespace kestrin::bluez {

/// What the daemon calls the interface of a remote device.
inline constexpr char kDeviceInterface[] = "org.bluez.Device1";

enum class Availability {
  unknown,       ///< Not found out yet.
  noBus,         ///< There is no message bus, or it has gone.
  noDaemon,      ///< Nobody owns the daemon's name.
  refused,       ///< The bus does not let this user talk to the daemon.
  notAnswering,  ///< The daemon's name is owned but its objects cannot be listed.
  ready,
};

/// Pauses that double from `first` to `last`.
class GrowingPause {
 public:
  GrowingPause(Time first, Time last) : first_(first), last_(last), next_(first) {}
  Time next();
  void reset() { next_ = first_; }

 private:
  Time first_;
  Time last_;
  Time next_;
};

class DaemonListener {
 public:
  virtual ~DaemonListener() = default;
  /// The availability has changed. On `ready` every object is new; on anything else all are gone.
  virtual void daemonChanged() = 0;
  virtual void adapterChanged(const std::string& path) = 0;
  virtual void deviceChanged(const std::string& path, const DeviceChange& change) = 0;
  virtual void deviceRemoved(const std::string& path) = 0;
  virtual void serviceAdded(const std::string& device) = 0;
  virtual void serviceRemoved(const std::string& device) = 0;
  virtual void valueChanged(const std::string& characteristic,
                            const std::vector<std::uint8_t>& value) = 0;
  /// A property of a characteristic other than its value has changed.
  virtual void characteristicChanged(const std::string& characteristic) = 0;
};

class Daemon {
 public:
  Daemon(BusThread& thread, std::optional<std::string> busAddress, DaemonListener& listener);

  void start();
  void stop();
  [[nodiscard]] Availability availability() const noexcept { return availability_; }
  [[nodiscard]] const ObjectTree& tree() const noexcept { return tree_; }
  /// What the bus said when it could not be reached.
  [[nodiscard]] const std::string& busTrouble() const noexcept { return busTrouble_; }
  [[nodiscard]] Bus& bus() noexcept { return bus_; }

  /// Calls a method of one of the daemon's objects. The handler is called once, later.
  void call(const std::string& path, const std::string& interface, const std::string& method,
            Time limit, std::function<void(sdbus::MethodCall&)> arguments, Bus::Reply reply);
  /// Lists a device's services and characteristics again, then calls `done`. The signals that
  /// announce them may come after the one that calls them resolved.
  void refreshServices(const std::string& device, std::function<void()> done);

 private:
  void openBus();
  void busLost();
  bool subscribe();
  void askForOwner();
  void ownerChanged(const std::string& owner);
  void listObjects();
  void listed(const std::optional<CallError>& error, sdbus::MethodReply& reply);
  void become(Availability availability);
  void interfacesAdded(sdbus::Message& message);
  void interfacesRemoved(sdbus::Message& message);
  void propertiesChanged(sdbus::Message& message);
  void nameOwnerChanged(sdbus::Message& message);
  void tell(const std::string& path, const ObjectNews& news);
  [[nodiscard]] bool isFromDaemon(const sdbus::Message& message) const;

  BusThread& thread_;
  const std::optional<std::string> busAddress_;
  DaemonListener& listener_;
  Bus bus_;
  ObjectTree tree_;
  Availability availability_ = Availability::unknown;
  std::string busTrouble_;
  std::string owner_;  // The daemon's unique name; empty when it is not there.
  GrowingPause busPause_{std::chrono::seconds(1), std::chrono::seconds(30)};
  GrowingPause listPause_{std::chrono::seconds(1), std::chrono::seconds(30)};
  std::optional<TimerQueue::Id> retry_;
};

}  // namespace kestrin::bluez
