// The virtual reader as the stress run sees it: orders through kestrin-vreader's pipe, and what
// that program's lines tell of the link.
//
// Threads: one. Lifetime: both files outlive it.
// Errors: `std::runtime_error` when the program does not read its orders.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>

namespace kestrin::stress {

class Reader {
 public:
  /// Reads the lines of the program from the file `log` on, orders go to `pipe`.
  Reader(std::string pipe, const std::string& log, std::string id);

  /// Gives the order `verb`; returns how many must have been answered for it to be carried out.
  std::size_t order(const std::string& verb, const std::string& arguments = "");
  /// Whether that many orders were answered so far.
  bool answered(std::size_t orders);
  bool linked();

 private:
  void readLog();
  void take(const std::string& line);

  const std::string pipe_;
  const std::string id_;
  std::ifstream log_;
  std::string partOfLine_;
  std::size_t given_ = 0;
  std::size_t answers_ = 0;
  bool linked_ = false;
};

}  // namespace kestrin::stress
