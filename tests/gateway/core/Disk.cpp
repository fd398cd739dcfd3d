#include "gateway/core/Disk.h"

#include <utility>

namespace kestrin::gateway::test {

using kestrin::test::ModelFiles;

Disk::Disk(std::uint64_t seed) : files_(std::make_shared<ModelFiles>(seed)), seed_(seed) {}

std::unique_ptr<Log> Disk::open(const std::string& folder, std::uint64_t budget, std::string& error,
                                std::vector<std::string>& findings) {
  LogOptions options;
  options.folder = folder;
  options.budget = budget;
  options.makeIdentity = [this] {
    const std::string number = std::to_string(seed_) + "a" + std::to_string(++logs_);
    return std::string(32 - number.size(), 'e') + number;
  };
  return Log::open(files_, options, error, &findings);
}

void Disk::kill() { files_ = files_->afterKill(); }

void Disk::cut() {
  auto after = files_->afterCut(seed_ * 1000 + ++cuts_);
  after->full = files_->full;
  after->lying = files_->lying;
  files_ = std::move(after);
}

}  // namespace kestrin::gateway::test
