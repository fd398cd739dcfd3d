#include "kestrin/bluez/Bluez.h"

#include <utility>

#include "CentralManager.h"
#include "Centrals.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "Posting.h"
#include "RadioCore.h"
#include "Session.h"

namespace kestrin::bluez {
namespace {

constexpr char kNoThread[] =
    "the system has no thread or descriptor to spare for the radio: end some programs";

class BluezRadio final : public Radio {
 public:
  BluezRadio(std::weak_ptr<RunLoop> mainRunLoop, const Options& options)
      : id_(nextId()),
        mainRunLoop_(std::move(mainRunLoop)),
        adapter_(options.adapter),
        session_(Session::forBus(options.busAddress)),
        board_(std::make_shared<StateBoard>()) {
    if (!session_->works()) board_->set(kNoThread);
    session_->post([id = id_, board = board_, adapter = adapter_](RadioCore& core) {
      core.centrals().addRadio(id, board, adapter);
    });
  }
  ~BluezRadio() override {
    session_->post([id = id_](RadioCore& core) { core.centrals().removeRadio(id); });
  }
  BluezRadio(const BluezRadio&) = delete;
  BluezRadio& operator=(const BluezRadio&) = delete;

  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    const std::weak_ptr<RunLoop> loop = queue ? std::weak_ptr<RunLoop>(queue) : mainRunLoop_;
    auto central = std::make_shared<CentralManager>(session_, delegate);
    if (!session_->works()) {
      postTo(loop, [weak = std::weak_ptr(central)] {
        if (const auto alive = weak.lock()) alive->deliverState(CBManagerState::unsupported);
      });
      return central;
    }
    session_->post([setup = CentralSetup{.id = central->id(),
                                         .front = central,
                                         .delegate = std::move(delegate),
                                         .loop = loop,
                                         .adapter = adapter_}](RadioCore& core) {
      core.centrals().add(setup);
    });
    return central;
  }
  [[nodiscard]] std::string stateReason() const override { return board_->get(); }

 private:
  const std::uint64_t id_;
  const std::weak_ptr<RunLoop> mainRunLoop_;
  const std::optional<std::string> adapter_;
  const std::shared_ptr<Session> session_;
  const std::shared_ptr<StateBoard> board_;
};

}  // namespace

std::shared_ptr<Radio> makeRadio(std::weak_ptr<RunLoop> mainRunLoop, Options options) {
  return std::make_shared<BluezRadio>(std::move(mainRunLoop), options);
}

void install(Options options) {
  Platform::installRadio(makeRadio(MainRunLoop::main(), std::move(options)));
}

}  // namespace kestrin::bluez
