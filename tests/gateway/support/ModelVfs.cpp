#include "gateway/support/ModelVfs.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <set>
#include <utility>
#include <vector>

namespace kestrin::test {

using gateway::FileError;

namespace {

constexpr int kSectorSize = 4096;
constexpr int kLongestPath = 512;
constexpr std::int64_t kBegin = 212'680'000'000'000;  // In 2027, as milliseconds of Julian days.

std::string newName() {
  static std::atomic<std::uint64_t> disks{0};
  return "model-disk-" + std::to_string(++disks);
}

std::string folderOf(const std::string& path) { return path.substr(0, path.find_last_of('/')); }

/// SQLite does not know exceptions.
template <typename Call>
int guarded(Call call) noexcept {
  try {
    return call();
  } catch (...) {
    return SQLITE_IOERR_NOMEM;
  }
}

}  // namespace

/// What the connections of a file share: who has locked it, and the memory.
struct ModelVfs::Sharing {
  static constexpr std::size_t kSlots = SQLITE_SHM_NLOCK;
  std::set<const Connection*> connections;
  std::vector<std::unique_ptr<std::byte[]>> regions;
  std::array<std::set<const Connection*>, kSlots> readers;
  std::array<const Connection*, kSlots> writers{};
};

/// An open file.
class ModelVfs::Connection {
 public:
  Connection(ModelVfs& vfs, std::shared_ptr<ModelVfsFile> file, std::string path, int flags)
      : vfs_(vfs),
        file_(std::move(file)),
        path_(std::move(path)),
        sharing_(vfs.sharingOf(file_->identity())),
        syncsFolder_((flags & SQLITE_OPEN_CREATE) != 0 &&
                     (flags & (SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL |
                               SQLITE_OPEN_SUPER_JOURNAL)) != 0),
        readOnly_((flags & SQLITE_OPEN_READONLY) != 0) {
    sharing_->connections.insert(this);
  }
  ~Connection() {
    unmap();
    sharing_->connections.erase(this);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int read(void* into, int length, sqlite3_int64 offset) {
    const std::span<std::uint8_t> bytes(static_cast<std::uint8_t*>(into),
                                        static_cast<std::size_t>(length));
    std::size_t count = 0;
    if (const auto error = file_->read(static_cast<std::uint64_t>(offset), bytes, count)) {
      return failed(*error, SQLITE_IOERR_READ);
    }
    if (count == bytes.size()) return SQLITE_OK;
    std::ranges::fill(bytes.subspan(count), std::uint8_t{0});
    return SQLITE_IOERR_SHORT_READ;
  }
  int write(const void* from, int length, sqlite3_int64 offset) {
    if (readOnly_) return SQLITE_READONLY;
    const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(from),
                                              static_cast<std::size_t>(length));
    const auto error = file_->write(static_cast<std::uint64_t>(offset), bytes);
    if (!error) return SQLITE_OK;
    return failed(*error, error->number == ENOSPC ? SQLITE_FULL : SQLITE_IOERR_WRITE);
  }
  int truncate(sqlite3_int64 size) {
    const auto error = file_->truncate(static_cast<std::uint64_t>(size));
    return error ? failed(*error, SQLITE_IOERR_TRUNCATE) : SQLITE_OK;
  }
  int sync() {
    if (const auto error = file_->sync()) return failed(*error, SQLITE_IOERR_FSYNC);
    // The system's own does not look whether this works either.
    if (syncsFolder_) static_cast<void>(vfs_.disk_.syncFolder(folderOf(path_)));
    syncsFolder_ = false;
    return SQLITE_OK;
  }
  [[nodiscard]] sqlite3_int64 size() const { return static_cast<sqlite3_int64>(file_->size()); }

  int lock(int level) {
    if (level <= level_) return SQLITE_OK;
    const int others = highestOfOthers();
    if (level == SQLITE_LOCK_SHARED) {
      if (others >= SQLITE_LOCK_PENDING) return SQLITE_BUSY;
    } else if (others >= SQLITE_LOCK_RESERVED) {
      return SQLITE_BUSY;
    }
    if (level == SQLITE_LOCK_EXCLUSIVE && others > SQLITE_LOCK_NONE) {
      // No reader begins any more.
      level_ = SQLITE_LOCK_PENDING;
      return SQLITE_BUSY;
    }
    level_ = level;
    return SQLITE_OK;
  }
  int unlock(int level) {
    level_ = std::min(level_, level);
    return SQLITE_OK;
  }
  [[nodiscard]] bool isReserved() const {
    return std::max(level_, highestOfOthers()) >= SQLITE_LOCK_RESERVED;
  }

  int control(int what, void* argument) {
    switch (what) {
      case SQLITE_FCNTL_PERSIST_WAL:
        return flag(keepsLog_, argument);
      case SQLITE_FCNTL_POWERSAFE_OVERWRITE:
        return flag(powersafe_, argument);
      case SQLITE_FCNTL_LOCKSTATE:
        *static_cast<int*>(argument) = level_;
        return SQLITE_OK;
      case SQLITE_FCNTL_LAST_ERRNO:
        *static_cast<int*>(argument) = vfs_.lastError_;
        return SQLITE_OK;
      case SQLITE_FCNTL_SIZE_HINT:
        return SQLITE_OK;
      case SQLITE_FCNTL_VFSNAME:
        *static_cast<char**>(argument) = sqlite3_mprintf("%s", vfs_.name_.c_str());
        return SQLITE_OK;
      default:
        return SQLITE_NOTFOUND;
    }
  }
  [[nodiscard]] int characteristics() const {
    return powersafe_ ? SQLITE_IOCAP_POWERSAFE_OVERWRITE : 0;
  }

  int map(int region, int size, bool extends, void volatile** memory) {
    isMapped_ = true;
    auto& regions = sharing_->regions;
    const auto wanted = static_cast<std::size_t>(region);
    while (extends && regions.size() <= wanted) {
      regions.push_back(std::make_unique<std::byte[]>(static_cast<std::size_t>(size)));
    }
    *memory = wanted < regions.size() ? regions[wanted].get() : nullptr;
    return SQLITE_OK;
  }
  int lockSlots(int offset, int count, int flags) {
    const auto begin = static_cast<std::size_t>(offset);
    const auto end = begin + static_cast<std::size_t>(count);
    const bool isExclusive = (flags & SQLITE_SHM_EXCLUSIVE) != 0;
    if ((flags & SQLITE_SHM_UNLOCK) != 0) {
      for (std::size_t slot = begin; slot < end; ++slot) unlockSlot(slot);
      return SQLITE_OK;
    }
    for (std::size_t slot = begin; slot < end; ++slot) {
      if (isTaken(slot, isExclusive)) return SQLITE_BUSY;
    }
    for (std::size_t slot = begin; slot < end; ++slot) {
      if (isExclusive) {
        sharing_->writers[slot] = this;
      } else {
        sharing_->readers[slot].insert(this);
      }
    }
    return SQLITE_OK;
  }
  int unmap() {
    for (std::size_t slot = 0; slot < Sharing::kSlots; ++slot) unlockSlot(slot);
    isMapped_ = false;
    const auto& all = sharing_->connections;
    if (std::ranges::none_of(all, [](const Connection* each) { return each->isMapped_; })) {
      sharing_->regions.clear();
    }
    return SQLITE_OK;
  }

 private:
  int failed(const FileError& error, int code) {
    vfs_.lastError_ = error.number;
    return code;
  }
  [[nodiscard]] int highestOfOthers() const {
    int highest = SQLITE_LOCK_NONE;
    for (const Connection* const each : sharing_->connections) {
      if (each != this) highest = std::max(highest, each->level_);
    }
    return highest;
  }
  /// Asks if the argument is negative, sets otherwise.
  static int flag(bool& flag, void* argument) {
    int& value = *static_cast<int*>(argument);
    if (value < 0) {
      value = flag ? 1 : 0;
    } else {
      flag = value != 0;
    }
    return SQLITE_OK;
  }
  [[nodiscard]] bool isTaken(std::size_t slot, bool forAWriter) const {
    const Connection* const writer = sharing_->writers[slot];
    if (writer != nullptr && writer != this) return true;
    const auto& readers = sharing_->readers[slot];
    return forAWriter && readers.size() > (readers.contains(this) ? 1U : 0U);
  }
  void unlockSlot(std::size_t slot) {
    sharing_->readers[slot].erase(this);
    if (sharing_->writers[slot] == this) sharing_->writers[slot] = nullptr;
  }

  ModelVfs& vfs_;
  const std::shared_ptr<ModelVfsFile> file_;
  const std::string path_;
  const std::shared_ptr<Sharing> sharing_;
  bool syncsFolder_;
  const bool readOnly_;
  bool isMapped_ = false;
  bool keepsLog_ = false;
  bool powersafe_ = true;
  int level_ = SQLITE_LOCK_NONE;
};

/// What SQLite calls.
struct ModelVfs::Calls {
  struct OpenFile : sqlite3_file {
    Connection* connection;
  };
  static Connection& of(sqlite3_file* file) { return *static_cast<OpenFile*>(file)->connection; }
  static ModelVfs& of(sqlite3_vfs* vfs) { return *static_cast<ModelVfs*>(vfs->pAppData); }
  static const sqlite3_io_methods kMethods;

  // --- A file.
  static int close(sqlite3_file* file) {
    return guarded([&] {
      delete static_cast<OpenFile*>(file)->connection;
      file->pMethods = nullptr;
      return SQLITE_OK;
    });
  }
  static int read(sqlite3_file* file, void* into, int length, sqlite3_int64 offset) {
    return guarded([&] { return of(file).read(into, length, offset); });
  }
  static int write(sqlite3_file* file, const void* from, int length, sqlite3_int64 offset) {
    return guarded([&] { return of(file).write(from, length, offset); });
  }
  static int truncate(sqlite3_file* file, sqlite3_int64 size) {
    return guarded([&] { return of(file).truncate(size); });
  }
  static int sync(sqlite3_file* file, int /*flags*/) {
    return guarded([&] { return of(file).sync(); });
  }
  static int fileSize(sqlite3_file* file, sqlite3_int64* size) {
    return guarded([&] {
      *size = of(file).size();
      return SQLITE_OK;
    });
  }
  static int lock(sqlite3_file* file, int level) {
    return guarded([&] { return of(file).lock(level); });
  }
  static int unlock(sqlite3_file* file, int level) {
    return guarded([&] { return of(file).unlock(level); });
  }
  static int checkReservedLock(sqlite3_file* file, int* is) {
    return guarded([&] {
      *is = of(file).isReserved() ? 1 : 0;
      return SQLITE_OK;
    });
  }
  static int fileControl(sqlite3_file* file, int what, void* argument) {
    return guarded([&] { return of(file).control(what, argument); });
  }
  static int sectorSize(sqlite3_file* /*file*/) { return kSectorSize; }
  static int characteristics(sqlite3_file* file) { return of(file).characteristics(); }
  static int shmMap(sqlite3_file* file, int region, int size, int extends, void volatile** memory) {
    return guarded([&] { return of(file).map(region, size, extends != 0, memory); });
  }
  static int shmLock(sqlite3_file* file, int offset, int count, int flags) {
    return guarded([&] { return of(file).lockSlots(offset, count, flags); });
  }
  static void shmBarrier(sqlite3_file* /*file*/) {
    std::atomic_thread_fence(std::memory_order_seq_cst);
  }
  static int shmUnmap(sqlite3_file* file, int /*removes*/) {
    return guarded([&] { return of(file).unmap(); });
  }

  // --- The disk.
  static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags,
                  int* flagsOut) {
    file->pMethods = nullptr;
    return guarded([&] { return of(vfs).open(path, file, flags, flagsOut); });
  }
  static int remove(sqlite3_vfs* vfs, const char* path, int syncsFolder) {
    return guarded([&] { return of(vfs).remove(path, syncsFolder != 0); });
  }
  /// An empty file is none to SQLite.
  static int access(sqlite3_vfs* vfs, const char* path, int /*flags*/, int* is) {
    return guarded([&] {
      *is = of(vfs).disk_.isFilled(path) ? 1 : 0;
      return SQLITE_OK;
    });
  }
  static int fullPathname(sqlite3_vfs* /*vfs*/, const char* path, int length, char* full) {
    const std::size_t size = std::strlen(path) + 1;
    if (size > static_cast<std::size_t>(length)) return SQLITE_CANTOPEN;
    std::memcpy(full, path, size);
    return SQLITE_OK;
  }
  static int randomness(sqlite3_vfs* vfs, int length, char* into) {
    for (int i = 0; i < length; ++i) into[i] = static_cast<char>(of(vfs).random_() & 0xFFU);
    return length;
  }
  static int sleep(sqlite3_vfs* vfs, int micros) {
    of(vfs).micros_ += micros;
    return micros;
  }
  static int currentTime64(sqlite3_vfs* vfs, sqlite3_int64* now) {
    *now = kBegin + of(vfs).micros_ / 1000;
    return SQLITE_OK;
  }
  static int currentTime(sqlite3_vfs* vfs, double* days) {
    sqlite3_int64 now = 0;
    currentTime64(vfs, &now);
    *days = static_cast<double>(now) / 86'400'000.0;
    return SQLITE_OK;
  }
  static int lastError(sqlite3_vfs* vfs, int /*length*/, char* /*text*/) {
    return of(vfs).lastError_;
  }
};

const sqlite3_io_methods ModelVfs::Calls::kMethods = [] {
  sqlite3_io_methods methods{};
  methods.iVersion = 2;
  methods.xClose = close;
  methods.xRead = read;
  methods.xWrite = write;
  methods.xTruncate = truncate;
  methods.xSync = sync;
  methods.xFileSize = fileSize;
  methods.xLock = lock;
  methods.xUnlock = unlock;
  methods.xCheckReservedLock = checkReservedLock;
  methods.xFileControl = fileControl;
  methods.xSectorSize = sectorSize;
  methods.xDeviceCharacteristics = characteristics;
  methods.xShmMap = shmMap;
  methods.xShmLock = shmLock;
  methods.xShmBarrier = shmBarrier;
  methods.xShmUnmap = shmUnmap;
  return methods;
}();

ModelVfs::ModelVfs(ModelVfsDisk& disk, std::uint64_t seed)
    : disk_(disk), name_(newName()), random_(seed) {
  vfs_.iVersion = 2;
  vfs_.szOsFile = sizeof(Calls::OpenFile);
  vfs_.mxPathname = kLongestPath;
  vfs_.zName = name_.c_str();
  vfs_.pAppData = this;
  vfs_.xOpen = Calls::open;
  vfs_.xDelete = Calls::remove;
  vfs_.xAccess = Calls::access;
  vfs_.xFullPathname = Calls::fullPathname;
  vfs_.xRandomness = Calls::randomness;
  vfs_.xSleep = Calls::sleep;
  vfs_.xCurrentTime = Calls::currentTime;
  vfs_.xCurrentTimeInt64 = Calls::currentTime64;
  vfs_.xGetLastError = Calls::lastError;
  sqlite3_vfs_register(&vfs_, 0);
}

ModelVfs::~ModelVfs() { sqlite3_vfs_unregister(&vfs_); }

int ModelVfs::open(const char* path, sqlite3_file* file, int flags, int* flagsOut) {
  std::shared_ptr<ModelVfsFile> opened;
  if (path == nullptr) {
    opened = disk_.temporaryFile();
  } else {
    const bool isThere = disk_.isFile(path);
    const bool refuses = isThere && (flags & SQLITE_OPEN_EXCLUSIVE) != 0;
    const bool makes = !isThere && (flags & SQLITE_OPEN_CREATE) != 0;
    FileError error;
    if (!refuses) opened = disk_.openFile(path, makes, error);
    if (!opened) {
      lastError_ = refuses ? EEXIST : error.number;
      return SQLITE_CANTOPEN;
    }
    if ((flags & SQLITE_OPEN_DELETEONCLOSE) != 0) static_cast<void>(disk_.remove(path));
  }
  auto connection =
      std::make_unique<Connection>(*this, std::move(opened), path == nullptr ? "" : path, flags);
  auto* const open = new (file) Calls::OpenFile{};
  open->pMethods = &Calls::kMethods;
  open->connection = connection.release();
  if (flagsOut != nullptr) *flagsOut = flags;
  return SQLITE_OK;
}

int ModelVfs::remove(const std::string& path, bool syncsFolder) {
  if (!disk_.isFile(path)) return SQLITE_IOERR_DELETE_NOENT;
  if (const auto error = disk_.remove(path)) {
    lastError_ = error->number;
    return SQLITE_IOERR_DELETE;
  }
  if (syncsFolder && disk_.syncFolder(folderOf(path))) return SQLITE_IOERR_DIR_FSYNC;
  return SQLITE_OK;
}

std::shared_ptr<ModelVfs::Sharing> ModelVfs::sharingOf(const void* file) {
  std::erase_if(sharings_, [](const auto& each) { return each.second.expired(); });
  auto sharing = sharings_[file].lock();
  if (!sharing) sharings_[file] = sharing = std::make_shared<Sharing>();
  return sharing;
}

}  // namespace kestrin::test
