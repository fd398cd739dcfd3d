#include "tools/gateway/log/LogFollower.h"

#include <algorithm>
#include <utility>

#include "tools/gateway/log/LogReader.h"
#include "tools/gateway/log/RecordTable.h"

namespace kestrin::gateway {
namespace {

constexpr RecordNumber kUsuallyShown = 10;
constexpr std::size_t kRecordsAtOnce = 512;
constexpr std::size_t kBytesAtOnce = std::size_t{512} << 10U;

/// Why the numbers from `from` to `to` are not there any more.
void noteGone(RecordNumber from, RecordNumber to, RecordNumber forgotten,
              std::vector<std::string>& notes) {
  if (from <= std::min(to, forgotten)) {
    notes.push_back("not shown: " + numbersText(from, std::min(to, forgotten)) +
                    ", forgotten since nobody needed them any more");
  }
  if (to > forgotten) {
    notes.push_back("not shown: " + numbersText(std::max(from, forgotten + 1), to) +
                    ", which made room for new ones");
  }
}

}  // namespace

std::optional<LogFollower::Seen> LogFollower::look(std::string& error) {
  const auto reader = LogReader::open(files_, folder_, error);
  if (!reader) return std::nullopt;
  Seen seen;
  seen.log = reader->identity();
  if (!log_) {
    const RecordNumber behind = reader->behind();
    const RecordNumber usual = behind > kUsuallyShown ? behind - kUsuallyShown : 1;
    next_ = from_.value_or(std::max(reader->first(), usual));
  } else if (*log_ != seen.log) {
    seen.notes.push_back("the log " + *log_ + " has ended; another one begins: " + seen.log);
    next_ = 1;
  }
  log_ = seen.log;
  // The next look of this reader finds it again.
  static_cast<void>(reader->takeFindings());
  reader->begin(next_);
  if (next_ < reader->first()) {
    noteGone(next_, reader->first() - 1, reader->forgotten(), seen.notes);
    next_ = reader->first();
  }
  std::size_t bytes = 0;
  Record record;
  bool isThere = true;
  while (seen.records.size() < kRecordsAtOnce && bytes < kBytesAtOnce &&
         (isThere = reader->next(record))) {
    bytes += recordSize(record);
    next_ = record.number + 1;
    seen.records.push_back(std::move(record));
  }
  seen.isMore = isThere;
  if (!isThere) next_ = std::max(next_, reader->behind());
  for (std::string& each : reader->takeFindings()) seen.notes.push_back(std::move(each));
  return seen;
}

}  // namespace kestrin::gateway
