#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/RecordRow.h"
#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/config/Config.h"
#include "tools/gateway/log/LogReader.h"

namespace kestrin::gateway {
namespace {

void noteFindings(LogReader& reader, Output& output) {
  for (const std::string& each : reader.takeFindings()) output.note(each);
}

void printStanding(const LogReader& reader, Output& output) {
  output.line("# log " + reader.identity() + ", forgotten up to " +
              std::to_string(reader.forgotten()));
  for (const auto& [consumer, number] : reader.kept()) {
    // The gateway keeps there what is its own, too.
    if (!isPlainName(consumer)) continue;
    output.line("# " + safeText(consumer) + " has committed up to " + std::to_string(number));
  }
}

}  // namespace

int printLog(const LogRequest& request, Output& output) {
  std::string error;
  const auto reader = LogReader::open(systemFiles(), request.folder, error);
  if (!reader) {
    output.note(error);
    return kFailure;
  }
  noteFindings(*reader, output);
  printStanding(*reader, output);
  Record record;
  while (!output.error() && reader->next(record)) {
    output.line(lineOf(rowOf(reader->identity(), record)));
    noteFindings(*reader, output);
  }
  noteFindings(*reader, output);
  return finishOutput(output);
}

}  // namespace kestrin::gateway
