// Runs a program to its end and keeps what it said.
//
// Threads: one at a time.
// Lifetime: the program has ended when the object stands, or is ended by its destructor.
// Errors: a program that cannot be started fails the test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kestrin::app::test {

struct ProgramOptions {
  /// What it reads on standard input.
  std::string input{};
  /// Where standard output goes, if not to the test: a file to write to.
  std::string outputFile{};
  /// Whether nobody reads standard output, from before the program starts.
  bool unread = false;
  /// "NAME=value", added to the environment.
  std::vector<std::string> environment{};
};

class Program {
 public:
  using Options = ProgramOptions;

  Program(const std::string& path, const std::vector<std::string>& arguments,
          const Options& options);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Reads standard output until it holds `text`; false when it ends before.
  bool readUntil(const std::string& text);
  void signal(int number) const;
  /// Waits for the end, reading everything. Returns the exit status, 128 and the signal's number
  /// for one that a signal ended.
  int finish();

  [[nodiscard]] const std::string& output() const { return output_; }
  [[nodiscard]] const std::string& errors() const { return errors_; }

 private:
  bool readSome();

  pid_t child_ = -1;
  int outputEnd_ = -1;
  int errorsEnd_ = -1;
  std::string output_;
  std::string errors_;
};

/// What a whole run gave.
struct Outcome {
  int status = -1;
  std::string output;
  std::string errors;
};

/// Runs `kestrin` with these arguments.
Outcome kestrin(const std::vector<std::string>& arguments, const ProgramOptions& options = {});
/// The path of the program under test.
std::string kestrinPath();

}  // namespace kestrin::app::test
