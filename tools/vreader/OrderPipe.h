// The named pipe that orders come through: any program that can write a line can give them.
//
//   echo "drop 1" > PATH
//
// Threads: one at a time.
// Lifetime: a pipe that was made here is removed at the end; one that was there before stays.
// Errors: texts that name the path.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin::vreader {

class OrderPipe {
 public:
  OrderPipe() = default;
  ~OrderPipe();
  OrderPipe(const OrderPipe&) = delete;
  OrderPipe& operator=(const OrderPipe&) = delete;

  /// Makes and opens the pipe; returns what went wrong, if anything.
  std::optional<std::string> open(const std::string& path);
  [[nodiscard]] int fileDescriptor() const noexcept { return descriptor_; }
  /// The whole lines that have arrived; a line's last part waits for its end.
  std::vector<std::string> readLines();

 private:
  int descriptor_ = -1;
  std::string pathToRemove_;
  std::string waiting_;
};

}  // namespace kestrin::vreader
