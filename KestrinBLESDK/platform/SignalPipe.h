// A pipe that carries at most one byte: its one end becomes readable when the other is signalled,
// so that whoever polls can be woken.
//
// Threads: one at a time, but for `readable`, which may be polled meanwhile.
// Lifetime: owns both ends. Errors: `create` returns null when the system has no descriptors left.
#pragma once

#include <memory>

namespace kestrin {

class SignalPipe {
 public:
  static std::unique_ptr<SignalPipe> create();
  ~SignalPipe();
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;

  [[nodiscard]] int readable() const noexcept { return readEnd_; }
  void signal();
  /// Whether it was signalled; from now on it is not.
  bool drain();

 private:
  SignalPipe(int readEnd, int writeEnd) : readEnd_(readEnd), writeEnd_(writeEnd) {}

  const int readEnd_;
  const int writeEnd_;
  bool signalled_ = false;
};

}  // namespace kestrin
