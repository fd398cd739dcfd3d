// Objects with properties and methods on a bus, for a daemon that is played by a test. What it
// sends is whatever the test says, right or wrong.
//
// Threads: a thread of its own serves the bus; `run` is for the test's thread, everything else is
// called inside `run` or a handler.
// Lifetime: ends with the object, as a killed daemon would: without a word.
// Errors: a bus that refuses something fails the test.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "BusLibrary.h"
#include "BusThread.h"
#include "radios/bluez/ServiceLibrary.h"

namespace kestrin::bluez::test {

using Properties = std::map<std::string, sdbus::Variant>;
using Interfaces = std::map<std::string, Properties>;

class BusService final : private PollSource {
 public:
  using Handler = std::function<void(const std::string& path, const std::string& method,
                                     sdbus::MethodCall call)>;

  /// Connects to the bus at `address`; calls of any of the daemon's methods come to `handler`.
  BusService(const std::string& address, Handler handler);
  ~BusService() override;
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

  /// Runs `work` on the service's thread and waits for its end.
  void run(const std::function<void()>& work);
  [[nodiscard]] BusThread& thread() noexcept { return *thread_; }

  void ownName(const std::string& name);
  void releaseName(const std::string& name);
  /// Publishes an object and announces it.
  void put(const std::string& path, const Interfaces& interfaces);
  /// Publishes it without a word.
  void putQuietly(const std::string& path, const Interfaces& interfaces);
  void remove(const std::string& path);
  [[nodiscard]] bool has(const std::string& path) const { return objects_.contains(path); }
  [[nodiscard]] std::vector<std::string> pathsBelow(const std::string& path) const;
  [[nodiscard]] const sdbus::Variant* property(const std::string& path,
                                               const std::string& interface,
                                               const std::string& name) const;
  /// Changes properties, takes the invalidated ones away, and signals both.
  void change(const std::string& path, const std::string& interface, const Properties& changed,
              const std::vector<std::string>& invalidated = {});
  /// Sends a signal with any contents.
  void signal(const std::string& path, const std::string& interface, const std::string& member,
              const std::function<void(sdbus::Signal&)>& contents);

 private:
  struct Object {
    Interfaces interfaces;
    std::unique_ptr<sdbus::IObject> published;
  };
  std::optional<Wait> wait() noexcept override;
  void process() noexcept override;
  void publish(const std::string& path);
  [[nodiscard]] ServedInterface served(const std::string& path, const std::string& interface,
                                       const Properties& properties);

  const Handler handler_;
  std::shared_ptr<BusThread> thread_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> root_;
  std::map<std::string, Object> objects_;
  std::set<std::string> stale_;  // Objects whose set of properties has changed.
  std::thread runner_;
};

}  // namespace kestrin::bluez::test
