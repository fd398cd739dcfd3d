#include "Daemon.h"

#include <algorithm>
#include <utility>

namespace kestrin::bluez {
namespace {

constexpr char kObjectManager[] = "org.freedesktop.DBus.ObjectManager";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";
constexpr Time kBusLimit = std::chrono::seconds(10);
constexpr Time kListLimit = std::chrono::seconds(10);

std::string daemonSignal(const std::string& interface, const std::string& member) {
  return "type='signal',sender='org.bluez',interface='" + interface + "',member='" + member + "'";
}

}  // namespace

Time GrowingPause::next() {
  const Time pause = next_;
  next_ = std::min(2 * next_, last_);
  return pause;
}

Daemon::Daemon(BusThread& thread, std::optional<std::string> busAddress, DaemonListener& listener)
    : thread_(thread),
      busAddress_(std::move(busAddress)),
      listener_(listener),
      bus_(thread, [this] { busLost(); }) {}

void Daemon::start() {
  thread_.setSource(&bus_);
  openBus();
}

void Daemon::stop() {
  thread_.setSource(nullptr);
  thread_.cancel(retry_);
  bus_.close();
}

void Daemon::openBus() {
  retry_.reset();
  if (const auto error = bus_.open(busAddress_)) {
    busTrouble_ = error->message;
    busLost();
    return;
  }
  if (!subscribe()) {
    bus_.close();
    busTrouble_ = "it takes no subscriptions";
    busLost();
    return;
  }
  busPause_.reset();
  askForOwner();
}

void Daemon::busLost() {
  owner_.clear();
  become(Availability::noBus);
  thread_.cancel(retry_);
  retry_ = thread_.arm(busPause_.next(), [this] { openBus(); });
}

bool Daemon::subscribe() {
  return bus_.subscribe(
             "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
             "member='NameOwnerChanged',arg0='org.bluez'",
             [this](sdbus::Message& message) { nameOwnerChanged(message); }) &&
         bus_.subscribe(daemonSignal(kObjectManager, "InterfacesAdded"),
                        [this](sdbus::Message& message) { interfacesAdded(message); }) &&
         bus_.subscribe(daemonSignal(kObjectManager, "InterfacesRemoved"),
                        [this](sdbus::Message& message) { interfacesRemoved(message); }) &&
         bus_.subscribe(
             daemonSignal(kProperties, "PropertiesChanged") + ",path_namespace='/org/bluez'",
             [this](sdbus::Message& message) { propertiesChanged(message); });
}

void Daemon::askForOwner() {
  bus_.call({.destination = kBusName,
             .path = "/org/freedesktop/DBus",
             .interface = kBusName,
             .method = "GetNameOwner",
             .limit = kBusLimit,
             .arguments = [](sdbus::MethodCall& call) { call << kDaemonName; }},
            [this](const std::optional<CallError>& error, sdbus::MethodReply& reply) {
              if (!owner_.empty()) return;  // A signal has said it meanwhile.
              const auto owner = error ? std::nullopt : readMessage<std::string>(reply);
              ownerChanged(owner ? std::get<0>(*owner) : std::string());
            });
}

void Daemon::nameOwnerChanged(sdbus::Message& message) {
  const auto values = readMessage<std::string, std::string, std::string>(message);
  if (values) ownerChanged(std::get<2>(*values));
}

void Daemon::ownerChanged(const std::string& owner) {
  owner_ = owner;
  thread_.cancel(retry_);
  // A new owner without a gap is a new daemon all the same: nothing of the old one holds.
  become(Availability::noDaemon);
  if (owner_.empty()) return;
  listPause_.reset();
  listObjects();
}

void Daemon::listObjects() {
  retry_.reset();
  call("/", kObjectManager, "GetManagedObjects", kListLimit, {},
       [this, owner = owner_](const std::optional<CallError>& error, sdbus::MethodReply& reply) {
         if (owner == owner_ && !owner_.empty()) listed(error, reply);
       });
}

void Daemon::listed(const std::optional<CallError>& error, sdbus::MethodReply& reply) {
  const auto objects = error ? std::nullopt : readMessage<ObjectMap>(reply);
  if (objects) {
    tree_.replace(std::get<0>(*objects));
    become(Availability::ready);
    return;
  }
  become(error && isRefusal(*error) ? Availability::refused : Availability::notAnswering);
  thread_.cancel(retry_);
  retry_ = thread_.arm(listPause_.next(), [this] { listObjects(); });
}

void Daemon::become(Availability availability) {
  if (availability != Availability::ready) tree_.clear();
  if (availability == availability_) return;
  // While the objects of a daemon that is there are listed for the first time nothing is known.
  if (availability == Availability::noDaemon && !owner_.empty() &&
      availability_ != Availability::ready) {
    return;
  }
  availability_ = availability;
  listener_.daemonChanged();
}

void Daemon::call(const std::string& path, const std::string& interface, const std::string& method,
                  Time limit, std::function<void(sdbus::MethodCall&)> arguments, Bus::Reply reply) {
  bus_.call({.destination = kDaemonName,
             .path = path,
             .interface = interface,
             .method = method,
             .limit = limit,
             .arguments = std::move(arguments)},
            std::move(reply));
}

void Daemon::refreshServices(const std::string& device, std::function<void()> done) {
  call("/", kObjectManager, "GetManagedObjects", kListLimit, {},
       [this, device, done = std::move(done)](const std::optional<CallError>& error,
                                              sdbus::MethodReply& reply) {
         const auto objects = error ? std::nullopt : readMessage<ObjectMap>(reply);
         if (objects && availability_ == Availability::ready) {
           tree_.replaceServices(device, std::get<0>(*objects));
         }
         done();
       });
}

// Any program may send a signal with the daemon's paths; only the daemon's own count.
bool Daemon::isFromDaemon(const sdbus::Message& message) const {
  return availability_ == Availability::ready && message.getSender() == owner_;
}

void Daemon::interfacesAdded(sdbus::Message& message) {
  if (!isFromDaemon(message)) return;
  const auto values = readMessage<sdbus::ObjectPath, InterfaceMap>(message);
  if (!values) return;
  const std::string& path = std::get<0>(*values);
  for (const auto& news : tree_.add(path, std::get<1>(*values))) tell(path, news);
}

void Daemon::interfacesRemoved(sdbus::Message& message) {
  if (!isFromDaemon(message)) return;
  const auto values = readMessage<sdbus::ObjectPath, std::vector<std::string>>(message);
  if (!values) return;
  const std::string& path = std::get<0>(*values);
  for (const ObjectKind kind : tree_.remove(path, std::get<1>(*values))) {
    if (kind == ObjectKind::adapter) listener_.adapterChanged(path);
    if (kind == ObjectKind::device) listener_.deviceRemoved(path);
    if (kind == ObjectKind::service) listener_.serviceRemoved(std::string(parentPath(path)));
  }
}

void Daemon::propertiesChanged(sdbus::Message& message) {
  if (!isFromDaemon(message)) return;
  const std::string path = message.getPath();
  const auto values = readMessage<std::string, PropertyMap, std::vector<std::string>>(message);
  if (!values) return;
  const auto& [interface, changed, invalidated] = *values;
  const auto news = tree_.change(path, interface, changed, invalidated);
  if (news.kind == ObjectKind::characteristic) {
    if (const auto value = valueOf(changed)) listener_.valueChanged(path, *value);
    listener_.characteristicChanged(path);
  } else {
    tell(path, news);
  }
}

void Daemon::tell(const std::string& path, const ObjectNews& news) {
  if (news.kind == ObjectKind::adapter) listener_.adapterChanged(path);
  if (news.kind == ObjectKind::device) listener_.deviceChanged(path, news.device);
  if (news.kind == ObjectKind::service) listener_.serviceAdded(std::string(parentPath(path)));
}

}  // namespace kestrin::bluez
