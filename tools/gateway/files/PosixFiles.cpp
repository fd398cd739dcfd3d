#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>

#include "tools/gateway/files/FileLayer.h"

namespace kestrin::gateway {
namespace {

FileError failure(const std::string& what, const std::string& path, int number = errno) {
  return {number, what + " " + path + ": " + std::generic_category().message(number)};
}

/// Closes what was opened.
class Handle {
 public:
  explicit Handle(int number) : number_(number) {}
  ~Handle() {
    if (number_ >= 0) ::close(number_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool open() const { return number_ >= 0; }

 private:
  const int number_;
};

template <typename Call>
auto uninterrupted(Call call) -> decltype(call()) {
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

std::optional<FileError> syncPath(const std::string& path) {
  const Handle folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.open()) return failure("cannot open the folder", path);
  if (uninterrupted([&] { return ::fsync(folder.number()); }) != 0) {
    return failure("cannot sync the folder", path);
  }
  return std::nullopt;
}

std::string parentOf(const std::string& path) {
  const auto slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

class PosixFile final : public LogFile {
 public:
  PosixFile(int descriptor, std::string path, std::uint64_t size)
      : handle_(descriptor), path_(std::move(path)), size_(size) {}

  std::optional<FileError> append(std::span<const std::uint8_t> bytes) override {
    return write(size_, bytes);
  }

  std::optional<FileError> overwrite(std::uint64_t from,
                                     std::span<const std::uint8_t> bytes) override {
    if (from > size_ || bytes.size() > size_ - from) return failure("cannot write", path_, EINVAL);
    return write(from, bytes);
  }

  std::optional<FileError> read(std::uint64_t from, std::span<std::uint8_t> into,
                                std::size_t& count) const override {
    count = 0;
    while (count < into.size()) {
      const auto place = offset(from + count);
      if (!place) return std::nullopt;
      const ssize_t more = uninterrupted([&] {
        return ::pread(handle_.number(), into.data() + count, into.size() - count, *place);
      });
      if (more < 0) return failure("cannot read", path_);
      if (more == 0) return std::nullopt;
      count += static_cast<std::size_t>(more);
    }
    return std::nullopt;
  }

  std::optional<FileError> truncate(std::uint64_t size) override {
    const auto place = offset(size);
    if (!place) return failure("cannot cut", path_, EFBIG);
    if (uninterrupted([&] { return ::ftruncate(handle_.number(), *place); }) != 0) {
      return failure("cannot cut", path_);
    }
    size_ = size;
    return std::nullopt;
  }

  // The size is part of what this syncs.
  std::optional<FileError> sync() override {
    if (uninterrupted([&] { return ::fdatasync(handle_.number()); }) != 0) {
      return failure("cannot sync", path_);
    }
    return std::nullopt;
  }

  std::uint64_t size() const override { return size_; }

 private:
  std::optional<FileError> write(std::uint64_t to, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
      const auto place = offset(to);
      if (!place) return failure("cannot write", path_, EFBIG);
      const ssize_t count = uninterrupted(
          [&] { return ::pwrite(handle_.number(), bytes.data(), bytes.size(), *place); });
      if (count < 0) return failure("cannot write", path_);
      if (count == 0) return failure("cannot write", path_, EIO);
      to += static_cast<std::uint64_t>(count);
      size_ = std::max(size_, to);
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return std::nullopt;
  }

  static std::optional<off_t> offset(std::uint64_t value) {
    if (value > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return std::nullopt;
    return static_cast<off_t>(value);
  }

  const Handle handle_;
  const std::string path_;
  std::uint64_t size_;
};

/// Who holds a folder says so in its lock file.
std::string holderOf(int descriptor) {
  std::array<char, 16> text{};
  const ssize_t count = ::pread(descriptor, text.data(), text.size(), 0);
  std::string digits;
  for (ssize_t i = 0; i < count; ++i) {
    const char c = text[static_cast<std::size_t>(i)];
    if (c < '0' || c > '9') break;
    digits.push_back(c);
  }
  return digits.empty() ? "another process" : "another process (" + digits + ")";
}

void nameHolder(int descriptor) {
  const std::string text = std::to_string(::getpid()) + "\n";
  if (::ftruncate(descriptor, 0) != 0) return;
  [[maybe_unused]] const ssize_t written = ::pwrite(descriptor, text.data(), text.size(), 0);
}

class PosixFiles final : public FileLayer {
 public:
  std::shared_ptr<LogFile> open(const std::string& path, bool create, FileError& error) override {
    int descriptor =
        ::open(path.c_str(), O_RDWR | O_CLOEXEC | (create ? O_CREAT | O_EXCL : 0), 0644);
    // What may only be read can still be looked at.
    if (descriptor < 0 && !create && (errno == EACCES || errno == EROFS)) {
      descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (descriptor < 0) {
      error = failure(create ? "cannot create" : "cannot open", path);
      return nullptr;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
      error = failure("cannot open", path);
      ::close(descriptor);
      return nullptr;
    }
    return std::make_shared<PosixFile>(descriptor, path,
                                       static_cast<std::uint64_t>(status.st_size));
  }

  std::optional<FileError> makeFolder(const std::string& path) override {
    if (::mkdir(path.c_str(), 0755) == 0) return syncPath(parentOf(path));
    if (errno == EEXIST) return checkFolder(path);
    if (errno != ENOENT) return failure("cannot make the folder", path);
    const std::string parent = parentOf(path);
    if (parent == path) return failure("cannot make the folder", path, ENOENT);
    if (auto error = makeFolder(parent)) return error;
    // A name that ends in a slash has just been made as its own parent.
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
      return failure("cannot make the folder", path);
    }
    return syncPath(parent);
  }

  std::optional<FileError> list(const std::string& folder,
                                std::vector<std::string>& names) override {
    names.clear();
    DIR* const entries = ::opendir(folder.c_str());
    if (entries == nullptr) return failure("cannot list the folder", folder);
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): each call has a stream of its own.
    while (const dirent* const entry = ::readdir(entries)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    const int number = errno;
    ::closedir(entries);
    if (number != 0) return failure("cannot list the folder", folder, number);
    std::ranges::sort(names);
    return std::nullopt;
  }

  std::optional<FileError> rename(const std::string& from, const std::string& to) override {
    if (std::rename(from.c_str(), to.c_str()) != 0) return failure("cannot rename " + from, to);
    return std::nullopt;
  }

  std::optional<FileError> remove(const std::string& path) override {
    if (::unlink(path.c_str()) != 0) return failure("cannot remove", path);
    return std::nullopt;
  }

  std::optional<FileError> syncFolder(const std::string& folder) override {
    return syncPath(folder);
  }

  // A lock of the open file, not of the process: two logs in one process exclude each other too.
  [[nodiscard]] std::string vfs() const override { return {}; }
  std::shared_ptr<void> lock(const std::string& folder, FileError& error) override {
    const std::string path = folder + "/lock";
    auto handle =
        std::make_shared<Handle>(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!handle->open()) {
      error = failure("cannot open", path);
      return nullptr;
    }
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (::fcntl(handle->number(), F_OFD_SETLK, &whole) != 0) {
      const int number = errno;
      error = number == EAGAIN || number == EACCES
                  ? FileError{number, folder + " is in use by " + holderOf(handle->number())}
                  : failure("cannot lock", path, number);
      return nullptr;
    }
    nameHolder(handle->number());
    return handle;
  }

 private:
  static std::optional<FileError> checkFolder(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return failure("cannot look at", path);
    if (!S_ISDIR(status.st_mode)) return failure("cannot use as a folder", path, ENOTDIR);
    return std::nullopt;
  }
};

}  // namespace

std::shared_ptr<FileLayer> systemFiles() { return std::make_shared<PosixFiles>(); }

}  // namespace kestrin::gateway
