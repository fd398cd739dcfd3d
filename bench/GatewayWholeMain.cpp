// The gateway whole, beside a bare loop around the client library; a table each.
//
// Usage: kestrin_bench_gateway_whole flow FRAMES TURNS      from a reader's callback to a consumer
//        kestrin_bench_gateway_whole waiting FEW MANY       memory while frames wait for a broker
//        kestrin_bench_gateway_whole many GATEWAYS FRAMES   in one process; FRAMES of each
//
// Logs and brokers are in the temporary folder (TMPDIR). The far ends, subscribers and consumers,
// are processes of their own, so that their processor time does not count. The broker has no bound
// on what it keeps for a subscriber, or a bare loop could not be measured to its last message.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "ConsumerRun.h"
#include "Frames.h"
#include "HelperProcess.h"
#include "PublishRuns.h"
#include "WholeGateway.h"
#include "gateway/support/MosquittoProcess.h"

namespace kestrin::bench {
namespace {

using Words = std::vector<std::string>;
using Gateways = std::vector<std::unique_ptr<WholeGateway>>;
using Moment = std::chrono::steady_clock::time_point;
using std::chrono::nanoseconds;

constexpr const char* kConsumer = "bench";
constexpr Time kAllUpLimit = std::chrono::minutes(10);
/// What a consumer asks for at its beginning has been dealt with then.
constexpr Time kSettling = std::chrono::milliseconds(300);

double secondsOf(nanoseconds span) { return std::chrono::duration<double>(span).count(); }

double part(std::vector<double> values, double share) {
  std::ranges::sort(values);
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

std::string textOf(std::uint64_t number) { return std::to_string(number); }

class RunningBroker {
 public:
  RunningBroker() {
    process_.configure("allow_anonymous true\nmax_inflight_messages 100\nmax_queued_messages 0\n");
    start();
  }
  void start() {
    const auto failure = process_.start();
    require(!failure, failure.value_or("").c_str());
  }
  void kill() { process_.kill(); }
  [[nodiscard]] std::uint16_t port() const { return process_.port(); }
  [[nodiscard]] nanoseconds processor() const { return processorTime(process_.id()); }

 private:
  gateway::MosquittoProcess process_;
};

/// One way through the broker, to the subscriber.
struct Way {
  double perSecond = 0;
  double microseconds = 0;        ///< Processor time per frame of who publishes.
  double brokerMicroseconds = 0;  ///< And of the broker.
};

/// What has been spent since it was made.
class Spent {
 public:
  explicit Spent(const RunningBroker& broker) : broker_(broker) {}
  [[nodiscard]] Way until(Moment end, std::size_t count) const { return since(begun_, end, count); }
  [[nodiscard]] Way since(Moment begun, Moment end, std::size_t count) const {
    const auto frames = static_cast<double>(count);
    Way way;
    way.perSecond = frames / secondsOf(end - begun);
    way.microseconds = secondsOf(processorTime(::getpid()) - own_) * 1e6 / frames;
    way.brokerMicroseconds = secondsOf(broker_.processor() - brokers_) * 1e6 / frames;
    return way;
  }

 private:
  const RunningBroker& broker_;
  const Moment begun_ = std::chrono::steady_clock::now();
  const nanoseconds own_ = processorTime(::getpid());
  const nanoseconds brokers_ = broker_.processor();
};

Way bareWay(const RunningBroker& broker, const PublishTask& task) {
  MainRunLoop loop;
  HelperProcess subscriber({"subscribe", textOf(task.port), task.topic, textOf(task.count)});
  subscriber.lineOf("ready", loop);
  const Spent spent(broker);
  const PublishCost cost = publishBare(task);
  const Moment end = subscriber.momentOf("end", loop);
  Way way = spent.since(cost.begun, end, task.count);
  way.microseconds = secondsOf(cost.processor) * 1e6 / static_cast<double>(task.count);
  return way;
}

double bareAcknowledged(const PublishTask& task) {
  return static_cast<double>(task.count) / secondsOf(publishBare(task).wall);
}

void awaitUp(MainRunLoop& loop, const Gateways& gateways) {
  const auto areUp = [&] {
    return std::ranges::all_of(gateways, [](const auto& each) { return each->isUp(); });
  };
  require(loop.runUntil(timeAfter(loop.now(), kAllUpLimit), areUp), "not all reach the broker");
}

/// One gateway, in a folder of its own.
class Scene {
 public:
  Scene(std::uint16_t port, const std::string& name, const Words& consumers)
      : port_(port), name_(name) {
    WholeSettings settings;
    settings.port = port;
    settings.name = name;
    settings.folder = folder_.pathOf("log");
    settings.consumers = consumers;
    gateways_.push_back(std::make_unique<WholeGateway>(loop_, makeThreadSyncing(loop_), settings));
  }
  /// The reader is held, and the first frame is in the log.
  void awaitReader() {
    awaitReaders(*loop_, gateways_);
    sendAll(*loop_, gateways_, 1);
    loop().runFor(kSettling);
    require(whole().last() > 0, "the first frame does not come into the log");
  }
  HelperProcess consumer(gateway::RecordNumber first, gateway::RecordNumber last) {
    return HelperProcess({"consume", textOf(port_), name_, textOf(first), textOf(last)});
  }
  void send(std::size_t count) { sendAll(*loop_, gateways_, count); }
  [[nodiscard]] MainRunLoop& loop() const { return *loop_; }
  [[nodiscard]] const Gateways& gateways() const { return gateways_; }
  [[nodiscard]] const WholeGateway& whole() const { return *gateways_.front(); }

 private:
  const std::uint16_t port_;
  const std::string name_;
  const gateway::TestFolder folder_;
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>();
  Gateways gateways_;
};

struct GatewayWay {
  Way way;
  std::uint64_t repeats = 0;
  gateway::Message message;
};

GatewayWay gatewayWay(const RunningBroker& broker, const std::string& name, std::size_t count) {
  Scene scene(broker.port(), name, {kConsumer});
  awaitUp(scene.loop(), scene.gateways());
  scene.awaitReader();
  const auto first = scene.whole().last();
  const auto last = first + count;
  HelperProcess consumer = scene.consumer(first, last);
  consumer.lineOf("ready", scene.loop());
  scene.loop().runFor(kSettling);
  const Spent spent(broker);
  scene.send(count);
  const Moment end = consumer.momentOf("end", scene.loop());
  GatewayWay result;
  result.way = spent.until(end, count);
  require(scene.whole().last() == last, "the log has another number of frames");
  require(consumer.numberOf("lost", scene.loop()) == 0, "the consumer has lost something");
  result.repeats = consumer.numberOf("repeats", scene.loop());
  result.message = scene.whole().sampleMessage();
  return result;
}

/// Frames per second until the broker has acknowledged the last one; nobody is behind it.
double gatewayAlone(const RunningBroker& broker, const std::string& name, std::size_t count) {
  Scene scene(broker.port(), name, {});
  awaitUp(scene.loop(), scene.gateways());
  scene.awaitReader();
  const auto last = scene.whole().last() + count;
  const Spent spent(broker);
  scene.send(count);
  const auto isSettled = [&] { return scene.whole().settled() == last; };
  require(scene.loop().runUntil(timeAfter(scene.loop().now(), kAllUpLimit), isSettled),
          "not every frame is acknowledged");
  return spent.until(std::chrono::steady_clock::now(), count).perSecond;
}

std::vector<double> ratiosOf(const std::vector<double>& ours, const std::vector<double>& bare) {
  std::vector<double> ratios;
  ratios.reserve(ours.size());
  for (std::size_t i = 0; i < ours.size(); ++i) ratios.push_back(ours[i] / bare[i]);
  return ratios;
}

void printHead() {
  std::printf("%-52s%12s%12s%18s\n", "", "bare loop", "gateway", "gateway / bare");
}

void printRow(const char* what, const std::vector<double>& bare, const std::vector<double>& ours) {
  const auto ratios = ratiosOf(ours, bare);
  const double spread = (part(ratios, 0.75) - part(ratios, 0.25)) / 2;
  std::printf("%-52s%12.1f%12.1f%10.2f ±%.2f\n", what, part(bare, 0.5), part(ours, 0.5),
              part(ratios, 0.5), spread);
}

template <class Member>
std::vector<double> each(const std::vector<Way>& ways, Member member) {
  std::vector<double> values;
  values.reserve(ways.size());
  for (const Way& way : ways) values.push_back(way.*member);
  return values;
}

/// In turns, so that both meet the same machine.
void flow(std::size_t count, std::size_t turns) {
  const RunningBroker broker;
  std::vector<Way> bare;
  std::vector<Way> ours;
  std::vector<double> bareAlone;
  std::vector<double> oursAlone;
  std::uint64_t repeats = 0;
  for (std::size_t turn = 0; turn < turns; ++turn) {
    const GatewayWay result = gatewayWay(broker, "bench-" + textOf(turn), count);
    PublishTask task;
    task.port = broker.port();
    task.count = count;
    task.topic = result.message.topic;
    task.payload = result.message.payload;
    ours.push_back(result.way);
    repeats += result.repeats;
    bare.push_back(bareWay(broker, task));
    oursAlone.push_back(gatewayAlone(broker, "alone-" + textOf(turn), count));
    bareAlone.push_back(bareAcknowledged(task));
  }
  std::printf("%zu frames, %zu turns, window 100\n", count, turns);
  printHead();
  printRow("frames per second, to the far end", each(bare, &Way::perSecond),
           each(ours, &Way::perSecond));
  printRow("the same until acknowledged, with no far end", bareAlone, oursAlone);
  printRow("processor time per frame, us", each(bare, &Way::microseconds),
           each(ours, &Way::microseconds));
  printRow("the broker's, us", each(bare, &Way::brokerMicroseconds),
           each(ours, &Way::brokerMicroseconds));
  std::printf("repeats: %llu, lost: 0\n", static_cast<unsigned long long>(repeats));
}

/// The most that this process has had in memory, in kB.
std::uint64_t peakMemory() {
  std::ifstream lines("/proc/self/status");
  std::string word;
  std::uint64_t kilobytes = 0;
  while (lines >> word) {
    if (word == "VmHWM:") lines >> kilobytes;
  }
  require(kilobytes > 0, "the system does not tell what is in memory");
  return kilobytes;
}

/// A process of its own for each count, since a peak never goes down.
void hold(std::size_t count) {
  RunningBroker broker;
  broker.kill();
  Scene scene(broker.port(), "bench", {kConsumer});
  scene.awaitReader();
  const auto first = scene.whole().last();
  printLine("before", peakMemory());
  scene.send(count);
  const auto isSynced = [&] { return scene.whole().log().synced() == first + count; };
  require(scene.loop().runUntil(timeAfter(scene.loop().now(), kAllUpLimit), isSynced),
          "not every frame is on the disk");
  printLine("waiting", peakMemory());
  broker.start();
  HelperProcess consumer = scene.consumer(first, first + count);
  require(consumer.numberOf("lost", scene.loop()) == 0, "the consumer has lost something");
  printLine("taken", peakMemory());
}

void printMemory(std::size_t count) {
  MainRunLoop loop;
  HelperProcess holder({"hold", textOf(count)});
  const auto before = holder.numberOf("before", loop);
  const auto waiting = holder.numberOf("waiting", loop);
  const auto taken = holder.numberOf("taken", loop);
  std::printf("%-12zu%14llu%14llu%22llu\n", count, static_cast<unsigned long long>(before),
              static_cast<unsigned long long>(waiting), static_cast<unsigned long long>(taken));
  std::fflush(stdout);
}

void waiting(std::size_t few, std::size_t many) {
  std::puts("peak memory in kB");
  std::printf("%-12s%14s%14s%22s\n", "frames", "before them", "they wait", "a consumer has them");
  printMemory(few);
  printMemory(many);
}

void allowDescriptors() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// Whole gateways, each with its log, its reader and its connection's thread. They share the main
/// loop and the thread that syncs.
Gateways makeGateways(const std::shared_ptr<MainRunLoop>& loop, std::uint16_t port,
                      const gateway::TestFolder& folder, std::size_t count) {
  const auto syncing = makeThreadSyncing(loop);
  Gateways gateways;
  for (std::size_t i = 0; i < count; ++i) {
    WholeSettings settings;
    settings.port = port;
    settings.name = "bench-" + textOf(i);
    settings.folder = folder.pathOf(settings.name);
    settings.budget = 16U << 20U;
    gateways.push_back(std::make_unique<WholeGateway>(loop, syncing, settings));
  }
  return gateways;
}

void many(std::size_t count, std::size_t each) {
  allowDescriptors();
  const RunningBroker broker;
  PublishTask task;
  task.port = broker.port();
  task.count = count * each;
  task.payload = std::string(300, 'x');  // As long as a frame of 13 bytes in JSON.
  const Way bare = bareWay(broker, task);
  const gateway::TestFolder folder;
  const auto loop = std::make_shared<MainRunLoop>();
  const Gateways gateways = makeGateways(loop, broker.port(), folder, count);
  const Moment begun = std::chrono::steady_clock::now();
  awaitUp(*loop, gateways);
  const double connecting = secondsOf(std::chrono::steady_clock::now() - begun);
  awaitReaders(*loop, gateways);
  HelperProcess subscriber(
      {"subscribe", textOf(task.port), "kestrin/v1/+/reader/+/frame", textOf(task.count)});
  subscriber.lineOf("ready", *loop);
  const Spent spent(broker);
  sendAll(*loop, gateways, each);
  const Way ours = spent.until(subscriber.momentOf("end", *loop), task.count);
  std::printf("%zu gateways in one process, %zu frames of each\n", count, each);
  std::printf("all connected after %.2f s; peak memory %.1f MB\n", connecting,
              static_cast<double>(peakMemory()) / 1024);
  printHead();
  printRow("frames per second in all, to the far end", {bare.perSecond}, {ours.perSecond});
  printRow("processor time per frame, us", {bare.microseconds}, {ours.microseconds});
  printRow("the broker's, us", {bare.brokerMicroseconds}, {ours.brokerMicroseconds});
}

void subscribe(std::uint16_t port, const std::string& filter, std::size_t count) {
  printMoment("end", receiveBare(port, filter, count, [] { printLine("ready", 1); }));
}

void consume(const ConsumerTask& task) {
  const ConsumerEnd end = runConsumer(task, [] { printLine("ready", 1); });
  printMoment("end", end.moment);
  printLine("repeats", end.repeats);
  printLine("lost", end.lost);
}

std::uint64_t numberIn(const std::string& word) {
  std::uint64_t number = 0;
  std::from_chars(word.data(), word.data() + word.size(), number);
  return number;
}

std::size_t countIn(const std::string& word) { return static_cast<std::size_t>(numberIn(word)); }

std::uint16_t portIn(const std::string& word) { return static_cast<std::uint16_t>(numberIn(word)); }

/// The far ends and holders, which only this program starts.
bool help(const Words& words) {
  if (words[0] == "subscribe" && words.size() == 4) {
    subscribe(portIn(words[1]), words[2], countIn(words[3]));
  } else if (words[0] == "consume" && words.size() == 5) {
    consume({portIn(words[1]), words[2], kConsumer, numberIn(words[3]), numberIn(words[4])});
  } else if (words[0] == "hold" && words.size() == 2) {
    hold(countIn(words[1]));
  } else {
    return false;
  }
  return true;
}

bool measure(const Words& words) {
  if (words.size() != 3 || countIn(words[1]) == 0 || countIn(words[2]) == 0) return false;
  if (words[0] == "flow") {
    flow(countIn(words[1]), countIn(words[2]));
  } else if (words[0] == "waiting") {
    waiting(countIn(words[1]), countIn(words[2]));
  } else if (words[0] == "many") {
    many(countIn(words[1]), countIn(words[2]));
  } else {
    return false;
  }
  return true;
}

}  // namespace
}  // namespace kestrin::bench

int main(int count, char** arguments) {
  const kestrin::bench::Words words(arguments + 1, arguments + count);
  if (!words.empty() && (kestrin::bench::help(words) || kestrin::bench::measure(words))) return 0;
  std::fputs(
      "usage: kestrin_bench_gateway_whole flow FRAMES TURNS\n"
      "       kestrin_bench_gateway_whole waiting FEW MANY\n"
      "       kestrin_bench_gateway_whole many GATEWAYS FRAMES\n",
      stderr);
  return 2;
}
