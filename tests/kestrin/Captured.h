// A console whose output a test can read.
#pragma once

#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "tools/kestrin/console/Console.h"

namespace kestrin::app::test {

/// A file without a name, which is gone with the object.
class CapturedStream {
 public:
  CapturedStream() : file_(std::tmpfile()) {}
  ~CapturedStream() { std::fclose(file_); }
  CapturedStream(const CapturedStream&) = delete;
  CapturedStream& operator=(const CapturedStream&) = delete;

  [[nodiscard]] int descriptor() const { return ::fileno(file_); }
  [[nodiscard]] std::string text() const {
    std::string all;
    std::array<char, 4096> buffer{};
    off_t place = 0;
    while (true) {
      const ssize_t length = ::pread(descriptor(), buffer.data(), buffer.size(), place);
      if (length <= 0) return all;
      all.append(buffer.data(), static_cast<std::size_t>(length));
      place += length;
    }
  }

 private:
  std::FILE* const file_;
};

struct Captured {
  CapturedStream output;
  CapturedStream errors;
  Console console{output.descriptor(), errors.descriptor()};
};

}  // namespace kestrin::app::test
