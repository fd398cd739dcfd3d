// The gateway `kestrin-gateway`.
#include <unistd.h>

#include <csignal>
#include <exception>

#include "tools/gateway/commands/CommandLine.h"
#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/service/Journal.h"

int main(int argumentCount, char** arguments) {
  // A reader of this output that has gone is an error like any other.
  std::signal(SIGPIPE, SIG_IGN);
  kestrin::gateway::Output output(STDOUT_FILENO, STDERR_FILENO);
  if (kestrin::gateway::isJournal(STDERR_FILENO)) {
    output.noteIn(kestrin::gateway::writeToJournal);
  }
  try {
    return kestrin::gateway::runCommandLine(argumentCount, arguments, output);
  } catch (const std::exception& error) {
    output.note(error.what());
    return kestrin::gateway::kFailure;
  }
}
