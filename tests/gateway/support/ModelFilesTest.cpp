// The model disk itself: names, writes and cuts; and a plain database of SQLite's on it, which must
// keep what SQLite promises, or the model would not be a disk.
//
// KESTRIN_DISK_SEED is the first seed of what is done by chance, 1 if not given.
#include "gateway/support/ModelFiles.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace kestrin::test {
namespace {

using gateway::FileError;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* kPath = "/data/one.sqlite";

std::uint64_t firstSeed() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing sets it.
  const char* const value = std::getenv("KESTRIN_DISK_SEED");
  return value == nullptr ? 1 : std::strtoull(value, nullptr, 10);
}

std::shared_ptr<ModelFiles> diskWithFolder(std::uint64_t seed) {
  auto disk = std::make_shared<ModelFiles>(seed);
  EXPECT_FALSE(disk->makeFolder("/data"));
  return disk;
}

std::shared_ptr<ModelVfsFile> make(ModelFiles& disk, const std::string& path,
                                   const Bytes& bytes = {}) {
  FileError error;
  auto file = disk.openFile(path, true, error);
  if (!file) throw std::runtime_error(error.text);
  EXPECT_FALSE(file->append(bytes));
  return file;
}

std::optional<Bytes> contentOf(ModelFiles& disk, const std::string& path) {
  FileError error;
  const auto file = disk.openFile(path, false, error);
  if (!file) return std::nullopt;
  Bytes bytes(static_cast<std::size_t>(file->size()));
  std::size_t count = 0;
  EXPECT_FALSE(file->read(0, bytes, count));
  return bytes;
}

std::vector<std::string> namesIn(ModelFiles& disk, const std::string& folder) {
  std::vector<std::string> names;
  EXPECT_FALSE(disk.list(folder, names));
  return names;
}

// --- Names.

TEST(ModelFiles, AFolderMovesWithWhatIsInIt) {
  const auto disk = diskWithFolder(1);
  ASSERT_FALSE(disk->makeFolder("/data/current/deep"));
  make(*disk, "/data/current/deep/a", {1, 2});
  ASSERT_FALSE(disk->rename("/data/current", "/data/old"));
  EXPECT_EQ(namesIn(*disk, "/data"), std::vector<std::string>{"old"});
  EXPECT_EQ(contentOf(*disk, "/data/old/deep/a"), Bytes({1, 2}));
  EXPECT_FALSE(contentOf(*disk, "/data/current/deep/a"));
}

TEST(ModelFiles, AFolderThatMovedIsAfterACutWhollyInOnePlace) {
  std::set<std::vector<std::string>> seen;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const auto disk = diskWithFolder(1);
    ASSERT_FALSE(disk->makeFolder("/data/current"));
    ASSERT_FALSE(make(*disk, "/data/current/a", {1, 2})->sync());
    ASSERT_FALSE(disk->syncFolder("/data/current"));
    ASSERT_FALSE(disk->rename("/data/current", "/data/old"));
    const auto after = disk->afterCut(seed);
    const auto names = namesIn(*after, "/data");
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(contentOf(*after, "/data/" + names.front() + "/a"), Bytes({1, 2}));
    seen.insert(names);
    ASSERT_FALSE(disk->syncFolder("/data"));
    EXPECT_EQ(namesIn(*disk->afterCut(seed), "/data"), std::vector<std::string>{"old"});
  }
  EXPECT_EQ(seen.size(), 2U);
}

TEST(ModelFiles, WhatIsInTheWayOfANameIsReplacedOrRefused) {
  const auto disk = diskWithFolder(1);
  make(*disk, "/data/a", {1});
  make(*disk, "/data/b", {2});
  ASSERT_FALSE(disk->makeFolder("/data/empty"));
  ASSERT_FALSE(disk->makeFolder("/data/filled/deep"));
  ASSERT_FALSE(disk->rename("/data/a", "/data/b"));
  EXPECT_EQ(contentOf(*disk, "/data/b"), Bytes({1}));
  EXPECT_EQ(disk->rename("/data/b", "/data/empty")->number, EISDIR);
  EXPECT_EQ(disk->rename("/data/empty", "/data/filled")->number, ENOTEMPTY);
  EXPECT_FALSE(disk->rename("/data/filled", "/data/empty"));
  EXPECT_EQ(disk->rename("/data/none", "/data/c")->number, ENOENT);
  EXPECT_EQ(disk->remove("/data/empty")->number, EISDIR);
  FileError error;
  EXPECT_FALSE(disk->open("/nowhere/a", true, error));
  EXPECT_EQ(error.number, ENOENT);
}

TEST(ModelFiles, ANameIsThereForCertainOnceItsFolderWasSynced) {
  std::set<bool> seen;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const auto disk = diskWithFolder(1);
    const auto file = make(*disk, "/data/a", {1});
    ASSERT_FALSE(file->sync());
    seen.insert(disk->afterCut(seed)->isFile("/data/a"));
    ASSERT_FALSE(disk->syncFolder("/data"));
    EXPECT_EQ(contentOf(*disk->afterCut(seed), "/data/a"), Bytes({1}));
  }
  EXPECT_EQ(seen.size(), 2U);
}

TEST(ModelFiles, WhatWasNotSyncedBeforeAKillIsNotSyncedBehindIt) {
  bool lostName = false;
  bool lostBytes = false;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const auto disk = diskWithFolder(1);
    make(*disk, "/data/a");
    ASSERT_FALSE(disk->syncFolder("/data"));
    make(*disk, "/data/b");
    FileError error;
    ASSERT_FALSE(disk->openFile("/data/a", false, error)->append(Bytes(10, 1)));
    const auto cut = disk->afterKill()->afterCut(seed);
    lostName = lostName || !cut->isFile("/data/b");
    lostBytes = lostBytes || contentOf(*cut, "/data/a") != Bytes(10, 1);
    const auto killed = disk->afterKill();
    ASSERT_FALSE(killed->syncFolder("/data"));
    ASSERT_FALSE(killed->openFile("/data/a", false, error)->sync());
    EXPECT_TRUE(killed->afterCut(seed)->isFile("/data/b"));
    EXPECT_EQ(contentOf(*killed->afterCut(seed), "/data/a"), Bytes(10, 1));
  }
  EXPECT_TRUE(lostName);
  EXPECT_TRUE(lostBytes);
}

TEST(ModelFiles, AFolderIsSyncedByItself) {
  bool lost = false;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const auto disk = diskWithFolder(1);
    ASSERT_FALSE(disk->makeFolder("/other"));
    make(*disk, "/data/a");
    ASSERT_FALSE(disk->syncFolder("/other"));
    lost = lost || !disk->afterCut(seed)->isFile("/data/a");
  }
  EXPECT_TRUE(lost);
}

// --- Writes.

TEST(ModelFiles, AKillLosesNothingAndACutNothingThatWasSynced) {
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    const auto disk = diskWithFolder(1);
    const auto file = make(*disk, "/data/a", Bytes(10'000, 1));
    ASSERT_FALSE(disk->syncFolder("/data"));
    ASSERT_FALSE(file->sync());
    ASSERT_FALSE(file->write(3000, Bytes(5000, 2)));
    const auto whole = contentOf(*disk, "/data/a");
    EXPECT_EQ(contentOf(*disk->afterKill(), "/data/a"), whole);
    const auto cut = contentOf(*disk->afterCut(seed), "/data/a");
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->size(), 10'000U);
    for (std::size_t at = 0; at < cut->size(); ++at) {
      if (at >= 3000 && at < 8000) continue;
      ASSERT_EQ((*cut)[at], 1) << at;
    }
    ASSERT_FALSE(file->sync());
    EXPECT_EQ(contentOf(*disk->afterCut(seed), "/data/a"), whole);
  }
}

TEST(ModelFiles, ACutTearsWritesAndReordersThem) {
  bool torn = false;
  bool reordered = false;
  bool garbled = false;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    const auto disk = diskWithFolder(1);
    const auto file = make(*disk, "/data/a", Bytes(9000, 1));
    ASSERT_FALSE(disk->syncFolder("/data"));
    ASSERT_FALSE(file->sync());
    ASSERT_FALSE(file->write(0, Bytes(2048, 2)));
    ASSERT_FALSE(file->write(4096, Bytes(1, 3)));
    const auto cut = contentOf(*disk->afterCut(seed), "/data/a");
    ASSERT_TRUE(cut);
    const auto written = std::count(cut->begin(), cut->begin() + 2048, 2);
    torn = torn || (written > 0 && written < 2048);
    reordered = reordered || (written == 0 && (*cut)[4096] == 3);
    garbled =
        garbled || std::any_of(cut->begin(), cut->begin() + 2048, [](auto b) { return b > 3; });
  }
  EXPECT_TRUE(torn);
  EXPECT_TRUE(reordered);
  EXPECT_TRUE(garbled);
}

TEST(ModelFiles, AFailedSyncMayLoseWhatALaterOneDoesNotBringBack) {
  bool lost = false;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const auto disk = diskWithFolder(seed);
    const auto file = make(*disk, "/data/a", {1, 2, 3});
    ASSERT_FALSE(disk->syncFolder("/data"));
    disk->faults = {.sync = 1};
    EXPECT_EQ(file->sync()->number, EIO);
    disk->faults = {};
    EXPECT_EQ(contentOf(*disk, "/data/a"), Bytes({1, 2, 3}));
    ASSERT_FALSE(file->sync());
    lost = lost || contentOf(*disk->afterCut(seed), "/data/a") != Bytes({1, 2, 3});
  }
  EXPECT_TRUE(lost);
}

TEST(ModelFiles, AFailedSyncMayForgetWhatWasWritten) {
  bool forgot = false;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    const auto disk = diskWithFolder(seed);
    const auto file = make(*disk, "/data/a", {1, 2, 3});
    ASSERT_FALSE(disk->syncFolder("/data"));
    disk->faults = {.sync = 1, .forgetPages = 1};
    EXPECT_EQ(file->sync()->number, EIO);
    forgot = forgot || contentOf(*disk, "/data/a") == Bytes{};
    EXPECT_EQ(contentOf(*disk, "/data/a"), contentOf(*disk->afterCut(seed), "/data/a"));
  }
  EXPECT_TRUE(forgot);
}

TEST(ModelFiles, AFullDiskTakesWhatNeedsNoMoreRoom) {
  const auto disk = diskWithFolder(1);
  const auto file = make(*disk, "/data/a", Bytes(1000, 1));
  disk->full = true;
  EXPECT_FALSE(file->write(500, Bytes(500, 2)));
  EXPECT_EQ(file->write(500, Bytes(1000, 3))->number, ENOSPC);
  EXPECT_LT(file->size(), 1500U);
  EXPECT_GE(std::ranges::count(*contentOf(*disk, "/data/a"), 3), 500);
  FileError error;
  EXPECT_FALSE(disk->openFile("/data/b", true, error));
  EXPECT_EQ(error.number, ENOSPC);
  EXPECT_FALSE(disk->rename("/data/a", "/data/c"));
  EXPECT_FALSE(disk->remove("/data/c"));
}

TEST(ModelFiles, ADamagedByteIsWrongBeforeAndAfterACut) {
  const auto disk = diskWithFolder(1);
  const auto file = make(*disk, "/data/a", {1, 2, 3});
  ASSERT_FALSE(file->sync());
  ASSERT_FALSE(disk->syncFolder("/data"));
  EXPECT_TRUE(disk->damage("/data/a", 1, 0xF0));
  EXPECT_EQ(contentOf(*disk, "/data/a"), Bytes({1, 0xF2, 3}));
  EXPECT_EQ(contentOf(*disk->afterCut(1), "/data/a"), Bytes({1, 0xF2, 3}));
  EXPECT_FALSE(disk->damage("/data/a", 3, 0xF0));
  EXPECT_FALSE(disk->damage("/data/b", 0, 0xF0));
}

// --- SQLite.

class Database {
 public:
  explicit Database(ModelFiles& disk, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
    result = sqlite3_open_v2(kPath, &base_, flags | SQLITE_OPEN_NOMUTEX, disk.vfs().c_str());
  }
  ~Database() { sqlite3_close_v2(base_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// True if it worked; `rows` has the first column then.
  bool run(const std::string& text) {
    rows.clear();
    result = sqlite3_exec(base_, text.c_str(), &Database::take, this, nullptr);
    return result == SQLITE_OK;
  }
  std::string only(const std::string& text) {
    return run(text) && rows.size() == 1 ? rows.front() : "error " + why();
  }
  [[nodiscard]] std::string why() const { return sqlite3_errmsg(base_); }
  [[nodiscard]] sqlite3* base() const { return base_; }

  int result = SQLITE_OK;
  std::vector<std::string> rows;

 private:
  static int take(void* self, int count, char** values, char** /*names*/) {
    auto& rows = static_cast<Database*>(self)->rows;
    rows.emplace_back(count > 0 && values[0] != nullptr ? values[0] : "");
    return 0;
  }
  sqlite3* base_ = nullptr;
};

constexpr const char* kSetUp =
    "PRAGMA page_size=1024; PRAGMA journal_mode=WAL;"
    "CREATE TABLE IF NOT EXISTS r(n INTEGER PRIMARY KEY, bytes BLOB);";

/// Transactions by chance, each of which leaves rows with numbers from the first to the last.
class Transactions {
 public:
  using Rows = std::pair<std::uint64_t, std::uint64_t>;

  Transactions(std::uint64_t seed, bool full, bool lying = false)
      : random_(seed), full_(full), disk_(diskWithFolder(seed)) {
    disk_->lying = lying;
  }

  /// What is wrong, if anything.
  std::string play() {
    disk_->changed = [this] { check(disk_->afterCut(random_()), durable_, "after a cut"); };
    open();
    for (std::size_t i = 0; i < 30 && wrong_.empty(); ++i) step();
    disk_->changed = nullptr;
    const auto killed = disk_->afterKill();
    if (wrong_.empty()) check(killed, states_.size() - 1, "after a kill");
    return wrong_;
  }
  [[nodiscard]] std::size_t cuts() const { return cuts_; }

 private:
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(random_() % bound); }

  void open() {
    base_ = std::make_unique<Database>(*disk_);
    if (!base_->run(kSetUp)) wrong_ = base_->why();
    if (!base_->run(full_ ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL")) {
      wrong_ = base_->why();
    }
  }
  void step() {
    switch (below(8)) {
      case 0:
        base_->run("PRAGMA wal_checkpoint(PASSIVE)");
        durable_ = states_.size() - 1;
        break;
      case 1:
        reopen();
        break;
      default:
        commit();
    }
  }
  void commit() {
    auto [first, last] = states_.back();
    std::string text = "BEGIN;";
    for (std::size_t i = below(4) + 1; i > 0; --i) {
      text += "INSERT INTO r VALUES(" + std::to_string(++last) + ",randomblob(" +
              std::to_string(below(3000)) + "));";
    }
    if (below(3) == 0) {
      first += below(static_cast<std::size_t>(last - first + 1));
      text += "DELETE FROM r WHERE n<" + std::to_string(first) + ";";
    }
    states_.emplace_back(first, last);
    if (!base_->run(text + "COMMIT;")) wrong_ = base_->why();
    if (full_) durable_ = states_.size() - 1;
  }
  void reopen() {
    disk_->changed = nullptr;
    auto next = below(2) == 0 ? disk_->afterKill() : nullptr;
    if (!next) {
      next = disk_->afterCut(random_());
      const auto now = check(next, durable_, "after a cut");
      if (!wrong_.empty()) return;
      states_.resize(now + 1);
    }
    const bool lying = disk_->lying;
    base_.reset();
    disk_ = next;
    disk_->lying = lying;
    disk_->changed = [this] { check(disk_->afterCut(random_()), durable_, "after a cut"); };
    open();
    durable_ = std::min(durable_, states_.size() - 1);
  }

  /// Which of the states the database is in.
  std::size_t check(const std::shared_ptr<ModelFiles>& disk, std::size_t atLeast,
                    const std::string& when) {
    ++cuts_;
    if (!wrong_.empty()) return 0;
    const auto copy = disk->afterKill();
    Database base(*copy);
    if (const auto text = base.only("PRAGMA integrity_check"); text != "ok") {
      wrong_ = text + " " + when;
      return 0;
    }
    const bool hasTable = base.only("SELECT count(*) FROM sqlite_master") == "1";
    const auto number = [&](const std::string& what) -> std::uint64_t {
      return hasTable ? std::stoull(base.only("SELECT " + what + " FROM r")) : 0;
    };
    const auto count = number("count(*)");
    const Rows rows =
        count == 0 ? Rows{1, 0} : Rows{number("coalesce(min(n),0)"), number("coalesce(max(n),0)")};
    for (std::size_t i = atLeast; i < states_.size(); ++i) {
      if (states_[i] == rows && rows.second + 1 - rows.first == count) return i;
    }
    wrong_ = "rows from " + std::to_string(rows.first) + " to " + std::to_string(rows.second) +
             " " + when + ", wanted up to " + std::to_string(states_[atLeast].second);
    return 0;
  }

  std::mt19937_64 random_;
  const bool full_;
  std::shared_ptr<ModelFiles> disk_;
  std::unique_ptr<Database> base_;
  std::vector<Rows> states_{{1, 0}};
  std::size_t durable_ = 0;  // The state that is on the disk for certain.
  std::string wrong_;
  std::size_t cuts_ = 0;
};

TEST(ModelDatabase, WhatWasCommittedAndSyncedIsThereAfterACutAtEveryChange) {
  std::size_t cuts = 0;
  for (std::uint64_t seed = firstSeed(); seed < firstSeed() + 10; ++seed) {
    Transactions transactions(seed, true);
    EXPECT_EQ(transactions.play(), "") << "KESTRIN_DISK_SEED=" << seed << " repeats it";
    cuts += transactions.cuts();
  }
  EXPECT_GT(cuts, 3000U);
}

TEST(ModelDatabase, WhatWasCommittedWithoutASyncIsLostFromItsEnd) {
  for (std::uint64_t seed = firstSeed(); seed < firstSeed() + 10; ++seed) {
    Transactions transactions(seed, false);
    EXPECT_EQ(transactions.play(), "") << "KESTRIN_DISK_SEED=" << seed << " repeats it";
  }
}

TEST(ModelDatabase, ADiskThatLiesAboutSyncingIsFoundOut) {
  std::size_t found = 0;
  for (std::uint64_t seed = firstSeed(); seed < firstSeed() + 20; ++seed) {
    if (!Transactions(seed, true, true).play().empty()) ++found;
  }
  EXPECT_GT(found, 15U);
}

class ModelDatabaseTest : public testing::Test {
 protected:
  const std::shared_ptr<ModelFiles> disk = diskWithFolder(1);
};

TEST_F(ModelDatabaseTest, ReadersAndAWriterShareIt) {
  Database writer(*disk);
  ASSERT_TRUE(writer.run(kSetUp)) << writer.why();
  ASSERT_TRUE(writer.run("INSERT INTO r VALUES(1,'a')")) << writer.why();
  Database reader(*disk);
  ASSERT_TRUE(reader.run("BEGIN"));
  EXPECT_EQ(reader.only("SELECT count(*) FROM r"), "1");
  ASSERT_TRUE(writer.run("INSERT INTO r VALUES(2,'b')")) << writer.why();
  EXPECT_EQ(reader.only("SELECT count(*) FROM r"), "1");
  ASSERT_TRUE(reader.run("COMMIT"));
  EXPECT_EQ(reader.only("SELECT count(*) FROM r"), "2");
}

TEST_F(ModelDatabaseTest, TwoWritersExcludeEachOther) {
  Database one(*disk);
  Database two(*disk);
  ASSERT_TRUE(one.run(kSetUp)) << one.why();
  ASSERT_TRUE(one.run("BEGIN IMMEDIATE"));
  EXPECT_FALSE(two.run("BEGIN IMMEDIATE"));
  EXPECT_EQ(two.result, SQLITE_BUSY);
  ASSERT_TRUE(one.run("COMMIT"));
  EXPECT_TRUE(two.run("BEGIN IMMEDIATE")) << two.why();
}

TEST_F(ModelDatabaseTest, AReaderKeepsACheckpointFromWhatItReads) {
  Database writer(*disk);
  ASSERT_TRUE(writer.run(kSetUp)) << writer.why();
  Database reader(*disk);
  ASSERT_TRUE(reader.run("BEGIN"));
  EXPECT_EQ(reader.only("SELECT count(*) FROM r"), "0");
  ASSERT_TRUE(writer.run("INSERT INTO r VALUES(1,randomblob(5000))")) << writer.why();
  int all = 0;
  int done = 0;
  EXPECT_EQ(
      sqlite3_wal_checkpoint_v2(writer.base(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, &all, &done),
      SQLITE_BUSY);
  EXPECT_LT(done, all);
  ASSERT_TRUE(reader.run("COMMIT"));
  EXPECT_EQ(sqlite3_wal_checkpoint_v2(writer.base(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                                      nullptr),
            SQLITE_OK);
  EXPECT_EQ(contentOf(*disk, std::string(kPath) + "-wal"), Bytes{});
}

TEST_F(ModelDatabaseTest, WithoutAWriteAheadLogAWriterWaitsForReaders) {
  Database writer(*disk);
  ASSERT_TRUE(writer.run("CREATE TABLE r(n INTEGER PRIMARY KEY, bytes BLOB)")) << writer.why();
  Database reader(*disk);
  ASSERT_TRUE(reader.run("BEGIN; SELECT * FROM r")) << reader.why();
  ASSERT_TRUE(writer.run("BEGIN; INSERT INTO r VALUES(1,'a')")) << writer.why();
  EXPECT_FALSE(writer.run("COMMIT"));
  EXPECT_EQ(writer.result, SQLITE_BUSY);
  Database late(*disk);
  EXPECT_FALSE(late.run("SELECT * FROM r"));
  EXPECT_EQ(late.result, SQLITE_BUSY);
  ASSERT_TRUE(reader.run("COMMIT"));
  EXPECT_TRUE(writer.run("COMMIT")) << writer.why();
  EXPECT_EQ(late.only("SELECT count(*) FROM r"), "1");
}

TEST_F(ModelDatabaseTest, AFullDiskRefusesATransactionAndKeepsTheOthers) {
  Database base(*disk);
  ASSERT_TRUE(base.run(kSetUp)) << base.why();
  ASSERT_TRUE(base.run("INSERT INTO r VALUES(1,'a')")) << base.why();
  disk->full = true;
  EXPECT_FALSE(base.run("INSERT INTO r VALUES(2,randomblob(9000))"));
  EXPECT_EQ(base.result, SQLITE_FULL);
  const auto killed = disk->afterKill();
  Database same(*killed);
  EXPECT_EQ(same.only("SELECT max(n) FROM r"), "1");
  disk->full = false;
  EXPECT_TRUE(base.run("INSERT INTO r VALUES(2,randomblob(9000))")) << base.why();
}

TEST_F(ModelDatabaseTest, FaultsAreSqlitesErrors) {
  Database base(*disk);
  ASSERT_TRUE(base.run(kSetUp)) << base.why();
  sqlite3_extended_result_codes(base.base(), 1);
  const auto resultWith = [&](DiskFaults faults, const std::string& text) {
    disk->faults = faults;
    base.run(text);
    disk->faults = {};
    return base.result;
  };
  const std::string insert = "INSERT INTO r(bytes) VALUES('a')";
  EXPECT_EQ(resultWith({.write = 1}, insert), SQLITE_IOERR_WRITE);
  EXPECT_EQ(resultWith({.shortWrite = 1}, insert), SQLITE_FULL);
  EXPECT_EQ(resultWith({.sync = 1}, "PRAGMA synchronous=FULL;" + insert), SQLITE_IOERR_FSYNC);
  EXPECT_EQ(resultWith({}, insert), SQLITE_OK);
  EXPECT_EQ(resultWith({.truncate = 1}, "PRAGMA wal_checkpoint(TRUNCATE)"), SQLITE_IOERR_TRUNCATE);
  EXPECT_EQ(base.only("PRAGMA integrity_check"), "ok");
  disk->faults.entry = 1;
  EXPECT_FALSE(disk->remove(kPath) == std::nullopt);
  const auto empty = diskWithFolder(2);
  empty->faults.entry = 1;
  Database none(*empty);
  EXPECT_EQ(none.result, SQLITE_CANTOPEN);
}

TEST_F(ModelDatabaseTest, NoExceptionPassesThroughSqlite) {
  Database base(*disk);
  ASSERT_TRUE(base.run(kSetUp)) << base.why();
  disk->changed = [] { throw std::runtime_error("from a test"); };
  EXPECT_FALSE(base.run("INSERT INTO r VALUES(1,'a')"));
  disk->changed = nullptr;
  EXPECT_EQ(base.only("PRAGMA integrity_check"), "ok");
}

// What the file system for SQLite does by itself.

class ModelVfsTest : public testing::Test {
 protected:
  struct Open {
    explicit Open(const ModelFiles& disk, const std::string& name, int flags) : path(name) {
      vfs = sqlite3_vfs_find(disk.vfs().c_str());
      memory.resize(static_cast<std::size_t>(vfs->szOsFile));
      result = vfs->xOpen(vfs, path.c_str(), file(), flags, nullptr);
    }
    ~Open() {
      if (file()->pMethods != nullptr) calls().xClose(file());
    }
    Open(const Open&) = delete;
    Open& operator=(const Open&) = delete;
    // SQLite hands out memory like this as well.
    sqlite3_file* file() { return static_cast<sqlite3_file*>(static_cast<void*>(memory.data())); }
    const sqlite3_io_methods& calls() { return *file()->pMethods; }
    int lockSlots(int offset, int count, int flags) {
      return calls().xShmLock(file(), offset, count, flags);
    }

    const std::string path;
    sqlite3_vfs* vfs = nullptr;
    std::vector<std::max_align_t> memory;
    int result = SQLITE_OK;
  };
  static constexpr int kMake = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  static constexpr int kTake = SQLITE_SHM_LOCK | SQLITE_SHM_EXCLUSIVE;
  static constexpr int kShare = SQLITE_SHM_LOCK | SQLITE_SHM_SHARED;

  const std::shared_ptr<ModelFiles> disk = diskWithFolder(1);
};

TEST_F(ModelVfsTest, ANewWriteAheadLogIsOnTheDiskByNameOnceItWasSynced) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    const std::string path = "/data/" + std::to_string(seed) + "-wal";
    Open log(*disk, path, kMake | SQLITE_OPEN_WAL);
    ASSERT_EQ(log.calls().xWrite(log.file(), "abc", 3, 0), SQLITE_OK);
    ASSERT_EQ(log.calls().xSync(log.file(), SQLITE_SYNC_NORMAL), SQLITE_OK);
    EXPECT_EQ(contentOf(*disk->afterCut(seed), path), Bytes({'a', 'b', 'c'}));
  }
}

TEST_F(ModelVfsTest, NeitherADatabaseNorALogThatWasThereSyncsItsName) {
  std::size_t lost = 0;
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    const std::string name = "/data/" + std::to_string(seed);
    Open base(*disk, name, kMake | SQLITE_OPEN_MAIN_DB);
    ASSERT_EQ(base.calls().xSync(base.file(), SQLITE_SYNC_NORMAL), SQLITE_OK);
    make(*disk, name + "-wal");
    Open log(*disk, name + "-wal", SQLITE_OPEN_READWRITE | SQLITE_OPEN_WAL);
    ASSERT_EQ(log.calls().xSync(log.file(), SQLITE_SYNC_NORMAL), SQLITE_OK);
    if (!disk->afterCut(seed)->isFile(name)) ++lost;
    if (!disk->afterCut(seed)->isFile(name + "-wal")) ++lost;
  }
  EXPECT_GT(lost, 10U);
}

TEST_F(ModelVfsTest, AFolderThatDoesNotSyncBehindANewLogIsNotSaid) {
  Open log(*disk, "/data/a-wal", kMake | SQLITE_OPEN_WAL);
  disk->changed = [&] { disk->faults.sync = 1; };
  EXPECT_EQ(log.calls().xSync(log.file(), SQLITE_SYNC_NORMAL), SQLITE_OK);
  disk->changed = nullptr;
  disk->faults = {};
  std::size_t lost = 0;
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    if (!disk->afterCut(seed)->isFile("/data/a-wal")) ++lost;
  }
  EXPECT_GT(lost, 0U);
}

TEST_F(ModelVfsTest, ItSaysOfADiskWhatTheSystemsOwnSays) {
  Open model(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
  EXPECT_EQ(model.calls().xSectorSize(model.file()), 4096);
  EXPECT_EQ(model.calls().xDeviceCharacteristics(model.file()), SQLITE_IOCAP_POWERSAFE_OVERWRITE);
}

TEST_F(ModelVfsTest, ReadingBehindTheEndGivesZeros) {
  Open file(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
  ASSERT_EQ(file.calls().xWrite(file.file(), "abc", 3, 0), SQLITE_OK);
  std::string bytes = "xxxxx";
  EXPECT_EQ(file.calls().xRead(file.file(), bytes.data(), 5, 1), SQLITE_IOERR_SHORT_READ);
  EXPECT_EQ(bytes, std::string("bc\0\0\0", 5));
}

TEST_F(ModelVfsTest, ASlotHasManyReadersOrOneWriter) {
  Open one(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
  Open two(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
  EXPECT_EQ(one.lockSlots(3, 1, kShare), SQLITE_OK);
  EXPECT_EQ(two.lockSlots(3, 1, kShare), SQLITE_OK);
  EXPECT_EQ(one.lockSlots(2, 3, kTake), SQLITE_BUSY);
  EXPECT_EQ(two.lockSlots(3, 1, SQLITE_SHM_UNLOCK | SQLITE_SHM_SHARED), SQLITE_OK);
  EXPECT_EQ(one.lockSlots(2, 3, kTake), SQLITE_OK);
  EXPECT_EQ(two.lockSlots(4, 1, kShare), SQLITE_BUSY);
  EXPECT_EQ(two.lockSlots(4, 1, kTake), SQLITE_BUSY);
  EXPECT_EQ(two.lockSlots(5, 1, kTake), SQLITE_OK);
  EXPECT_EQ(one.lockSlots(2, 3, SQLITE_SHM_UNLOCK | SQLITE_SHM_EXCLUSIVE), SQLITE_OK);
  EXPECT_EQ(two.lockSlots(4, 1, kTake), SQLITE_OK);
}

TEST_F(ModelVfsTest, WhatAConnectionHadLockedIsFreeOnceItIsClosed) {
  Open one(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
  {
    Open two(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
    EXPECT_EQ(two.lockSlots(0, 8, kTake), SQLITE_OK);
    EXPECT_EQ(two.calls().xLock(two.file(), SQLITE_LOCK_SHARED), SQLITE_OK);
    EXPECT_EQ(two.calls().xLock(two.file(), SQLITE_LOCK_RESERVED), SQLITE_OK);
    int reserved = 0;
    EXPECT_EQ(one.calls().xCheckReservedLock(one.file(), &reserved), SQLITE_OK);
    EXPECT_EQ(reserved, 1);
  }
  EXPECT_EQ(one.lockSlots(0, 8, kTake), SQLITE_OK);
  int reserved = 1;
  EXPECT_EQ(one.calls().xCheckReservedLock(one.file(), &reserved), SQLITE_OK);
  EXPECT_EQ(reserved, 0);
}

TEST_F(ModelVfsTest, MemoryIsSharedUntilNobodyHasIt) {
  void volatile* memory = nullptr;
  {
    Open one(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
    Open two(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
    ASSERT_EQ(one.calls().xShmMap(one.file(), 0, 32768, 0, &memory), SQLITE_OK);
    EXPECT_EQ(memory, nullptr);
    ASSERT_EQ(one.calls().xShmMap(one.file(), 0, 32768, 1, &memory), SQLITE_OK);
    void volatile* same = nullptr;
    ASSERT_EQ(two.calls().xShmMap(two.file(), 0, 32768, 0, &same), SQLITE_OK);
    EXPECT_EQ(memory, same);
    static_cast<char volatile*>(memory)[100] = 'x';
  }
  Open later(*disk, "/data/a", kMake | SQLITE_OPEN_MAIN_DB);
  ASSERT_EQ(later.calls().xShmMap(later.file(), 0, 32768, 0, &memory), SQLITE_OK);
  EXPECT_EQ(memory, nullptr);
}

TEST_F(ModelVfsTest, TimePassesOnlyWhileSqliteSleeps) {
  sqlite3_vfs* const vfs = sqlite3_vfs_find(disk->vfs().c_str());
  sqlite3_int64 before = 0;
  sqlite3_int64 after = 0;
  vfs->xCurrentTimeInt64(vfs, &before);
  EXPECT_EQ(vfs->xSleep(vfs, 5000), 5000);
  vfs->xCurrentTimeInt64(vfs, &after);
  EXPECT_EQ(after - before, 5);
}

TEST_F(ModelVfsTest, EachDiskHasANameOfItsOwnAsLongAsItIsThere) {
  std::string name;
  {
    const auto other = diskWithFolder(1);
    name = other->vfs();
    EXPECT_NE(name, disk->vfs());
    EXPECT_NE(sqlite3_vfs_find(name.c_str()), nullptr);
  }
  EXPECT_EQ(sqlite3_vfs_find(name.c_str()), nullptr);
}

}  // namespace
}  // namespace kestrin::test
