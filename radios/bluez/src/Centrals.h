// The radio's side of the central managers: what state each is to report, and which sightings.
//
// Threads: the radio's own thread; events are posted to each central manager's run loop.
// Lifetime: a record lives until its central manager is dropped; the daemon outlives all.
// Errors: none.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CentralFront.h"
#include "Daemon.h"
#include "LinkEvents.h"

namespace kestrin::bluez {

/// Why a radio is not powered on, for any thread to read.
class StateBoard {
 public:
  void set(std::string reason);
  [[nodiscard]] std::string get() const;

 private:
  mutable std::mutex mutex_;
  std::string reason_ = "the Bluetooth daemon has not answered yet: ask again in a moment";
};

/// Which adapter a radio or a central manager works on, and whether it ever could.
struct AdapterUse {
  std::optional<std::string> wanted;  ///< By name.
  std::string path;                   ///< Empty: none.
  bool wasPowered = false;
  bool wasThere = false;
};

struct CentralSetup {
  std::uint64_t id = 0;
  std::weak_ptr<CentralFront> front;
  std::weak_ptr<CBCentralManagerDelegate> delegate;
  std::weak_ptr<RunLoop> loop;
  std::optional<std::string> adapter;
};

class Centrals {
 public:
  using UUIDs = std::optional<std::vector<CBUUID>>;

  Centrals(BusThread& thread, Daemon& daemon, std::string bus);

  void addRadio(std::uint64_t id, const std::shared_ptr<StateBoard>& board,
                const std::optional<std::string>& adapter);
  void removeRadio(std::uint64_t id) { radios_.erase(id); }
  void add(CentralSetup setup);
  void remove(std::uint64_t id) { records_.erase(id); }
  [[nodiscard]] std::optional<LinkHolder> holder(std::uint64_t id) const;

  /// Starts a scan; `number` tells its sightings from those of other scans. Returns whether it is
  /// honoured.
  bool scan(std::uint64_t id, std::uint64_t number, const UUIDs& services);
  void stopScan(std::uint64_t id);
  /// Whether a central manager scans on that adapter.
  [[nodiscard]] bool scansOn(const std::string& adapter) const;

  /// The daemon or an adapter has changed.
  void updateStates();
  void daemonChanged();
  void adapterRemoved();
  /// The daemon or the bus has refused to work an adapter.
  void refuse(const std::string& adapter);

  /// A device was seen or has changed its name; `name` is what it is called.
  void sighted(const std::string& device, const std::optional<std::string>& name, bool seen);

 private:
  struct Record {
    CentralSetup setup;
    AdapterUse use;
    std::optional<CBManagerState> reported;
    std::optional<std::uint64_t> scan;
    UUIDs services;
    std::map<std::string, std::optional<std::string>> sightings;  // Reported names by path.
  };
  struct RadioRecord {
    std::weak_ptr<StateBoard> board;
    AdapterUse use;
  };

  void settle(Time span);
  void choose(AdapterUse& use) const;
  [[nodiscard]] CBManagerState stateOf(const AdapterUse& use) const;
  [[nodiscard]] std::string reasonOf(const AdapterUse& use) const;
  void updateState(Record& record);
  void report(Record& record, const std::string& device, const DeviceObject& object,
              const std::optional<std::string>& name) const;

  BusThread& thread_;
  Daemon& daemon_;
  const std::string bus_;
  std::map<std::uint64_t, Record> records_;
  std::map<std::uint64_t, RadioRecord> radios_;
  std::set<std::string> refused_;  // Adapters that this user may not work.
  bool settling_ = false;          // Adapters are coming or going; that there is none may pass.
  std::optional<TimerQueue::Id> settlingEnd_;
};

}  // namespace kestrin::bluez
