#include "tools/kestrin/radio/RadioWatch.h"

#include <utility>

#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

std::string stateInWords(CBManagerState state) {
  switch (state) {
    case CBManagerState::unknown:
      return "not known yet";
    case CBManagerState::resetting:
      return "resetting";
    case CBManagerState::unsupported:
      return "not there";
    case CBManagerState::unauthorized:
      return "not permitted";
    case CBManagerState::poweredOff:
      return "powered off";
    case CBManagerState::poweredOn:
      return "powered on";
  }
  return "in state " + std::to_string(static_cast<std::int64_t>(state));
}

}  // namespace

class RadioWatch::Listener final : public CBCentralManagerDelegate {
 public:
  explicit Listener(std::function<void(CBManagerState)> onChange)
      : onChange_(std::move(onChange)) {}
  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    onChange_(central->state());
  }

 private:
  const std::function<void(CBManagerState)> onChange_;
};

RadioWatch::RadioWatch(std::shared_ptr<Radio> radio, std::function<void(CBManagerState)> onChange)
    : radio_(std::move(radio)),
      listener_(std::make_shared<Listener>(std::move(onChange))),
      central_(radio_->initWithDelegate_queue(listener_, nullptr)) {}

RadioWatch::~RadioWatch() = default;

CBManagerState RadioWatch::state() const { return central_->state(); }

bool RadioWatch::unusable() const {
  return state() == CBManagerState::unsupported || state() == CBManagerState::unauthorized;
}

std::string RadioWatch::description() const {
  std::string reason = printable(radio_->stateReason());
  if (!reason.empty() && state() != CBManagerState::poweredOn) return reason;
  return "the radio is " + stateInWords(state());
}

}  // namespace kestrin::app
