// The command-line application `kestrin`.
#include <unistd.h>

#include <csignal>
#include <exception>

#include "tools/kestrin/commands/CommandLine.h"
#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/console/Console.h"

int main(int argumentCount, char** arguments) {
  // A reader of this output that has gone is an error like any other, not the end of a link's
  // owner in the middle of its work.
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignored, nullptr);
  kestrin::app::Console console(STDOUT_FILENO, STDERR_FILENO);
  try {
    return kestrin::app::runCommandLine(argumentCount, arguments, console);
  } catch (const std::exception& error) {
    console.note(error.what());
    return kestrin::app::kFailure;
  }
}
