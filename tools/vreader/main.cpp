// kestrin-vreader: a virtual LE controller on /dev/vhci with virtual readers behind it. To the
// kernel and the Bluetooth daemon it is a radio with readers in range.

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/NSLog.h"
#include "tools/vreader/Controller.h"
#include "tools/vreader/Options.h"
#include "tools/vreader/OrderPipe.h"
#include "tools/vreader/Orders.h"
#include "tools/vreader/SystemError.h"
#include "tools/vreader/Vhci.h"
#include "tools/vreader/VirtualDevice.h"

namespace kestrin::vreader {

namespace {

// One line per event, out at once: whoever waits for an event reads the log as it grows.
void print(const std::string& line) {
  // Names come from the command line and from orders; they are not to steer a terminal.
  std::puts(StandardErrorLogSink::escaped(line).c_str());
  std::fflush(stdout);
}

int fail(const std::string& why) {
  std::fprintf(stderr, "kestrin-vreader: %s\n", why.c_str());
  return 1;
}

// The descriptor that SIGINT and SIGTERM are read from instead of ending the program.
int endSignals() {
  sigset_t signals{};
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

class Program {
 public:
  explicit Program(const Options& options) : options_(options) {}

  int run() {
    const int signals = endSignals();
    if (const auto problem = vhci_.open(options_.vhci)) return fail(*problem);
    if (options_.orders) {
      if (const auto problem = pipe_.open(*options_.orders)) return fail(*problem);
    }
    makeDevices();
    const bool watching =
        watch(signals, [this](Readiness) { runLoop_->stop(); }) &&
        watch(vhci_.fileDescriptor(), [this](Readiness found) { receive(found); }) &&
        (!options_.orders ||
         watch(pipe_.fileDescriptor(), [this](Readiness) { carryOutOrders(); }));
    if (!watching) return fail("cannot wait for events: no descriptors are left");
    print("READY hci" + std::to_string(vhci_.adapter()));
    runLoop_->run();
    if (failure_) return fail(*failure_);
    print("END");
    return 0;
  }

 private:
  void makeDevices() {
    if (options_.mostLinks) controller_.setMostLinks(*options_.mostLinks);
    controller_.setAir(options_.air);
    for (const DeviceSettings& settings : options_.devices) {
      auto device = std::make_shared<VirtualDevice>(runLoop_, settings, &print);
      print("DEVICE " + device->description());
      controller_.addDevice(device);
      devices_.push_back(std::move(device));
    }
  }

  bool watch(int descriptor, MainRunLoop::WatchHandler handler) {
    return runLoop_->watch(descriptor, Readiness::readable, std::move(handler)).has_value();
  }

  void receive(Readiness found) {
    if (hasAny(found, Readiness::hungUp | Readiness::failed | Readiness::closed)) {
      end("the adapter is gone");
      return;
    }
    while (const auto packet = vhci_.read()) controller_.receive(*packet);
  }

  void send(const Bytes& packet) {
    if (const auto problem = vhci_.write(packet)) end("the kernel refuses a packet: " + *problem);
  }

  void end(const std::string& why) {
    if (!failure_) failure_ = why;
    runLoop_->stop();
  }

  void carryOutOrders() {
    Orders orders(devices_, controller_);
    for (const std::string& line : pipe_.readLines()) {
      const auto outcome = orders.carryOut(line);
      print(outcome.done ? "ORDER " + line : "ORDER-REFUSED " + line + ": " + outcome.reason);
    }
  }

  const Options& options_;
  const std::shared_ptr<MainRunLoop> runLoop_ = std::make_shared<MainRunLoop>();
  Vhci vhci_;
  OrderPipe pipe_;
  std::vector<std::shared_ptr<VirtualDevice>> devices_;
  Controller controller_{runLoop_, options_.address, [this](const Bytes& packet) { send(packet); },
                         &print};
  std::optional<std::string> failure_;
};

}  // namespace

}  // namespace kestrin::vreader

int main(int argumentCount, char** arguments) {
  const auto commandLine = kestrin::vreader::parseCommandLine(argumentCount, arguments);
  if (!commandLine.options) {
    std::fputs(commandLine.text.c_str(), commandLine.exitStatus == 0 ? stdout : stderr);
    return commandLine.exitStatus;
  }
  return kestrin::vreader::Program(*commandLine.options).run();
}
