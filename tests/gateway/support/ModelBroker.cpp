#include "gateway/support/ModelBroker.h"

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace kestrin::gateway::test {
namespace {

constexpr std::size_t kMostInFlight = 20;

}  // namespace

class ModelClient;

struct Session {
  bool keeps = false;
  std::vector<std::string> filters;
  std::optional<Message> will;
  ModelClient* link = nullptr;
  std::uint64_t connection = 0;  // Another number for each connection.
  std::deque<std::pair<std::uint64_t, Message>> queue;
  std::size_t inFlight = 0;
  Time toClient{};  // When the last thing on its way arrives: none overtakes another.
  Time toBroker{};
};

class ModelBrokerCore : public std::enable_shared_from_this<ModelBrokerCore> {
 public:
  ModelBrokerCore(std::weak_ptr<RunLoop> loop, ModelBrokerOptions given)
      : options(given), loop_(std::move(loop)), random_(given.seed) {}

  [[nodiscard]] Time now() const {
    const auto loop = loop_.lock();
    return loop ? loop->now() : Time::zero();
  }
  void later(Time delay, std::function<void(ModelBrokerCore&)> task) {
    if (const auto loop = loop_.lock()) {
      loop->arm(delay, [weak = weak_from_this(), task = std::move(task)] {
        if (const auto core = weak.lock()) task(*core);
      });
    }
  }
  Time between(Time least, Time most) {
    const auto span = static_cast<std::uint64_t>((most - least).count()) + 1;
    return least + Time(static_cast<Time::rep>(random_() % span));
  }
  Time delayBehind(Time& last) {
    last = std::max(last, now() + between(options.leastDelay, options.longestDelay));
    return last - now();
  }
  bool chance(double share) {
    return static_cast<double>(random_() % 1'000'000) < share * 1'000'000;
  }
  /// Null: that connection is over.
  Session* find(const std::string& id, std::uint64_t connection) {
    const auto found = sessions.find(id);
    if (found == sessions.end() || found->second.connection != connection) return nullptr;
    return found->second.link == nullptr ? nullptr : &found->second;
  }
  std::uint64_t connect(const std::string& id, ModelClient& client, bool keeps,
                        const std::vector<std::string>& filters,
                        const std::optional<Message>& will);
  void disconnect(const std::string& id, bool withWill);
  void arrive(const std::string& id, const Message& message);
  void deliver(const std::string& id, Session& session, Message message);
  void pump(const std::string& id, Session& session);
  void crash();

  ModelBrokerOptions options;
  bool isThere = true;
  std::map<std::string, Session> sessions;
  std::map<std::string, Message> retained;
  std::function<bool(const std::string&)> refused;
  std::function<void(const std::string&, const Message&)> watcher;
  std::size_t mostWaiting = 0;

 private:
  void deliverFirst(const std::string& id, std::uint64_t connection, std::uint64_t number,
                    const Message& message);

  const std::weak_ptr<RunLoop> loop_;
  std::mt19937_64 random_;
  std::uint64_t counter_ = 0;
};

class ModelClient final : public Broker {
 public:
  ModelClient(std::shared_ptr<ModelBrokerCore> core, std::string id, bool keeps)
      : core_(std::move(core)), id_(std::move(id)), keeps_(keeps) {}
  ~ModelClient() override {
    *alive_ = false;
    if (isUp_) core_->disconnect(id_, true);
  }
  ModelClient(const ModelClient&) = delete;
  ModelClient& operator=(const ModelClient&) = delete;

  void start(std::vector<std::string> filters, std::optional<Message> will,
             BrokerHandlers handlers) override {
    filters_ = std::move(filters);
    will_ = std::move(will);
    handlers_ = std::move(handlers);
    attemptIn(std::chrono::milliseconds(1));
  }

  std::optional<PublishId> publish(Message message) override {
    if (!isUp_ || waiting_.size() >= core_->options.receiveMaximum) return std::nullopt;
    const PublishId id = ++ids_;
    waiting_.insert(id);
    core_->mostWaiting = std::max(core_->mostWaiting, waiting_.size());
    if (Session* const session = core_->find(id_, connection_)) {
      onOurSide(core_->delayBehind(session->toBroker),
                [this, id, message] { arrived(id, message); });
    }
    return id;
  }

  void stop(double limitSeconds, std::function<void()> done) override {
    stopped_ = true;
    if (isUp_ && !waiting_.empty() && limitSeconds > 0) {
      whileAlive(std::chrono::milliseconds(10),
                 [this, limitSeconds, done = std::move(done)] { stop(limitSeconds - 0.01, done); });
      return;
    }
    if (isUp_) core_->disconnect(id_, false);
    isUp_ = false;
    ++connection_;
    whileAlive(Time::zero(), done);
  }

  void reloadCertificates() override {}

  /// The broker's end of the connection is gone.
  void lost(const std::string& why, Time noticed) {
    const auto connection = connection_;
    whileAlive(noticed, [this, connection, why] {
      if (connection != connection_ || !isUp_) return;
      down(why);
    });
  }
  void receive(const Message& message) {
    if (handlers_.onMessage) handlers_.onMessage(message);
  }

 private:
  void whileAlive(Time delay, std::function<void()> task) {
    core_->later(delay, [alive = alive_, task = std::move(task)](ModelBrokerCore&) {
      if (*alive) task();
    });
  }
  void onOurSide(Time delay, std::function<void()> task) {
    whileAlive(delay, [this, connection = connection_, task = std::move(task)] {
      if (core_->find(id_, connection) != nullptr) task();
    });
  }
  void attemptIn(Time pause) {
    whileAlive(pause, [this] { attempt(); });
  }
  void attempt() {
    if (stopped_) return;
    if (!core_->isThere) return down("the broker does not answer");
    connection_ = core_->connect(id_, *this, keeps_, filters_, will_);
    isUp_ = true;
    const auto connection = connection_;
    if (handlers_.onUp) handlers_.onUp({.protocol = 5, .window = core_->options.receiveMaximum});
    if (Session* const session = core_->find(id_, connection)) core_->pump(id_, *session);
  }
  void down(const std::string& why) {
    isUp_ = false;
    waiting_.clear();
    if (stopped_) return;
    attemptIn(core_->between(std::chrono::milliseconds(300), std::chrono::seconds(2)));
    if (handlers_.onDown) handlers_.onDown(why);
  }
  void arrived(PublishId id, const Message& message) {
    const bool isRefused = core_->refused && core_->refused(message.topic);
    if (!isRefused) core_->arrive(id_, message);
    Session* const session = core_->find(id_, connection_);
    if (session == nullptr) return;
    onOurSide(core_->delayBehind(session->toClient), [this, id, isRefused] {
      if (waiting_.erase(id) == 0 || !handlers_.onAcknowledged) return;
      handlers_.onAcknowledged(
          id, isRefused ? std::optional<std::string>("not authorized") : std::nullopt);
    });
  }

  const std::shared_ptr<ModelBrokerCore> core_;
  const std::string id_;
  const bool keeps_;
  std::vector<std::string> filters_;
  std::optional<Message> will_;
  BrokerHandlers handlers_;
  bool isUp_ = false;
  bool stopped_ = false;
  std::uint64_t connection_ = 0;
  PublishId ids_ = 0;
  std::set<PublishId> waiting_;
  const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

namespace {

bool isAnyOf(const std::vector<std::string>& filters, const std::string& topic) {
  return std::any_of(filters.begin(), filters.end(),
                     [&](const std::string& filter) { return fits(filter, topic); });
}

}  // namespace

std::uint64_t ModelBrokerCore::connect(const std::string& id, ModelClient& client, bool keeps,
                                       const std::vector<std::string>& filters,
                                       const std::optional<Message>& will) {
  if (const auto old = sessions.find(id); old != sessions.end() && old->second.link != nullptr) {
    old->second.link->lost("another client has taken the session over", Time::zero());
    disconnect(id, true);
  }
  Session& session = sessions[id];
  if (!keeps) session.queue.clear();
  session.keeps = keeps;
  session.filters = filters;
  session.will = will;
  session.link = &client;
  session.connection = ++counter_;
  session.inFlight = 0;
  for (const auto& [topic, message] : retained) {
    if (isAnyOf(filters, topic)) deliver(id, session, message);
  }
  return session.connection;
}

void ModelBrokerCore::disconnect(const std::string& id, bool withWill) {
  const auto found = sessions.find(id);
  if (found == sessions.end() || found->second.link == nullptr) return;
  Session& session = found->second;
  session.link = nullptr;
  const auto will = std::exchange(session.will, std::nullopt);
  if (!session.keeps) sessions.erase(found);
  if (withWill && will) arrive(id, *will);
}

void ModelBrokerCore::arrive(const std::string& id, const Message& message) {
  if (watcher) watcher(id, message);
  if (message.retain && message.payload.empty()) {
    retained.erase(message.topic);
  } else if (message.retain) {
    retained[message.topic] = message;
  }
  Message copy = message;
  copy.retain = false;
  for (auto& [each, session] : sessions) {
    if (isAnyOf(session.filters, message.topic)) deliver(each, session, copy);
  }
}

void ModelBrokerCore::deliver(const std::string& id, Session& session, Message message) {
  if (session.queue.size() >= options.mostQueued) return;
  session.queue.emplace_back(++counter_, std::move(message));
  pump(id, session);
}

void ModelBrokerCore::pump(const std::string& id, Session& session) {
  while (session.link != nullptr && session.inFlight < kMostInFlight &&
         session.inFlight < session.queue.size()) {
    const auto [number, message] = session.queue[session.inFlight++];
    const int times = chance(options.duplicates) ? 2 : 1;
    for (int time = 0; time < times; ++time) {
      later(delayBehind(session.toClient),
            [id, connection = session.connection, number = number, message = message](
                ModelBrokerCore& core) { core.deliverFirst(id, connection, number, message); });
    }
  }
}

void ModelBrokerCore::deliverFirst(const std::string& id, std::uint64_t connection,
                                   std::uint64_t number, const Message& message) {
  Session* const session = find(id, connection);
  if (session == nullptr) return;
  later(delayBehind(session->toBroker), [id, connection, number](ModelBrokerCore& core) {
    Session* const again = core.find(id, connection);
    if (again == nullptr || again->queue.empty() || again->queue.front().first != number) return;
    again->queue.pop_front();
    --again->inFlight;
    core.pump(id, *again);
  });
  session->link->receive(message);
}

void ModelBrokerCore::crash() {
  isThere = false;
  for (auto& [id, session] : sessions) {
    if (session.link != nullptr) session.link->lost("the broker is gone", Time::zero());
  }
  sessions.clear();
  retained.clear();
}

ModelBroker::ModelBroker(std::weak_ptr<RunLoop> loop, ModelBrokerOptions options)
    : core_(std::make_shared<ModelBrokerCore>(std::move(loop), options)) {}
ModelBroker::~ModelBroker() = default;

std::unique_ptr<Broker> ModelBroker::client(const std::string& id, bool keepsSession) {
  return std::make_unique<ModelClient>(core_, id, keepsSession);
}

void ModelBroker::loseConnection(const std::string& id, Time noticed) {
  const auto found = core_->sessions.find(id);
  if (found == core_->sessions.end() || found->second.link == nullptr) return;
  found->second.link->lost("the connection is lost", noticed);
  core_->disconnect(id, true);
}

void ModelBroker::crash() { core_->crash(); }
void ModelBroker::comeBack() { core_->isThere = true; }
bool ModelBroker::isThere() const { return core_->isThere; }

void ModelBroker::setDelays(Time least, Time longest) {
  core_->options.leastDelay = least;
  core_->options.longestDelay = longest;
}

void ModelBroker::setDuplicates(double share) { core_->options.duplicates = share; }

void ModelBroker::refuse(std::function<bool(const std::string&)> refused) {
  core_->refused = std::move(refused);
}

bool ModelBroker::isConnected(const std::string& id) const {
  const auto found = core_->sessions.find(id);
  return found != core_->sessions.end() && found->second.link != nullptr;
}

std::optional<std::string> ModelBroker::retained(const std::string& topic) const {
  const auto found = core_->retained.find(topic);
  if (found == core_->retained.end()) return std::nullopt;
  return found->second.payload;
}

std::size_t ModelBroker::mostWaiting() const { return core_->mostWaiting; }

void ModelBroker::watch(std::function<void(const std::string&, const Message&)> watcher) {
  core_->watcher = std::move(watcher);
}

bool fits(const std::string& filter, const std::string& topic) {
  std::size_t f = 0;
  std::size_t t = 0;
  while (f < filter.size()) {
    if (filter[f] == '#') return true;
    if (filter[f] == '+') {
      while (t < topic.size() && topic[t] != '/') ++t;
      ++f;
    } else {
      if (t >= topic.size() || filter[f] != topic[t]) return false;
      ++f;
      ++t;
    }
  }
  return t == topic.size();
}

}  // namespace kestrin::gateway::test
