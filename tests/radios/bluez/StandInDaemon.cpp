#include "radios/bluez/StandInDaemon.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;
using Texts = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;
using Options = std::map<std::string, Variant>;

constexpr int kDrainLimit = 20000;  // Milliseconds.

Properties characteristic(const std::string& uuid, const Texts& flags) {
  return {{"UUID", Variant(uuid)},
          {"Flags", Variant(flags)},
          {"Notifying", Variant(false)},
          {"Value", Variant(Bytes{})}};
}

}  // namespace

StandInDaemon::StandInDaemon(const std::string& busAddress,
                             const std::function<void(BusService&)>& prepare)
    : service_(busAddress,
               [this](const std::string& path, const std::string& method, sdbus::MethodCall call) {
                 handle(path, method, std::move(call));
               }) {
  run([&](BusService& service) {
    if (prepare) {
      prepare(service);
    } else {
      service.putQuietly(kAdapterPath, {{kAdapterInterface, {{"Powered", Variant(true)}}}});
    }
    service.ownName("org.bluez");
  });
}

StandInDaemon::~StandInDaemon() {
  hangUpNotifications();
  // A call belongs to its connection.
  run([this](BusService&) { held_.clear(); });
}

StandInDaemon::Reaction StandInDaemon::fails(const std::string& error, const std::string& message) {
  return [error, message](const sdbus::MethodCall& call) {
    call.createErrorReply(makeError(error, message)).send();
  };
}

StandInDaemon::Reaction StandInDaemon::silence() { return nullptr; }

void StandInDaemon::next(const std::string& method, Reaction reaction) {
  const std::scoped_lock lock(mutex_);
  next_[method].push_back(std::move(reaction));
}

void StandInDaemon::always(const std::string& method, Reaction reaction) {
  const std::scoped_lock lock(mutex_);
  always_[method] = std::move(reaction);
}

void StandInDaemon::normally(const std::string& method) {
  const std::scoped_lock lock(mutex_);
  always_.erase(method);
}

std::vector<std::string> StandInDaemon::calls() const {
  const std::scoped_lock lock(mutex_);
  return calls_;
}

std::size_t StandInDaemon::count(const std::string& method) const {
  const auto all = calls();
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), method));
}

std::vector<NSData> StandInDaemon::writes() const {
  const std::scoped_lock lock(mutex_);
  return writes_;
}

std::string StandInDaemon::options() const {
  const std::scoped_lock lock(mutex_);
  return options_;
}

void StandInDaemon::answerHeld(const std::string& method) {
  run([&](BusService&) {
    for (auto& call : std::exchange(held_[method], {})) work(call.getPath(), method, call);
  });
}

void StandInDaemon::failHeld(const std::string& method) {
  run([&](BusService&) {
    for (auto& call : std::exchange(held_[method], {})) fails("org.bluez.Error.Failed")(call);
  });
}

void StandInDaemon::run(const std::function<void(BusService&)>& work) {
  service_.run([&] { work(service_); });
}

void StandInDaemon::changeDevice(const Properties& changed,
                                 const std::vector<std::string>& invalidated) {
  run([&](BusService& service) {
    service.change(kReaderPath, kDeviceInterface, changed, invalidated);
  });
}

void StandInDaemon::changeAdapter(const Properties& changed) {
  run([&](BusService& service) { service.change(kAdapterPath, kAdapterInterface, changed); });
}

void StandInDaemon::showReader(const Properties& more) {
  Properties properties{{"Address", Variant(std::string("C0:DE:00:00:00:01"))},
                        {"Name", Variant(std::string("KVR-0001"))},
                        {"RSSI", Variant(std::int16_t{-50})},
                        {"Connected", Variant(false)},
                        {"ServicesResolved", Variant(false)}};
  for (const auto& [name, value] : more) properties[name] = value;
  run([&](BusService& service) { service.put(kReaderPath, {{kDeviceInterface, properties}}); });
}

void StandInDaemon::removeReader() {
  run([](BusService& service) {
    for (const auto& path : service.pathsBelow(kReaderPath)) service.remove(path);
    service.remove(kReaderPath);
  });
}

void StandInDaemon::putServices() {
  run([](BusService& service) {
    service.put(kServicePath,
                {{kServiceInterface,
                  {{"UUID", Variant(std::string("ba821000-3b5b-4654-85fe-e998b123adea"))}}}});
    service.put(kTxPath, {{kCharacteristicInterface,
                           characteristic("ba821001-3b5b-4654-85fe-e998b123adea", {"write"})}});
    service.put(kRxPath,
                {{kCharacteristicInterface,
                  characteristic("ba821002-3b5b-4654-85fe-e998b123adea", {"read", "notify"})}});
  });
}

void StandInDaemon::setLink(bool up) {
  service_.change(kReaderPath, kDeviceInterface,
                  {{"ServicesResolved", Variant(up)}, {"Connected", Variant(up)}});
}

void StandInDaemon::dropLink() {
  run([this](BusService&) { setLink(false); });
  hangUpNotifications();
}

void StandInDaemon::hangUpNotifications() {
  run([this](BusService&) {
    if (notifications_ >= 0) ::close(std::exchange(notifications_, -1));
    signals_ = false;
  });
}

void StandInDaemon::notify(const NSData& value) {
  run([&](BusService& service) {
    if (notifications_ >= 0) {
      pollfd room{.fd = notifications_, .events = POLLOUT, .revents = 0};
      EXPECT_EQ(::poll(&room, 1, kDrainLimit), 1) << "nobody drains the descriptor";
      EXPECT_EQ(::send(notifications_, value.bytes(), value.length(), MSG_NOSIGNAL),
                static_cast<ssize_t>(value.length()));
    } else {
      EXPECT_TRUE(signals_) << "nobody has subscribed";
      service.change(kRxPath, kCharacteristicInterface,
                     {{"Value", Variant(Bytes(value.begin(), value.end()))}});
    }
  });
}

void StandInDaemon::releaseName() {
  run([](BusService& service) { service.releaseName("org.bluez"); });
}

void StandInDaemon::handle(const std::string& path, const std::string& method,
                           sdbus::MethodCall call) {
  Reaction reaction;
  bool reacts = false;
  {
    const std::scoped_lock lock(mutex_);
    calls_.push_back(method);
    auto& queued = next_[method];
    if (!queued.empty()) {
      reaction = std::move(queued.front());
      queued.pop_front();
      reacts = true;
    } else if (const auto found = always_.find(method); found != always_.end()) {
      reaction = found->second;
      reacts = true;
    }
  }
  if (!reacts) {
    work(path, method, call);
  } else if (reaction) {
    reaction(std::move(call));
  } else {
    held_[method].push_back(std::move(call));
  }
}

void StandInDaemon::work(const std::string& path, const std::string& method,
                         sdbus::MethodCall& call) {
  if (method == "SetDiscoveryFilter") {
    Options options;
    call >> options;
    note(options);
  } else if (method == "Connect") {
    connect(call);
    return;
  } else if (method == "Disconnect") {
    setLink(false);
  } else if (method == "WriteValue") {
    write(call);
  } else if (method == "ReadValue") {
    read(path, call);
    return;
  } else if (method == "AcquireNotify") {
    acquireNotify(call);
    return;
  } else if (method == "StartNotify" || method == "StopNotify") {
    signals_ = method == "StartNotify";
  }
  call.createReply().send();
}

void StandInDaemon::connect(sdbus::MethodCall& call) {
  service_.change(kReaderPath, kDeviceInterface, {{"Connected", Variant(true)}});
  call.createReply().send();
}

void StandInDaemon::write(sdbus::MethodCall& call) {
  Bytes bytes;
  Options options;
  call >> bytes >> options;
  note(options);
  const std::scoped_lock lock(mutex_);
  writes_.emplace_back(bytes);
}

// The daemon signals a value that was read as well.
void StandInDaemon::read(const std::string& path, sdbus::MethodCall& call) {
  const Bytes value{0xab, 0xcd};
  service_.change(path, kCharacteristicInterface, {{"Value", Variant(value)}});
  auto reply = call.createReply();
  reply << value;
  reply.send();
}

void StandInDaemon::acquireNotify(sdbus::MethodCall& call) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()),
            0);
  if (notifications_ >= 0) ::close(notifications_);
  notifications_ = ends[0];
  auto reply = call.createReply();
  reply << sdbus::UnixFd(ends[1], sdbus::adopt_fd) << std::uint16_t{23};
  reply.send();
}

void StandInDaemon::note(const Options& options) {
  const std::scoped_lock lock(mutex_);
  options_.clear();
  for (const auto& [name, value] : options) {
    options_ += name + "=" + value.get<std::string>() + " ";
  }
}

}  // namespace kestrin::bluez::test
