// The library's run loop in a loop of the application's own, with plain poll(2).
#include <poll.h>

#include "Application.h"

int main() {
  bool finished = false;
  const Application application([&] { finished = true; });
  kestrin::MainRunLoop& runLoop = application.runLoop();

  pollfd readable{runLoop.fileDescriptor(), POLLIN, 0};
  while (!finished) {
    // What else the application waits for goes into the same call.
    if (poll(&readable, 1, -1) > 0) runLoop.runOneTurn();
  }
}
