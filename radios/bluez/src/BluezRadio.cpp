#include "BluezRadio.h"

#include <utility>

#include "CentralManager.h"
#include "Numbering.h"
#include "Posting.h"
#include "RadioCore.h"

namespace kestrin::bluez {
namespace {

constexpr char kNoThread[] =
    "the system has no thread or descriptor to spare for the radio: end some programs";

}  // namespace

BluezRadio::BluezRadio(std::shared_ptr<Session> session, std::weak_ptr<RunLoop> mainRunLoop,
                       std::optional<std::string> adapter)
    : id_(nextId()),
      mainRunLoop_(std::move(mainRunLoop)),
      adapter_(std::move(adapter)),
      session_(std::move(session)),
      board_(std::make_shared<StateBoard>()) {
  if (!session_->works()) board_->set(kNoThread);
  session_->post([id = id_, board = board_, wanted = adapter_](RadioCore& core) {
    core.centrals().addRadio(id, board, wanted);
  });
}

BluezRadio::~BluezRadio() {
  session_->post([id = id_](RadioCore& core) { core.centrals().removeRadio(id); });
}

std::shared_ptr<CBCentralManager> BluezRadio::initWithDelegate_queue(
    std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) {
  const std::weak_ptr<RunLoop> loop = queue ? std::weak_ptr<RunLoop>(queue) : mainRunLoop_;
  auto central = std::make_shared<CentralManager>(session_, delegate);
  if (!session_->works()) {
    postTo(loop, [weak = std::weak_ptr(central)] {
      if (const auto alive = weak.lock()) alive->deliverState(CBManagerState::unsupported);
    });
    return central;
  }
  session_->post(
      [setup = CentralSetup{.id = central->id(),
                            .front = central,
                            .delegate = std::move(delegate),
                            .loop = loop,
                            .adapter = adapter_}](RadioCore& core) { core.centrals().add(setup); });
  return central;
}

}  // namespace kestrin::bluez
