// An application that lets go of what it holds: it does what the lines on its standard input say
// and prints what it hears, a line each.
//
//   new           makes platform, manager and delegates
//   drop all      destroys them; drop delegates, drop platform: destroys these alone
//   delegates     makes new ones
//   scan, close
//   connect       to the reader that was accepted last
//   quit          ends; so does the end of the input
//
// It prints DONE with the line when that is done, FOUND, PLUG, FRAME, and LOG with the log's lines
// about radio and link.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/NSLog.h>
#include <KestrinBLESDK/platform/NSThread.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "kestrin/bluez/Bluez.h"

namespace {

using namespace kestrin;

void say(const std::string& line) { std::cout << line << '\n' << std::flush; }

bool startsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

class LinkLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return true; }
  void write(std::string_view line) noexcept override {
    for (const char* start :
         {"BLE ", " CBManager ", "DiscoverPeripheral", "Error ", "[ERROR", " [ERROR"}) {
      if (startsWith(line, start)) say("LOG " + std::string(line));
    }
  }
};

class Application final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override {
    say("FOUND " + reader->name().value_or("(no name)"));
  }
  void plugChangedStatus(bool plugged) noexcept override {
    say(std::string("PLUG ") + (plugged ? "1" : "0"));
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    if (frame) say("FRAME " + frame->description());
  }
};

class Probe {
 public:
  explicit Probe(std::shared_ptr<MainRunLoop> loop) : loop_(std::move(loop)) {}

  void obey(const std::string& line) {
    if (line == "quit") {
      loop_->stop();
    } else if (line == "new") {
      start();
    } else if (line == "delegates") {
      makeDelegates();
    } else if (line == "drop delegates") {
      application_.reset();
    } else if (line == "drop platform") {
      platform_ = {};
    } else if (line == "drop all") {
      application_.reset();
      platform_ = {};
      manager_.reset();
    } else if (line == "scan") {
      manager_->scanBLE();
    } else if (line == "connect") {
      manager_->connectBLE(manager_->pripheral());
    } else if (line == "close") {
      manager_->close();
    } else {
      say("REFUSED " + line);
      return;
    }
    say("DONE " + line);
  }

 private:
  void start() {
    platform_.radio = bluez::makeRadio(loop_);
    platform_.mainRunLoop = loop_;
    platform_.thread = sleepOn(loop_);
    platform_.log = std::make_shared<LinkLog>();
    manager_ = KestrinBleMgr::init(platform_);
    makeDelegates();
  }

  void makeDelegates() {
    application_ = std::make_shared<Application>();
    manager_->setDelegate(application_);
    manager_->setRcpReceiverDelegate(application_);
  }

  const std::shared_ptr<MainRunLoop> loop_;
  Platform platform_;
  std::shared_ptr<KestrinBleMgr> manager_;
  std::shared_ptr<Application> application_;
};

}  // namespace

int main() {
  const auto loop = std::make_shared<MainRunLoop>();
  {
    Probe probe(loop);
    std::thread input([&] {
      std::string line;
      while (std::getline(std::cin, line)) {
        loop->post([&probe, line] { probe.obey(line); });
        if (line == "quit") return;
      }
      loop->stop();
    });
    loop->run();
    input.join();
  }
}
