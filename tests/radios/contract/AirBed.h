// The part of a bed that is the same for every radio which has simulated air around it: one reader,
// and others that it must not be taken for, in virtual time.
//
// Threads: one. Lifetime: as a bed's. Errors: none.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kestrin/simulated/SimulatedPlatform.h"
#include "radios/contract/ContractBed.h"
#include "radios/contract/RadioContract.h"

namespace kestrin::test {

/// What is derived from it says in its constructor which radio works there.
class AirBed : public ContractBed {
 public:
  std::shared_ptr<Radio> radio() override { return radio_; }
  void dropRadio() override { radio_.reset(); }
  bool runUntil(const std::function<bool()>& done) override {
    return loop_->runUntil(loop_->now() + kPatience, done);
  }
  void settle() override { loop_->runFor(kSettling); }
  void turnOnce() override { loop_->runOneTurn(); }

  [[nodiscard]] std::string readerName() const override { return "KVR-1"; }
  void rename(const std::string& name) override { reader_->simulateName(name); }
  void vanish() override { reader_->simulateVanishing(); }
  void appear() override { reader_->simulateAppearing(); }
  void dropLink() override { reader_->simulateLinkLoss(); }
  void notify(const std::vector<NSData>& values) override {
    for (const auto& value : values) reader_->simulateNotification(replyCharacteristic(), value);
  }
  void refuseSubscriptions(bool refuse) override {
    reader_->simulateSubscriptionError(
        refuse ? std::optional(NSError{CBATTErrorDomain, 0x0E, "Unlikely error"}) : std::nullopt);
  }
  bool readerIsLinked() override { return reader_->connected(); }
  std::vector<NSData> writes() override {
    std::vector<NSData> values;
    for (const auto& write : reader_->writes()) {
      if (write.characteristic == commandCharacteristic()) values.push_back(write.value);
    }
    return values;
  }

  void switchOff() override { air_->simulateState(CBManagerState::poweredOff); }
  void switchOn() override { air_->simulateState(CBManagerState::poweredOn); }

 protected:
  AirBed()
      : loop_(std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>())),
        air_(std::make_shared<simulated::SimulatedRadio>(loop_, simulated::Options())),
        reader_(air_->addReader("KVR-1", simulated::ReaderFamily::standard)) {
    // Others are in range too: what the contract says of the reader must not depend on silence.
    air_->addReader("KVR-Q62T 0012", simulated::ReaderFamily::kvrQ62T);
    air_->addPeripheral("Lamp");
    air_->addPeripheral(std::nullopt);
  }

  const std::shared_ptr<MainRunLoop> loop_;
  std::shared_ptr<simulated::SimulatedRadio> air_;
  std::shared_ptr<Radio> radio_;

 private:
  static constexpr Time kPatience = std::chrono::minutes(2);
  static constexpr Time kSettling = std::chrono::seconds(5);

  const std::shared_ptr<simulated::VirtualPeripheral> reader_;
};

}  // namespace kestrin::test
