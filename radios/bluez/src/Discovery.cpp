#include "Discovery.h"

#include <utility>

namespace kestrin::bluez {
namespace {

constexpr char kAdapterInterface[] = "org.bluez.Adapter1";
constexpr Time kLimit = std::chrono::seconds(30);

// Without a filter the daemon hides devices whose advertisement says that they are not
// discoverable, and wakes classic Bluetooth for nothing.
void writeFilter(sdbus::MethodCall& call) {
  call << std::map<std::string, sdbus::Variant>{{"Transport", sdbus::Variant(std::string("le"))}};
}

}  // namespace

Discovery::Discovery(BusThread& thread, Daemon& daemon, std::string adapter, Events events)
    : thread_(thread), daemon_(daemon), adapter_(std::move(adapter)), events_(std::move(events)) {}

void Discovery::setScans(bool wanted) {
  scans_ = wanted;
  update();
}

void Discovery::addSearch(std::uint64_t link) {
  searches_.insert(link);
  update();
}

void Discovery::removeSearch(std::uint64_t link) {
  searches_.erase(link);
  update();
}

bool Discovery::powered() const {
  const auto* adapter = daemon_.tree().adapter(adapter_);
  return adapter != nullptr && adapter->powered;
}

void Discovery::forget() {
  ++session_;
  thread_.cancel(retry_);
  pause_.reset();
  state_ = State::off;
}

// The daemon ends every session when the adapter goes off, without a word.
void Discovery::adapterChanged() {
  if (!powered() && state_ != State::off) forget();
  update();
}

void Discovery::update() {
  if (!powered()) return;
  if (wanted() && state_ == State::off) start();
  if (!wanted() && state_ == State::on) stop();
  if (!wanted() && state_ == State::pausing) forget();
}

void Discovery::call(const std::string& method, std::function<void(sdbus::MethodCall&)> arguments,
                     std::function<void(Discovery&, const std::optional<CallError>&)> then) {
  daemon_.call(adapter_, kAdapterInterface, method, kLimit, std::move(arguments),
               [weak = weak_from_this(), session = session_, then = std::move(then)](
                   const std::optional<CallError>& error, sdbus::MethodReply&) {
                 const auto self = weak.lock();
                 if (self && session == self->session_) then(*self, error);
               });
}

void Discovery::start() {
  state_ = State::starting;
  ++session_;
  call("SetDiscoveryFilter", writeFilter,
       [](Discovery& self, const std::optional<CallError>& filterError) {
         if (filterError) {
           self.started(filterError);
           return;
         }
         self.call("StartDiscovery", {},
                   [](Discovery& again, const std::optional<CallError>& e) { again.started(e); });
       });
}

void Discovery::started(const std::optional<CallError>& error) {
  if (!error) {
    state_ = State::on;
    pause_.reset();
    events_.started();
    update();
    return;
  }
  state_ = State::pausing;
  retry_ = thread_.arm(pause_.next(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->retry_.reset();
    self->state_ = State::off;
    self->update();
  });
  if (isRefusal(*error)) events_.refused();
  update();
}

void Discovery::stop() {
  state_ = State::stopping;
  call("StopDiscovery", {}, [](Discovery& self, const std::optional<CallError>&) {
    // Whatever it answers, the session is over: it was not there, or it has ended.
    self.state_ = State::off;
    self.update();
  });
}

}  // namespace kestrin::bluez
