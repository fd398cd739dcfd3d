// Goes through the records of one file, and finds the way back to them behind bytes that cannot be
// read.
//
// Threads: one. Lifetime: what `bytes` returns is valid until the next step.
// Errors: a disk that does not read is told apart from bytes that are not a record.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Format.h"

namespace kestrin::gateway {

class RecordScanner {
 public:
  enum class Step : std::uint8_t { record, end, unreadable, failed };

  /// `buffer`: how many bytes are read at once, at least `kLargestRecord`.
  RecordScanner(std::shared_ptr<const LogFile> file, std::uint64_t place,
                std::optional<std::uint32_t> tag, std::size_t buffer = std::size_t{128} << 10U);

  /// Goes to the record behind the present one. On anything else it stays where that should be.
  Step next();
  /// Behind bytes that cannot be read: goes to the next record that can.
  Step seek();

  /// With `Step::record`.
  [[nodiscard]] const RecordHead& head() const { return head_; }
  [[nodiscard]] ByteView bytes() const { return bytes_; }
  /// Where the present record is, or should be.
  [[nodiscard]] std::uint64_t place() const { return place_; }
  /// With `Step::failed`.
  [[nodiscard]] const FileError& error() const { return error_; }

 private:
  std::optional<ByteView> view(std::size_t wanted);
  bool fill();
  Step look();

  const std::shared_ptr<const LogFile> file_;
  const std::optional<std::uint32_t> tag_;
  const std::size_t size_;
  Bytes buffer_;
  std::size_t filled_ = 0;
  std::uint64_t bufferPlace_ = 0;
  std::uint64_t place_;
  RecordHead head_;
  ByteView bytes_;
  FileError error_;
};

}  // namespace kestrin::gateway
