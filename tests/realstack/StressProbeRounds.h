// Rounds of connect, exchange, disconnect, each with a fault drawn at random.
//
// Threads: the one that turns the run loop. Lifetime: once per process.
// Errors: `std::runtime_error` says what did not come about.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "realstack/StressProbeApplication.h"
#include "realstack/StressProbeReader.h"

namespace kestrin::stress {

/// How a round ends its link, or what happens before it begins.
enum class Fault {
  close,              ///< None: the application closes.
  burst,              ///< Values as fast as they come, then as above.
  drop,               ///< The reader ends the link.
  vanish,             ///< The reader goes out of range, and is away when it is connected to again.
  adapterOff,         ///< The adapter's power goes and comes back.
  daemonRestart,      ///< The daemon is stopped and started.
  scanAgain,          ///< A new scan, which drops the link.
  adapterOffIdle,     ///< As above, before the link is made.
  daemonRestartIdle,  ///< As above, before the link is made.
  newManager,         ///< The application drops manager and radio and makes new ones.
  newInBurst,         ///< The same in the middle of a burst.
  newManagerIdle,     ///< The same before the link is made.
};
inline constexpr std::size_t kFaults = 12;
/// The first so many leave the manager in place.
inline constexpr std::size_t kKeepingFaults = 9;
const char* nameOf(Fault fault);

class Rounds {
 public:
  /// Has `request` carried out by whoever may do so, and waits for its end.
  using Helper = std::function<void(const std::string& request)>;

  Rounds(std::uint32_t seed, Reader& reader, Helper helper);
  ~Rounds();
  Rounds(const Rounds&) = delete;
  Rounds& operator=(const Rounds&) = delete;

  /// Returns its fault; with `replace` that may be one that replaces the manager.
  Fault round(bool replace);
  /// The fault of the round that runs or ran last.
  [[nodiscard]] Fault fault() const noexcept { return fault_; }
  /// How many managers, radios, delegates and logs are alive beside the four in use.
  [[nodiscard]] std::size_t leftOver() const;

  std::array<std::uint32_t, kFaults> faults{};
  std::uint32_t framesAnswered = 0;
  std::uint32_t values = 0;

 private:
  Fault drawFault(bool replace);
  std::size_t below(std::size_t bound) { return random_() % bound; }
  void waitFor(const std::string& what, const std::function<bool()>& done);
  void order(const std::string& verb, const std::string& arguments = "");

  void startApplication();
  void dropApplication();
  void disturbIdle();
  void connect(const std::function<void()>& meanwhile = {});
  void exchange();
  void burst();
  void endLink();
  void vanish();
  void restartDaemon();
  void replaceApplication();
  void close();
  void expectLinkLoss(const std::function<void()>& cause);
  void switchAdapter(const std::string& to);

  std::mt19937 random_;
  Reader& reader_;
  const Helper helper_;
  std::vector<Fault> deck_;
  Fault fault_ = Fault::close;
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>();
  std::shared_ptr<Application> application_;
  std::vector<Application::Remains> remains_;
};

}  // namespace kestrin::stress
