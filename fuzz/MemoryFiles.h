// Files in memory for the gateway's log: each input has a disk of its own, which refuses nothing.
//
// Threads: one. Lifetime: a file keeps its content. Errors: what is not there, and what is there
// already.
#pragma once

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "tools/gateway/files/FileLayer.h"

namespace kestrin::fuzz {

class MemoryFiles final : public gateway::FileLayer {
 public:
  std::shared_ptr<gateway::LogFile> open(const std::string& path, bool create,
                                         gateway::FileError& error) override {
    if (create == contents_.contains(path)) {
      error = {create ? EEXIST : ENOENT, "cannot open " + path};
      return nullptr;
    }
    if (create) contents_[path] = std::make_shared<Bytes>();
    return std::make_shared<File>(contents_[path]);
  }
  std::optional<gateway::FileError> makeFolder(const std::string& path) override {
    folders_.insert(path);
    return std::nullopt;
  }
  std::optional<gateway::FileError> list(const std::string& folder,
                                         std::vector<std::string>& names) override {
    names.clear();
    if (!folders_.contains(folder)) return gateway::FileError{ENOENT, "cannot list " + folder};
    for (const auto& [path, content] : contents_) {
      const auto slash = path.find_last_of('/');
      if (path.substr(0, slash) == folder) names.push_back(path.substr(slash + 1));
    }
    return std::nullopt;
  }
  std::optional<gateway::FileError> rename(const std::string& from,
                                           const std::string& to) override {
    const auto found = contents_.find(from);
    if (found == contents_.end()) return gateway::FileError{ENOENT, "cannot rename " + from};
    contents_[to] = found->second;
    contents_.erase(from);
    return std::nullopt;
  }
  std::optional<gateway::FileError> remove(const std::string& path) override {
    if (contents_.erase(path) == 0) return gateway::FileError{ENOENT, "cannot remove " + path};
    return std::nullopt;
  }
  std::optional<gateway::FileError> syncFolder(const std::string& /*folder*/) override {
    return std::nullopt;
  }
  std::shared_ptr<void> lock(const std::string& /*folder*/,
                             gateway::FileError& /*error*/) override {
    return std::make_shared<int>(0);
  }

 private:
  class File final : public gateway::LogFile {
   public:
    explicit File(std::shared_ptr<Bytes> content) : content_(std::move(content)) {}
    std::optional<gateway::FileError> append(ByteView bytes) override {
      content_->insert(content_->end(), bytes.begin(), bytes.end());
      return std::nullopt;
    }
    std::optional<gateway::FileError> read(std::uint64_t offset, std::span<std::uint8_t> into,
                                           std::size_t& count) const override {
      const auto from = static_cast<std::size_t>(std::min<std::uint64_t>(offset, content_->size()));
      count = std::min(into.size(), content_->size() - from);
      std::copy_n(content_->begin() + static_cast<std::ptrdiff_t>(from), count, into.begin());
      return std::nullopt;
    }
    std::optional<gateway::FileError> truncate(std::uint64_t size) override {
      content_->resize(static_cast<std::size_t>(size));
      return std::nullopt;
    }
    std::optional<gateway::FileError> sync() override { return std::nullopt; }
    std::uint64_t size() const override { return content_->size(); }

   private:
    const std::shared_ptr<Bytes> content_;
  };

  std::map<std::string, std::shared_ptr<Bytes>> contents_;
  std::set<std::string> folders_;
};

}  // namespace kestrin::fuzz
