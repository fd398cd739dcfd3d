// Reads a log's folder as it is, for a person: the gateway's own while it runs, or what is left of
// a damaged one. Nothing is held and nothing is changed.
//
// Threads: one. Lifetime: shares its file layer.
// Errors: what cannot be read is passed over and said in `takeFindings`; a disk that does not read
// ends the records.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Record.h"

namespace kestrin::gateway {

class LogReader {
 public:
  /// Null with the reason in `error`: there is no log in the folder, its format is newer, or the
  /// disk does not read.
  static std::unique_ptr<LogReader> open(std::shared_ptr<FileLayer> files,
                                         const std::string& folder, std::string& error);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  [[nodiscard]] const LogIdentity& identity() const;
  /// Up to here nobody needs the records; as far as the disk says.
  [[nodiscard]] RecordNumber forgotten() const;
  /// What consumers have committed; as far as the disk says.
  [[nodiscard]] const std::vector<std::pair<std::string, RecordNumber>>& kept() const;

  /// The lowest number that there is, and the one behind the highest.
  [[nodiscard]] RecordNumber first() const;
  [[nodiscard]] RecordNumber behind() const;

  /// From now on all is of this moment; the records come from `number` on, and those before it are
  /// not missed. For a glance: the gateway's write-ahead log cannot begin again meanwhile.
  void begin(RecordNumber number);
  /// The next record, in the order of the numbers; false when there is none.
  bool next(Record& record);
  /// What was noticed since the last call, one line each.
  std::vector<std::string> takeFindings();

 private:
  struct Inside;
  explicit LogReader(std::unique_ptr<Inside> inside);
  const std::unique_ptr<Inside> inside_;
};

}  // namespace kestrin::gateway
