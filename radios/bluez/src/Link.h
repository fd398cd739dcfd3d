// One connect request: its attempts, the link, and its end.
//
//   waiting    for the daemon, the adapter's power, or the end of an earlier disconnection
//   searching  the daemon does not know the device: discovering privately until it does
//   joining    the daemon shows a link that nobody here asked for: waiting for what becomes of it
//   calling    the daemon is connecting
//   pausing    an attempt has failed
//   up         there has been evidence of the link
//   ended      reported, or about to be
//
// Threads: the radio's own thread; events are posted to the run loops of the holders.
// Lifetime: kept by its host until it has ended; host, thread and daemon outlive it.
// Errors: a failed attempt is repeated; only a lost link or a cancellation ends it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BusThread.h"
#include "Daemon.h"
#include "LinkEvents.h"
#include "LinkGatt.h"
#include "LinkHost.h"
#include "LinkLine.h"
#include "Peripheral.h"

namespace kestrin::bluez {

class Link final : public std::enable_shared_from_this<Link> {
 public:
  Link(LinkHost& host, BusThread& thread, Daemon& daemon, std::shared_ptr<LinkLine> line,
       std::shared_ptr<Peripheral> peripheral);

  [[nodiscard]] std::uint64_t number() const noexcept { return line_->number(); }
  [[nodiscard]] const std::string& device() const noexcept { return peripheral_->path(); }
  [[nodiscard]] bool isUp() const noexcept { return phase_ == Phase::up; }
  /// Whether the daemon may take a name from the device that is not the advertised one.
  [[nodiscard]] bool freezesName() const noexcept {
    return phase_ == Phase::up || phase_ == Phase::calling;
  }
  [[nodiscard]] bool isHeldBy(std::uint64_t central) const;
  /// Null before the link is up.
  [[nodiscard]] const std::shared_ptr<LinkGatt>& gatt() const noexcept { return gatt_; }

  /// One more central manager wants the link; the first one starts the attempts.
  void addHolder(LinkHolder holder);
  /// That central manager gives the link up. With the last one it ends.
  void letGo(std::uint64_t central);
  void letGoOfAll();

  /// Something that the link may have waited for has come.
  void resume();
  void deviceChanged(const DeviceChange& change);
  void deviceRemoved();
  void serviceAdded();
  void serviceRemoved();
  /// The adapter went off, or the daemon went away with every link.
  void adapterOff();
  void daemonGone();

 private:
  enum class Phase { waiting, searching, joining, calling, pausing, up, ended };

  void attempt();
  void join();
  void callConnect();
  void connectAnswered(const std::optional<CallError>& error);
  void pause();
  void become(Phase phase);
  void goUp();
  void resolve();
  void lose(const std::string& why);

  [[nodiscard]] bool isPowered() const { return daemon_.tree().isPowered(device()); }

  LinkHost& host_;
  BusThread& thread_;
  Daemon& daemon_;
  const std::shared_ptr<LinkLine> line_;
  const std::shared_ptr<Peripheral> peripheral_;
  std::vector<LinkHolder> holders_;
  Phase phase_ = Phase::waiting;
  std::uint64_t attempt_ = 0;  // The answer to an earlier attempt is not heard.
  GrowingPause pause_{std::chrono::milliseconds(500), std::chrono::seconds(16)};
  std::optional<TimerQueue::Id> retry_;
  std::shared_ptr<LinkGatt> gatt_;
  bool resolving_ = false;
  bool hasCut_ = false;  // A link that came to nothing has been ended, if the daemon could.
};

}  // namespace kestrin::bluez
