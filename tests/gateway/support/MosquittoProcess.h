// Debian's mosquitto on loopback, for tests that kill it and bring it back.
//
// Threads: one, see ChildProcess.
// Lifetime: destroying it kills the broker; its folder goes with it.
// Errors: `start` returns what the broker printed when it does not come up.
#pragma once

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kestrin::gateway {

class MosquittoProcess {
 public:
  MosquittoProcess();

  /// What the listener's line is followed by; the default lets everybody in. For the next `start`.
  void configure(const std::string& lines) { lines_ = lines; }
  /// Adds a user for `password_file`, whose path it returns.
  std::string addUser(const std::string& user, const std::string& password);

  /// Returns once it listens; after `kill` on the same port again. Absent: it does.
  std::optional<std::string> start();
  void kill() { process_.kill(); }
  /// It stays connected and does nothing, until `thaw`.
  void freeze() const;
  void thaw() const;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] const TestFolder& folder() const { return folder_; }
  [[nodiscard]] pid_t id() const { return process_.id(); }
  /// What it has printed so far.
  [[nodiscard]] std::string output() const { return contentsOf(folder_.pathOf("output")); }

 private:
  bool listens();

  TestFolder folder_;
  std::string lines_ = "allow_anonymous true\n";
  std::uint16_t port_ = 0;
  ChildProcess process_;
};

}  // namespace kestrin::gateway
