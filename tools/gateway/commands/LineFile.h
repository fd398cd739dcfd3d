// A file that gets lines at its end, each written at once, so that it outlives the process.
//
// Threads: one. Lifetime: dropping it closes the file.
// Errors: `open` says why not; a line that cannot be written is dropped.
#pragma once

#include <optional>
#include <string>

namespace kestrin::gateway {

class LineFile {
 public:
  LineFile() = default;
  ~LineFile();
  LineFile(const LineFile&) = delete;
  LineFile& operator=(const LineFile&) = delete;

  /// Absent: it is open.
  std::optional<std::string> open(const std::string& path);
  /// Does nothing where nothing is open.
  void add(const std::string& line);

 private:
  int descriptor_ = -1;
};

}  // namespace kestrin::gateway
