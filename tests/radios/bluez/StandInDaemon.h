// A daemon that is played by the test: one adapter, one reader of the standard family, and for each
// method an answer that is right unless the test says otherwise.
//
// Threads: on the test's thread, except for reactions, which run on the service's.
// Lifetime: its end is that of a killed daemon: nothing is taken back, descriptors hang up.
// Errors: what the bus refuses fails the test.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/NSData.h"
#include "radios/bluez/BusService.h"

namespace kestrin::bluez::test {

inline constexpr char kAdapterPath[] = "/org/bluez/hci0";
inline constexpr char kReaderPath[] = "/org/bluez/hci0/dev_C0_DE_00_00_00_01";
inline constexpr char kServicePath[] = "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service0010";
inline constexpr char kTxPath[] = "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service0010/char0011";
inline constexpr char kRxPath[] = "/org/bluez/hci0/dev_C0_DE_00_00_00_01/service0010/char0013";

inline constexpr char kAdapterInterface[] = "org.bluez.Adapter1";
inline constexpr char kDeviceInterface[] = "org.bluez.Device1";
inline constexpr char kServiceInterface[] = "org.bluez.GattService1";
inline constexpr char kCharacteristicInterface[] = "org.bluez.GattCharacteristic1";

class StandInDaemon {
 public:
  /// What a method does instead of working.
  using Reaction = std::function<void(sdbus::MethodCall call)>;

  /// Comes up with the adapter powered and the reader in range, unless `prepare` puts other objects
  /// up before the name is taken.
  explicit StandInDaemon(const std::string& busAddress,
                         const std::function<void(BusService&)>& prepare = {});
  ~StandInDaemon();
  StandInDaemon(const StandInDaemon&) = delete;
  StandInDaemon& operator=(const StandInDaemon&) = delete;

  static Reaction fails(const std::string& error, const std::string& message = "");
  /// Takes the call and never answers.
  static Reaction silence();
  /// The next call of `method` that has no reaction yet gets this one.
  void next(const std::string& method, Reaction reaction);
  /// Every further call does, until `normally`.
  void always(const std::string& method, Reaction reaction);
  void normally(const std::string& method);

  /// The methods that were called so far, as `Connect`, and what was written to TX.
  [[nodiscard]] std::vector<std::string> calls() const;
  [[nodiscard]] std::size_t count(const std::string& method) const;
  [[nodiscard]] std::vector<NSData> writes() const;
  /// The options of the last call that had some, as `type=request`.
  [[nodiscard]] std::string options() const;
  /// Returns the calls of `method` that fell on `silence`, as if they had worked. Their objects
  /// must not have got or lost properties since.
  void answerHeld(const std::string& method);
  void failHeld(const std::string& method);

  /// Runs `work` on the service's thread, where signals are sent.
  void run(const std::function<void(BusService&)>& work);
  void changeDevice(const Properties& changed, const std::vector<std::string>& invalidated = {});
  void changeAdapter(const Properties& changed);
  void showReader(const Properties& more = {});
  void removeReader();
  /// The objects of the link: up with the reader's services, down without a word about them.
  void putServices();
  void dropLink();
  /// Notifies on RX, through the descriptor or by signal, whichever was asked for.
  void notify(const NSData& value);
  void hangUpNotifications();
  void releaseName();

 private:
  void handle(const std::string& path, const std::string& method, sdbus::MethodCall call);
  void work(const std::string& path, const std::string& method, sdbus::MethodCall& call);
  void connect(sdbus::MethodCall& call);
  void write(sdbus::MethodCall& call);
  void read(const std::string& path, sdbus::MethodCall& call);
  void acquireNotify(sdbus::MethodCall& call);
  void setLink(bool up);
  void note(const std::map<std::string, sdbus::Variant>& options);

  mutable std::mutex mutex_;  // Guards what both threads read.
  std::map<std::string, std::deque<Reaction>> next_;
  std::map<std::string, Reaction> always_;
  std::vector<std::string> calls_;
  std::vector<NSData> writes_;
  std::string options_;
  std::map<std::string, std::vector<sdbus::MethodCall>> held_;
  int notifications_ = -1;  // The daemon's end of the notification descriptor.
  bool signals_ = false;
  BusService service_;
};

}  // namespace kestrin::bluez::test
