// Everything a session knows and does, on its own thread: it hears the daemon and reports to the
// central managers, the links and the discovery sessions.
//
// Threads: the radio's own thread, except for the constructor.
// Lifetime: started, run and stopped by its session's thread.
// Errors: none; what the daemon refuses is told by states and events.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Centrals.h"
#include "Daemon.h"
#include "Discovery.h"
#include "Link.h"
#include "LinkHost.h"
#include "LinkNames.h"

namespace kestrin::bluez {

class RadioCore final : public DaemonListener, private LinkHost {
 public:
  RadioCore(const std::shared_ptr<BusThread>& thread, const std::string& bus,
            const std::optional<std::string>& busAddress);

  void start() { daemon_.start(); }
  void stop();
  /// Lets go of every link and ends the thread when the bus has taken what there was to say.
  void shutDown();

  // What the application asks for.
  [[nodiscard]] Centrals& centrals() noexcept { return centrals_; }
  void removeCentral(std::uint64_t id);
  void scan(std::uint64_t central, std::uint64_t number, const Centrals::UUIDs& services);
  void stopScan(std::uint64_t central);
  void connect(std::uint64_t central, const std::shared_ptr<Peripheral>& peripheral);
  void cancel(std::uint64_t central, const std::string& device);
  [[nodiscard]] Daemon& daemon() noexcept { return daemon_; }
  /// Keeps the names of linked readers in that file, and takes those that a killed process has left
  /// there.
  void keepLinkNames(const std::string& file);

  // What the daemon says.
  void daemonChanged() override;
  void adapterChanged(const std::string& path) override;
  void deviceChanged(const std::string& path, const DeviceChange& change) override;
  void deviceRemoved(const std::string& path) override;
  void serviceAdded(const std::string& device) override;
  void serviceRemoved(const std::string& device) override;
  void valueChanged(const std::string& characteristic,
                    const std::vector<std::uint8_t>& value) override;
  void characteristicChanged(const std::string& characteristic) override;

 private:
  struct Disconnection {
    std::uint64_t number = 0;
    std::function<void()> report;
  };

  // What links ask.
  [[nodiscard]] bool isDisconnecting(const std::string& device) const override {
    return disconnections_.contains(device);
  }
  void disconnect(const std::string& device, std::function<void()> report) override;
  void beginSearch(const std::string& device, std::uint64_t link) override;
  void endSearch(const std::string& device, std::uint64_t link) override;
  void refused(const std::string& device) override;
  void linkEnded(const std::string& device, std::uint64_t link) override;

  Discovery& discovery(const std::string& adapter);
  void updateScans();
  void sweep(const std::string& adapter);
  void updateName(const std::string& device, const DeviceChange& change);
  /// The name under which the device was seen; absent if it was not, or without one.
  [[nodiscard]] std::optional<std::string> advertisedName(const std::string& device) const;
  /// Gives links that were up before this process the names that a killed one has left.
  void recallLinkNames();
  void writeLinkNames();
  /// Whether the daemon shows a link, other than a classic one, that nobody uses: a killed program
  /// leaves such.
  [[nodiscard]] bool isLeftOver(const std::string& device) const;
  void sightLeftOver(const std::string& device);
  [[nodiscard]] std::shared_ptr<Link> link(const std::string& device) const;
  /// The link of the device that a characteristic belongs to, when it is up.
  [[nodiscard]] std::shared_ptr<LinkGatt> gattOf(const std::string& characteristic) const;
  void disconnected(const std::string& device);
  void endDisconnection(const std::string& device);
  void leaveBus();
  void forEachLink(const std::function<void(Link&)>& action);

  BusThread& thread_;
  const std::weak_ptr<BusThread> sharedThread_;
  Daemon daemon_;
  Centrals centrals_;
  std::map<std::string, std::shared_ptr<Discovery>> discoveries_;  // By adapter.
  std::map<std::string, std::shared_ptr<Link>> links_;             // By device.
  std::map<std::string, Disconnection> disconnections_;            // By device.
  std::map<std::string, std::optional<std::string>> names_;        // As advertised, by device.
  LinkNames linkNames_;
};

}  // namespace kestrin::bluez
