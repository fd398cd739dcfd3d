#include "tools/gateway/page/Metrics.h"

#include <KestrinBLESDK/Reader.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "tools/gateway/message/Bytes.h"

namespace kestrin::gateway {
namespace {

using Label = std::pair<std::string_view, std::string_view>;
using Labels = std::initializer_list<Label>;

std::string escaped(std::string_view text) {
  const std::string mended = mendedUtf8(text).value_or(std::string(text));
  std::string value;
  for (const char c : mended) {
    if (c == '\\' || c == '"') value += '\\';
    if (c == '\n') {
      value += "\\n";
    } else {
      value += c;
    }
  }
  return value;
}

/// Milliseconds as seconds, which is what Prometheus counts in.
std::string secondsText(std::int64_t ms) {
  const bool isNegative = ms < 0;
  const auto size = static_cast<std::uint64_t>(isNegative ? -ms : ms);
  const std::string rest = std::to_string(size % 1000);
  return (isNegative ? "-" : "") + std::to_string(size / 1000) + '.' +
         std::string(3 - rest.size(), '0') + rest;
}

class Writer {
 public:
  void family(std::string_view name, std::string_view kind, std::string_view help) {
    name_ = "kestrin_gateway_" + std::string(name);
    text_ += "# HELP " + name_ + ' ' + std::string(help) + '\n';
    text_ += "# TYPE " + name_ + ' ' + std::string(kind) + '\n';
  }
  void value(const std::string& value, Labels labels = {}) {
    text_ += name_;
    char before = '{';
    for (const auto& [label, its] : labels) {
      text_ += before + std::string(label) + "=\"" + escaped(its) + '"';
      before = ',';
    }
    text_ += (before == ',' ? "} " : " ") + value + '\n';
  }
  void value(std::uint64_t value, Labels labels = {}) {
    this->value(std::to_string(value), labels);
  }
  void gauge(std::string_view name, std::string_view help, std::uint64_t its) {
    family(name, "gauge", help);
    value(its);
  }
  void counter(std::string_view name, std::string_view help, std::uint64_t its) {
    family(name, "counter", help);
    value(its);
  }
  void time(std::string_view name, std::string_view help, const std::string& utc) {
    const auto ms = wallMsOf(utc);
    if (!ms) return;
    family(name, "gauge", help);
    value(secondsText(*ms));
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
  std::string name_;
};

void writeReaders(const Status& status, Writer& to) {
  to.family("reader_plugged_in", "gauge", "1 while the reader can be used.");
  for (const ReaderStatus& each : status.readers) {
    to.value(std::uint64_t{each.phase == nameOf(ReaderPhase::pluggedIn) ? 1U : 0U},
             {{"reader", each.key}});
  }
  to.family("reader_info", "gauge",
            "The phase that the reader is in, and its identifier; always 1.");
  for (const ReaderStatus& each : status.readers) {
    to.value(std::uint64_t{1},
             {{"reader", each.key}, {"identifier", each.reader}, {"phase", each.phase}});
  }
  to.family("reader_frames_total", "counter", "Frames and values that came from the reader.");
  for (const ReaderStatus& each : status.readers) to.value(each.frames, {{"reader", each.key}});
  to.family("reader_signal_dbm", "gauge", "How strong the last search has heard the reader.");
  for (const ReaderStatus& each : status.readers) {
    if (each.signal) to.value(std::to_string(*each.signal), {{"reader", each.key}});
  }
}

void writeLog(const Status& status, Writer& to) {
  to.gauge("log_bytes", "What the log takes on the disk.", status.bytes);
  to.gauge("log_budget_bytes", "What the log may take on the disk.", status.budget);
  to.gauge("log_last_number", "The number of the newest record.", status.last);
  to.gauge("log_synced_number", "Up to this number everything is on the disk.", status.synced);
  to.gauge("log_published_number", "The highest number that the broker has answered.",
           status.published);
  to.gauge("log_forgotten_number", "Up to this number everything has left the log.",
           status.forgotten);
  to.gauge("log_waiting_records", "Records that have not left the log.",
           status.last - std::min(status.last, status.forgotten));
}

void writeConsumers(const Status& status, Writer& to) {
  to.family("consumer_committed_number", "gauge", "Up to this number the consumer has everything.");
  for (const auto& [consumer, number] : status.commits) to.value(number, {{"consumer", consumer}});
  to.family("consumer_behind_records", "gauge", "Records that the consumer has not committed.");
  for (const auto& [consumer, number] : status.commits) {
    to.value(status.last - std::min(status.last, number), {{"consumer", consumer}});
  }
}

}  // namespace

std::string metricsOf(const Status& status, std::size_t viewers) {
  Writer to;
  to.family("info", "gauge", "What this gateway is; always 1.");
  to.value(std::uint64_t{1}, {{"gateway", status.gateway},
                              {"version", status.version},
                              {"radio", status.radio},
                              {"log", status.log}});
  to.time("start_time_seconds", "When the gateway was started.", status.startedUtc);
  to.time("status_time_seconds", "When the main loop has last looked at itself.", status.atUtc);
  writeReaders(status, to);
  writeLog(status, to);
  to.gauge("broker_up", "1 while there is a connection to the broker.", status.broker.up ? 1U : 0U);
  to.gauge("broker_in_flight_messages", "Messages that wait for the broker's acknowledgement.",
           status.broker.inFlight);
  writeConsumers(status, to);
  to.counter("gaps_total", "Gaps that were handed to the broker.", status.gapCount);
  to.gauge("troubles", "How many things are wrong, a line each in the status.",
           status.trouble.size());
  to.gauge("page_viewers", "Pages that are open.", viewers);
  return to.take();
}

}  // namespace kestrin::gateway
