// The bus library, sdbus-c++, of whichever major version is installed: 1 or 2, which name and call
// much of it differently. What a client needs of it and what differs is here and nowhere else;
// scripts/check-rooms keeps it so. The rest of the library is the same in both.
//
// Threads: those of the connection or proxy that is handed in.
// Lifetime: a handler is kept until its connection or proxy has gone.
// Errors: sdbus::Error is thrown.
#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KestrinBLESDK/platform/Clock.h"

#if !defined(KESTRIN_SDBUS_MAJOR)
#error "KESTRIN_SDBUS_MAJOR is not set: link kestrin_bus_library, see cmake/KestrinTargets.cmake"
#elif KESTRIN_SDBUS_MAJOR != 1 && KESTRIN_SDBUS_MAJOR != 2
#error "This major version of sdbus-c++ is not known here: versions 1 and 2 are"
#endif

namespace kestrin::bluez {

#if KESTRIN_SDBUS_MAJOR == 1
using BusServiceName = std::string;
using BusPath = std::string;
using BusInterfaceName = std::string;
using BusMemberName = std::string;
using BusErrorName = std::string;
#else
using BusServiceName = sdbus::ServiceName;
using BusPath = sdbus::ObjectPath;
using BusInterfaceName = sdbus::InterfaceName;
using BusMemberName = sdbus::MemberName;
using BusErrorName = sdbus::Error::Name;
#endif

/// A proxy of the object at `path` on a connection that the caller serves.
inline std::unique_ptr<sdbus::IProxy> makeProxy(sdbus::IConnection& connection,
                                                const std::string& service,
                                                const std::string& path) {
  return sdbus::createProxy(connection, BusServiceName(service), BusPath(path));
}

/// The same on a connection of its own, which a thread of the bus library serves.
inline std::unique_ptr<sdbus::IProxy> makeProxy(std::unique_ptr<sdbus::IConnection> connection,
                                                const std::string& service,
                                                const std::string& path) {
  return sdbus::createProxy(std::move(connection), BusServiceName(service), BusPath(path));
}

inline sdbus::MethodCall makeCall(sdbus::IProxy& proxy, const std::string& interface,
                                  const std::string& method) {
  return proxy.createMethodCall(BusInterfaceName(interface), BusMemberName(method));
}

inline sdbus::Error makeError(const std::string& name, const std::string& message) {
  return {BusErrorName(name), message};
}

/// Waits for the answer, at most for `limit`.
inline sdbus::MethodReply callAndWait(sdbus::IProxy& proxy, const sdbus::MethodCall& call,
                                      Time limit) {
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(limit);
  return proxy.callMethod(call, static_cast<std::uint64_t>(microseconds.count()));
}

/// Does not wait, and sets no limit. The handler gets the error, if there is one, and the answer.
inline void callWithoutLimit(
    sdbus::IProxy& proxy, const sdbus::MethodCall& call,
    std::function<void(const sdbus::Error*, sdbus::MethodReply&)> handler) {
  constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();
#if KESTRIN_SDBUS_MAJOR == 1
  proxy.callMethod(
      call,
      [handler = std::move(handler)](sdbus::MethodReply& reply, const sdbus::Error* error) {
        handler(error, reply);
      },
      kNoLimit);
#else
  proxy.callMethodAsync(
      call,
      [handler = std::move(handler)](sdbus::MethodReply reply, std::optional<sdbus::Error> error) {
        handler(error ? &*error : nullptr, reply);
      },
      kNoLimit);
#endif
}

/// Has the bus hand over what matches for as long as the connection lasts.
inline void addMatch(sdbus::IConnection& connection, const std::string& match,
                     std::function<void(sdbus::Message&)> handler) {
#if KESTRIN_SDBUS_MAJOR == 1
  connection.addMatch(match, std::move(handler), sdbus::floating_slot);
#else
  connection.addMatch(match,
                      [handler = std::move(handler)](sdbus::Message message) { handler(message); });
#endif
}

/// Handles one message that waits, and returns whether there was one.
inline bool processOne(sdbus::IConnection& connection) {
#if KESTRIN_SDBUS_MAJOR == 1
  return connection.processPendingRequest();
#else
  return connection.processPendingEvent();
#endif
}

/// How long there is nothing to process unless something arrives; absent: without end.
///
/// Version 2 has a descriptor besides, which wakes a loop when another thread has used the
/// connection. Whoever uses it on one thread, and asks again before each wait, needs none.
inline std::optional<Time> timeToNextEvent(const sdbus::IConnection::PollData& poll) {
#if KESTRIN_SDBUS_MAJOR == 1
  const auto left = poll.getRelativeTimeout();
  if (!left) return std::nullopt;
  return std::max<Time>(*left, Time::zero());
#else
  const auto left = poll.getRelativeTimeout();
  if (left == std::chrono::microseconds::max()) return std::nullopt;
  return std::max<Time>(left, Time::zero());
#endif
}

/// The D-Bus type of what a variant holds, as the bus writes types; empty if it holds nothing.
inline std::string typeIn(const sdbus::Variant& variant) {
#if KESTRIN_SDBUS_MAJOR == 1
  return variant.peekValueType();
#else
  const char* const type = variant.peekValueType();
  return type == nullptr ? std::string() : type;
#endif
}

/// Of the handlers of a proxy's signals: all are there, let them come.
inline void finishSignals(sdbus::IProxy& proxy) {
#if KESTRIN_SDBUS_MAJOR == 1
  proxy.finishRegistration();
#else
  (void)proxy;
#endif
}

}  // namespace kestrin::bluez
