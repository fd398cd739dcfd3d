// A pipe, and descriptors that close themselves.
//
// Threads: one at a time for each end. Lifetime: what is still open is closed at the end.
// Errors: a pipe that cannot be made, or a write that fails, throws.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace kestrin::test {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    close();
    number_ = std::exchange(other.number_, -1);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int number() const noexcept { return number_; }
  void close() {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }
  void write(std::string_view text) const {
    if (::write(number_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("cannot write");
    }
  }
  /// What is there, at most a few bytes; empty when there is nothing.
  [[nodiscard]] std::string read() const {
    std::array<char, 16> bytes{};
    const ssize_t count = ::read(number_, bytes.data(), bytes.size());
    return count > 0 ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
  }

 private:
  int number_;
};

/// Neither end blocks.
struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
    for (const int end : ends) ::fcntl(end, F_SETFL, O_NONBLOCK);
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
  }
  Descriptor reading;
  Descriptor writing;
};

}  // namespace kestrin::test
