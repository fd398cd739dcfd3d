// The log on a disk whose power fails after every single change, in histories by chance: what was
// synced is there, in order, and nothing else is; whatever is lost is said by number; no number is
// used again that somebody may have seen.
//
// KESTRIN_CRASH_HISTORIES says how many histories, KESTRIN_CRASH_SEED the first one's seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "gateway/support/ModelFiles.h"
#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {
namespace {

using test::ModelFiles;

// Histories that fill the budget are long, and each of their cuts costs as much as fifty others.
constexpr std::uint64_t kSeedsPerLargeHistory = 25;

std::uint64_t numberFrom(const char* name, std::uint64_t otherwise) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing sets it.
  const char* const value = std::getenv(name);
  return value == nullptr ? otherwise : std::strtoull(value, nullptr, 10);
}

/// What the history knows besides the log.
struct Truth {
  struct Frame {
    Record record;
    RecordNumber number = 0;  // 0: the log refused it, or has not said yet.
    bool doubtful = false;    // Its sync failed, and the disk may have lost it then.
  };
  LogIdentity identity;
  std::map<std::uint64_t, Frame> frames;  // By what makes each unique.
  /// What a cut has lost may come back with the next one, under the number that it had: SQLite goes
  /// on with a write-ahead log of which nothing is left, and the rest of it still lies there.
  std::map<std::uint64_t, Frame> lost;
  std::map<std::string, std::set<std::optional<RecordNumber>>> lostValues;
  RecordNumber synced = 0;  // Up to here somebody may have seen the records.
  RecordNumber forgotten = 0;
  std::map<std::string, std::vector<std::optional<RecordNumber>>> values;
  std::map<std::string, std::size_t> certain;  // How many of them are too old to come back.
  bool budgetUsed = false;
};

std::uint64_t idOf(const Record& record) {
  std::uint64_t id = 0;
  for (std::size_t i = 0; i < 8 && i < record.bytes.size(); ++i) id = id << 8U | record.bytes[i];
  return id;
}

LogOptions options() {
  LogOptions options;
  options.folder = "/log";
  options.budget = kSmallestBudget;
  options.makeIdentity = [] {
    static std::uint64_t identities = 0;
    const std::string digits = std::to_string(++identities);
    return std::string(32 - digits.size(), 'a') + digits;
  };
  return options;
}

std::optional<std::string> sync(Log& log) {
  for (int i = 0; i < 5; ++i) {
    const auto work = log.beginSync();
    if (!work) return std::nullopt;
    run(*work);
    if (const auto error = log.endSync(work)) return error->text;
  }
  return std::nullopt;
}

std::vector<Record> readAll(Log& log) {
  std::vector<Record> records;
  if (const auto error = log.read(1, 1U << 30U, 1U << 30U, records)) {
    ADD_FAILURE() << error->text;
  }
  return records;
}

/// Compares a log that was opened after a cut with what is known.
class Check {
 public:
  Check(Log& log, const Truth& truth, bool everything)
      : log_(log), truth_(truth), everything_(everything) {}

  std::string run() {
    if (!truth_.identity.empty() && log_.identity() != truth_.identity) {
      return "another identity though nothing was damaged";
    }
    if (log_.next() <= truth_.synced) return "a number could be used again";
    if (log_.forgotten() > truth_.forgotten) return "forgets what nobody asked it to";
    if (auto wrong = sync(log_)) return *wrong;  // Gaps that are not written yet.
    records_ = readAll(log_);
    for (const auto check :
         {&Check::checkRecords, &Check::checkSynced, &Check::checkNumbers, &Check::checkValues}) {
      if (auto wrong = (this->*check)(); !wrong.empty()) return wrong;
    }
    return {};
  }

 private:
  std::string checkRecords() {
    RecordNumber last = 0;
    std::set<std::uint64_t> seen;
    for (const Record& record : records_) {
      if (record.number <= last) return "numbers out of order";
      last = record.number;
      if (record.gap) {
        if (record.gap->reason == GapReason::damaged) return "a power cut taken for damage";
        continue;
      }
      const Truth::Frame* const frame = frameOf(record);
      if (frame == nullptr) return "a record that was never appended, or was lost for good";
      if (!seen.insert(idOf(record)).second) return "a record twice";
      Record expected = frame->record;
      expected.number = frame->number == 0 ? record.number : frame->number;
      if (record != expected) return "a record other than it was appended";
    }
    return {};
  }

  const Truth::Frame* frameOf(const Record& record) {
    const auto frame = truth_.frames.find(idOf(record));
    if (frame != truth_.frames.end()) return &frame->second;
    const auto lost = truth_.lost.find(idOf(record));
    if (lost == truth_.lost.end() || record.number <= truth_.synced) return nullptr;
    hasLostOnes_ = true;
    return &lost->second;
  }

  /// What was synced is there, and of the rest all up to some number.
  std::string checkSynced() {
    RecordNumber last = truth_.synced;
    for (const Record& record : records_) {
      if (!record.gap) last = std::max(last, record.number);
    }
    // Then it is what the log was before an earlier cut, which had other numbers.
    if (hasLostOnes_) last = truth_.synced;
    for (const auto& [id, frame] : truth_.frames) {
      const RecordNumber number = frame.number;
      if (number == 0 || number <= truth_.forgotten) continue;
      if (number > last && !everything_) continue;
      if (find(number) != nullptr) continue;
      const bool mayBeLost = frame.doubtful || (number < log_.first() && truth_.budgetUsed);
      if (mayBeLost && isSaid(number)) continue;
      return "number " + std::to_string(number) + " is lost though it was certain";
    }
    return {};
  }

  const Record* find(RecordNumber number) const {
    const auto at = std::ranges::lower_bound(records_, number, {}, &Record::number);
    return at != records_.end() && at->number == number ? &*at : nullptr;
  }

  bool isSaid(RecordNumber number) const {
    return std::ranges::any_of(records_, [&](const Record& record) {
      return record.gap && record.gap->log == log_.identity() && record.gap->from <= number &&
             number <= record.gap->to;
    });
  }

  std::string checkNumbers() {
    for (RecordNumber number = log_.forgotten() + 1; number < log_.next(); ++number) {
      if (find(number) == nullptr && !isSaid(number)) {
        return "number " + std::to_string(number) + " is missing and nothing says so";
      }
    }
    return {};
  }

  std::string checkValues() {
    std::map<std::string, RecordNumber> kept;
    for (const auto& [name, value] : log_.kept()) kept[name] = value;
    for (const auto& [name, values] : truth_.values) {
      const auto found = kept.find(name);
      const auto value = found == kept.end() ? std::nullopt : std::optional(found->second);
      const auto certain = truth_.certain.find(name);
      const std::size_t from = certain == truth_.certain.end() ? 0 : certain->second;
      if (from == 0 && !value) continue;
      const auto begin = values.begin() + static_cast<std::ptrdiff_t>(from == 0 ? 0 : from - 1);
      const auto lost = truth_.lostValues.find(name);
      if (lost != truth_.lostValues.end() && lost->second.contains(value)) continue;
      if (std::find(begin, values.end(), value) == values.end()) {
        return "the value of " + name + " is one that it had not";
      }
    }
    return {};
  }

  Log& log_;
  const Truth& truth_;
  const bool everything_;
  std::vector<Record> records_;
  bool hasLostOnes_ = false;
};

class History {
 public:
  History(std::uint64_t seed, bool faults, bool lying = false)
      : seed_(seed), random_(seed), withFaults_(faults), lying_(lying), files_(makeDisk(seed)) {}

  /// What is wrong, if anything.
  std::string run() {
    watch();
    open();
    if (isLarge()) fill();
    const std::size_t steps = isLarge() ? 20 : 20 + below(40);
    for (std::size_t i = 0; i < steps && !failed_; ++i) {
      if (withFaults_) changeFaults();
      step();
    }
    if (!failed_) checkAfterKill();
    // What it does at its end is nobody's business any more.
    files_->changed = nullptr;
    return wrong_;
  }
  [[nodiscard]] std::size_t cuts() const { return cuts_; }
  [[nodiscard]] bool usedTheBudget() const { return budgetGaps_ != 0; }

 private:
  static std::shared_ptr<ModelFiles> makeDisk(std::uint64_t seed) {
    auto disk = std::make_shared<ModelFiles>(seed);
    // The folder above is there.
    static_cast<void>(disk->makeFolder("/log"));
    return disk;
  }

  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(random_() % bound); }
  bool isLarge() const { return seed_ % kSeedsPerLargeHistory == 0; }

  /// So much that the budget is nearly used up.
  void fill() {
    files_->changed = nullptr;
    for (int i = 0; i < 45 && !failed_; ++i) {
      appendOne(12000 + below(4000));
      if (i % 10 == 9) {
        beginSync();
        endSync();
      }
    }
    watch();
  }

  void changeFaults() {
    files_->faults = {};
    files_->full = below(10) == 0;
    if (below(3) != 0) return;
    files_->faults.write = below(2) == 0 ? 0.3 : 0;
    files_->faults.shortWrite = below(2) == 0 ? 0.3 : 0;
    files_->faults.truncate = below(3) == 0 ? 0.5 : 0;
    files_->faults.sync = below(2) == 0 ? 0.4 : 0;
    files_->faults.entry = below(3) == 0 ? 0.4 : 0;
    files_->faults.forgetPages = forgetsPages() ? 0.5 : 0;
  }
  bool forgetsPages() const { return seed_ % 3 == 0; }

  // --- What the gateway does.

  void step() {
    switch (below(12)) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        for (std::size_t i = below(6) + 1; i > 0; --i) append();
        break;
      case 5:
      case 6:
      case 7:
        below(2) == 0 ? endSync() : beginSync();
        break;
      case 8:
        beginSync();
        endSync();
        break;
      case 9:
        forget();
        break;
      case 10:
        keep();
        break;
      default:
        below(2) == 0 ? crash() : reopen();
    }
    noteBudget();
  }

  void append() {
    appendOne(isLarge() ? 2000 + below(9000) : 8 + below(seed_ % 2 == 0 ? 900 : 60));
  }

  void appendOne(std::size_t size) {
    Record record;
    record.reader = "reader";
    record.name = "name";
    record.link = below(5);
    record.bytes.assign(size, 0x55);
    const std::uint64_t id = ++lastId_;
    for (std::size_t i = 0; i < 8; ++i) {
      record.bytes[i] = static_cast<std::uint8_t>(id >> (56 - 8 * i));
    }
    truth_.frames[id] = {record, 0, doubtful_};
    FileError error;
    noteBudget();
    const auto number = log_->append(record, error);
    if (!number && !withFaults_) fail("append: " + error.text);
    if (number) truth_.frames[id].number = *number;
  }

  void beginSync() {
    if (work_) return;
    valuesAtBegin_.clear();
    for (const auto& [name, values] : truth_.values) valuesAtBegin_[name] = values.size();
    work_ = log_->beginSync();
    ran_ = false;
  }

  void endSync() {
    if (!work_) return;
    runWork();
    const auto error = log_->endSync(work_);
    if (error && !withFaults_) fail("sync: " + error->text);
    work_.reset();
    truth_.synced = log_->synced();
    noteBudget();
    if (!error) {
      truth_.certain = valuesAtBegin_;
      truth_.lostValues.clear();
    }
    doubtful_ = error && forgetsPages();
    if (!doubtful_) return;
    for (auto& [id, frame] : truth_.frames) {
      if (frame.number > truth_.synced) frame.doubtful = true;
    }
  }

  /// Records come meanwhile.
  void runWork() {
    if (ran_) return;
    isRunning_ = true;
    gateway::run(*work_);
    isRunning_ = false;
    ran_ = true;
  }

  void forget() {
    if (truth_.synced == 0) return;
    truth_.forgotten = std::max<RecordNumber>(truth_.forgotten,
                                              below(static_cast<std::size_t>(truth_.synced)) + 1);
    log_->forget(truth_.forgotten);
  }

  void keep() {
    const std::string name = below(2) == 0 ? "one" : "two";
    if (below(5) == 0) {
      truth_.values[name].push_back(std::nullopt);
      log_->drop(name);
      return;
    }
    truth_.values[name].push_back(below(1000));
    log_->keep(name, *truth_.values[name].back());
  }

  /// Only then may the log give up what it has.
  void noteBudget() {
    if (log_->size() > kSmallestBudget / 2) truth_.budgetUsed = true;
    for (const std::string& finding : log_->takeFindings()) {
      if (finding.starts_with("the budget is used up")) ++budgetGaps_;
    }
  }

  // --- What happens to it.

  void open() {
    std::string error;
    for (int i = 0; i < 20 && !log_; ++i) {
      log_ = Log::open(files_, options(), error);
      if (!log_ && !withFaults_) return fail("open: " + error);
      if (i == 10) {
        files_->faults = {};
        files_->full = false;
      }
    }
    if (!log_) return fail("open: " + error);
    truth_.identity = log_->identity();
    noteBudget();
  }

  /// The process is killed, or ends in order.
  void reopen() {
    auto killed = below(2) == 0 ? files_->afterKill() : nullptr;
    if (killed) files_->changed = nullptr;
    work_.reset();
    log_.reset();
    files_ = killed ? killed : files_->afterKill();
    watch();
    // The disk may be full, and get room once the log is open.
    if (withFaults_ && below(3) == 0) files_->faults.shortWrite = 1;
    if (withFaults_ && below(3) == 0) files_->full = true;
    open();
    files_->faults = {};
    files_->full = false;
    if (!failed_ && !forgetsPages()) checkNow(*log_, true, "after a kill");
    if (!failed_) adopt();
  }

  /// The history goes on with what a cut has left.
  void crash() {
    auto cut = files_->afterCut(random_());
    files_->changed = nullptr;
    work_.reset();
    log_.reset();
    files_ = std::move(cut);
    watch();
    open();
    if (!failed_) adopt();
  }

  void adopt() {
    std::map<std::uint64_t, RecordNumber> numbers;
    for (const Record& record : readAll(*log_)) {
      if (!record.gap) numbers[idOf(record)] = record.number;
    }
    for (const auto& [id, number] : numbers) {
      if (auto back = truth_.lost.extract(id)) truth_.frames.insert(std::move(back));
    }
    for (auto at = truth_.frames.begin(); at != truth_.frames.end();) {
      auto& [id, frame] = *at++;
      if (numbers.contains(id)) {
        frame.number = numbers[id];
      } else if (frame.number > truth_.synced) {
        truth_.lost.insert(truth_.frames.extract(id));
      }
    }
    truth_.synced = std::max(truth_.synced, log_->synced());
    for (auto& [name, values] : truth_.values) adoptValue(name, values);
  }

  void adoptValue(const std::string& name, std::vector<std::optional<RecordNumber>>& values) {
    std::optional<RecordNumber> now;
    for (const auto& [kept, value] : log_->kept()) {
      if (kept == name) now = value;
    }
    const auto certain = static_cast<std::ptrdiff_t>(std::min(truth_.certain[name], values.size()));
    truth_.lostValues[name].insert(values.begin() + certain, values.end());
    // On a full disk it may be in the write-ahead log only, and not for certain.
    if (log_->synced() + 1 < log_->next()) return values.push_back(now);
    values.assign(1, now);
    truth_.certain[name] = 1;
  }

  // --- What must hold after each change.

  void watch() {
    files_->lying = lying_;
    files_->changed = [this] {
      if (failed_ || isChecking_) return;
      isChecking_ = true;
      checkCut();
      isChecking_ = false;
      if (!isRunning_ || below(8) != 0) return;
      isRunning_ = false;
      append();
      isRunning_ = true;
    };
  }

  void checkCut() {
    ++cuts_;
    const std::uint64_t cutSeed = random_();
    auto disk = files_->afterCut(cutSeed);
    if (below(8) != 0) return checkOpened(disk, false, "after a cut");
    // What is cut while it recovers from a cut recovers as well.
    const std::size_t at = below(24);
    std::size_t changes = 0;
    std::shared_ptr<ModelFiles> second;
    ModelFiles& watched = *disk;
    watched.changed = [&] {
      if (changes++ == at) second = watched.afterCut(random_());
    };
    std::string error;
    std::vector<std::string> findings;
    Log::open(disk, options(), error, &findings);
    watched.changed = nullptr;
    if (!findings.empty()) return fail(findings.front() + " within recovery");
    if (second) checkOpened(second, false, "after a cut within recovery");
  }

  void checkOpened(const std::shared_ptr<ModelFiles>& disk, bool everything,
                   const std::string& when) {
    std::string error;
    std::vector<std::string> findings;
    auto log = Log::open(disk, options(), error, &findings);
    if (!log) return fail("open " + when + ": " + error);
    // Nobody damaged anything.
    if (!findings.empty()) return fail(findings.front() + " " + when);
    checkNow(*log, everything, when);
    if (!failed_ && below(4) == 0) checkGoesOn(disk, std::move(log));
  }

  void checkNow(Log& log, bool everything, const std::string& when) {
    const std::string wrong = Check(log, truth_, everything).run();
    if (!wrong.empty()) fail(wrong + " " + when);
  }

  /// A log that was recovered is a log like any other.
  void checkGoesOn(const std::shared_ptr<ModelFiles>& disk, std::unique_ptr<Log> log) {
    Record record;
    record.bytes.assign(30, 1);
    FileError error;
    const auto number = log->append(record, error);
    if (!number) return fail("append after a cut: " + error.text);
    if (const auto wrong = sync(*log)) return fail("sync after a cut: " + *wrong);
    const LogIdentity identity = log->identity();
    const auto cut = disk->afterCut(random_());
    log.reset();
    std::string text;
    log = Log::open(cut, options(), text);
    if (!log) return fail("open after the second cut: " + text);
    const auto records = readAll(*log);
    const bool there = std::ranges::any_of(records, [&](const Record& found) {
      return found.number == *number && found.bytes == record.bytes;
    });
    if (log->identity() != identity || !there) fail("what was synced after a cut is lost");
  }

  void checkAfterKill() {
    const auto killed = files_->afterKill();
    killed->full = false;
    checkOpened(killed, !forgetsPages(), "after a kill");
  }

  void fail(const std::string& what) {
    if (!failed_) wrong_ = what + "; KESTRIN_CRASH_SEED=" + std::to_string(seed_) + " repeats it";
    failed_ = true;
  }

  const std::uint64_t seed_;
  std::mt19937_64 random_;
  const bool withFaults_;
  const bool lying_;
  std::shared_ptr<ModelFiles> files_;
  std::unique_ptr<Log> log_;
  std::shared_ptr<SyncWork> work_;
  bool ran_ = false;
  bool isRunning_ = false;
  bool doubtful_ = false;
  std::map<std::string, std::size_t> valuesAtBegin_;
  Truth truth_;
  std::uint64_t lastId_ = 0;
  std::size_t cuts_ = 0;
  std::size_t budgetGaps_ = 0;
  std::string wrong_;
  bool failed_ = false;
  bool isChecking_ = false;
};

void runHistories(bool faults) {
  const std::uint64_t count = numberFrom("KESTRIN_CRASH_HISTORIES", 50);
  const std::uint64_t first = numberFrom("KESTRIN_CRASH_SEED", 1);
  std::size_t cuts = 0;
  std::size_t overTheBudget = 0;
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    History history(seed, faults);
    ASSERT_EQ(history.run(), "");
    cuts += history.cuts();
    if (history.usedTheBudget()) ++overTheBudget;
  }
  std::cout << cuts << " cuts in " << count << " histories, " << overTheBudget
            << " of which used the budget up\n";
  EXPECT_GT(cuts, count * 50);
  EXPECT_TRUE(overTheBudget > 0 || count < 2 * kSeedsPerLargeHistory);
}

TEST(GatewayLogCrash, WhatWasSyncedSurvivesACutAfterEveryChange) { runHistories(false); }

TEST(GatewayLogCrash, WhatWasSyncedSurvivesACutAfterEveryChangeOfADiskThatFails) {
  runHistories(true);
}

TEST(GatewayLogCrash, ADiskThatLiesAboutSyncingIsFoundOut) {
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    EXPECT_NE(History(seed, false, true).run(), "") << seed;
  }
}

}  // namespace
}  // namespace kestrin::gateway
