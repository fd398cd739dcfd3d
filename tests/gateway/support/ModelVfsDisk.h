// What SQLite's way to a model disk asks of it.
//
// Threads: as the disk. Lifetime: the disk outlives its files. Errors: as a file layer's.
#pragma once

#include <memory>
#include <string>

#include "tools/gateway/files/FileLayer.h"

namespace kestrin::test {

/// A file that is written anywhere.
class ModelVfsFile : public gateway::LogFile {
 public:
  /// Where only some could be written, those stay, and the error says why.
  virtual std::optional<gateway::FileError> write(std::uint64_t offset,
                                                  std::span<const std::uint8_t> bytes) = 0;
  /// The same for files that were opened under any of its names.
  [[nodiscard]] virtual const void* identity() const = 0;
};

class ModelVfsDisk {
 public:
  ModelVfsDisk() = default;
  virtual ~ModelVfsDisk() = default;
  ModelVfsDisk(const ModelVfsDisk&) = delete;
  ModelVfsDisk& operator=(const ModelVfsDisk&) = delete;

  /// As a file layer's `open`.
  virtual std::shared_ptr<ModelVfsFile> openFile(const std::string& path, bool create,
                                                 gateway::FileError& error) = 0;
  /// A file without a name, gone once it is dropped.
  virtual std::shared_ptr<ModelVfsFile> temporaryFile() = 0;
  [[nodiscard]] virtual bool isFile(const std::string& path) const = 0;
  /// A file with something in it.
  [[nodiscard]] virtual bool isFilled(const std::string& path) const = 0;
  virtual std::optional<gateway::FileError> remove(const std::string& path) = 0;
  virtual std::optional<gateway::FileError> syncFolder(const std::string& folder) = 0;
};

}  // namespace kestrin::test
