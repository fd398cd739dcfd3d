#include "tools/gateway/log/Reserve.h"

#include <utility>
#include <vector>

namespace kestrin::gateway {
namespace {

constexpr int kCallsBetween = 200;

}  // namespace

void Reserve::begin(std::shared_ptr<FileLayer> files, std::string path, std::uint64_t size) {
  files_ = std::move(files);
  path_ = std::move(path);
  size_ = size;
  FileError error;
  const auto file = files_->open(path_, false, error);
  isThere_ = file && file->size() == size_;
  // One of another size is from another budget, or was never finished.
  if (file && !isThere_) [[maybe_unused]]
    const auto failed = files_->remove(path_);
}

bool Reserve::release() {
  if (!isThere_ || files_->remove(path_)) return false;
  isThere_ = false;
  callsToWait_ = kCallsBetween;
  return true;
}

void Reserve::restore() {
  if (isThere_) return;
  if (callsToWait_ > 0) {
    --callsToWait_;
    return;
  }
  FileError error;
  const auto file = files_->open(path_, true, error);
  isThere_ = file && !file->append(std::vector<std::uint8_t>(static_cast<std::size_t>(size_)));
  if (isThere_) return;
  [[maybe_unused]] const auto failed = files_->remove(path_);
  callsToWait_ = kCallsBetween;
}

}  // namespace kestrin::gateway
