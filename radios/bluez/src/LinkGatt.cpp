#include "LinkGatt.h"

#include <algorithm>
#include <utility>

#include "Errors.h"
#include "Posting.h"

namespace kestrin::bluez {
namespace {

bool isWanted(const LinkRequest& request, const CBUUID& uuid) {
  const auto& wanted = request.wanted;
  return !wanted || std::find(wanted->begin(), wanted->end(), uuid) != wanted->end();
}

}  // namespace

LinkGatt::LinkGatt(Daemon& daemon, Setup setup) : daemon_(daemon), setup_(std::move(setup)) {}

LinkGatt::~LinkGatt() = default;

std::shared_ptr<LinkGatt> LinkGatt::open(Daemon& daemon, Setup setup) {
  auto gatt = std::make_shared<LinkGatt>(daemon, std::move(setup));
  gatt->setup_.line->serve([weak = std::weak_ptr(gatt)](LinkRequest request) {
    if (const auto self = weak.lock()) self->carryOut(std::move(request));
  });
  return gatt;
}

void LinkGatt::carryOut(LinkRequest request) {
  switch (request.kind) {
    case LinkRequest::Kind::discoverServices:
      discoverServices(std::move(request));
      break;
    case LinkRequest::Kind::discoverCharacteristics:
      discoverCharacteristics(request);
      break;
    default:
      enqueue(std::move(request));
      break;
  }
}

void LinkGatt::setResolved() {
  if (closed_) return;
  resolved_ = true;
  for (const auto& request : std::exchange(discoveries_, {})) answerServices(request);
}

void LinkGatt::discoverServices(LinkRequest request) {
  if (resolved_) {
    answerServices(request);
  } else {
    discoveries_.push_back(std::move(request));
  }
}

void LinkGatt::answerServices(const LinkRequest& request) {
  Peripheral::Services found;
  const auto& tree = daemon_.tree();
  const auto paths = tree.servicesOf(setup_.peripheral->path());
  if (paths.empty()) {
    answer(request, failure("the device answered without any service"));
    return;
  }
  for (const auto& path : paths) {
    const auto* object = tree.service(path);
    if (object == nullptr || !isWanted(request, *object->uuid)) continue;
    auto& service = services_[path];
    if (!service) service = std::make_shared<Service>(setup_.line, path, *object->uuid);
    found.push_back(service);
  }
  answer(request, std::nullopt,
         [link = setup_.line->number(), found = std::move(found)](Peripheral& peripheral) {
           peripheral.addServices(link, found);
         });
}

void LinkGatt::discoverCharacteristics(const LinkRequest& request) {
  Service::Characteristics found;
  const auto& tree = daemon_.tree();
  if (tree.service(request.service->path()) == nullptr) {
    answer(request, failure("the service is not there any more"));
    return;
  }
  for (const auto& path : tree.characteristicsOf(request.service->path())) {
    const auto* object = tree.characteristic(path);
    if (object == nullptr || !isWanted(request, *object->uuid)) continue;
    auto& characteristic = characteristics_[path];
    if (!characteristic) {
      characteristic =
          std::make_shared<Characteristic>(setup_.line, path, *object->uuid, object->properties);
    }
    found.push_back(characteristic);
  }
  answer(request, std::nullopt,
         [service = request.service, found = std::move(found)](Peripheral& peripheral) {
           peripheral.addCharacteristics(service, found);
         });
}

void LinkGatt::close(const NSError& reason) {
  if (std::exchange(closed_, true)) return;
  setup_.line->serve(nullptr);
  // Ending a stream delivers what it still holds, so that comes before everything else.
  subscriptions_.clear();
  for (const auto& request : std::exchange(discoveries_, {})) answer(request, reason);
  if (running_) end(reason);
  for (const auto& request : std::exchange(requests_, {})) answer(request, reason);
}

void LinkGatt::answer(const LinkRequest& request, const std::optional<NSError>& error,
                      std::function<void(Peripheral&)> found) {
  if (!request.isReported(error)) return;
  postTo(setup_.loop, [peripheral = setup_.peripheral, link = setup_.line->number(), request, error,
                       found = std::move(found)] {
    if (found) found(*peripheral);
    peripheral->deliverEnd(request, link, error);
  });
}

void LinkGatt::postValue(const std::shared_ptr<Characteristic>& characteristic,
                         const NSData& value) {
  postTo(setup_.loop, [peripheral = setup_.peripheral, characteristic, value] {
    peripheral->deliverValue(characteristic, value);
  });
}

}  // namespace kestrin::bluez
