// The built program, run by a test.
//
// Threads: one, see ChildProcess.
// Lifetime: a program that still runs is killed with the object.
// Errors: a program that cannot be started fails the test.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"

namespace kestrin::gateway {

class GatewayProgram {
 public:
  /// Standard output and standard error go to the files `name`.out and `name`.err of the folder,
  /// behind what is there.
  GatewayProgram(const TestFolder& folder, const std::string& name,
                 const std::vector<std::string>& arguments);

  void signal(int number) const { process_.signal(number); }
  void kill() { process_.kill(); }
  /// Waits for the end; 128 for one that a signal ended.
  int finish();
  [[nodiscard]] bool runs() { return process_.runs(); }
  [[nodiscard]] std::string output() const { return contentsOf(base_ + ".out"); }
  [[nodiscard]] std::string errors() const { return contentsOf(base_ + ".err"); }

 private:
  std::string base_;
  ChildProcess process_;
};

struct ProgramOutcome {
  int status = -1;
  std::string output;
  std::string errors;
};

/// Runs the program to its end.
ProgramOutcome runProgram(const std::vector<std::string>& arguments);

/// Looks again and again; false when it takes far too long.
bool comesTrue(const std::function<bool()>& condition);

}  // namespace kestrin::gateway
