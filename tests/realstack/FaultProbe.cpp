// An application for the fault run on the real stack: it does what the lines on its standard input
// say and prints what it is told, a line each.
//
//   new           makes platform, manager and delegates; `drop` destroys them
//   scan, stop, close
//   connect       to the reader that was accepted last
//   follow        from now on connects from inside each sighting
//   send HEX      one frame
//   busy SECONDS  keeps the main thread busy for so long in the next delivery
//   values        prints how many values of the last burst have come
//   quit          ends; so does the end of the input
//
// It prints FOUND, PLUG, VALUES, DROPPED, LOG with the log's lines about radio and link, and END.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/NSLog.h>
#include <KestrinBLESDK/platform/NSThread.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

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
    for (const char* start : {"BLE ", " CBManager ", "Error ", "[ERROR", " [ERROR"}) {
      if (startsWith(line, start)) say("LOG " + std::string(line));
    }
  }
};

/// A burst's values are frames whose payload begins with their number.
class BurstCounter {
 public:
  void take(const NSData& frame) {
    constexpr std::size_t kNumberAt = 5;
    constexpr std::size_t kNumberEnd = 9;
    constexpr std::uint8_t kNotification = 0x02;
    if (frame.length() < kNumberEnd || frame.bytes()[1] != kNotification) return;
    std::uint32_t number = 0;
    for (std::size_t i = kNumberAt; i < kNumberEnd; ++i) number = number << 8 | frame.bytes()[i];
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
  explicit Application(MainRunLoop& loop) : loop_(loop) {}

  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override {
    say("FOUND " + reader->name().value_or("(no name)"));
    if (follows) manager->connectBLE(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    say(std::string("PLUG ") + (plugged ? "1" : "0"));
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    if (!frame) return;
    values.take(*frame);
    const auto pause = std::exchange(busy, Time::zero());
    if (pause > Time::zero()) loop_.sleepFor(pause);
  }

  std::shared_ptr<KestrinBleMgr> manager;
  BurstCounter values;
  bool follows = false;
  Time busy{};

 private:
  MainRunLoop& loop_;
};

std::vector<std::uint8_t> bytesOf(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

class Probe {
 public:
  explicit Probe(std::shared_ptr<MainRunLoop> loop) : loop_(std::move(loop)) {}

  void obey(const std::string& line) {
    const auto blank = line.find(' ');
    const std::string verb = line.substr(0, blank);
    const std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (verb == "new") {
      start();
    } else if (verb == "quit") {
      loop_->stop();
    } else if (!application_) {
      say("REFUSED " + line);
    } else if (verb == "drop") {
      application_.reset();
      say("DROPPED");
    } else {
      work(verb, argument);
    }
  }

 private:
  void start() {
    Platform platform;
    platform.radio = bluez::makeRadio(loop_);
    platform.mainRunLoop = loop_;
    platform.thread = sleepOn(loop_);
    platform.log = std::make_shared<LinkLog>();
    application_ = std::make_shared<Application>(*loop_);
    application_->manager = KestrinBleMgr::init(platform);
    application_->manager->setDelegate(application_);
    application_->manager->setRcpReceiverDelegate(application_);
  }

  void work(const std::string& verb, const std::string& argument) {
    KestrinBleMgr& manager = *application_->manager;
    if (verb == "scan") {
      manager.scanBLE();
    } else if (verb == "stop") {
      manager.stopSacnBLE();
    } else if (verb == "close") {
      manager.close();
    } else if (verb == "connect") {
      manager.connectBLE(manager.pripheral());
    } else if (verb == "follow") {
      application_->follows = true;
    } else if (verb == "send") {
      manager.send(NSData(bytesOf(argument)));
    } else if (verb == "busy") {
      application_->busy = std::chrono::seconds(std::stoi(argument));
    } else if (verb == "values") {
      say("VALUES " + application_->values.report());
    } else {
      say("REFUSED " + verb);
    }
  }

  const std::shared_ptr<MainRunLoop> loop_;
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
