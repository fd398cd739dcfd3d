#include "gateway/core/Disk.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <map>
#include <random>
#include <span>
#include <utility>

namespace kestrin::gateway::test {

struct Content {
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint8_t> synced;
};
using Names = std::map<std::string, std::shared_ptr<Content>>;

struct State {
  explicit State(std::uint64_t seed) : random(seed) {}
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random() % count); }

  std::mt19937_64 random;
  Names names;
  Names syncedNames;
  std::vector<std::function<void(Names&)>> unsynced;  // What has become of names since.
  bool full = false;
  bool lying = false;
  std::weak_ptr<void> lock;
};

class DiskFile final : public LogFile {
 public:
  DiskFile(std::shared_ptr<State> state, std::shared_ptr<Content> content, std::string path)
      : state_(std::move(state)), content_(std::move(content)), path_(std::move(path)) {}

  std::optional<FileError> append(std::span<const std::uint8_t> bytes) override {
    const auto count = state_->full ? state_->below(bytes.size() + 1) : bytes.size();
    content_->bytes.insert(content_->bytes.end(), bytes.begin(),
                           bytes.begin() + static_cast<std::ptrdiff_t>(count));
    if (count == bytes.size()) return std::nullopt;
    return FileError{ENOSPC, "write " + path_ + ": no space left on device"};
  }
  std::optional<FileError> read(std::uint64_t offset, std::span<std::uint8_t> into,
                                std::size_t& count) const override {
    const auto from =
        std::min<std::size_t>(static_cast<std::size_t>(offset), content_->bytes.size());
    count = std::min(into.size(), content_->bytes.size() - from);
    std::copy_n(content_->bytes.begin() + static_cast<std::ptrdiff_t>(from), count, into.begin());
    return std::nullopt;
  }
  std::optional<FileError> truncate(std::uint64_t size) override {
    content_->bytes.resize(static_cast<std::size_t>(size));
    return std::nullopt;
  }
  std::optional<FileError> sync() override {
    if (!state_->lying) content_->synced = content_->bytes;
    return std::nullopt;
  }
  [[nodiscard]] std::uint64_t size() const override { return content_->bytes.size(); }

 private:
  const std::shared_ptr<State> state_;
  const std::shared_ptr<Content> content_;
  const std::string path_;
};

class DiskFiles final : public FileLayer {
 public:
  explicit DiskFiles(std::uint64_t seed) : state(std::make_shared<State>(seed)) {}

  std::shared_ptr<LogFile> open(const std::string& path, bool create, FileError& error) override {
    const auto found = state->names.find(path);
    if (create == (found != state->names.end())) {
      error = {create ? EEXIST : ENOENT, "open " + path + ": it is there, or it is not"};
      return nullptr;
    }
    if (create && state->full) {
      error = {ENOSPC, "open " + path + ": no space left on device"};
      return nullptr;
    }
    const auto content = create ? std::make_shared<Content>() : found->second;
    if (create) change([path, content](Names& names) { names[path] = content; });
    return std::make_shared<DiskFile>(state, content, path);
  }
  std::optional<FileError> makeFolder(const std::string& /*path*/) override { return std::nullopt; }
  std::optional<FileError> list(const std::string& folder,
                                std::vector<std::string>& names) override {
    names.clear();
    for (const auto& [path, content] : state->names) {
      if (!path.starts_with(folder + "/")) continue;
      const auto name = path.substr(folder.size() + 1);
      if (name.find('/') == std::string::npos) names.push_back(name);
    }
    return std::nullopt;
  }
  std::optional<FileError> rename(const std::string& from, const std::string& to) override {
    if (!state->names.contains(from)) return FileError{ENOENT, "rename " + from + ": not there"};
    change([from, to](Names& names) {
      const auto found = names.find(from);
      if (found == names.end()) return;
      const auto content = found->second;
      names.erase(found);
      names[to] = content;
    });
    return std::nullopt;
  }
  std::optional<FileError> remove(const std::string& path) override {
    if (!state->names.contains(path)) return FileError{ENOENT, "unlink " + path + ": not there"};
    change([path](Names& names) { names.erase(path); });
    return std::nullopt;
  }
  std::optional<FileError> syncFolder(const std::string& /*folder*/) override {
    if (state->lying) return std::nullopt;
    state->syncedNames = state->names;
    state->unsynced.clear();
    return std::nullopt;
  }
  std::shared_ptr<void> lock(const std::string& folder, FileError& error) override {
    if (!state->lock.expired()) {
      error = {EWOULDBLOCK, "lock " + folder + ": another process holds it"};
      return nullptr;
    }
    auto held = std::make_shared<int>(0);
    state->lock = held;
    return held;
  }

  const std::shared_ptr<State> state;

 private:
  void change(const std::function<void(Names&)>& what) {
    what(state->names);
    state->unsynced.push_back(what);
  }
};

Disk::Disk(std::uint64_t seed) : files_(std::make_shared<DiskFiles>(seed)), seed_(seed) {}

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

void Disk::cut() {
  State& state = *files_->state;
  const auto kept = state.below(state.unsynced.size() + 1);
  for (std::size_t each = 0; each < kept; ++each) state.unsynced[each](state.syncedNames);
  state.unsynced.clear();
  state.names = state.syncedNames;
  for (auto& [path, content] : state.names) {
    auto& synced = content->synced;
    const auto& bytes = content->bytes;
    if (bytes.size() > synced.size()) {
      const auto more = state.below(bytes.size() - synced.size() + 1);
      const auto from = static_cast<std::ptrdiff_t>(synced.size());
      synced.insert(synced.end(), bytes.begin() + from,
                    bytes.begin() + from + static_cast<std::ptrdiff_t>(more));
      if (more > 0 && state.below(3) == 0) synced.back() ^= 0x5AU;
    }
    content->bytes = synced;
  }
}

void Disk::setFull(bool full) { files_->state->full = full; }
bool Disk::isFull() const { return files_->state->full; }
void Disk::setLying(bool lying) { files_->state->lying = lying; }

}  // namespace kestrin::gateway::test
