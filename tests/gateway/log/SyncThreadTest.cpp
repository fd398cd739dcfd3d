// The log with its sync thread, as the gateway runs them: the log's own thread appends and reads
// while the other one syncs.
#include "tools/gateway/log/SyncThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>

#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {
namespace {

class GatewaySyncThread : public testing::Test {
 public:
  ~GatewaySyncThread() override {
    log_.reset();
    std::filesystem::remove_all(folder_);
  }

 protected:
  GatewaySyncThread() {
    std::string pattern = testing::TempDir() + "kestrin-sync-XXXXXX";
    LogOptions options;
    options.folder = folder_ = ::mkdtemp(pattern.data());
    options.budget = 1U << 20U;
    std::string error;
    log_ = Log::open(systemFiles(), options, error);
    EXPECT_TRUE(log_) << error;
  }

  void append() {
    Record record;
    record.bytes.assign(50, 7);
    FileError error;
    // Where the disk is slow, the budget can refuse some.
    static_cast<void>(log_->append(record, error));
  }

  std::string folder_;
  std::unique_ptr<Log> log_;
};

TEST_F(GatewaySyncThread, SyncsWhileTheLogIsAppendedToAndRead) {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;
  SyncThread thread;
  for (int round = 0; round < 50; ++round) {
    append();
    const auto work = log_->beginSync();
    ASSERT_TRUE(work);
    thread.start(work, [&] {
      const std::lock_guard lock(mutex);
      done = true;
      changed.notify_one();
    });
    for (int i = 0; i < 40; ++i) append();
    std::vector<Record> records;
    EXPECT_FALSE(log_->read(log_->first(), 100, 1U << 20U, records));
    log_->forget(log_->synced() / 2);
    log_->keep("warehouse", log_->synced());
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return done; });
    done = false;
    const auto error = log_->endSync(work);
    ASSERT_FALSE(error) << error->text;
  }
  EXPECT_GT(log_->synced(), 1000U);
}

TEST_F(GatewaySyncThread, FinishesWhatWasHandedOverBeforeItEnds) {
  append();
  const auto work = log_->beginSync();
  std::atomic<bool> done = false;
  {
    SyncThread thread;
    thread.start(work, [&done] { done = true; });
  }
  EXPECT_TRUE(done);
  EXPECT_FALSE(log_->endSync(work));
  EXPECT_EQ(log_->synced(), 1U);
}

}  // namespace
}  // namespace kestrin::gateway
