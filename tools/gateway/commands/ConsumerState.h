// Up to where a consumer has what it needs of each log, in a file of its own.
//
// The file is replaced as a whole and is on the disk when `save` returns, so that a kill or a power
// cut leaves the old one or the new one.
//
// Threads: one.
// Lifetime: as long as it lives no other process has the file; what guards it is a file beside it
// with ".lock" behind its name.
// Errors: one line for a person. A file that is damaged, or another consumer's, is refused.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {

/// The next number of each log.
using ConsumerPositions = std::map<LogIdentity, RecordNumber>;

/// What is in a state file, and back.
std::string stateText(const std::string& gateway, const std::string& consumer,
                      const ConsumerPositions& positions);
std::optional<ConsumerPositions> statePositions(const std::string& text, const std::string& gateway,
                                                const std::string& consumer, std::string& error);

class ConsumerState {
 public:
  /// Null, with the reason in `error`. A file that is not there is fine: nothing is known then.
  static std::unique_ptr<ConsumerState> open(std::shared_ptr<FileLayer> files, std::string path,
                                             std::string gateway, std::string consumer,
                                             std::string& error);
  ~ConsumerState();
  ConsumerState(const ConsumerState&) = delete;
  ConsumerState& operator=(const ConsumerState&) = delete;

  [[nodiscard]] const ConsumerPositions& positions() const noexcept { return positions_; }
  /// Absent: it is on the disk, or was there already.
  [[nodiscard]] std::optional<std::string> save(const ConsumerPositions& positions);

 private:
  ConsumerState(std::shared_ptr<FileLayer> files, std::string path, std::string gateway,
                std::string consumer)
      : files_(std::move(files)),
        path_(std::move(path)),
        gateway_(std::move(gateway)),
        consumer_(std::move(consumer)) {}
  std::optional<std::string> lock();
  std::optional<std::string> load();
  std::optional<FileError> write(const std::string& text);

  const std::shared_ptr<FileLayer> files_;
  const std::string path_, gateway_, consumer_;
  ConsumerPositions positions_;
  int lock_ = -1;
};

}  // namespace kestrin::gateway
