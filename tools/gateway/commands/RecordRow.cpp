#include "tools/gateway/commands/RecordRow.h"

#include <KestrinBLESDK/RcpFrame.h>

#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

std::string kindText(RecordKind kind) {
  switch (kind) {
    case RecordKind::frame:
      return "frame";
    case RecordKind::value:
      return "value";
    case RecordKind::gap:
      break;
  }
  return "gap";
}

template <class T>
std::optional<std::string> textOf(const std::optional<T>& number) {
  if (!number) return std::nullopt;
  return std::to_string(*number);
}

void addDelivery(RecordRow& row, const Record& record) {
  row.reader = safeText(record.reader);
  row.name = safeText(record.name);
  row.link = record.link;
  row.at = utcText(record.wallMs);
  row.mono = record.monoMs;
  row.bytes = hexText(record.bytes);
  if (record.kind != RecordKind::frame) return;
  const auto frame = parseRcpFrame(record.bytes);
  if (!frame) return;
  row.type = frame->type;
  row.code = frame->code;
  row.payload = hexText(frame->payload);
}

}  // namespace

RecordRow rowOf(const LogIdentity& log, const Record& record) {
  RecordRow row;
  row.log = log;
  row.number = record.number;
  row.kind = kindText(record.kind);
  if (record.kind == RecordKind::gap) {
    row.gap = record.gap;
  } else {
    addDelivery(row, record);
  }
  return row;
}

const std::vector<std::string>& columnNames() {
  static const std::vector<std::string> names{
      "log",   "n",    "kind", "reader",  "name",    "link",     "at",     "mono",
      "bytes", "type", "code", "payload", "gap_log", "gap_from", "gap_to", "gap_reason"};
  return names;
}

std::vector<std::optional<std::string>> columnsOf(const RecordRow& row) {
  std::vector<std::optional<std::string>> columns{
      row.log,   std::to_string(row.number), row.kind,         row.reader,
      row.name,  textOf(row.link),           row.at,           textOf(row.mono),
      row.bytes, textOf(row.type),           textOf(row.code), row.payload};
  if (row.gap) {
    columns.insert(columns.end(),
                   {row.gap->log, std::to_string(row.gap->from), std::to_string(row.gap->to),
                    std::string(wordOf(row.gap->reason))});
  }
  columns.resize(columnNames().size());
  return columns;
}

std::string lineOf(const RecordRow& row) {
  std::string line = std::to_string(row.number);
  if (row.gap) {
    return line + " gap: the numbers " + std::to_string(row.gap->from) + " to " +
           std::to_string(row.gap->to) + " of the log " + row.gap->log + " are lost (" +
           std::string(wordOf(row.gap->reason)) + ")";
  }
  for (const auto& word : {row.at, row.reader, row.name}) line += " " + word.value_or("-");
  line += " link " + textOf(row.link).value_or("-") + " " + row.kind;
  return line + " " + row.bytes.value_or("-");
}

}  // namespace kestrin::gateway
