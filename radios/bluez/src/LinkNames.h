// The names under which linked readers have advertised, kept in a file for the process that comes
// after a kill: over a link the daemon knows a reader by the name in its own attributes only.
//
// Threads: the radio's own thread. Lifetime: the radio's.
// Errors: none. A file that cannot be read or written is as good as none; lines in it that say
// nothing are passed over.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace kestrin::bluez {

class LinkNames {
 public:
  using Names = std::map<std::string, std::string>;  // By device.

  /// Reads what the last process has left there. The file that is named first is the one.
  void use(const std::string& file);
  /// What the last process has left.
  [[nodiscard]] const Names& left() const noexcept { return left_; }
  /// These are linked now. Without any there is no file.
  void keep(const Names& names);

 private:
  std::string file_;
  Names left_;
  Names kept_;
};

}  // namespace kestrin::bluez
