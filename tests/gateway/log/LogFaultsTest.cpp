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

using test::DiskFaults;
using test::ModelFiles;

class GatewayLogFaults : public testing::Test {
 protected:
  GatewayLogFaults() { EXPECT_FALSE(files_->makeFolder("/log")); }

  void open() {
    LogOptions options;
    options.folder = "/log";
    options.budget = kSmallestBudget;
    options.segmentSize = kSmallestSegment;
    std::string error;
    log_ = Log::open(files_, options, error);
    // Nothing can go on without it.
    if (!log_) throw std::runtime_error(error);
  }
  void kill() {
    log_.reset();
    const DiskFaults faults = files_->faults;
    files_ = files_->afterKill();
    files_->faults = faults;
  }
  void fillDisk() { files_->faults.shortWrite = 1; }
  void breakSyncing() { files_->faults.sync = 1; }
  void mendDisk() { files_->faults = {}; }

  std::optional<RecordNumber> append() {
    Record record;
    record.reader = "reader";
    record.bytes.assign(100, 0x55);
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
  [[nodiscard]] std::vector<RecordNumber> frames() {
    std::vector<Record> records;
    EXPECT_FALSE(log_->read(1, 100000, 1U << 30U, records));
    std::vector<RecordNumber> numbers;
    for (const Record& record : records) {
      if (!record.gap) numbers.push_back(record.number);
    }
    return numbers;
  }
  [[nodiscard]] std::size_t segmentFiles() const {
    std::vector<std::string> names;
    EXPECT_FALSE(files_->list("/log", names));
    return static_cast<std::size_t>(std::ranges::count_if(
        names, [](const std::string& name) { return name.ends_with(".log"); }));
  }

  std::shared_ptr<ModelFiles> files_ = std::make_shared<ModelFiles>(1);
  std::unique_ptr<Log> log_;
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
  const std::size_t before = segmentFiles();
  fillDisk();
  kill();
  open();
  EXPECT_EQ(frames(), numbersFromTo(1, 205));
  EXPECT_EQ(log_->synced(), 200U);
  EXPECT_EQ(log_->next(), 206U);
  log_->forget(200);
  EXPECT_TRUE(sync());
  EXPECT_EQ(log_->synced(), 200U);
  EXPECT_LT(segmentFiles(), before / 2);
  mendDisk();
  ASSERT_FALSE(sync());
  EXPECT_EQ(log_->synced(), 205U);
  kill();
  open();
  EXPECT_EQ(log_->next(), 206U);
  const auto kept = frames();
  EXPECT_THAT(kept, testing::IsSupersetOf(numbersFromTo(201, 205)));
}

TEST_F(GatewayLogFaults, WhatWaitsForRoomSurvivesMoreKills) {
  open();
  append(20);
  ASSERT_FALSE(sync());
  append(5);
  fillDisk();
  for (int i = 0; i < 3; ++i) {
    kill();
    open();
    EXPECT_TRUE(sync());
    EXPECT_EQ(log_->synced(), 20U);
  }
  mendDisk();
  kill();
  open();
  EXPECT_EQ(log_->synced(), 25U);
  EXPECT_EQ(frames(), numbersFromTo(1, 25));
}

TEST_F(GatewayLogFaults, AFullDiskThatDoesNotTakeTheStateDoesNotMatterToTheStart) {
  open();
  append(20);
  log_->keep("c1", 5);
  ASSERT_FALSE(sync());
  fillDisk();
  kill();
  open();
  EXPECT_EQ(log_->synced(), 20U);
  ASSERT_EQ(log_->kept().size(), 1U);
  EXPECT_EQ(log_->kept().front().second, 5U);
}

TEST_F(GatewayLogFaults, RecordsThatAFullDiskRefusesLeaveNoFiles) {
  open();
  while (segmentFiles() < 2) append(1);
  std::size_t inASegment = 0;
  for (; segmentFiles() < 3; ++inASegment) append(1);
  // The next record begins a segment, and so does each one behind it that has no room either.
  append(inASegment - 1);
  ASSERT_EQ(segmentFiles(), 3U);
  fillDisk();
  for (int i = 0; i < 500; ++i) EXPECT_FALSE(append());
  EXPECT_EQ(segmentFiles(), 3U);
}

TEST_F(GatewayLogFaults, CopiesDoNotPileUpWhileSyncingFails) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  append(10);
  breakSyncing();
  for (int i = 0; i < 50; ++i) {
    append(1);
    EXPECT_TRUE(sync());
  }
  constexpr std::uint64_t kAllRecords = 70 * 200;
  EXPECT_LE(files_->used(), 3 * kAllRecords);
  mendDisk();
  ASSERT_FALSE(sync());
  EXPECT_EQ(log_->synced(), 70U);
  EXPECT_EQ(frames(), numbersFromTo(1, 70));
}

TEST_F(GatewayLogFaults, WhatTheBudgetTakesWhileSyncingFailsIsAllThatIsLost) {
  open();
  append(10);
  ASSERT_FALSE(sync());
  append(10);
  breakSyncing();
  EXPECT_TRUE(sync());
  std::vector<RecordNumber> taken;
  for (int i = 0; i < 1000; ++i) {
    if (const auto number = append()) taken.push_back(*number);
  }
  ASSERT_GT(log_->first(), 21U);
  std::erase_if(taken, [this](RecordNumber number) { return number < log_->first(); });
  ASSERT_GT(taken.size(), 100U);
  mendDisk();
  ASSERT_FALSE(sync());
  EXPECT_EQ(frames(), taken);
  kill();
  open();
  EXPECT_EQ(frames(), taken);
}

}  // namespace
}  // namespace kestrin::gateway
