// An application with several managers, for the runs with several readers on the real stack: it
// does what the lines on its standard input say and prints what each manager reports, a line each.
// M is a manager's name.
//
//   new M           makes a manager
//   scan M, close M
//   connect M NAME  to the reader that M was told of under that name
//   send M HEX      one frame, on a thread of M's own
//   quit            ends; so does the end of the input
//
// It prints M FOUND, M PLUG, M FRAME, M SENT, M REFUSED, M LOG with every line of M's log, and END.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <KestrinBLESDK/platform/NSLog.h>
#include <KestrinBLESDK/platform/NSThread.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kestrin/bluez/Bluez.h"

namespace {

using namespace kestrin;

// One line by one call: managers log on several threads.
void say(const std::string& line) {
  static std::mutex mutex;
  const std::scoped_lock lock(mutex);
  std::puts(line.c_str());
  std::fflush(stdout);
}

std::string hexOf(const NSData& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const auto byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

NSData bytesOf(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return NSData(bytes);
}

class Log final : public NSLogSink {
 public:
  explicit Log(std::string name) : name_(std::move(name)) {}
  void write(std::string_view line) noexcept override {
    say(name_ + " LOG " + StandardErrorLogSink::escaped(line));
  }

 private:
  const std::string name_;
};

/// Sends one frame after another, so that several managers send at the same time.
class Sender {
 public:
  Sender(std::string name, std::shared_ptr<KestrinBleMgr> manager)
      : name_(std::move(name)), manager_(std::move(manager)), thread_([this] { work(); }) {}
  ~Sender() {
    add(std::nullopt);
    thread_.join();
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  /// An absent frame is the last.
  void add(std::optional<NSData> frame) {
    {
      const std::scoped_lock lock(mutex_);
      frames_.push_back(std::move(frame));
    }
    arrived_.notify_one();
  }

 private:
  void work() {
    while (const auto frame = next()) {
      const bool sent = manager_->send(frame);
      say(name_ + " SENT " + (sent ? "1" : "0"));
    }
  }
  std::optional<NSData> next() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return !frames_.empty(); });
    auto frame = std::move(frames_.front());
    frames_.pop_front();
    return frame;
  }

  const std::string name_;
  const std::shared_ptr<KestrinBleMgr> manager_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::optional<NSData>> frames_;
  std::thread thread_;
};

class Application final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  Application(std::string name, const Platform& platform)
      : manager(KestrinBleMgr::init(platform)), sender(name, manager), name_(std::move(name)) {}

  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override {
    const std::string name = reader->name().value_or("(no name)");
    readers[name] = reader;
    tell("FOUND " + name);
  }
  void plugChangedStatus(bool plugged) noexcept override { tell(plugged ? "PLUG 1" : "PLUG 0"); }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    tell("FRAME " + (frame ? hexOf(*frame) : "(absent)"));
  }
  void tell(const std::string& event) const { say(name_ + " " + event); }

  const std::shared_ptr<KestrinBleMgr> manager;
  std::map<std::string, std::shared_ptr<CBPeripheral>> readers;
  Sender sender;

 private:
  const std::string name_;
};

class Probe {
 public:
  explicit Probe(std::shared_ptr<MainRunLoop> loop)
      : loop_(std::move(loop)), radio_(bluez::makeRadio(loop_)) {}

  void obey(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string name;
    std::string argument;
    words >> verb >> name >> std::ws;
    std::getline(words, argument);
    const auto found = applications_.find(name);
    if (verb == "quit") {
      loop_->stop();
    } else if (verb == "new") {
      start(name);
    } else if (found == applications_.end()) {
      say("REFUSED " + line);
    } else {
      work(*found->second, verb, argument);
    }
  }

 private:
  void start(const std::string& name) {
    Platform platform;
    platform.radio = radio_;
    platform.mainRunLoop = loop_;
    platform.thread = sleepOn(loop_);
    platform.log = std::make_shared<Log>(name);
    const auto application = std::make_shared<Application>(name, platform);
    application->manager->setDelegate(application);
    application->manager->setRcpReceiverDelegate(application);
    applications_[name] = application;
  }

  static void work(Application& application, const std::string& verb, const std::string& argument) {
    KestrinBleMgr& manager = *application.manager;
    const auto reader = application.readers.find(argument);
    if (verb == "scan") {
      manager.scanBLE();
    } else if (verb == "close") {
      manager.close();
    } else if (verb == "send") {
      application.sender.add(bytesOf(argument));
    } else if (verb == "connect" && reader != application.readers.end()) {
      manager.connectBLE(reader->second);
    } else {
      application.tell("REFUSED " + verb + " " + argument);
    }
  }

  const std::shared_ptr<MainRunLoop> loop_;
  const std::shared_ptr<Radio> radio_;
  std::map<std::string, std::shared_ptr<Application>> applications_;
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
