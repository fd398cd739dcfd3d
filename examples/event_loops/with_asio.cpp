// The library's run loop in Asio's.
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include "Application.h"

int main() {
  asio::io_context context;
  const Application application([&] { context.stop(); });
  kestrin::MainRunLoop& runLoop = application.runLoop();

  asio::posix::stream_descriptor readable(context, runLoop.fileDescriptor());
  const std::function<void()> wait = [&] {
    readable.async_wait(asio::posix::stream_descriptor::wait_read,
                        [&](const asio::error_code& error) {
                          if (!error) runLoop.runOneTurn();
                          if (!error) wait();
                        });
  };
  wait();

  context.run();
  readable.release();  // The descriptor is the run loop's and is not to be closed.
}
