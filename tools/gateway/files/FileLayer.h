// What the log asks of a file system, so that a test can stand in for one and cut it off after any
// write.
//
// Threads: the operations may be called from any thread; one file is appended to by one thread at a
// time and may be synced by another meanwhile. Lifetime: the layer outlives every file that was
// opened with it. Errors: an operation that fails returns why, `errno` and words that name the
// path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kestrin::gateway {

struct FileError {
  int number = 0;    ///< As `errno` has it, for example ENOSPC.
  std::string text;  ///< For a person: what failed, the path, and the system's words.
};

/// A file that is written at its end, or over what it has, and read anywhere. Dropping it closes
/// it.
class LogFile {
 public:
  LogFile() = default;
  virtual ~LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Writes all of `bytes` at the end. Where only some could be written, those stay, the size says
  /// how many, and the error says why.
  [[nodiscard]] virtual std::optional<FileError> append(std::span<const std::uint8_t> bytes) = 0;
  /// Writes `bytes` over what is there from `offset` on, and not behind its end.
  [[nodiscard]] virtual std::optional<FileError> overwrite(std::uint64_t offset,
                                                           std::span<const std::uint8_t> bytes) = 0;
  /// Fills `into` from `offset`; `count` gets how many bytes there were, fewer only at the end.
  [[nodiscard]] virtual std::optional<FileError> read(std::uint64_t offset,
                                                      std::span<std::uint8_t> into,
                                                      std::size_t& count) const = 0;
  [[nodiscard]] virtual std::optional<FileError> truncate(std::uint64_t size) = 0;
  /// Content and size are on the disk when it returns without an error.
  [[nodiscard]] virtual std::optional<FileError> sync() = 0;
  [[nodiscard]] virtual std::uint64_t size() const = 0;
};

class FileLayer {
 public:
  FileLayer() = default;
  virtual ~FileLayer() = default;
  FileLayer(const FileLayer&) = delete;
  FileLayer& operator=(const FileLayer&) = delete;

  /// `create`: makes it, and fails if it is there. Null with the reason in `error`.
  [[nodiscard]] virtual std::shared_ptr<LogFile> open(const std::string& path, bool create,
                                                      FileError& error) = 0;
  /// Makes a folder and those above it; fine if it is there.
  [[nodiscard]] virtual std::optional<FileError> makeFolder(const std::string& path) = 0;
  /// The names in a folder, sorted.
  [[nodiscard]] virtual std::optional<FileError> list(const std::string& folder,
                                                      std::vector<std::string>& names) = 0;
  /// A file takes the place of what has the name already; a folder comes with what is in it.
  [[nodiscard]] virtual std::optional<FileError> rename(const std::string& from,
                                                        const std::string& to) = 0;
  [[nodiscard]] virtual std::optional<FileError> remove(const std::string& path) = 0;
  /// What was created, renamed and removed in the folder is on the disk when it returns without an
  /// error.
  [[nodiscard]] virtual std::optional<FileError> syncFolder(const std::string& folder) = 0;
  /// What SQLite calls this file system (`sqlite3_vfs::zName`); empty for the system's.
  [[nodiscard]] virtual std::string vfs() const = 0;
  /// Holds the folder for this process until what is returned is dropped. Null: another holds it,
  /// or why not.
  [[nodiscard]] virtual std::shared_ptr<void> lock(const std::string& folder, FileError& error) = 0;
};

/// The system's files.
std::shared_ptr<FileLayer> systemFiles();

}  // namespace kestrin::gateway
