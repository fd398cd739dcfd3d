#include "tools/gateway/core/Gateway.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLargestWindow = 100;
constexpr Time kForgetAfter = std::chrono::milliseconds(100);
constexpr Time kSilenceIsTrouble = std::chrono::seconds(30);
constexpr Time kLimitToLeave = std::chrono::seconds(5);
constexpr double kLimitOfBrokerSeconds = 5;
// No consumer has a stroke in its name.
constexpr std::string_view kKeptReader = "reader/";
// A topic that comes from a broker is UTF-8, which has no such byte.
constexpr char kNoTopic = '\xFF';
constexpr std::uint32_t kSecondsOfAsked = 10;

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& each : words) text += (text.empty() ? "" : ", ") + each;
  return text;
}

Message willOf(const Topics& topics, const std::string& boot) {
  Message will;
  will.topic = topics.state();
  will.payload = textOf(GatewayState{.online = false, .boot = boot});
  will.retain = true;
  return will;
}

}  // namespace

Gateway::Gateway(Parts parts, Config config)
    : parts_(std::move(parts)),
      config_(std::move(config)),
      topics_(config_.name),
      troubles_(troubleHandlers()),
      window_(*parts_.broker),
      outbox_(window_, troubles_, [this](const std::string& topic) { removed(topic); }),
      publisher_(parts_.platform.mainRunLoop, *parts_.log, window_, troubles_,
                 {.gateway = config_.name, .format = config_.format}),
      commits_(*parts_.log, troubles_, config_.consumers, namesOf(config_.webhooks)),
      webhooks_(parts_.platform.mainRunLoop, *parts_.log, troubles_, commits_, parts_.http,
                webhookHow()),
      brokerSinceMs_(parts_.clocks.wallMs()),
      startedMs_(brokerSinceMs_),
      syncer_(parts_.platform.mainRunLoop, *parts_.log, parts_.syncing, config_.log.syncInterval,
              syncHandlers()),
      recorder_(*parts_.log, parts_.clocks, troubles_,
                [this](const Record& record, const auto& number) { appended(record, number); }),
      replays_(parts_.platform.mainRunLoop, [this](RecordNumber from) { beginAgain(from); }),
      pulse_(parts_.platform.mainRunLoop, [this] { beat(); }),
      forget_(parts_.platform.mainRunLoop),
      limit_(parts_.platform.mainRunLoop),
      commands_(parts_.platform.mainRunLoop, commandHandlers()),
      readers_(parts_.platform, readerHandlers()) {
  takeFindings(parts_.findings);
  sayPromise();
  sayState(true);
  sayInfo();
  removeOldReaders();
  // What an earlier run has appended last may not be on the disk yet.
  syncer_.finish([] {});
  parts_.broker->start(topics_.filters(), willOf(topics_, parts_.identity.boot), brokerHandlers());
  webhooks_.configure(config_.webhooks);
  readers_.configure(config_.readers);
  pulse_.start();
  // An earlier run may have been killed between the last commit and what follows from it.
  forgetSoon();
}

Troubles::Handlers Gateway::troubleHandlers() {
  return {.now = [this] { return now(); },
          .say = [this](const Line& line) { say(line); },
          .onChange = [this] { pulse_.changed(); }};
}

Syncer::Handlers Gateway::syncHandlers() {
  return {.onSynced =
              [this](const std::optional<std::string>& stateError) {
                troubles_.clear("sync");
                noteState(stateError);
                pump();
              },
          .onError =
              [this](const std::string& why) {
                troubles_.set("sync", "the log cannot be put on the disk, and nothing new is " +
                                          ("published before it is: " + why));
              }};
}

Commands::Handlers Gateway::commandHandlers() {
  return {.now = [this] { return now(); },
          .find = [this](const std::string& part) -> std::optional<std::string> {
            const auto* const reader = readers_.find(part);
            return reader == nullptr ? std::nullopt : std::optional(reader->key());
          },
          .isPluggedIn =
              [this](const std::string& key) {
                const auto* const reader = readers_.find(key);
                return reader != nullptr && reader->phase() == ReaderPhase::pluggedIn;
              },
          .send =
              [this](const std::string& key, const std::vector<std::uint8_t>& frame,
                     Commands::Sent sent) {
                auto* const reader = readers_.find(key);
                if (reader == nullptr) return;
                reader->send(frame, [sent = std::move(sent)](const std::optional<NSError>& error) {
                  sent(error ? std::optional(error->text) : std::nullopt);
                });
              },
          .answer = [this](Message message) { answer(std::move(message)); },
          .complain = [this](const std::string& line) { troubles_.note("command", line); }};
}

Webhooks::How Gateway::webhookHow() {
  return {.gateway = config_.name,
          .random = parts_.random ? parts_.random : systemRandom(),
          .onCommit = [this] { forgetSoon(); }};
}

HeldReaders::Handlers Gateway::readerHandlers() {
  return {
      .onData =
          [this](const HeldReader& reader, RecordKind kind, std::span<const std::uint8_t> bytes) {
            activity_.count(reader.key(), now());
            recorder_.take(reader, kind, bytes);
          },
      .onState =
          [this](const std::string& identifier, const std::optional<ReaderState>& state) {
            sayReader(identifier, state);
            pump();
          },
      .onTrouble =
          [this](const std::string& key, const std::string& trouble) {
            const std::string what = "reader " + key;
            if (trouble.empty()) return troubles_.clear(what);
            Line line(trouble);
            line.reader = key;
            troubles_.set(what, std::move(line));
          },
      .onPluggedIn = [this](const std::string& key) { commands_.readerChanged(key); },
      .onRemoved =
          [this](const std::string& key) {
            activity_.forget(key);
            commands_.readerRemoved(key);
          },
      .wallMs = parts_.clocks.wallMs};
}

BrokerHandlers Gateway::brokerHandlers() {
  return {
      .onUp = [this](const BrokerUp& broker) { up(broker); },
      .onDown = [this](const std::string& why) { down(why); },
      .onAcknowledged = [this](PublishId id, const auto& refused) { acknowledged(id, refused); },
      .onMessage = [this](const Message& message) { took(message); }};
}

void Gateway::up(const BrokerUp& broker) {
  const std::size_t configured = config_.broker.window;
  window_.open(std::min({kLargestWindow, configured, broker.window}));
  troubles_.clear("broker");
  brokerSinceMs_ = parts_.clocks.wallMs();
  heardOfBroker_ = now();
  say("the broker is there, with MQTT " + std::string(broker.protocol == 5 ? "5" : "3.1.1"));
  sayInfo();
  outbox_.connected();
  publisher_.disconnected();
  publisher_.restart(commits_.lowest().value_or(publisher_.settled()) + 1);
  pump();
}

void Gateway::down(const std::string& why) {
  // An attempt that has failed changes nothing.
  if (window_.isOpen()) brokerSinceMs_ = parts_.clocks.wallMs();
  window_.close();
  troubles_.clear("silence");
  outbox_.disconnected();
  publisher_.disconnected();
  troubles_.set("broker", "no broker, and the log keeps what the readers send: " + why);
  if (stand_ == Stand::saysFarewell) farewellSaid();
}

void Gateway::acknowledged(PublishId id, const std::optional<std::string>& refused) {
  window_.acknowledged();
  heardOfBroker_ = now();
  troubles_.clear("silence");
  if (publisher_.acknowledged(id, refused)) {
    if (!commits_.lowest()) forgetSoon();
  } else {
    outbox_.acknowledged(id, refused);
  }
  pump();
  if (stand_ == Stand::saysFarewell && outbox_.isDone()) farewellSaid();
}

void Gateway::took(const Message& message) {
  if (stand_ != Stand::runs) return;
  if (const auto reader = topics_.commandedReader(message.topic)) {
    commands_.take(*reader, message);
  } else if (const auto consumer = topics_.committingConsumer(message.topic)) {
    if (commits_.take(*consumer, message.payload, publisher_.published())) forgetSoon();
  } else if (message.topic == topics_.replay()) {
    tookReplay(message);
  }
}

void Gateway::tookReplay(const Message& message) {
  // What is kept asks again at each connection; who asks does so by himself.
  if (message.retain) return;
  std::string error;
  const auto replay = replayOf(message.payload, error);
  if (!replay) {
    troubles_.note("replay", "a replay is ignored: " + error);
  } else if (replay->log != parts_.log->identity()) {
    troubles_.note("replay " + replay->consumer, "the replay that " + replay->consumer +
                                                     " asks for is ignored: it is of the log " +
                                                     replay->log + ", and this one is " +
                                                     parts_.log->identity());
  } else {
    replays_.ask(replay->from);
  }
}

void Gateway::beginAgain(RecordNumber from) {
  publisher_.goBack(from);
  pump();
}

void Gateway::appended(const Record& record, std::optional<RecordNumber> number) {
  number ? syncer_.appended() : syncer_.touched();
  if (number) activity_.keep(record, *number);
  if (parts_.onAppended) parts_.onAppended(record, number);
}

void Gateway::pump() {
  webhooks_.pump();
  if (window_.isOpen() && outbox_.pump()) publisher_.pump();
}

void Gateway::forgetSoon() {
  if (!forget_.isArmed()) forget_.arm(kForgetAfter, [this] { forget(); });
}

void Gateway::forget() {
  const RecordNumber atBroker = commits_.lowest().value_or(publisher_.settled());
  parts_.log->forget(std::min(atBroker, commits_.lowestOfWebhooks().value_or(atBroker)));
  // What was forgotten and committed gets onto the disk like records do.
  syncer_.touched();
  takeFindings(parts_.log->takeFindings());
}

void Gateway::beat() {
  recorder_.checkClock();
  // The log tries again by a sync what the disk has refused.
  syncer_.touched();
  takeFindings(parts_.log->takeFindings());
  lookForSilence();
  lookForStalls();
  outbox_.retain(topics_.health(), textOf(health()));
  pump();
}

void Gateway::lookForSilence() {
  if (window_.waiting() == 0) heardOfBroker_ = now();
  if (now() - heardOfBroker_ < kSilenceIsTrouble) return;
  troubles_.set("silence",
                "the broker is there but acknowledges nothing; what waits for it is kept");
}

void Gateway::lookForStalls() {
  // Whoever waits for what is still to come in this pass has not been passed over.
  if (!window_.isOpen() || !publisher_.hasCaughtUp()) return;
  auto where = commits_.ofConsumers();
  // Without a consumer it is the broker that has to come on.
  if (where.empty()) where.emplace_back("", publisher_.settled());
  const auto behind = stalls_.look(where, publisher_.answered(), now());
  if (!behind) return;
  say({(config_.consumers.empty() ? "the broker has not taken what is behind number "
                                  : "a consumer has not committed behind number ") +
           std::to_string(*behind) + " though there is more; it is published again from there",
       *behind});
  publisher_.restart(*behind + 1);
}

void Gateway::noteState(const std::optional<std::string>& error) {
  if (!error) return troubles_.clear("log state");
  troubles_.set("log state",
                "what is committed and forgotten cannot be put on the disk, so that more is " +
                    ("published again after a restart: " + *error));
}

// --- The readers' retained states. Which there are is kept with the log, so that those of readers
// that are taken out while the gateway does not run go too.

void Gateway::sayReader(const std::string& identifier, const std::optional<ReaderState>& state) {
  if (state) {
    parts_.log->keep(std::string(kKeptReader) + identifier, 1);
    syncer_.touched();
  }
  outbox_.retain(topics_.readerState(identifier), state ? textOf(*state) : "");
}

void Gateway::removeOldReaders() {
  for (const auto& [name, value] : parts_.log->kept()) {
    if (!name.starts_with(kKeptReader)) continue;
    outbox_.retain(topics_.readerState(name.substr(kKeptReader.size())), "");
  }
}

void Gateway::removed(const std::string& topic) {
  for (const auto& [name, value] : parts_.log->kept()) {
    if (!name.starts_with(kKeptReader)) continue;
    if (topics_.readerState(name.substr(kKeptReader.size())) == topic) parts_.log->drop(name);
  }
  syncer_.touched();
}

void Gateway::takeFindings(const std::vector<std::string>& findings) {
  for (const std::string& each : findings) troubles_.note("log " + each, each);
}

void Gateway::sayState(bool online) {
  outbox_.retain(topics_.state(),
                 textOf(GatewayState{.online = online, .boot = parts_.identity.boot}));
}

void Gateway::sayInfo() {
  GatewayInfo info;
  info.boot = parts_.identity.boot;
  info.version = parts_.identity.version;
  info.radio = parts_.identity.radio;
  info.adapter = parts_.identity.adapter;
  info.log = parts_.log->identity();
  info.promise = promise();
  info.first = parts_.log->first();
  info.next = parts_.log->next();
  info.consumers = config_.consumers;
  outbox_.retain(topics_.info(), textOf(info));
}

std::string Gateway::promise() const {
  const std::string hooks = joined(namesOf(config_.webhooks));
  if (config_.consumers.empty() && hooks.empty()) return "as durable as your broker";
  if (config_.consumers.empty()) {
    return "at least once to each webhook: " + hooks + "; else as durable as your broker";
  }
  return "at least once to each declared consumer: " + joined(config_.consumers) +
         (hooks.empty() ? "" : "; and to each webhook: " + hooks);
}

void Gateway::sayPromise() {
  say("the promise in force: " + promise() +
      (config_.consumers.empty() ? ", since no consumer is declared" : ""));
}

Health Gateway::health() {
  const Log& log = *parts_.log;
  Health health;
  health.log = log.identity();
  health.first = log.first();
  health.last = log.next() - 1;
  health.synced = log.synced();
  // What an earlier run has published and nobody needs any more counts too: a consumer that has
  // fallen behind its own commit sees that there is something to ask for.
  health.published = std::max(publisher_.answered(), log.forgotten());
  health.forgotten = log.forgotten();
  health.bytes = log.size();
  health.budget = config_.log.budget;
  health.commits = commits_.all();
  health.trouble = troubles_.lines();
  return health;
}

Status Gateway::status() {
  const Log& log = *parts_.log;
  Health is = health();
  Status status;
  status.gateway = config_.name;
  status.boot = parts_.identity.boot;
  status.version = parts_.identity.version;
  status.radio = parts_.identity.radio;
  status.adapter = parts_.identity.adapter;
  status.promise = promise();
  status.atUtc = utcText(parts_.clocks.wallMs());
  status.startedUtc = utcText(startedMs_);
  status.broker = {window_.isOpen(),
                   config_.broker.host + ':' + std::to_string(config_.broker.port),
                   utcText(brokerSinceMs_), window_.isOpen() ? window_.waiting() : 0};
  status.log = log.identity();
  status.first = is.first;
  status.last = is.last;
  status.synced = is.synced;
  status.published = is.published;
  status.forgotten = is.forgotten;
  status.bytes = is.bytes;
  status.budget = is.budget;
  status.commits = std::move(is.commits);
  status.readers = readerStatus();
  status.frames.assign(activity_.lastFrames().begin(), activity_.lastFrames().end());
  status.gapCount = publisher_.gapCount();
  status.gaps.assign(publisher_.lastGaps().begin(), publisher_.lastGaps().end());
  status.trouble = std::move(is.trouble);
  return status;
}

std::vector<ReaderStatus> Gateway::readerStatus() const {
  auto readers = readers_.status();
  for (ReaderStatus& each : readers) {
    each.frames = activity_.total(each.key);
    each.minutes = activity_.minutes(each.key, now());
    if (parts_.hearing) each.signal = parts_.hearing->signalOf(each.reader);
  }
  return readers;
}

void Gateway::command(const std::string& reader, const std::string& payload, Answered answered) {
  if (stand_ != Stand::runs) return answered(commandAnswer(false, "the gateway stops"));
  Message message;
  message.topic = topics_.readerCommand(reader);
  message.payload = payload;
  message.responseTopic = kNoTopic + std::to_string(++asks_);
  message.expirySeconds = kSecondsOfAsked;
  asked_.emplace(message.responseTopic, std::move(answered));
  commands_.take(reader, message);
}

void Gateway::answer(Message message) {
  const auto asked = asked_.extract(message.topic);
  if (asked) {
    asked.mapped()(message.payload);
    return;
  }
  outbox_.send(std::move(message));
  pump();
}

std::string Gateway::standing() const {
  const RecordNumber waiting = parts_.log->next() - 1 - parts_.log->forgotten();
  return std::to_string(readers_.pluggedIn()) + " of " + std::to_string(config_.readers.size()) +
         " readers plugged in, " + (window_.isOpen() ? "the broker is there" : "no broker") + ", " +
         std::to_string(waiting) + " records wait";
}

std::vector<std::string> Gateway::reload(const Config& config) {
  if (stand_ != Stand::runs) return {};
  auto lines = needsRestart(config_, config);
  const bool hasOtherConsumers = config.consumers != config_.consumers;
  const bool hasOtherWebhooks = config.webhooks != config_.webhooks;
  config_.readers = config.readers;
  config_.consumers = config.consumers;
  config_.webhooks = config.webhooks;
  if (hasOtherConsumers || hasOtherWebhooks) {
    commits_.declare(config_.consumers, namesOf(config_.webhooks));
    webhooks_.configure(config_.webhooks);
    sayPromise();
    sayInfo();
    forgetSoon();
  }
  if (hasOtherConsumers) {
    // Nobody knows what a new one has seen.
    publisher_.restart(commits_.lowest().value_or(publisher_.settled()) + 1);
  }
  readers_.configure(config_.readers);
  if (config_.broker.tls.on || config_.broker.passwordFile) parts_.broker->reloadCertificates();
  pump();
  return lines;
}

void Gateway::stop(std::function<void()> done) {
  if (stand_ != Stand::runs) return;
  stopped_ = std::move(done);
  commands_.stop();
  stand_ = Stand::leavesReaders;
  limit_.arm(kLimitToLeave, [this] { readersLeft(); });
  readers_.close([this, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) readersLeft();
  });
}

void Gateway::readersLeft() {
  if (stand_ != Stand::leavesReaders) return;
  stand_ = Stand::syncs;
  limit_.arm(kLimitToLeave, [this] { logSynced(); });
  syncer_.finish([this] { logSynced(); });
}

void Gateway::logSynced() {
  if (stand_ != Stand::syncs) return;
  stand_ = Stand::saysFarewell;
  pulse_.stop();
  forget();
  publisher_.stop();
  webhooks_.stop();
  sayState(false);
  if (!window_.isOpen()) return farewellSaid();
  limit_.arm(kLimitToLeave, [this] { farewellSaid(); });
  pump();
}

void Gateway::farewellSaid() {
  if (stand_ != Stand::saysFarewell) return;
  stand_ = Stand::ended;
  limit_.cancel();
  parts_.broker->stop(kLimitOfBrokerSeconds, [this, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) ended();
  });
}

void Gateway::ended() {
  say("stopped; the log has everything up to number " + std::to_string(parts_.log->next() - 1));
  if (const auto stopped = std::exchange(stopped_, nullptr)) stopped();
}

Time Gateway::now() const {
  const auto loop = parts_.platform.mainRunLoop.lock();
  return loop ? loop->now() : Time::zero();
}

void Gateway::say(const Line& line) const {
  if (parts_.say) parts_.say(line);
}

}  // namespace kestrin::gateway
