// A gateway's status as JSON, and back.
#include <nlohmann/json.hpp>

#include "tools/gateway/message/Bytes.h"
#include "tools/gateway/message/Status.h"

namespace kestrin::gateway {
namespace {

using OrderedJson = nlohmann::ordered_json;

// In ASCII, so that a terminal which is shown it obeys nothing.
std::string asciiText(const OrderedJson& json) {
  return json.dump(-1, ' ', true, OrderedJson::error_handler_t::replace);
}

void putText(const char* name, const std::string& text, OrderedJson& json) {
  const auto mended = mendedUtf8(text);
  json[name] = mended.value_or(text);
  if (!mended) return;
  json[std::string(name) + "Hex"] = hexOf(std::vector<std::uint8_t>(text.begin(), text.end()));
}

OrderedJson jsonOf(const ReaderStatus& reader) {
  OrderedJson json;
  json["key"] = reader.key;
  putText("reader", reader.reader, json);
  putText("name", reader.name, json);
  json["phase"] = reader.phase;
  json["since"] = reader.sinceUtc;
  if (!reader.trouble.empty()) json["trouble"] = reader.trouble;
  if (reader.signal) json["signal"] = *reader.signal;
  json["frames"] = reader.frames;
  json["minutes"] = reader.minutes;
  return json;
}

OrderedJson frameJson(const Record& record) {
  OrderedJson json;
  json["n"] = record.number;
  if (record.kind == RecordKind::value) json["kind"] = "value";
  putText("reader", record.reader, json);
  putText("name", record.name, json);
  json["link"] = record.link;
  json["at"] = utcText(record.wallMs);
  json["mono"] = record.monoMs;
  json["bytes"] = hexOf(record.bytes);
  return json;
}

OrderedJson gapJson(const Record& record) {
  const Gap gap = record.gap.value_or(Gap{});
  OrderedJson json;
  json["n"] = record.number;
  json["log"] = gap.log;
  json["from"] = gap.from;
  json["to"] = gap.to;
  json["reason"] = wordOf(gap.reason);
  return json;
}

template <class List, class Make>
OrderedJson listOf(const List& list, Make make) {
  OrderedJson json = OrderedJson::array();
  for (const auto& each : list) json.push_back(make(each));
  return json;
}

OrderedJson logJson(const Status& status) {
  OrderedJson json;
  json["log"] = status.log;
  json["first"] = status.first;
  json["last"] = status.last;
  json["synced"] = status.synced;
  json["published"] = status.published;
  json["forgotten"] = status.forgotten;
  json["bytes"] = status.bytes;
  json["budget"] = status.budget;
  return json;
}

std::string airText(const OrderedJson& json, const char* name) {
  const auto hex = json.find(std::string(name) + "Hex");
  if (hex == json.end()) return json.at(name).get<std::string>();
  std::string error;
  const auto bytes =
      bytesOfHex(hex->get<std::string>(), error).value_or(std::vector<std::uint8_t>());
  return {bytes.begin(), bytes.end()};
}

ReaderStatus readerOf(const OrderedJson& json) {
  ReaderStatus reader;
  reader.key = json.at("key").get<std::string>();
  reader.reader = airText(json, "reader");
  reader.name = airText(json, "name");
  reader.phase = json.at("phase").get<std::string>();
  reader.sinceUtc = json.at("since").get<std::string>();
  reader.trouble = json.value("trouble", std::string());
  if (json.contains("signal")) reader.signal = json.at("signal").get<int>();
  reader.frames = json.at("frames").get<std::uint64_t>();
  reader.minutes = json.at("minutes").get<std::vector<std::uint64_t>>();
  return reader;
}

Record frameOf(const OrderedJson& json) {
  Record record;
  record.number = json.at("n").get<RecordNumber>();
  if (json.contains("kind")) record.kind = RecordKind::value;
  record.reader = airText(json, "reader");
  record.name = airText(json, "name");
  record.link = json.at("link").get<std::uint64_t>();
  record.wallMs = wallMsOf(json.at("at").get<std::string>()).value_or(0);
  record.monoMs = json.at("mono").get<std::int64_t>();
  std::string error;
  record.bytes = bytesOfHex(json.at("bytes").get<std::string>(), error).value_or(record.bytes);
  return record;
}

Record gapOf(const OrderedJson& json) {
  Record record;
  record.kind = RecordKind::gap;
  record.number = json.at("n").get<RecordNumber>();
  Gap gap;
  gap.log = json.at("log").get<std::string>();
  gap.from = json.at("from").get<RecordNumber>();
  gap.to = json.at("to").get<RecordNumber>();
  gap.reason = gapReasonOf(json.at("reason").get<std::string>()).value_or(gap.reason);
  record.gap = gap;
  return record;
}

void readLog(const OrderedJson& json, Status& status) {
  status.log = json.at("log").get<std::string>();
  status.first = json.at("first").get<RecordNumber>();
  status.last = json.at("last").get<RecordNumber>();
  status.synced = json.at("synced").get<RecordNumber>();
  status.published = json.at("published").get<RecordNumber>();
  status.forgotten = json.at("forgotten").get<RecordNumber>();
  status.bytes = json.at("bytes").get<std::uint64_t>();
  status.budget = json.at("budget").get<std::uint64_t>();
}

// The texts that have a member each.
constexpr std::pair<const char*, std::string Status::*> kTexts[]{
    {"gateway", &Status::gateway}, {"boot", &Status::boot},         {"version", &Status::version},
    {"radio", &Status::radio},     {"adapter", &Status::adapter},   {"promise", &Status::promise},
    {"at", &Status::atUtc},        {"started", &Status::startedUtc}};

Status readStatus(const OrderedJson& json) {
  Status status;
  for (const auto& [name, text] : kTexts) status.*text = json.at(name).get<std::string>();
  const OrderedJson& broker = json.at("broker");
  status.broker = {broker.at("up").get<bool>(), broker.at("address").get<std::string>(),
                   broker.at("since").get<std::string>(),
                   broker.at("inFlight").get<std::uint64_t>()};
  readLog(json.at("log"), status);
  for (const auto& [name, number] : json.at("commits").items()) {
    status.commits.emplace_back(name, number.get<RecordNumber>());
  }
  for (const OrderedJson& each : json.at("readers")) status.readers.push_back(readerOf(each));
  for (const OrderedJson& each : json.at("frames")) status.frames.push_back(frameOf(each));
  status.gapCount = json.at("gapCount").get<std::uint64_t>();
  for (const OrderedJson& each : json.at("gaps")) status.gaps.push_back(gapOf(each));
  status.trouble = json.at("trouble").get<std::vector<std::string>>();
  return status;
}

}  // namespace

std::string textOf(const Status& status) {
  OrderedJson json;
  json["v"] = 1;
  for (const auto& [name, text] : kTexts) json[name] = status.*text;
  json["broker"] = {{"up", status.broker.up},
                    {"address", status.broker.address},
                    {"since", status.broker.sinceUtc},
                    {"inFlight", status.broker.inFlight}};
  json["log"] = logJson(status);
  json["commits"] = OrderedJson::object();
  for (const auto& [consumer, number] : status.commits) json["commits"][consumer] = number;
  json["readers"] = listOf(status.readers, jsonOf);
  json["frames"] = listOf(status.frames, frameJson);
  json["gapCount"] = status.gapCount;
  json["gaps"] = listOf(status.gaps, gapJson);
  json["trouble"] = status.trouble;
  return asciiText(json);
}

std::optional<Status> statusOf(std::string_view text, std::string& error) {
  const OrderedJson json = OrderedJson::parse(text, nullptr, false);
  if (!json.is_object()) {
    error = "it is not the status of a gateway: it is not an object of JSON";
    return std::nullopt;
  }
  try {
    if (json.at("v") == 1) return readStatus(json);
    error = "it is the status of a newer gateway";
  } catch (const OrderedJson::exception& wrong) {
    error = "it is not the status of a gateway: " + shown(wrong.what());
  }
  return std::nullopt;
}

std::string framesText(std::span<const Record> frames, std::uint64_t left) {
  OrderedJson json;
  json["v"] = 1;
  json["frames"] = listOf(frames, frameJson);
  json["left"] = left;
  return asciiText(json);
}

}  // namespace kestrin::gateway
