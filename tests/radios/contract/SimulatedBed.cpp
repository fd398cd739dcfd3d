#include "radios/contract/SimulatedBed.h"

#include <gtest/gtest.h>

#include <chrono>

#include "kestrin/simulated/SimulatedPlatform.h"
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

using simulated::ReaderFamily;

class SimulatedBed final : public ContractBed {
 public:
  SimulatedBed()
      : loop_(std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>())),
        radio_(std::make_shared<simulated::SimulatedRadio>(loop_, simulated::Options())),
        reader_(radio_->addReader(readerName(), ReaderFamily::standard)) {
    // Others are in range too: what the contract says of the reader must not depend on silence.
    radio_->addReader("KVR-Q62T 0012", ReaderFamily::kvrQ62T);
    radio_->addPeripheral("Lamp");
    radio_->addPeripheral(std::nullopt);
  }

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

  void switchOff() override { radio_->simulateState(CBManagerState::poweredOff); }
  void switchOn() override { radio_->simulateState(CBManagerState::poweredOn); }

 private:
  static constexpr Time kPatience = std::chrono::minutes(2);
  static constexpr Time kSettling = std::chrono::seconds(5);

  const std::shared_ptr<MainRunLoop> loop_;
  std::shared_ptr<simulated::SimulatedRadio> radio_;
  const std::shared_ptr<simulated::VirtualPeripheral> reader_;
};

}  // namespace

std::unique_ptr<ContractBed> makeSimulatedBed() { return std::make_unique<SimulatedBed>(); }

INSTANTIATE_TEST_SUITE_P(Simulated, RadioContract, testing::Values(makeSimulatedBed));
INSTANTIATE_TEST_SUITE_P(Simulated, LinkedRadioContract, testing::Values(makeSimulatedBed));

}  // namespace kestrin::test
