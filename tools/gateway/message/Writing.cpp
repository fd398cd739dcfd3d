// What the gateway publishes.
#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
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

OrderedJson bytesJson(std::span<const std::uint8_t> bytes) {
  return OrderedJson::binary({bytes.begin(), bytes.end()});
}

// Frames are what a gateway writes all day, and a tree for each would cost more than all else that
// is done for it. So their JSON is put together as text, in the same words as the tree's.

void addText(std::string_view text, std::string& json) {
  const bool isPlain = std::ranges::all_of(
      text, [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
  if (!isPlain) {
    json += written(std::string(text));
    return;
  }
  json += '"';
  json += text;
  json += '"';
}

template <class Number>
void addNumber(Number number, std::string& json) {
  std::array<char, std::numeric_limits<Number>::digits10 + 2> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  json.append(digits.data(), end);
}

void addHex(std::span<const std::uint8_t> bytes, std::string& json) {
  json += '"';
  addHexOf(bytes, json);
  json += '"';
}

void addAirText(std::string_view name, const std::string& text, std::string& json) {
  const auto mended = mendedUtf8(text);
  json.append(",\"").append(name).append("\":");
  addText(mended ? *mended : text, json);
  if (!mended) return;
  json.append(",\"").append(name).append("Hex\":");
  addHex(std::vector<std::uint8_t>(text.begin(), text.end()), json);
}

void addRcp(std::span<const std::uint8_t> bytes, std::string& json) {
  const auto frame = parseRcpFrame(bytes);
  if (!frame) return;
  json += ",\"type\":";
  addNumber(unsigned{frame->type}, json);
  json += ",\"code\":";
  addNumber(unsigned{frame->code}, json);
  json += ",\"payload\":";
  addHex(frame->payload, json);
}

std::string frameText(const Record& record, const LogIdentity& log) {
  constexpr std::size_t kMostElse = 256;  // What is usually around names and bytes.
  std::string json;
  json.reserve(kMostElse + record.reader.size() + record.name.size() + 4 * record.bytes.size());
  json += "{\"v\":1,\"log\":";
  addText(log, json);
  json += ",\"n\":";
  addNumber(record.number, json);
  if (record.kind == RecordKind::value) json += ",\"kind\":\"value\"";
  addAirText("reader", record.reader, json);
  addAirText("name", record.name, json);
  json += ",\"link\":";
  addNumber(record.link, json);
  json += ",\"at\":\"";
  json += utcText(record.wallMs);
  json += "\",\"mono\":";
  addNumber(record.monoMs, json);
  json += ",\"bytes\":";
  addHex(record.bytes, json);
  if (record.kind == RecordKind::frame) addRcp(record.bytes, json);
  json += '}';
  return json;
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

void putFrame(const Record& record, OrderedJson& json) {
  if (record.kind == RecordKind::value) json["kind"] = "value";
  putAirText("reader", record.reader, json);
  putAirText("name", record.name, json);
  json["link"] = record.link;
  json["at"] = utcText(record.wallMs);
  json["mono"] = record.monoMs;
  json["bytes"] = bytesJson(record.bytes);
  if (record.kind == RecordKind::value) return;
  const auto frame = parseRcpFrame(record.bytes);
  if (!frame) return;
  json["type"] = frame->type;
  json["code"] = frame->code;
  json["payload"] = bytesJson(frame->payload);
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
  const bool isGap = record.kind == RecordKind::gap;
  if (!isGap && format == FrameFormat::json) return frameText(record, log);
  OrderedJson json = begun();
  json["log"] = log;
  json["n"] = record.number;
  if (isGap) {
    putGap(record, json);
  } else {
    putFrame(record, json);
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
