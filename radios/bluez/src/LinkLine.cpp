#include "LinkLine.h"

#include <utility>

namespace kestrin::bluez {

LinkLine::LinkLine(std::uint64_t number, std::weak_ptr<BusThread> thread)
    : number_(number), thread_(std::move(thread)) {}

void LinkLine::post(BusThread::Task task) const {
  if (const auto running = thread_.lock()) running->post(std::move(task));
}

void LinkLine::ask(LinkRequest request) {
  if (request.kind == LinkRequest::Kind::write) {
    // Its end is not reported, so nothing is kept of it.
    post([self = shared_from_this(), request = std::move(request)]() mutable {
      if (self->carryOut_) self->carryOut_(std::move(request));
    });
    return;
  }
  std::uint64_t number = 0;
  {
    const std::scoped_lock lock(mutex_);
    if (closed_) return;
    number = ++last_;
    underway_.emplace(number, std::move(request));
  }
  post([self = shared_from_this(), number] { self->arrived(number); });
}

void LinkLine::arrived(std::uint64_t request) {
  if (!carryOut_) return;
  decltype(underway_)::node_type taken;
  {
    const std::scoped_lock lock(mutex_);
    taken = underway_.extract(request);
  }
  // Nothing is left of a request that the reported end has answered.
  if (taken) carryOut_(std::move(taken.mapped()));
}

std::vector<LinkRequest> LinkLine::close() {
  std::vector<LinkRequest> left;
  const std::scoped_lock lock(mutex_);
  closed_ = true;
  left.reserve(underway_.size());
  for (auto& [number, request] : underway_) left.push_back(std::move(request));
  underway_.clear();
  return left;
}

}  // namespace kestrin::bluez
