// What all examples of this folder do: find a virtual reader, connect to it, send it a command when
// it is plugged in, and end with its answer.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "kestrin/simulated/SimulatedPlatform.h"

class Application {
 public:
  /// `finished` is called on the run loop, once.
  explicit Application(std::function<void()> finished)
      : delegate_(std::make_shared<Delegate>(std::move(finished))) {
    simulated_.radio().addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);
    delegate_->manager = kestrin::KestrinBleMgr::init(simulated_.platform());
    delegate_->manager->setDelegate(delegate_);
    delegate_->manager->setRcpReceiverDelegate(delegate_);
    delegate_->manager->scanBLE();
  }

  /// With the real radio it would be `*MainRunLoop::main()`.
  [[nodiscard]] kestrin::MainRunLoop& runLoop() const { return simulated_.runLoop(); }

 private:
  struct Delegate final : kestrin::KestrinBLEProtocols, kestrin::RcpReceiver {
    explicit Delegate(std::function<void()> whenFinished) : finished(std::move(whenFinished)) {}

    void scanningBleDeive(const std::shared_ptr<kestrin::CBPeripheral>& reader) noexcept override {
      std::cout << "found " << reader->name().value_or("") << '\n';
      manager->connectBLE(reader);
    }
    void plugChangedStatus(bool plugged) noexcept override {
      std::cout << (plugged ? "plugged in\n" : "unplugged\n");
      if (plugged) manager->send(kestrin::buildRcpFrame(0x00, 0x22, {}));
    }
    void dispatchRcpFrmReader(const std::optional<kestrin::NSData>& frame) noexcept override {
      if (!frame) return;
      std::cout << "frame " << frame->description() << '\n';
      const auto answer = kestrin::parseRcpFrame(frame->span());
      if (!answer || answer->code != 0x22) return;
      manager->close();
      finished();
    }

    std::shared_ptr<kestrin::KestrinBleMgr> manager;
    const std::function<void()> finished;
  };

  kestrin::simulated::SimulatedPlatform simulated_;
  const std::shared_ptr<Delegate> delegate_;
};
