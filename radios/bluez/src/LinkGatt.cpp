#include "LinkGatt.h"

#include <algorithm>
#include <utility>

#include "Conversions.h"
#include "Posting.h"

namespace kestrin::bluez {
namespace {

bool isWanted(const LinkGatt::UUIDs& wanted, const CBUUID& uuid) {
  return !wanted || std::find(wanted->begin(), wanted->end(), uuid) != wanted->end();
}

}  // namespace

LinkGatt::LinkGatt(std::weak_ptr<BusThread> thread, Daemon& daemon, Setup setup)
    : thread_(std::move(thread)), daemon_(daemon), setup_(std::move(setup)) {}

LinkGatt::~LinkGatt() = default;

void LinkGatt::setResolved() {
  if (closed_) return;
  resolved_ = true;
  for (const auto& wanted : std::exchange(discoveries_, {})) answerServices(wanted);
}

void LinkGatt::discoverServices(const UUIDs& wanted) {
  if (closed_) return;
  if (resolved_) {
    answerServices(wanted);
  } else {
    discoveries_.push_back(wanted);
  }
}

void LinkGatt::answerServices(const UUIDs& wanted) {
  Peripheral::Services found;
  const auto& tree = daemon_.tree();
  const auto paths = tree.servicesOf(setup_.peripheral->path());
  for (const auto& path : paths) {
    const auto* object = tree.service(path);
    if (object == nullptr || !isWanted(wanted, *object->uuid)) continue;
    auto& service = services_[path];
    if (!service) service = std::make_shared<Service>(setup_.address, path, *object->uuid);
    found.push_back(service);
  }
  std::optional<NSError> error;
  if (paths.empty()) {
    error = NSError{CBErrorDomain, 0, "the device answered without any service"};
  }
  postTo(setup_.loop,
         [peripheral = setup_.peripheral, number = setup_.address.number, found = std::move(found),
          error] { peripheral->deliverServices(number, found, error); });
}

void LinkGatt::discoverCharacteristics(const UUIDs& wanted,
                                       const std::shared_ptr<Service>& service) {
  if (closed_) return;
  Service::Characteristics found;
  const auto& tree = daemon_.tree();
  for (const auto& path : tree.characteristicsOf(service->path())) {
    const auto* object = tree.characteristic(path);
    if (object == nullptr || !isWanted(wanted, *object->uuid)) continue;
    auto& characteristic = characteristics_[path];
    if (!characteristic) {
      characteristic =
          std::make_shared<Characteristic>(setup_.address, path, *object->uuid, object->properties);
    }
    found.push_back(characteristic);
  }
  std::optional<NSError> error;
  if (tree.service(service->path()) == nullptr) {
    error = NSError{CBErrorDomain, 0, "the service is not there any more"};
  }
  postTo(setup_.loop, [peripheral = setup_.peripheral, service, found = std::move(found), error] {
    peripheral->deliverCharacteristics(service, found, error);
  });
}

void LinkGatt::close(const NSError& reason) {
  if (std::exchange(closed_, true)) return;
  // Ending a stream delivers what it still holds, so that comes before everything else.
  subscriptions_.clear();
  for (std::size_t count = discoveries_.size(); count > 0; --count) {
    postTo(setup_.loop, [peripheral = setup_.peripheral, number = setup_.address.number, reason] {
      peripheral->deliverServices(number, {}, reason);
    });
  }
  discoveries_.clear();
  if (running_) refuse(*running_, reason);
  running_.reset();
  for (const auto& request : std::exchange(requests_, {})) refuse(request, reason);
}

void LinkGatt::refuse(const Request& request, const NSError& reason) {
  switch (request.kind) {
    case Kind::read:
      postReadError(request.characteristic, reason);
      break;
    case Kind::subscribe:
    case Kind::unsubscribe:
      postState(request.characteristic, reason);
      break;
    case Kind::takeOver:
    case Kind::write:
      break;
  }
}

void LinkGatt::postValue(const std::shared_ptr<Characteristic>& characteristic,
                         const NSData& value) {
  postTo(setup_.loop, [peripheral = setup_.peripheral, characteristic, value] {
    peripheral->deliverValue(characteristic, value);
  });
}

void LinkGatt::postReadError(const std::shared_ptr<Characteristic>& characteristic,
                             const NSError& error) {
  postTo(setup_.loop, [peripheral = setup_.peripheral, characteristic, error] {
    peripheral->deliverReadError(characteristic, error);
  });
}

void LinkGatt::postState(const std::shared_ptr<Characteristic>& characteristic,
                         const std::optional<NSError>& error) {
  postTo(setup_.loop, [peripheral = setup_.peripheral, characteristic, error] {
    peripheral->deliverNotificationState(characteristic, error);
  });
}

}  // namespace kestrin::bluez
