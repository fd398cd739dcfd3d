// An application that lets go of what it holds: it does what the lines on its standard input say
// and prints what it hears, a line each.
//
//   new           makes platform, manager and delegates
//   drop all      destroys them; drop delegates, drop platform: destroys these alone
//   delegates     makes new ones
//   scan, close
//   connect       to the reader that was accepted last
//   values        prints how many values of the last burst have come
//   quit          ends; so does the end of the input
//
// It prints FOUND, PLUG, VALUES, DROPPED, LOG with the log's lines about radio and link, and END.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/NSLog.h>
#include <KestrinBLESDK/platform/NSThread.h>

#include <cstdint>
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

/// A burst's values are frames whose payload begins with their number.
class BurstCounter {
 public:
  void take(const NSData& frame) {
    constexpr std::size_t kNumberLength = 4;
    constexpr std::uint8_t kNotification = 0x02;
    const auto parsed = parseRcpFrame(frame.span());
    if (!parsed || parsed->type != kNotification || parsed->payload.size() < kNumberLength) return;
    std::uint32_t number = 0;
    for (const std::uint8_t byte : parsed->payload.first(kNumberLength))
      number = number << 8 | byte;
    if (number == 0) *this = {};
    inOrder_ = inOrder_ && number == count_;
    ++count_;
  }
  [[nodiscard]] std::string report() const {
    return std::to_string(count_) + (inOrder_ ? " in order" : " not in order");
  }

 private:
  std::uint32_t count_ = 0;
  bool inOrder_ = true;
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
    if (frame) values.take(*frame);
  }

  BurstCounter values;
};

class Probe {
 public:
  explicit Probe(std::shared_ptr<MainRunLoop> loop) : loop_(std::move(loop)) {}

  void obey(const std::string& line) {
    const auto blank = line.find(' ');
    const std::string verb = line.substr(0, blank);
    const std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (verb == "quit") {
      loop_->stop();
    } else if (verb == "new") {
      start();
    } else if (verb == "delegates") {
      makeDelegates();
    } else if (verb == "drop") {
      drop(argument);
    } else if (application_) {
      work(verb);
    } else {
      say("REFUSED " + line);
    }
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

  void drop(const std::string& part) {
    if (part != "platform") application_.reset();
    if (part != "delegates") platform_ = {};
    if (part == "all") manager_.reset();
    say("DROPPED");
  }

  void work(const std::string& verb) {
    KestrinBleMgr& manager = *manager_;
    if (verb == "scan") {
      manager.scanBLE();
    } else if (verb == "close") {
      manager.close();
    } else if (verb == "connect") {
      manager.connectBLE(manager.pripheral());
    } else if (verb == "values") {
      say("VALUES " + application_->values.report());
    } else {
      say("REFUSED " + verb);
    }
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
  say("END");
}
