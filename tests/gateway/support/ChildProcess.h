// A program that a test starts, and that does not outlive it.
//
// Threads: one. It must be the one that lives longest: the system ends the program with the thread
// that started it.
// Lifetime: destroying it kills the program and waits for its end.
// Errors: `start` returns false when there is no such program to start.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

class ChildProcess {
 public:
  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// What it prints, both ways, is added to `outputFile`.
  bool start(const std::vector<std::string>& command, const std::string& outputFile);
  void signal(int number) const;
  /// SIGKILL, and its end.
  void kill();
  /// Waits for its end: its exit status, absent when a signal ended it.
  std::optional<int> wait();
  /// Whether it has not ended.
  [[nodiscard]] bool runs();
  [[nodiscard]] pid_t id() const { return id_; }

 private:
  pid_t id_ = -1;
};

/// Runs a program to its end. What it printed, when it did not end with 0.
std::optional<std::string> failureOf(const std::vector<std::string>& command,
                                     const std::string& outputFile);

std::string contentsOf(const std::string& file);

}  // namespace kestrin::gateway
