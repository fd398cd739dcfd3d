#include "gateway/support/ModelFiles.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace kestrin::test {

using gateway::FileError;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr std::size_t kPage = 512;

FileError failure(int number, const std::string& what) {
  return {number, "cannot " + what + ": " + std::generic_category().message(number)};
}

std::string folderOf(const std::string& path) { return path.substr(0, path.find_last_of('/')); }

}  // namespace

/// A file's content, and what of it has not been synced.
struct ModelFiles::Node {
  struct Change {
    std::size_t place = 0;  ///< A write of `bytes` there; a cut to that size without any.
    Bytes bytes;
  };
  Bytes content;
  Bytes stable;
  std::vector<Change> unsynced;

  static void apply(Bytes& bytes, const Change& change) {
    bytes.resize(change.bytes.empty() ? change.place
                                      : std::max(bytes.size(), change.place + change.bytes.size()));
    std::ranges::copy(change.bytes, bytes.begin() + static_cast<std::ptrdiff_t>(change.place));
  }
  void change(Change change) {
    apply(content, change);
    unsynced.push_back(std::move(change));
  }
  void becomeStable() {
    for (const Change& change : unsynced) apply(stable, change);
    unsynced.clear();
  }
  /// Each change gets onto the disk or never will; which, nobody says.
  void loseSome(std::mt19937_64& random, bool forgetPages) {
    for (const Change& change : unsynced) {
      if (random() % 2 == 0) apply(stable, change);
    }
    unsynced.clear();
    if (forgetPages) content = stable;
  }

  Bytes afterCut(std::mt19937_64& random) const {
    Bytes bytes = stable;
    switch (random() % 4) {
      case 0:
        break;
      case 1:
        for (const Change& change : unsynced) apply(bytes, change);
        break;
      case 2:
        applySome(bytes, random);
        break;
      default:
        applyPages(bytes, random);
    }
    return bytes;
  }

 private:
  /// The first changes, and a part of the next one.
  void applySome(Bytes& bytes, std::mt19937_64& random) const {
    const std::size_t whole = random() % (unsynced.size() + 1);
    for (std::size_t i = 0; i < whole; ++i) apply(bytes, unsynced[i]);
    if (whole == unsynced.size() || unsynced[whole].bytes.empty()) return;
    Change part = unsynced[whole];
    part.bytes.resize(random() % part.bytes.size() + 1);
    apply(bytes, part);
  }
  /// Pages in any order: zero where one that was never written lies before one that was.
  void applyPages(Bytes& bytes, std::mt19937_64& random) const {
    for (const Change& change : unsynced) {
      if (change.bytes.empty()) {
        apply(bytes, change);
        continue;
      }
      std::size_t at = 0;
      while (at < change.bytes.size()) {
        const std::size_t length =
            std::min(kPage - (change.place + at) % kPage, change.bytes.size() - at);
        const auto begin = change.bytes.begin() + static_cast<std::ptrdiff_t>(at);
        if (random() % 2 == 0) {
          apply(bytes,
                {change.place + at, Bytes(begin, begin + static_cast<std::ptrdiff_t>(length))});
        }
        at += length;
      }
    }
  }
};

class ModelFiles::File final : public gateway::LogFile {
 public:
  File(ModelFiles& disk, std::shared_ptr<Node> node, std::string path)
      : disk_(disk), node_(std::move(node)), path_(std::move(path)) {}

  std::optional<FileError> append(std::span<const std::uint8_t> bytes) override {
    if (bytes.empty()) return std::nullopt;
    if (disk_.chance(disk_.faults.write)) return failure(EIO, "write " + path_);
    const bool isShort = disk_.chance(disk_.faults.shortWrite);
    if (isShort) bytes = bytes.first(disk_.random_() % bytes.size());
    if (!bytes.empty()) node_->change({node_->content.size(), Bytes(bytes.begin(), bytes.end())});
    disk_.tell();
    return isShort ? std::optional(failure(ENOSPC, "write " + path_)) : std::nullopt;
  }
  std::optional<FileError> read(std::uint64_t offset, std::span<std::uint8_t> into,
                                std::size_t& count) const override {
    const auto& content = node_->content;
    const auto from = static_cast<std::size_t>(std::min<std::uint64_t>(offset, content.size()));
    count = std::min(into.size(), content.size() - from);
    std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(from), count, into.begin());
    return std::nullopt;
  }
  std::optional<FileError> truncate(std::uint64_t size) override {
    if (disk_.chance(disk_.faults.truncate)) return failure(EIO, "cut " + path_);
    if (size < node_->content.size()) node_->change({static_cast<std::size_t>(size), {}});
    disk_.tell();
    return std::nullopt;
  }
  std::optional<FileError> sync() override {
    if (disk_.chance(disk_.faults.sync)) {
      node_->loseSome(disk_.random_, disk_.chance(disk_.faults.forgetPages));
      disk_.tell();
      return failure(EIO, "sync " + path_);
    }
    node_->becomeStable();
    disk_.tell();
    return std::nullopt;
  }
  std::uint64_t size() const override { return node_->content.size(); }

 private:
  ModelFiles& disk_;
  const std::shared_ptr<Node> node_;
  const std::string path_;
};

ModelFiles::ModelFiles(std::uint64_t seed) : random_(seed) {}
ModelFiles::~ModelFiles() = default;

bool ModelFiles::chance(double likely) {
  return likely > 0 && std::uniform_real_distribution<double>(0, 1)(random_) < likely;
}

void ModelFiles::tell() const {
  if (changed) changed();
}

std::shared_ptr<ModelFiles> ModelFiles::afterCut(std::uint64_t seed) const {
  auto disk = std::make_shared<ModelFiles>(seed);
  disk->folders_ = folders_;
  Names names = stableNames_;
  // Each change of a name by itself, or the first ones.
  const bool inOrder = disk->random_() % 2 == 0;
  const std::size_t first = disk->random_() % (unsyncedNames_.size() + 1);
  for (std::size_t i = 0; i < unsyncedNames_.size(); ++i) {
    const bool done = inOrder ? i < first : disk->random_() % 2 == 0;
    if (done) apply(names, unsyncedNames_[i]);
  }
  for (const auto& [path, node] : names) {
    auto copy = std::make_shared<Node>();
    copy->content = node->afterCut(disk->random_);
    copy->stable = copy->content;
    disk->names_[path] = std::move(copy);
  }
  disk->stableNames_ = disk->names_;
  return disk;
}

std::shared_ptr<ModelFiles> ModelFiles::afterKill() const {
  auto disk = std::make_shared<ModelFiles>(0);
  disk->random_ = random_;
  disk->folders_ = folders_;
  std::map<Node*, std::shared_ptr<Node>> copies;
  const auto copyOf = [&](const std::shared_ptr<Node>& node) {
    if (!node) return std::shared_ptr<Node>();
    auto& copy = copies[node.get()];
    if (!copy) copy = std::make_shared<Node>(*node);
    return copy;
  };
  for (const auto& [path, node] : names_) disk->names_[path] = copyOf(node);
  for (const auto& [path, node] : stableNames_) disk->stableNames_[path] = copyOf(node);
  for (const NameChange& change : unsyncedNames_) {
    NameChange copy;
    for (const auto& [path, node] : change.names) copy.names.emplace_back(path, copyOf(node));
    disk->unsyncedNames_.push_back(std::move(copy));
  }
  return disk;
}

std::uint64_t ModelFiles::used() const {
  std::uint64_t size = 0;
  for (const auto& [path, node] : names_) size += node->content.size();
  return size;
}

std::shared_ptr<gateway::LogFile> ModelFiles::open(const std::string& path, bool create,
                                                   FileError& error) {
  const auto found = names_.find(path);
  if (create == (found != names_.end())) {
    error = failure(create ? EEXIST : ENOENT, "open " + path);
    return nullptr;
  }
  if (!create) return std::make_shared<File>(*this, found->second, path);
  if (!folders_.contains(folderOf(path))) {
    error = failure(ENOENT, "create " + path);
    return nullptr;
  }
  auto node = std::make_shared<Node>();
  if (auto failed = changeNames({{{path, node}}})) {
    error = *failed;
    return nullptr;
  }
  return std::make_shared<File>(*this, node, path);
}

std::optional<FileError> ModelFiles::makeFolder(const std::string& path) {
  folders_.insert(path);
  return std::nullopt;
}

std::optional<FileError> ModelFiles::list(const std::string& folder,
                                          std::vector<std::string>& names) {
  names.clear();
  if (!folders_.contains(folder)) return failure(ENOENT, "list " + folder);
  for (const auto& [path, node] : names_) {
    if (folderOf(path) == folder) names.push_back(path.substr(folder.size() + 1));
  }
  for (const std::string& path : folders_) {
    if (path != folder && folderOf(path) == folder) names.push_back(path.substr(folder.size() + 1));
  }
  std::ranges::sort(names);
  return std::nullopt;
}

std::optional<FileError> ModelFiles::rename(const std::string& from, const std::string& to) {
  const auto found = names_.find(from);
  if (found == names_.end()) return failure(ENOENT, "rename " + from);
  return changeNames({{{from, nullptr}, {to, found->second}}});
}

std::optional<FileError> ModelFiles::remove(const std::string& path) {
  if (!names_.contains(path)) return failure(ENOENT, "remove " + path);
  return changeNames({{{path, nullptr}}});
}

std::optional<FileError> ModelFiles::changeNames(NameChange change) {
  if (chance(faults.entry)) return failure(ENOSPC, "change " + change.names.front().first);
  apply(names_, change);
  unsyncedNames_.push_back(std::move(change));
  tell();
  return std::nullopt;
}

void ModelFiles::apply(Names& names, const NameChange& change) {
  for (const auto& [path, node] : change.names) {
    if (node) {
      names[path] = node;
    } else {
      names.erase(path);
    }
  }
}

/// A change that touches two folders is on the disk with the one that it ends in.
std::optional<FileError> ModelFiles::syncFolder(const std::string& folder) {
  if (chance(faults.sync)) return failure(EIO, "sync " + folder);
  std::erase_if(unsyncedNames_, [&](const NameChange& change) {
    if (folderOf(change.names.back().first) != folder) return false;
    apply(stableNames_, change);
    return true;
  });
  tell();
  return std::nullopt;
}

std::shared_ptr<void> ModelFiles::lock(const std::string& folder, FileError& error) {
  if (!locks_[folder].expired()) {
    error = {EAGAIN, folder + " is in use by another process"};
    return nullptr;
  }
  auto held = std::make_shared<int>(0);
  locks_[folder] = held;
  return held;
}

}  // namespace kestrin::test
