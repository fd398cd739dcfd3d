#include "SleepCore.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

namespace kestrin::bluez {
namespace {

constexpr char kService[] = "org.freedesktop.login1";
constexpr char kServicePath[] = "/org/freedesktop/login1";
constexpr char kManager[] = "org.freedesktop.login1.Manager";

Call serviceCall(const char* interface, const char* method) {
  Call call;
  call.destination = kService;
  call.path = kServicePath;
  call.interface = interface;
  call.method = method;
  call.limit = std::chrono::seconds(10);
  return call;
}

}  // namespace

SleepCore::SleepCore(BusThread& thread, std::optional<std::string> busAddress,
                     SleepListener listener)
    : thread_(thread),
      busAddress_(std::move(busAddress)),
      listener_(std::move(listener)),
      bus_(thread, [this] {
        lock_.reset();
        wakeUp();
        tell("the connection to the message bus was lost");
      }) {}

void SleepCore::start() {
  thread_.setSource(&bus_);
  if (const auto error = bus_.open(busAddress_)) {
    tell("no message bus: " + error->message);
    return;
  }
  const bool subscribed =
      bus_.subscribe(
          "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
          "member='NameOwnerChanged',arg0='org.freedesktop.login1'",
          [this](sdbus::Message& message) { serviceChanged(message); }) &&
      bus_.subscribe(
          "type='signal',sender='org.freedesktop.login1',"
          "interface='org.freedesktop.login1.Manager',member='PrepareForSleep'",
          [this](sdbus::Message& message) { prepareForSleep(message); });
  if (!subscribed) {
    tell("the message bus takes no subscriptions");
    return;
  }
  askForService();
}

void SleepCore::stop() {
  thread_.setSource(nullptr);
  thread_.cancel(limit_);
  lock_.reset();
  bus_.close();
}

void SleepCore::tell(const std::string& why) {
  if (!std::exchange(told_, true)) listener_.trouble(why);
}

// A call to a service that is not there would have the bus try to start one.
void SleepCore::askForService() {
  Call call;
  call.destination = kBusName;
  call.path = "/org/freedesktop/DBus";
  call.interface = kBusName;
  call.method = "GetNameOwner";
  call.limit = std::chrono::seconds(10);
  call.arguments = [](sdbus::MethodCall& message) { message << std::string(kService); };
  bus_.call(call, [this](const std::optional<CallError>& error, sdbus::MethodReply&) {
    if (error) {
      tell("no login service (logind) is there");
    } else {
      askForLongestDelay();
      inhibit();
    }
  });
}

void SleepCore::askForLongestDelay() {
  Call call = serviceCall("org.freedesktop.DBus.Properties", "Get");
  call.arguments = [](sdbus::MethodCall& message) {
    message << std::string(kManager) << std::string("InhibitDelayMaxUSec");
  };
  bus_.call(call, [this](const std::optional<CallError>& error, sdbus::MethodReply& reply) {
    if (error) return;
    const auto value = readMessage<sdbus::Variant>(reply);
    if (!value || typeIn(std::get<0>(*value)) != "t") return;
    // The service lets the machine sleep after this in any case, lock or not.
    constexpr std::uint64_t kMost = 60'000'000;
    const auto granted = std::min(std::get<0>(*value).get<std::uint64_t>(), kMost);
    longestDelay_ = std::min<Time>(kLongestDelay, std::chrono::microseconds(granted * 4 / 5));
  });
}

void SleepCore::inhibit() {
  Call call = serviceCall(kManager, "Inhibit");
  call.arguments = [](sdbus::MethodCall& message) {
    message << std::string("sleep") << std::string("KestrinBLESDK")
            << std::string("Links to readers are closed first") << std::string("delay");
  };
  bus_.call(call, [this](const std::optional<CallError>& error, sdbus::MethodReply& reply) {
    if (error) {
      tell("the login service refuses: " + error->message);
      return;
    }
    auto lock = readMessage<sdbus::UnixFd>(reply);
    // One that comes when the sleep has begun would hold it up for nothing.
    if (lock && !sleeping_) lock_ = std::move(std::get<0>(*lock));
  });
}

void SleepCore::serviceChanged(sdbus::Message& message) {
  const auto change = readMessage<std::string, std::string, std::string>(message);
  if (!change) return;
  // A lock of a service that has gone is worth nothing, and so is what it announced.
  lock_.reset();
  wakeUp();
  if (!std::get<2>(*change).empty()) {
    askForLongestDelay();
    inhibit();
  }
}

void SleepCore::prepareForSleep(sdbus::Message& message) {
  const auto sleep = readMessage<bool>(message);
  if (!sleep) return;
  if (!std::get<0>(*sleep)) {
    if (!sleeping_) return;
    wakeUp();
    inhibit();
    return;
  }
  if (std::exchange(sleeping_, true)) return;
  // A main run loop that is stuck must not hold up the sleep.
  limit_ = thread_.arm(longestDelay_, [this] { release(); });
  listener_.sleeps();
}

void SleepCore::wakeUp() {
  thread_.cancel(limit_);
  if (std::exchange(sleeping_, false)) listener_.wakes();
}

void SleepCore::release() {
  thread_.cancel(limit_);
  if (sleeping_) lock_.reset();
}

}  // namespace kestrin::bluez
