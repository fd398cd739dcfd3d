// What is told of a word on the command line that is not expected where it stands.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <string>
#include <vector>

namespace kestrin::app {

struct KnownCommand {
  std::string name;
  /// Its options, as `--timeout`.
  std::vector<std::string> options;
};

/// `'--timout' is not an option of monitor; did you mean --timeout?`. `here` is the command in
/// which the word stands; without `inCommand` it is the program, in front of any command.
std::string tellUnexpected(const std::vector<KnownCommand>& commands, const KnownCommand& here,
                           bool inCommand, const std::string& typed);

}  // namespace kestrin::app
