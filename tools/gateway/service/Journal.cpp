// Where a line comes from in the sources is of no use to an operator.
#define SD_JOURNAL_SUPPRESS_LOCATION

#include "tools/gateway/service/Journal.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include <cstdlib>

namespace kestrin::gateway {

bool isJournal(int descriptor) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody here changes the environment.
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat state {};
  if (stream == nullptr || ::fstat(descriptor, &state) != 0) return false;
  return std::to_string(state.st_dev) + ":" + std::to_string(state.st_ino) == stream;
}

std::vector<std::string> journalFields(const Line& line) {
  std::vector<std::string> fields{
      "MESSAGE=" + line.text,
      "PRIORITY=" + std::to_string(static_cast<int>(line.weight)),
      "SYSLOG_IDENTIFIER=kestrin-gateway",
  };
  if (!line.reader.empty()) fields.push_back("KESTRIN_READER=" + line.reader);
  if (line.number) fields.push_back("KESTRIN_NUMBER=" + std::to_string(*line.number));
  if (!line.reason.empty()) fields.push_back("KESTRIN_REASON=" + line.reason);
  return fields;
}

bool writeToJournal(const Line& line) {
  std::vector<std::string> fields = journalFields(line);
  std::vector<iovec> pieces;
  pieces.reserve(fields.size());
  for (std::string& field : fields) pieces.push_back({field.data(), field.size()});
  return sd_journal_sendv(pieces.data(), static_cast<int>(pieces.size())) == 0;
}

}  // namespace kestrin::gateway
