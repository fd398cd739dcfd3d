// The library's run loop in systemd's event loop.
#include <systemd/sd-event.h>

#include "Application.h"

int main() {
  sd_event* event = nullptr;
  if (sd_event_default(&event) < 0) return 1;
  const Application application([event] { sd_event_exit(event, 0); });

  const auto turn = [](sd_event_source*, int, std::uint32_t, void* runLoop) {
    static_cast<kestrin::MainRunLoop*>(runLoop)->runOneTurn();
    return 0;
  };
  sd_event_source* source = nullptr;
  if (sd_event_add_io(event, &source, application.runLoop().fileDescriptor(), EPOLLIN, turn,
                      &application.runLoop()) < 0) {
    return 1;
  }

  const int status = sd_event_loop(event);
  sd_event_source_unref(source);
  sd_event_unref(event);
  return status;
}
