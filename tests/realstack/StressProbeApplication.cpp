#include "realstack/StressProbeApplication.h"

#include <KestrinBLESDK/platform/NSThread.h>
#include <KestrinBLESDK/platform/Platform.h>

#include <algorithm>

#include "kestrin/bluez/Bluez.h"

namespace kestrin::stress {
namespace {

/// A burst's values are frames of this type whose payload begins with their number.
constexpr std::uint8_t kNotification = 0x02;

std::optional<std::uint32_t> burstNumber(const NSData& frame) {
  constexpr std::size_t kNumberLength = 4;
  const auto parsed = parseRcpFrame(frame.span());
  if (!parsed || parsed->type != kNotification || parsed->payload.size() < kNumberLength) {
    return std::nullopt;
  }
  std::uint32_t number = 0;
  for (const std::uint8_t byte : parsed->payload.first(kNumberLength)) number = number << 8 | byte;
  return number;
}

}  // namespace

void Log::write(std::string_view line) noexcept {
  if (line == "BLE Disconnected") ++disconnections;
  if (line.substr(0, 11) == " CBManager ") poweredOn = line == " CBManager is powered on";
}

std::shared_ptr<Application> Application::make(const std::shared_ptr<MainRunLoop>& loop) {
  Platform platform;
  platform.radio = bluez::makeRadio(loop);
  platform.mainRunLoop = loop;
  platform.thread = sleepOn(loop);
  const auto log = std::make_shared<Log>();
  platform.log = log;
  auto made = std::make_shared<Application>();
  made->log = log;
  made->radio = platform.radio;
  made->manager = KestrinBleMgr::init(platform);
  made->manager->setDelegate(made);
  made->manager->setRcpReceiverDelegate(made);
  return made;
}

void Application::scanningBleDeive(const std::shared_ptr<CBPeripheral>& /*reader*/) noexcept {
  ++found;
}

void Application::plugChangedStatus(bool isPlugged) noexcept {
  if (isPlugged) {
    ++plugged;
  } else {
    ++unplugged;
  }
}

void Application::dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept {
  frames.push_back(frame.value_or(NSData()));
}

Application::Remains Application::remains() { return {manager, weak_from_this(), log, radio}; }

std::size_t Application::deliveries(const NSData& frame) const {
  return static_cast<std::size_t>(std::count(frames.begin(), frames.end(), frame));
}

bool Application::burstIsComplete(std::uint32_t count) const {
  std::uint32_t next = 0;
  for (const NSData& frame : frames) {
    const auto number = burstNumber(frame);
    if (number && *number != next++) return false;
  }
  return next == count;
}

}  // namespace kestrin::stress
