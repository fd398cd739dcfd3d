// What the gateway publishes.
#include <KestrinBLESDK/RcpFrame.h>

#include <nlohmann/json.hpp>
#include <span>

#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

using OrderedJson = nlohmann::ordered_json;

OrderedJson begun() {
  OrderedJson json;
  json["v"] = 1;
  return json;
}

std::string written(const OrderedJson& json) {
  return json.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

void putAirText(const char* name, const std::string& text, OrderedJson& json) {
  const auto mended = mendedUtf8(text);
  json[name] = mended.value_or(text);
  if (!mended) return;
  const std::vector<std::uint8_t> bytes(text.begin(), text.end());
  json[std::string(name) + "Hex"] = hexOf(bytes);
}

void putUnlessEmpty(const char* name, const std::string& text, OrderedJson& json) {
  if (!text.empty()) json[name] = text;
}

OrderedJson bytesJson(std::span<const std::uint8_t> bytes, FrameFormat format) {
  if (format == FrameFormat::json) return hexOf(bytes);
  return OrderedJson::binary({bytes.begin(), bytes.end()});
}

void putGap(const Record& record, OrderedJson& json) {
  const Gap gap = record.gap.value_or(Gap{});
  OrderedJson inner;
  inner["log"] = gap.log;
  inner["from"] = gap.from;
  inner["to"] = gap.to;
  inner["reason"] = wordOf(gap.reason);
  json["gap"] = std::move(inner);
}

void putFrame(const Record& record, FrameFormat format, OrderedJson& json) {
  if (record.kind == RecordKind::value) json["kind"] = "value";
  putAirText("reader", record.reader, json);
  putAirText("name", record.name, json);
  json["link"] = record.link;
  json["at"] = utcText(record.wallMs);
  json["mono"] = record.monoMs;
  json["bytes"] = bytesJson(record.bytes, format);
  if (record.kind == RecordKind::value) return;
  const auto frame = parseRcpFrame(record.bytes);
  if (!frame) return;
  json["type"] = frame->type;
  json["code"] = frame->code;
  json["payload"] = bytesJson(frame->payload, format);
}

}  // namespace

std::string textOf(const GatewayState& state) {
  OrderedJson json = begun();
  json["online"] = state.online;
  json["boot"] = state.boot;
  return written(json);
}

std::string textOf(const GatewayInfo& info) {
  OrderedJson json = begun();
  json["boot"] = info.boot;
  json["version"] = info.version;
  json["radio"] = info.radio;
  putUnlessEmpty("adapter", info.adapter, json);
  json["log"] = info.log;
  json["first"] = info.first;
  json["next"] = info.next;
  json["promise"] = info.promise;
  json["consumers"] = info.consumers;
  return written(json);
}

std::string textOf(const ReaderState& state) {
  OrderedJson json = begun();
  putAirText("reader", state.reader, json);
  putAirText("name", state.name, json);
  json["phase"] = state.phase;
  json["since"] = state.sinceUtc;
  putUnlessEmpty("trouble", state.trouble, json);
  return written(json);
}

std::string textOf(const Health& health) {
  OrderedJson json = begun();
  json["log"] = health.log;
  json["first"] = health.first;
  json["last"] = health.last;
  json["synced"] = health.synced;
  json["published"] = health.published;
  json["forgotten"] = health.forgotten;
  json["bytes"] = health.bytes;
  json["budget"] = health.budget;
  OrderedJson commits = OrderedJson::object();
  for (const auto& [consumer, number] : health.commits) commits[consumer] = number;
  json["commits"] = std::move(commits);
  json["trouble"] = health.trouble;
  return written(json);
}

std::string payloadOf(const Record& record, const LogIdentity& log, FrameFormat format) {
  OrderedJson json = begun();
  json["log"] = log;
  json["n"] = record.number;
  if (record.kind == RecordKind::gap) {
    putGap(record, json);
  } else {
    putFrame(record, format, json);
  }
  if (format == FrameFormat::json) return written(json);
  std::string payload;
  OrderedJson::to_cbor(json, payload);
  return payload;
}

std::string textOf(const Commit& commit) {
  OrderedJson json = begun();
  json["log"] = commit.log;
  json["n"] = commit.number;
  return written(json);
}

std::string textOf(const Replay& replay) {
  OrderedJson json = begun();
  json["log"] = replay.log;
  json["from"] = replay.from;
  json["consumer"] = replay.consumer;
  return written(json);
}

std::string commandAnswer(bool handed, const std::string& why) {
  OrderedJson json = begun();
  json["handed"] = handed;
  if (!handed) json["why"] = why;
  return written(json);
}

}  // namespace kestrin::gateway
