// What the log does on a disk that is full, or that goes on failing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "gateway/support/ModelFiles.h"
#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {
namespace {

using test::ModelFiles;
using testing::HasSubstr;

class GatewayLogFaults : public testing::Test {
 protected:
  GatewayLogFaults() { EXPECT_FALSE(files_->makeFolder("/log")); }

  void open() {
    LogOptions options;
    options.folder = "/log";
    options.budget = kSmallestBudget;
    std::string error;
    log_ = Log::open(files_, options, error);
    // Nothing can go on without it.
    if (!log_) throw std::runtime_error(error);
  }
  /// The process is gone before it can do anything; the disk stays as full as it was.
  void kill() { goOnWith(files_->afterKill()); }
  void cutPower() { goOnWith(files_->afterCut(1)); }
  void fillDisk() { files_->full = true; }
  void breakSyncing() { files_->faults.sync = 1; }
  void mendDisk() {
    files_->faults = {};
    files_->full = false;
  }

  std::optional<RecordNumber> append() {
    Record record;
    record.reader = "reader";
    record.bytes.assign(500, 0x55);
    FileError error;
    return log_->append(record, error);
  }
  void append(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) ASSERT_TRUE(append());
  }
  std::optional<FileError> sync() {
    while (const auto work = log_->beginSync()) {
      run(*work);
      if (auto error = log_->endSync(work)) return error;
    }
    return std::nullopt;
  }
  [[nodiscard]] std::uint64_t writeAheadBytes() const {
    FileError error;
    const auto file = files_->open("/log/current/records.sqlite-wal", false, error);
    return file ? file->size() : 0;
  }
  [[nodiscard]] std::vector<Record> records() {
    std::vector<Record> records;
    EXPECT_FALSE(log_->read(1, 100000, 1U << 30U, records));
    return records;
  }
  [[nodiscard]] std::vector<RecordNumber> frames() {
    std::vector<RecordNumber> numbers;
    for (const Record& record : records()) {
      if (!record.gap) numbers.push_back(record.number);
    }
    return numbers;
  }

  std::shared_ptr<ModelFiles> files_ = std::make_shared<ModelFiles>(1);
  std::unique_ptr<Log> log_;

 private:
  void goOnWith(std::shared_ptr<ModelFiles> files) {
    // What the old process does at its end does not come to the disk any more.
    const auto old = std::exchange(files_, std::move(files));
    log_.reset();
  }
};

std::vector<RecordNumber> numbersFromTo(RecordNumber from, RecordNumber to) {
  std::vector<RecordNumber> numbers;
  for (RecordNumber number = from; number <= to; ++number) numbers.push_back(number);
  return numbers;
}

TEST_F(GatewayLogFaults, AFullDiskKeepsNoLogFromBeingOpenedAndEmptied) {
  open();
  append(200);
  ASSERT_FALSE(sync());
  append(5);
  fillDisk();
  kill();
  open();
  EXPECT_EQ(frames(), numbersFromTo(1, 205));
  EXPECT_EQ(log_->synced(), 205U);
  log_->forget(200);
  EXPECT_FALSE(sync());
  EXPECT_EQ(log_->first(), 201U);
  cutPower();
  open();
  EXPECT_EQ(log_->forgotten(), 200U);
  EXPECT_EQ(frames(), numbersFromTo(201, 205));
}

TEST_F(GatewayLogFaults, WhatIsForgottenOnAFullDiskMakesRoomForNewRecords) {
  open();
  append(100);
  ASSERT_FALSE(sync());
  fillDisk();
  RecordNumber last = 100;
  while (const auto number = append()) last = *number;
  EXPECT_GE(last, 100U);
  EXPECT_FALSE(append());
  sync();
  log_->forget(log_->synced());
  EXPECT_FALSE(sync());
  append(50);
  EXPECT_FALSE(sync());
  EXPECT_EQ(frames().size(), 50U);
  EXPECT_EQ(log_->synced() + 1, log_->next());
}

TEST_F(GatewayLogFaults, RecordsThatAFullDiskRefusesAreNamedOnceItTakesOneAgain) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  fillDisk();
  while (append()) {
  }
  for (int i = 0; i < 9; ++i) EXPECT_FALSE(append());
  const auto kept = frames();
  mendDisk();
  append(1);
  const auto all = records();
  const Record& gap = all.at(all.size() - 2);
  ASSERT_TRUE(gap.gap);
  EXPECT_EQ(*gap.gap,
            (Gap{log_->identity(), kept.back() + 1, kept.back() + 10, GapReason::refused}));
  EXPECT_EQ(gap.number, kept.back() + 11);
}

TEST_F(GatewayLogFaults, NothingIsSyncedWhileSyncingFailsAndNothingPilesUp) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  append(10);
  breakSyncing();
  for (int i = 0; i < 50; ++i) {
    append(1);
    EXPECT_TRUE(sync());
    EXPECT_EQ(log_->synced(), 10U);
  }
  EXPECT_LE(files_->used(), kSmallestBudget);
  mendDisk();
  ASSERT_FALSE(sync());
  EXPECT_EQ(log_->synced(), 70U);
  EXPECT_EQ(frames(), numbersFromTo(1, 70));
  cutPower();
  open();
  EXPECT_EQ(frames(), numbersFromTo(1, 70));
}

TEST_F(GatewayLogFaults, StaysWithinItsBudgetWhileASyncThatHasFailedIsUnderWay) {
  open();
  append(100);
  ASSERT_FALSE(sync());
  append(10);
  breakSyncing();
  const auto work = log_->beginSync();
  ASSERT_TRUE(work);
  run(*work);
  mendDisk();
  // Nobody has handed the work back yet, so that nothing gets out of the write-ahead log.
  RecordNumber last = 110;
  while (const auto number = append()) {
    last = *number;
    ASSERT_LE(log_->size(), kSmallestBudget);
    ASSERT_LE(files_->used(), kSmallestBudget);
  }
  EXPECT_GT(last, 150U);
  for (int i = 0; i < 9; ++i) EXPECT_FALSE(append());
  EXPECT_TRUE(log_->endSync(work));
  ASSERT_FALSE(sync());
  const auto all = records();
  EXPECT_EQ(frames(), numbersFromTo(1, last));
  ASSERT_TRUE(all.back().gap);
  EXPECT_EQ(*all.back().gap, (Gap{log_->identity(), last + 1, last + 10, GapReason::refused}));
}

TEST_F(GatewayLogFaults, StaysWithinItsBudgetWhileSyncingGoesOnFailing) {
  open();
  append(100);
  ASSERT_FALSE(sync());
  append(10);
  breakSyncing();
  std::size_t refused = 0;
  for (int i = 0; i < 1000; ++i) {
    refused += append() ? 0U : 1U;
    if (i % 10 == 0) {
      EXPECT_TRUE(sync());
    }
    ASSERT_LE(log_->size(), kSmallestBudget);
  }
  EXPECT_GT(refused, 0U);
  EXPECT_GT(frames().size(), 150U);
  mendDisk();
  ASSERT_FALSE(sync());
  std::size_t named = 0;
  for (const Record& record : records()) {
    if (record.gap) named += static_cast<std::size_t>(record.gap->to + 1 - record.gap->from);
  }
  EXPECT_EQ(named, refused);
  EXPECT_EQ(frames().size(), 1110 - refused);
}

TEST_F(GatewayLogFaults, TheFileOfAWriteAheadLogThatHadToGrowIsCutAgain) {
  open();
  append(100);
  ASSERT_FALSE(sync());
  append(10);
  breakSyncing();
  EXPECT_TRUE(sync());
  while (append()) {
  }
  const auto most = writeAheadBytes();
  EXPECT_GT(most, kSmallestBudget / 2);
  mendDisk();
  ASSERT_FALSE(sync());
  for (int i = 0; i < 50; ++i) {
    append(10);
    ASSERT_FALSE(sync());
    ASSERT_LE(log_->size(), kSmallestBudget);
  }
  EXPECT_LE(writeAheadBytes(), 3U * (96U << 10U));
  EXPECT_LE(files_->used(), kSmallestBudget);
}

TEST_F(GatewayLogFaults, WhatASyncThatFailedHasLostIsNamed) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  append(20);
  files_->faults.forgetPages = 1;
  breakSyncing();
  EXPECT_TRUE(sync());
  mendDisk();
  ASSERT_FALSE(sync());
  const auto kept = frames();
  ASSERT_FALSE(kept.empty());
  ASSERT_LT(kept.back(), 30U);
  EXPECT_EQ(kept, numbersFromTo(1, kept.back()));
  const auto all = records();
  ASSERT_TRUE(all.back().gap);
  EXPECT_EQ(*all.back().gap, (Gap{log_->identity(), kept.back() + 1, 30, GapReason::refused}));
  EXPECT_THAT(log_->takeFindings(), testing::Contains(HasSubstr("the disk has lost numbers")));
  append(1);
  ASSERT_FALSE(sync());
  EXPECT_EQ(log_->synced(), 32U);
}

TEST_F(GatewayLogFaults, AnotherProcessDoesNotTrustWhatAFailedSyncHasLeft) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  append(20);
  breakSyncing();
  EXPECT_TRUE(sync());
  mendDisk();
  kill();
  open();
  EXPECT_EQ(log_->synced(), 30U);
  // It is on the disk again though the system had it all the time.
  cutPower();
  open();
  EXPECT_EQ(frames(), numbersFromTo(1, 30));
}

TEST_F(GatewayLogFaults, WithoutRoomToMakeCertainNothingIsTakenUntilThereIs) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  append(20);
  breakSyncing();
  EXPECT_TRUE(sync());
  kill();
  // Another program has taken what the log had in reserve.
  ASSERT_FALSE(files_->remove("/log/reserve"));
  fillDisk();
  open();
  EXPECT_EQ(log_->synced(), 10U);
  EXPECT_EQ(frames(), numbersFromTo(1, 30));
  EXPECT_FALSE(append());
  EXPECT_TRUE(sync());
  EXPECT_EQ(log_->synced(), 10U);
  mendDisk();
  EXPECT_FALSE(sync());
  EXPECT_GE(log_->synced(), 30U);
  append(1);
  EXPECT_EQ(frames().size(), 31U);
}

}  // namespace
}  // namespace kestrin::gateway
