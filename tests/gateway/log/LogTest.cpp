// What the log does for the gateway, on the system's files.
#include "tools/gateway/log/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tools/gateway/log/LogReader.h"
#include "tools/gateway/log/RecordTable.h"

namespace kestrin::gateway {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

Record frame(std::size_t length = 20, std::uint8_t byte = 0xBB) {
  Record record;
  record.reader = "AA:BB:CC:DD:EE:01";
  record.name = "KVR";
  record.link = 7;
  record.wallMs = -5;
  record.monoMs = 123456789012;
  record.bytes.assign(length, byte);
  return record;
}

class GatewayLog : public testing::Test {
 public:
  ~GatewayLog() override {
    log_.reset();
    std::filesystem::remove_all(options_.folder);
  }

 protected:
  GatewayLog() {
    std::string pattern = testing::TempDir() + "kestrin-log-XXXXXX";
    options_.folder = ::mkdtemp(pattern.data());
    options_.budget = 4U << 20U;
  }

  void open() {
    log_.reset();
    std::string error;
    log_ = Log::open(systemFiles(), options_, error, &found_);
    ASSERT_TRUE(log_) << error;
  }
  /// Everything is in the database then, and nothing beside it covers for that.
  void close() {
    log_.reset();
    std::filesystem::remove(database() + "-wal");
  }
  RecordNumber append(const Record& record = frame()) {
    FileError error;
    const auto number = log_->append(record, error);
    EXPECT_TRUE(number) << error.text;
    return number.value_or(0);
  }
  void sync() {
    while (const auto work = log_->beginSync()) {
      run(*work);
      const auto error = log_->endSync(work);
      ASSERT_FALSE(error) << error->text;
    }
  }
  std::vector<Record> records(RecordNumber from = 1, std::size_t most = 1000000) {
    std::vector<Record> records;
    EXPECT_FALSE(log_->read(from, most, 1U << 30U, records));
    return records;
  }
  [[nodiscard]] std::string database() const { return options_.folder + "/current/records.sqlite"; }
  /// Flips a bit wherever the database has these bytes; it may have older copies of a record.
  void spoilRecord(const std::string& content) const {
    std::ifstream file(database(), std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(file), {}};
    auto place = all.find(content);
    ASSERT_NE(place, std::string::npos);
    for (; place != std::string::npos; place = all.find(content, place + content.size())) {
      spoil(database(), static_cast<std::streamoff>(place + 1));
    }
  }
  [[nodiscard]] std::uint64_t bytesOnDisk() const {
    std::uint64_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(options_.folder)) {
      if (entry.is_regular_file()) bytes += entry.file_size();
    }
    return bytes;
  }
  void spoil(const std::filesystem::path& path, std::streamoff place) const {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(place);
    const int byte = file.get();
    file.seekp(place);
    file.put(static_cast<char>(byte ^ 0x10));
    ASSERT_TRUE(file.good());
  }

  LogOptions options_;
  std::vector<std::string> found_;
  std::unique_ptr<Log> log_;
};

TEST_F(GatewayLog, BeginsWithNumberOneAndAnIdentityOfItsOwn) {
  open();
  EXPECT_EQ(log_->next(), 1U);
  EXPECT_EQ(log_->first(), 1U);
  EXPECT_EQ(log_->synced(), 0U);
  EXPECT_THAT(log_->identity(), SizeIs(32));
  EXPECT_EQ(log_->identity().find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_THAT(found_, IsEmpty());
}

TEST_F(GatewayLog, WhoReadsOnWhileRecordsComeMissesNone) {
  open();
  for (RecordNumber number = 1; number <= 500; ++number) {
    EXPECT_EQ(append(), number);
    EXPECT_THAT(records(number), SizeIs(1));
  }
  EXPECT_THAT(log_->takeFindings(), IsEmpty());
  EXPECT_EQ(log_->next(), 501U);
}

TEST_F(GatewayLog, GivesBackEveryFieldOfARecord) {
  open();
  Record value = frame(3);
  value.kind = RecordKind::value;
  value.name = "";
  EXPECT_EQ(append(frame(1029)), 1U);
  EXPECT_EQ(append(value), 2U);
  Record first = frame(1029);
  first.number = 1;
  value.number = 2;
  EXPECT_THAT(records(), ElementsAre(first, value));
  EXPECT_THAT(records(2), ElementsAre(value));
  EXPECT_THAT(records(3), IsEmpty());
}

TEST_F(GatewayLog, SaysWhatIsSyncedOnlyOnceItIs) {
  open();
  append();
  append();
  EXPECT_EQ(log_->synced(), 0U);
  const auto work = log_->beginSync();
  ASSERT_TRUE(work);
  EXPECT_FALSE(log_->beginSync());
  append();
  run(*work);
  EXPECT_EQ(log_->synced(), 0U);
  EXPECT_FALSE(log_->endSync(work));
  EXPECT_EQ(log_->synced(), 2U);
  sync();
  EXPECT_EQ(log_->synced(), 3U);
  EXPECT_FALSE(log_->beginSync());
}

TEST_F(GatewayLog, ClaimsNothingOfAWorkThatHasNotRun) {
  open();
  append();
  EXPECT_FALSE(log_->endSync(log_->beginSync()));
  EXPECT_EQ(log_->synced(), 0U);
  sync();
  EXPECT_EQ(log_->synced(), 1U);
}

TEST_F(GatewayLog, KeepsAllOverARestartAndGoesOn) {
  open();
  for (int i = 0; i < 1000; ++i) append(frame(static_cast<std::size_t>(i % 50)));
  sync();
  append();
  const auto before = records();
  const LogIdentity identity = log_->identity();
  open();
  EXPECT_EQ(log_->identity(), identity);
  EXPECT_EQ(records(), before);
  EXPECT_EQ(log_->synced(), 1001U);
  EXPECT_EQ(append(), 1002U);
  EXPECT_THAT(found_, IsEmpty());
}

TEST_F(GatewayLog, ReadsFromAnyNumberInPiecesOfAnySize) {
  open();
  for (int i = 0; i < 500; ++i) append(frame(static_cast<std::size_t>(i)));
  const auto all = records();
  ASSERT_THAT(all, SizeIs(500));
  for (const RecordNumber from : {1U, 7U, 80U, 81U, 250U, 499U, 500U, 12U}) {
    std::vector<Record> got;
    for (RecordNumber at = from; at <= 500; at = got.back().number + 1) {
      ASSERT_FALSE(log_->read(at, 1 + static_cast<std::size_t>(at % 13), 2000, got));
    }
    EXPECT_EQ(got,
              std::vector<Record>(all.begin() + static_cast<std::ptrdiff_t>(from) - 1, all.end()));
  }
}

TEST_F(GatewayLog, ReadsWhatIsAppendedWhileItReads) {
  open();
  for (RecordNumber number = 1; number < 300; ++number) {
    append();
    EXPECT_THAT(records(number), SizeIs(1));
  }
}

TEST_F(GatewayLog, RemovesWhatIsForgotten) {
  open();
  for (int i = 0; i < 5000; ++i) append(frame(200));
  sync();
  const auto size = log_->size();
  log_->forget(4000);
  sync();
  EXPECT_EQ(log_->forgotten(), 4000U);
  EXPECT_EQ(log_->first(), 4001U);
  EXPECT_LT(log_->size(), size);
  open();
  EXPECT_EQ(log_->forgotten(), 4000U);
  EXPECT_EQ(log_->first(), 4001U);
  EXPECT_THAT(records(), SizeIs(1000));
}

TEST_F(GatewayLog, UsesTheRoomOfWhatIsForgottenAgain) {
  open();
  for (int i = 0; i < 40; ++i) {
    for (int k = 0; k < 1000; ++k) append(frame(200));
    sync();
    log_->forget(log_->synced());
    sync();
  }
  EXPECT_LE(bytesOnDisk(), 2U << 20U);
  EXPECT_THAT(records(), IsEmpty());
  open();
  EXPECT_EQ(log_->next(), 40001U);
  EXPECT_EQ(append(), 40001U);
}

TEST_F(GatewayLog, RemovesSoManyAtOnceThatNobodyWaits) {
  open();
  for (int i = 0; i < 10000; ++i) append();
  sync();
  log_->forget(10000);
  const auto work = log_->beginSync();
  ASSERT_TRUE(work);
  EXPECT_EQ(log_->first(), 4097U);
  run(*work);
  ASSERT_FALSE(log_->endSync(work));
  sync();
  EXPECT_EQ(log_->first(), 10001U);
}

TEST_F(GatewayLog, ForgetsNothingThatIsNotSynced) {
  open();
  append();
  log_->forget(1);
  EXPECT_EQ(log_->forgotten(), 0U);
  sync();
  log_->forget(99);
  EXPECT_EQ(log_->forgotten(), 1U);
}

TEST_F(GatewayLog, KeepsValuesOverARestart) {
  open();
  log_->keep("warehouse", 17);
  log_->keep("archive", 3);
  log_->keep("warehouse", 18);
  log_->keep("old", 1);
  log_->drop("old");
  sync();
  open();
  EXPECT_THAT(log_->kept(), ElementsAre(Pair("warehouse", 18), Pair("archive", 3)));
}

TEST_F(GatewayLog, StaysWithinItsBudgetAndSaysWhichNumbersMadeRoom) {
  options_.budget = kSmallestBudget;
  open();
  std::vector<Record> gaps;
  RecordNumber read = 1;
  for (int i = 0; i < 10000; ++i) {
    append(frame(200));
    if (i % 50 != 0) continue;
    sync();
    EXPECT_LE(log_->size(), options_.budget);
    for (const Record& record : records(read)) {
      if (record.gap) gaps.push_back(record);
      read = record.number + 1;
    }
  }
  for (const Record& record : records(read)) {
    if (record.gap) gaps.push_back(record);
  }
  EXPECT_LE(bytesOnDisk(), options_.budget);
  ASSERT_GT(gaps.size(), 5U);
  for (const Record& record : gaps) {
    EXPECT_EQ(record.gap->reason, GapReason::budget);
    EXPECT_EQ(record.gap->log, log_->identity());
    EXPECT_EQ(record.gap->from, 1U);
    EXPECT_LT(record.gap->to, record.number);
  }
  EXPECT_EQ(gaps.back().gap->to + 1, log_->first());
  EXPECT_THAT(log_->takeFindings(), testing::Contains(HasSubstr("made room for new records")));
  const RecordNumber first = log_->first();
  open();
  EXPECT_THAT(found_, IsEmpty());
  EXPECT_EQ(log_->first(), first);
}

TEST_F(GatewayLog, StaysWithinItsBudgetThoughNothingIsSynced) {
  options_.budget = kSmallestBudget;
  open();
  for (int i = 0; i < 20000; ++i) append(frame(200));
  EXPECT_LE(bytesOnDisk(), options_.budget);
  EXPECT_GT(log_->first(), 10000U);
  EXPECT_THAT(log_->takeFindings(), testing::Contains(HasSubstr("made room for new records")));
}

TEST_F(GatewayLog, TheWriteAheadLogIsFilledFromItsBeginningAgainOnceASyncHasEmptiedIt) {
  open();
  constexpr std::uintmax_t kLongest = (4U << 20U) / 16;
  for (int i = 0; i < 500; ++i) {
    for (int k = 0; k < 5; ++k) append();
    sync();
    ASSERT_LE(std::filesystem::file_size(database() + "-wal"), kLongest) << "after sync " << i;
  }
  EXPECT_THAT(records(), SizeIs(2500));
}

TEST_F(GatewayLog, ARecordIsThereForOtherProgramsAsSoonAsItIsAppended) {
  open();
  for (RecordNumber number = 1; number <= 20; ++number) {
    append();
    std::string error;
    const auto reader = LogReader::open(systemFiles(), options_.folder, error);
    ASSERT_TRUE(reader) << error;
    RecordNumber last = 0;
    for (Record record; reader->next(record);) last = record.number;
    ASSERT_EQ(last, number);
  }
}

TEST_F(GatewayLog, RefusesARecordThatIsTooLongAndReportsItsNumber) {
  open();
  FileError error;
  EXPECT_FALSE(log_->append(frame(70000), error));
  EXPECT_THAT(error.text, HasSubstr("too long"));
  EXPECT_EQ(append(), 3U);
  const auto all = records();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[0].gap, (Gap{log_->identity(), 1, 1, GapReason::refused}));
}

TEST_F(GatewayLog, IsRefusedToASecondGateway) {
  open();
  std::string error;
  EXPECT_FALSE(Log::open(systemFiles(), options_, error));
  EXPECT_THAT(error, HasSubstr("is in use by another process"));
}

TEST_F(GatewayLog, SaysWhichOptionsWouldBeRight) {
  std::string error;
  options_.budget = 1000;
  EXPECT_FALSE(Log::open(systemFiles(), options_, error));
  EXPECT_THAT(error, HasSubstr("1048576 or more would be right"));
  options_.budget = kSmallestBudget;
  options_.folder = "";
  EXPECT_FALSE(Log::open(systemFiles(), options_, error));
  EXPECT_EQ(error, "the log needs a folder");
}

TEST_F(GatewayLog, BeginsALogOfAnotherIdentityWhereTheMiddleIsDamaged) {
  open();
  for (std::uint8_t i = 0; i < 5; ++i) {
    append(frame(20, static_cast<std::uint8_t>('a' + i)));
    sync();
  }
  log_->keep("warehouse", 2);
  log_->forget(2);
  sync();
  const LogIdentity old = log_->identity();
  close();
  spoilRecord("dddddddd");
  open();
  EXPECT_NE(log_->identity(), old);
  EXPECT_THAT(found_,
              ElementsAre(HasSubstr("the log " + old + " is damaged (number 4 cannot be read)")));
  const auto all = records();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0].number, 1U);
  EXPECT_EQ(all[0].gap, (Gap{old, 3, 5, GapReason::damaged}));
  EXPECT_THAT(log_->kept(), IsEmpty());
  EXPECT_EQ(append(), 2U);

  std::string error;
  const auto reader =
      LogReader::open(systemFiles(), options_.folder + "/" + old + ".damaged", error);
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ(reader->identity(), old);
  EXPECT_THAT(reader->kept(), ElementsAre(Pair("warehouse", 2)));
  std::vector<RecordNumber> numbers;
  for (Record record; reader->next(record);) numbers.push_back(record.number);
  EXPECT_THAT(numbers, ElementsAre(3, 5));
  EXPECT_THAT(reader->takeFindings(), ElementsAre("number 4 cannot be read"));
}

TEST_F(GatewayLog, TakesADatabaseThatIsGoneForDamage) {
  open();
  for (int i = 0; i < 10; ++i) append();
  sync();
  const LogIdentity old = log_->identity();
  log_.reset();
  std::filesystem::remove(database());
  open();
  EXPECT_NE(log_->identity(), old);
  EXPECT_EQ(records().at(0).gap, (Gap{old, 1, 10, GapReason::damaged}));
  EXPECT_THAT(found_, ElementsAre(HasSubstr("records.sqlite is missing")));
}

TEST_F(GatewayLog, TakesAWriteAheadLogThatIsGoneForDamage) {
  open();
  for (int i = 0; i < 10; ++i) append();
  sync();
  const LogIdentity old = log_->identity();
  const std::string kept = options_.folder + "/kept";
  std::filesystem::copy(options_.folder + "/current", kept);
  log_.reset();
  std::filesystem::remove_all(options_.folder + "/current");
  std::filesystem::rename(kept, options_.folder + "/current");
  std::filesystem::remove(database() + "-wal");
  open();
  EXPECT_NE(log_->identity(), old);
  EXPECT_EQ(records().at(0).gap, (Gap{old, 1, 10, GapReason::damaged}));
  EXPECT_THAT(found_, ElementsAre(HasSubstr("numbers 1 to 10 cannot be read")));
}

TEST_F(GatewayLog, BeginsAnotherLogWhateverHasBecomeOfTheDatabase) {
  for (const std::streamoff place : {0, 20, 69, 100, 105, 4096, 4200, 8192, 12288}) {
    open();
    for (int i = 0; i < 100; ++i) append();
    sync();
    close();
    spoil(database(), place);
    open();
    const RecordNumber before = log_->next();
    EXPECT_EQ(append(), before) << place;
    sync();
    EXPECT_EQ(log_->synced(), before) << place;
  }
}

TEST_F(GatewayLog, TakesNumbersThatNoLogComesToForDamage) {
  for (const RecordNumber next : {RecordNumber{0}, kHighestNumber + 1, ~RecordNumber{0} - 1}) {
    open();
    const LogIdentity old = log_->identity();
    append();
    sync();
    close();
    Database database;
    ASSERT_FALSE(database.open(this->database(), SQLITE_OPEN_READWRITE, systemFiles()->vfs()));
    RecordTable table(database);
    ASSERT_FALSE(table.writeFacts({old, 0, next}));
    database.close();
    found_.clear();
    open();
    EXPECT_NE(log_->identity(), old) << next;
    EXPECT_THAT(found_, ElementsAre(HasSubstr("what it says of itself cannot be read")));
  }
}

TEST_F(GatewayLog, TakesARecordBeyondWhatAnyLogComesToForDamage) {
  open();
  const LogIdentity old = log_->identity();
  append();
  sync();
  close();
  Database database;
  ASSERT_FALSE(database.open(this->database(), SQLITE_OPEN_READWRITE, systemFiles()->vfs()));
  RecordTable table(database);
  ASSERT_FALSE(table.prepare(false));
  Record record = frame();
  record.number = kHighestNumber + 1;
  ASSERT_FALSE(table.insert(record));
  table.finish();
  database.close();
  open();
  EXPECT_NE(log_->identity(), old);
}

TEST_F(GatewayLog, LeavesANewerFormatAlone) {
  open();
  append();
  log_.reset();
  // Where the header of a database has the version: its four bytes from 60 on.
  std::fstream file(database(), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(63);
  file.put(2);
  file.close();
  const auto before = std::filesystem::last_write_time(database());
  std::string error;
  EXPECT_FALSE(Log::open(systemFiles(), options_, error));
  EXPECT_THAT(error, HasSubstr("has a newer format than this program reads (1)"));
  EXPECT_FALSE(LogReader::open(systemFiles(), options_.folder, error));
  EXPECT_THAT(error, HasSubstr("has a newer format than this program reads (1)"));
  EXPECT_EQ(std::filesystem::last_write_time(database()), before);
}

TEST_F(GatewayLog, ManyShortRunsKeepAll) {
  for (int i = 0; i < 50; ++i) {
    open();
    append();
  }
  open();
  EXPECT_THAT(records(), SizeIs(50));
}

TEST_F(GatewayLog, PassesOverWhatHasBecomeUnreadableAndReportsIt) {
  open();
  for (std::uint8_t i = 0; i < 5; ++i) append(frame(20, static_cast<std::uint8_t>('a' + i)));
  sync();
  // Opened again, it has everything in the database.
  open();
  spoilRecord("bbbbbbbb");
  std::vector<RecordNumber> numbers;
  for (const Record& record : records()) numbers.push_back(record.number);
  EXPECT_THAT(numbers, ElementsAre(1, 3, 4, 5));
  EXPECT_THAT(log_->takeFindings(), ElementsAre(HasSubstr("number 2 cannot be read any more")));
  sync();
  EXPECT_EQ(records(6).at(0).gap, (Gap{log_->identity(), 2, 2, GapReason::damaged}));
  EXPECT_THAT(records(), SizeIs(5));
  EXPECT_THAT(log_->takeFindings(), IsEmpty());
}

TEST_F(GatewayLog, PassesOverAPageThatHasBecomeUnreadableAndReportsIt) {
  open();
  for (int i = 0; i < 1000; ++i) append(frame(20, static_cast<std::uint8_t>(i)));
  sync();
  open();
  std::ifstream file(database(), std::ios::binary);
  const std::string all{std::istreambuf_iterator<char>(file), {}};
  const auto place = all.find(std::string(20, static_cast<char>(500 % 256)));
  ASSERT_NE(place, std::string::npos);
  // The page's header says how many records it has and where.
  const auto page = static_cast<std::streamoff>(place / 4096 * 4096);
  for (std::streamoff byte = 0; byte < 8; ++byte) spoil(database(), page + byte);
  const auto read = records();
  EXPECT_LT(read.size(), 1000U);
  EXPECT_GT(read.size(), 950U);
  EXPECT_EQ(read.back().number, 1000U);
  sync();
  RecordNumber said = 0;
  for (const Record& record : records(1001)) said += record.gap->to - record.gap->from + 1;
  EXPECT_EQ(said, 1000 - read.size());
}

TEST_F(GatewayLog, IsReadWhileTheGatewayWrites) {
  open();
  for (int i = 0; i < 300; ++i) append();
  std::string error;
  const auto reader = LogReader::open(systemFiles(), options_.folder, error);
  ASSERT_TRUE(reader) << error;
  std::size_t count = 0;
  for (Record record; reader->next(record);) ++count;
  EXPECT_EQ(count, 300U);
  EXPECT_THAT(reader->takeFindings(), IsEmpty());
  EXPECT_FALSE(LogReader::open(systemFiles(), testing::TempDir() + "/missing", error));
  EXPECT_THAT(error, HasSubstr("there is no log in"));
}

}  // namespace
}  // namespace kestrin::gateway
