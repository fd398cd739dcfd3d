#include "gateway/support/ModelFiles.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "gateway/support/ModelVfs.h"

namespace kestrin::test {

using gateway::FileError;

namespace {

FileError failure(int number, const std::string& what) {
  return {number, "cannot " + what + ": " + std::generic_category().message(number)};
}

std::vector<std::string> partsOf(const std::string& path) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t slash = std::min(path.find('/', at), path.size());
    if (slash > at) parts.push_back(path.substr(at, slash - at));
    at = slash + 1;
  }
  return parts;
}

}  // namespace

/// A file, or a folder.
struct ModelFiles::Node {
  explicit Node(bool isAFolder) : isFolder(isAFolder) {}

  const bool isFolder;
  ModelContent content;
  Names names;
  Names stableNames;

  static void set(Names& names, const std::string& name, const std::shared_ptr<Node>& node) {
    if (node) {
      names[name] = node;
    } else {
      names.erase(name);
    }
  }
};

/// Copies nodes, each once, however many names it has.
struct ModelFiles::Copying {
  std::map<const Node*, std::shared_ptr<Node>> copies;
  std::map<const Node*, Names> names;  // What folders hold after a cut.

  /// As they are.
  std::shared_ptr<Node> whole(const std::shared_ptr<Node>& node) {
    if (!node) return nullptr;
    auto& copy = copies[node.get()];
    if (copy) return copy;
    copy = std::make_shared<Node>(node->isFolder);
    auto made = copy;
    made->content = node->content;
    for (const auto& [name, each] : node->names) made->names[name] = whole(each);
    for (const auto& [name, each] : node->stableNames) made->stableNames[name] = whole(each);
    return made;
  }
  void change(const NameChange& change) {
    for (const auto& [place, node] : change.names) {
      Node::set(namesOf(*place.folder), place.name, node);
    }
  }
  std::shared_ptr<Node> cut(const Node& node, std::mt19937_64& random) {
    auto& copy = copies[&node];
    if (copy) return copy;
    copy = std::make_shared<Node>(node.isFolder);
    auto made = copy;
    if (!node.isFolder) made->content = node.content.afterCut(random);
    for (const auto& [name, each] : namesOf(node)) made->names[name] = cut(*each, random);
    made->stableNames = made->names;
    return made;
  }

 private:
  Names& namesOf(const Node& folder) {
    return names.try_emplace(&folder, folder.stableNames).first->second;
  }
};

class ModelFiles::File final : public ModelVfsFile {
 public:
  File(ModelFiles& disk, std::shared_ptr<Node> node, std::string path)
      : disk_(disk), node_(std::move(node)), path_(std::move(path)) {}

  std::optional<FileError> write(std::uint64_t offset,
                                 std::span<const std::uint8_t> bytes) override;
  std::optional<FileError> append(std::span<const std::uint8_t> bytes) override;
  std::optional<FileError> overwrite(std::uint64_t offset,
                                     std::span<const std::uint8_t> bytes) override {
    return write(offset, bytes);
  }
  std::optional<FileError> read(std::uint64_t offset, std::span<std::uint8_t> into,
                                std::size_t& count) const override;
  std::optional<FileError> truncate(std::uint64_t size) override;
  std::optional<FileError> sync() override;
  [[nodiscard]] std::uint64_t size() const override;
  [[nodiscard]] const void* identity() const override { return node_.get(); }

 private:
  ModelFiles& disk_;
  const std::shared_ptr<Node> node_;
  const std::string path_;
};

// --- Files.

std::optional<FileError> ModelFiles::File::write(std::uint64_t offset,
                                                 std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return std::nullopt;
  if (disk_.chance(disk_.faults.write)) return failure(EIO, "write " + path_);
  const std::size_t all = bytes.size();
  if (disk_.chance(disk_.faults.shortWrite)) {
    bytes = bytes.first(static_cast<std::size_t>(disk_.random_() % bytes.size()));
  }
  const std::uint64_t end = size();
  if (disk_.full && offset + bytes.size() > end) {
    const std::uint64_t more = offset + bytes.size() - end;
    const auto there = static_cast<std::size_t>(end - std::min(end, offset));
    if (more <= disk_.freed_) {
      disk_.freed_ -= more;
    } else {
      bytes =
          bytes.first(there + static_cast<std::size_t>(disk_.random_() % (bytes.size() - there)));
    }
  }
  if (!bytes.empty()) {
    node_->content.write(static_cast<std::size_t>(offset), {bytes.begin(), bytes.end()});
  }
  disk_.tell();
  return bytes.size() < all ? std::optional(failure(ENOSPC, "write " + path_)) : std::nullopt;
}

std::optional<FileError> ModelFiles::File::append(std::span<const std::uint8_t> bytes) {
  return write(size(), bytes);
}

std::optional<FileError> ModelFiles::File::read(std::uint64_t offset, std::span<std::uint8_t> into,
                                                std::size_t& count) const {
  if (disk_.chance(disk_.faults.read)) return failure(EIO, "read " + path_);
  const auto& content = node_->content.bytes();
  const auto from = static_cast<std::size_t>(std::min<std::uint64_t>(offset, content.size()));
  count = std::min(into.size(), content.size() - from);
  std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(from), count, into.begin());
  return std::nullopt;
}

std::optional<FileError> ModelFiles::File::truncate(std::uint64_t size) {
  if (disk_.chance(disk_.faults.truncate)) return failure(EIO, "cut " + path_);
  if (size != this->size()) node_->content.resize(static_cast<std::size_t>(size));
  disk_.tell();
  return std::nullopt;
}

std::optional<FileError> ModelFiles::File::sync() {
  if (disk_.chance(disk_.faults.sync)) {
    node_->content.loseSome(disk_.random_, disk_.chance(disk_.faults.forgetPages));
    disk_.tell();
    return failure(EIO, "sync " + path_);
  }
  if (!disk_.lying) node_->content.becomeStable();
  disk_.tell();
  return std::nullopt;
}

std::uint64_t ModelFiles::File::size() const { return node_->content.bytes().size(); }

// --- The disk.

ModelFiles::ModelFiles(std::uint64_t seed)
    : random_(seed),
      root_(std::make_shared<Node>(true)),
      vfs_(std::make_unique<ModelVfs>(*this, seed)) {}
ModelFiles::~ModelFiles() = default;

std::string ModelFiles::vfs() const { return vfs_->name(); }

bool ModelFiles::chance(double likely) {
  return likely > 0 && std::uniform_real_distribution<double>(0, 1)(random_) < likely;
}

void ModelFiles::tell() const {
  if (changed) changed();
}

std::shared_ptr<ModelFiles> ModelFiles::afterCut(std::uint64_t seed) const {
  auto disk = std::make_shared<ModelFiles>(seed);
  Copying copying;
  // Each change of a name by itself, or the first ones.
  const bool inOrder = disk->random_() % 2 == 0;
  const auto first = static_cast<std::size_t>(disk->random_() % (unsyncedNames_.size() + 1));
  for (std::size_t i = 0; i < unsyncedNames_.size(); ++i) {
    if (inOrder ? i < first : disk->random_() % 2 == 0) copying.change(unsyncedNames_[i]);
  }
  disk->root_ = copying.cut(*root_, disk->random_);
  return disk;
}

std::shared_ptr<ModelFiles> ModelFiles::afterKill() const {
  auto disk = std::make_shared<ModelFiles>(0);
  disk->random_ = random_;
  disk->full = full;
  disk->freed_ = freed_;
  disk->lying = lying;
  Copying copying;
  disk->root_ = copying.whole(root_);
  for (const NameChange& change : unsyncedNames_) {
    NameChange copy;
    for (const auto& [place, node] : change.names) {
      copy.names.push_back({{copying.whole(place.folder), place.name}, copying.whole(node)});
    }
    disk->unsyncedNames_.push_back(std::move(copy));
  }
  return disk;
}

std::uint64_t ModelFiles::used() const {
  std::uint64_t size = 0;
  std::vector<const Node*> nodes{root_.get()};
  while (!nodes.empty()) {
    const Node& node = *nodes.back();
    nodes.pop_back();
    size += node.content.bytes().size();
    for (const auto& [name, each] : node.names) nodes.push_back(each.get());
  }
  return size;
}

bool ModelFiles::damage(const std::string& path, std::uint64_t offset, std::uint8_t mask) {
  const auto node = find(path);
  if (!node || offset >= node->content.bytes().size()) return false;
  node->content.damage(static_cast<std::size_t>(offset), mask);
  return true;
}

std::shared_ptr<ModelFiles::Node> ModelFiles::find(const std::string& path) const {
  std::shared_ptr<Node> node = root_;
  for (const std::string& part : partsOf(path)) {
    const auto found = node->names.find(part);
    if (found == node->names.end()) return nullptr;
    node = found->second;
  }
  return node;
}

std::optional<ModelFiles::Place> ModelFiles::placeOf(const std::string& path) const {
  auto parts = partsOf(path);
  if (parts.empty()) return std::nullopt;
  const std::string name = parts.back();
  std::string folder;
  parts.pop_back();
  for (const std::string& part : parts) folder += "/" + part;
  const auto node = find(folder);
  if (!node || !node->isFolder) return std::nullopt;
  return Place{node, name};
}

bool ModelFiles::isFile(const std::string& path) const {
  const auto node = find(path);
  return node && !node->isFolder;
}

bool ModelFiles::isFilled(const std::string& path) const {
  const auto node = find(path);
  return node && !node->content.bytes().empty();
}

bool ModelFiles::isFolder(const std::string& path) const {
  const auto node = find(path);
  return node && node->isFolder;
}

std::shared_ptr<gateway::LogFile> ModelFiles::open(const std::string& path, bool create,
                                                   FileError& error) {
  return openFile(path, create, error);
}

std::shared_ptr<ModelVfsFile> ModelFiles::openFile(const std::string& path, bool create,
                                                   FileError& error) {
  const auto found = find(path);
  if (create == (found != nullptr)) {
    error = failure(create ? EEXIST : ENOENT, "open " + path);
    return nullptr;
  }
  if (found && found->isFolder) {
    error = failure(EISDIR, "open " + path);
    return nullptr;
  }
  if (found) return std::make_shared<File>(*this, found, path);
  const auto place = placeOf(path);
  if (!place) {
    error = failure(ENOENT, "create " + path);
    return nullptr;
  }
  auto node = std::make_shared<Node>(false);
  if (auto failed = changeNames(path, true, {{{*place, node}}})) {
    error = *failed;
    return nullptr;
  }
  return std::make_shared<File>(*this, node, path);
}

std::shared_ptr<ModelVfsFile> ModelFiles::temporaryFile() {
  return std::make_shared<File>(*this, std::make_shared<Node>(false), "a temporary file");
}

std::optional<FileError> ModelFiles::makeFolder(const std::string& path) {
  std::string each;
  for (const std::string& part : partsOf(path)) {
    const std::string above = each;
    each += "/" + part;
    if (isFolder(each)) continue;
    const auto place = placeOf(each);
    if (!place || find(each)) return failure(ENOTDIR, "make the folder " + each);
    if (auto error = changeNames(each, true, {{{*place, std::make_shared<Node>(true)}}})) {
      return error;
    }
    if (auto error = syncNames(above, *place->folder)) return error;
  }
  return std::nullopt;
}

std::optional<FileError> ModelFiles::list(const std::string& folder,
                                          std::vector<std::string>& names) {
  names.clear();
  const auto node = find(folder);
  if (!node || !node->isFolder) return failure(node ? ENOTDIR : ENOENT, "list " + folder);
  for (const auto& [name, each] : node->names) names.push_back(name);
  return std::nullopt;
}

std::optional<FileError> ModelFiles::rename(const std::string& from, const std::string& to) {
  const auto node = find(from);
  const auto source = placeOf(from);
  const auto target = placeOf(to);
  if (!node || !source || !target) return failure(ENOENT, "rename " + from + " to " + to);
  const auto old = find(to);
  if (old == node) return std::nullopt;
  if (old && old->isFolder != node->isFolder) {
    return failure(old->isFolder ? EISDIR : ENOTDIR, "rename " + from + " to " + to);
  }
  if (old && !old->names.empty()) return failure(ENOTEMPTY, "rename " + from + " to " + to);
  return changeNames(from, false, {{{*source, nullptr}, {*target, node}}});
}

std::optional<FileError> ModelFiles::remove(const std::string& path) {
  const auto place = placeOf(path);
  const auto node = find(path);
  if (!place || !node) return failure(ENOENT, "remove " + path);
  if (node->isFolder) return failure(EISDIR, "remove " + path);
  auto failed = changeNames(path, false, {{{*place, nullptr}}});
  if (!failed && full) freed_ += node->content.bytes().size();
  return failed;
}

std::optional<FileError> ModelFiles::changeNames(const std::string& path, bool makes,
                                                 NameChange change) {
  if ((full && makes && freed_ == 0) || chance(faults.entry))
    return failure(ENOSPC, "change " + path);
  for (const auto& [place, node] : change.names) Node::set(place.folder->names, place.name, node);
  unsyncedNames_.push_back(std::move(change));
  tell();
  return std::nullopt;
}

std::optional<FileError> ModelFiles::syncFolder(const std::string& folder) {
  const auto node = find(folder);
  if (!node || !node->isFolder) return failure(ENOENT, "sync " + folder);
  return syncNames(folder, *node);
}

/// A change that touches two folders is on the disk with the one that it ends in.
std::optional<FileError> ModelFiles::syncNames(const std::string& path, const Node& folder) {
  if (chance(faults.sync)) return failure(EIO, "sync " + path);
  if (!lying) {
    std::erase_if(unsyncedNames_, [&](const NameChange& change) {
      if (change.names.back().first.folder.get() != &folder) return false;
      for (const auto& [place, node] : change.names) {
        Node::set(place.folder->stableNames, place.name, node);
      }
      return true;
    });
  }
  tell();
  return std::nullopt;
}

std::shared_ptr<void> ModelFiles::lock(const std::string& folder, FileError& error) {
  if (!isFolder(folder)) {
    error = failure(ENOENT, "lock " + folder);
    return nullptr;
  }
  if (!locks_[folder].expired()) {
    error = {EAGAIN, folder + " is in use by another process"};
    return nullptr;
  }
  auto held = std::make_shared<int>(0);
  locks_[folder] = held;
  return held;
}

}  // namespace kestrin::test
