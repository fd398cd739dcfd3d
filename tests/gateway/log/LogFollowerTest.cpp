// Following a log from outside, on the system's files, while its gateway writes.
#include "tools/gateway/log/LogFollower.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "gateway/support/TestFolder.h"
#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {
namespace {

using Numbers = std::vector<RecordNumber>;
using Lines = std::vector<std::string>;

class LogFollowerTest : public testing::Test {
 protected:
  void open(std::uint64_t budget = 1ULL << 30U) {
    log_.reset();
    LogOptions options;
    options.folder = path_;
    options.budget = budget;
    std::string error;
    log_ = Log::open(systemFiles(), options, error);
    ASSERT_TRUE(log_) << error;
  }
  void append(int count, std::size_t size = 10) {
    Record record;
    record.reader = "AA";
    record.bytes.resize(size, 1);
    FileError error;
    for (int i = 0; i < count; ++i) ASSERT_TRUE(log_->append(record, error)) << error.text;
  }
  void sync() {
    const auto work = log_->beginSync();
    ASSERT_TRUE(work);
    run(*work);
    ASSERT_FALSE(log_->endSync(work));
  }
  /// Everything until there is no more.
  Numbers seen(LogFollower& follower, Lines* notes = nullptr) {
    Numbers numbers;
    for (bool isMore = true; isMore;) {
      std::string error;
      const auto seen = follower.look(error);
      EXPECT_TRUE(seen) << error;
      if (!seen) return numbers;
      for (const Record& each : seen->records) numbers.push_back(each.number);
      if (notes != nullptr) notes->insert(notes->end(), seen->notes.begin(), seen->notes.end());
      if (notes == nullptr) {
        EXPECT_EQ(seen->notes, Lines());
      }
      isMore = seen->isMore;
    }
    return numbers;
  }
  static Numbers range(RecordNumber from, RecordNumber to) {
    Numbers numbers;
    for (RecordNumber each = from; each <= to; ++each) numbers.push_back(each);
    return numbers;
  }

  const TestFolder folder_;
  const std::string path_ = folder_.pathOf("log");
  std::unique_ptr<Log> log_;
};

TEST_F(LogFollowerTest, BeginsWithTheLastTenAndGoesOnWithWhatComes) {
  open();
  append(25);
  LogFollower follower(systemFiles(), path_, std::nullopt);
  EXPECT_EQ(seen(follower), range(16, 25));
  EXPECT_EQ(seen(follower), Numbers());
  append(3);
  EXPECT_EQ(seen(follower), range(26, 28));
  sync();
  EXPECT_EQ(seen(follower), Numbers());
}

TEST_F(LogFollowerTest, ALogWithFewerIsShownWhole) {
  open();
  LogFollower empty(systemFiles(), path_, std::nullopt);
  EXPECT_EQ(seen(empty), Numbers());
  append(3);
  EXPECT_EQ(seen(empty), range(1, 3));
  LogFollower follower(systemFiles(), path_, std::nullopt);
  EXPECT_EQ(seen(follower), range(1, 3));
}

TEST_F(LogFollowerTest, BeginsWhereItIsAskedTo) {
  open();
  append(2000);
  LogFollower follower(systemFiles(), path_, 5);
  EXPECT_EQ(seen(follower), range(5, 2000));
  LogFollower later(systemFiles(), path_, 2005);
  EXPECT_EQ(seen(later), Numbers());
  append(10);
  EXPECT_EQ(seen(later), range(2005, 2010));
}

TEST_F(LogFollowerTest, WhatIsForgottenIsSaidByNumber) {
  open();
  append(20);
  sync();
  LogFollower follower(systemFiles(), path_, 1);
  EXPECT_EQ(seen(follower), range(1, 20));
  append(30);
  sync();
  log_->forget(35);
  sync();
  Lines notes;
  EXPECT_EQ(seen(follower, &notes), range(36, 50));
  EXPECT_EQ(notes,
            Lines({"not shown: numbers 21 to 35, forgotten since nobody needed them any more"}));
  log_->forget(50);
  sync();
  LogFollower late(systemFiles(), path_, 50);
  notes.clear();
  EXPECT_EQ(seen(late, &notes), Numbers());
  EXPECT_EQ(notes, Lines({"not shown: number 50, forgotten since nobody needed them any more"}));
  append(1);
  EXPECT_EQ(seen(late), range(51, 51));
}

TEST_F(LogFollowerTest, WhatTheBudgetHasTakenIsSaidByNumber) {
  open(kSmallestBudget);
  append(20, 1000);
  LogFollower follower(systemFiles(), path_, 1);
  EXPECT_EQ(seen(follower), range(1, 20));
  append(2000, 1000);
  Lines notes;
  const Numbers rest = seen(follower, &notes);
  ASSERT_GT(log_->first(), 21U);
  ASSERT_EQ(notes.size(), 1U);
  EXPECT_EQ(notes.front(), "not shown: numbers 21 to " + std::to_string(log_->first() - 1) +
                               ", which made room for new ones");
  EXPECT_EQ(rest, range(log_->first(), log_->next() - 1));
}

TEST_F(LogFollowerTest, GoesOnWithTheLogThatTakesADamagedOnesPlace) {
  open();
  append(20);
  const LogIdentity before = log_->identity();
  LogFollower follower(systemFiles(), path_, 1);
  EXPECT_EQ(seen(follower), range(1, 20));
  log_.reset();
  std::fstream file(path_ + "/current/records.sqlite");
  file.seekp(4096 + 300);
  file << std::string(3000, '#');
  file.close();
  // It still has the latest pages, and would stand in for the damaged ones.
  std::filesystem::remove(path_ + "/current/records.sqlite-wal");
  open();
  ASSERT_NE(log_->identity(), before);
  append(2);
  Lines notes;
  // Its first record says what is lost.
  EXPECT_EQ(seen(follower, &notes), range(1, 3));
  EXPECT_EQ(notes,
            Lines({"the log " + before + " has ended; another one begins: " + log_->identity()}));
}

TEST_F(LogFollowerTest, WhatCannotBeReadIsSaidAndTheRestShown) {
  open();
  append(100, 1000);
  log_.reset();
  std::fstream file(path_ + "/current/records.sqlite");
  file.seekp(60'000);
  file << std::string(300, '#');
  file.close();
  // It still has the latest pages, and would stand in for the damaged ones.
  std::filesystem::remove(path_ + "/current/records.sqlite-wal");
  LogFollower follower(systemFiles(), path_, 1);
  Lines notes;
  const Numbers shown = seen(follower, &notes);
  EXPECT_LT(shown.size(), 100U);
  EXPECT_GT(shown.size(), 50U);
  ASSERT_EQ(notes.size(), 1U);
  EXPECT_NE(notes.front().find(" cannot be read"), std::string::npos) << notes.front();
}

TEST_F(LogFollowerTest, AFolderWithoutALogIsAnError) {
  LogFollower follower(systemFiles(), path_, 1);
  std::string error;
  EXPECT_FALSE(follower.look(error));
  EXPECT_NE(error.find("there is no log in " + path_), std::string::npos);
  open();
  append(1);
  EXPECT_EQ(seen(follower), range(1, 1));
}

TEST_F(LogFollowerTest, HoldsNothingBetweenItsLooks) {
  open(kSmallestBudget);
  LogFollower follower(systemFiles(), path_, 1);
  RecordNumber shown = 0;
  // A connection that is still there would keep the write-ahead log from beginning again.
  for (int i = 0; i < 50; ++i) {
    append(100, 1000);
    shown += seen(follower).size();
    sync();
    log_->forget(log_->synced());
    sync();
  }
  EXPECT_EQ(shown, 5000U);
  EXPECT_LT(std::filesystem::file_size(path_ + "/current/records.sqlite-wal"), 2U << 20U);
}

}  // namespace
}  // namespace kestrin::gateway
