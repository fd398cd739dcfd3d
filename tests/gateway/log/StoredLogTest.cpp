// Logs of every format that was released, as the gateways of their time left them, and one of a
// format that is still to come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <cstdlib>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "gateway/log/StoredLog.h"
#include "tools/gateway/log/LogReader.h"

namespace kestrin::gateway {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class LogFolderTest {
 public:
  LogFolderTest() {
    std::string pattern = testing::TempDir() + "kestrin-stored-XXXXXX";
    options.folder = ::mkdtemp(pattern.data());
    options.budget = kSmallestBudget;
  }
  ~LogFolderTest() { fs::remove_all(options.folder); }
  LogFolderTest(const LogFolderTest&) = delete;
  LogFolderTest& operator=(const LogFolderTest&) = delete;

  void copy(const fs::path& stored) const {
    fs::copy(stored, options.folder, fs::copy_options::recursive);
  }
  std::unique_ptr<Log> open() {
    std::string error;
    findings.clear();
    auto log = Log::open(systemFiles(), options, error, &findings);
    EXPECT_TRUE(log) << error;
    return log;
  }
  /// What is in each file, but in that which names the process that looks.
  [[nodiscard]] std::map<std::string, std::string> content() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(options.folder)) {
      const std::string name = fs::relative(entry.path(), options.folder);
      if (name == "lock") continue;
      files[name] = entry.is_regular_file() ? contentOf(entry.path()) : "a folder";
    }
    return files;
  }
  [[nodiscard]] fs::path path(const std::string& name) const { return options.folder + "/" + name; }

  LogOptions options;
  std::vector<std::string> findings;
};

class StoredLog : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override { folder_.copy(stored()); }
  [[nodiscard]] static fs::path stored() { return fs::path(KESTRIN_STORED_LOGS) / GetParam(); }
  [[nodiscard]] static std::string expected() { return contentOf(stored().string() + ".txt"); }

  LogFolderTest folder_;
};

TEST_P(StoredLog, HasEverythingThatItsGatewayKept) {
  ASSERT_THAT(expected(), HasSubstr("log 00112233445566778899aabbccddeeff first 5 "));
  const auto log = folder_.open();
  ASSERT_TRUE(log);
  EXPECT_EQ(describedLog(*log), expected());
  EXPECT_THAT(folder_.findings, IsEmpty());
}

TEST_P(StoredLog, IsReadBesideAGatewayWithoutAChange) {
  std::string error;
  const auto reader = LogReader::open(systemFiles(), folder_.options.folder, error);
  ASSERT_TRUE(reader) << error;
  std::string text;
  int count = 0;
  for (Record record; reader->next(record); ++count) text += describedRecord(record);
  EXPECT_THAT(expected(), testing::EndsWith(text));
  EXPECT_GE(count, 19);
  EXPECT_THAT(reader->takeFindings(), IsEmpty());
}

TEST_P(StoredLog, GoesOnWithTheNextNumberAndStaysWhole) {
  RecordNumber next = 0;
  {
    const auto log = folder_.open();
    ASSERT_TRUE(log);
    next = log->next();
    Record record;
    record.reader = "AA:BB:CC:DD:EE:03";
    record.bytes = {1, 2, 3};
    FileError error;
    EXPECT_EQ(log->append(record, error), next) << error.text;
  }
  const auto log = folder_.open();
  ASSERT_TRUE(log);
  EXPECT_EQ(log->next(), next + 1);
  std::string text = expected();
  text.replace(text.find("next " + std::to_string(next)), 5 + std::to_string(next).size(),
               "next " + std::to_string(next + 1));
  text += std::to_string(next) +
          " kind 1 link 0 wall 0 mono 0 reader AA:BB:CC:DD:EE:03 name  bytes 010203\n";
  EXPECT_EQ(describedLog(*log), text);
}

INSTANTIATE_TEST_SUITE_P(Formats, StoredLog, testing::Values("1/closed", "1/killed"),
                         [](const auto& each) {
                           std::string name = each.param;
                           name[name.find('/')] = '_';
                           return name;
                         });

// --- A log of a newer gateway, which this one leaves as it is.

class NewerLog : public testing::Test {
 protected:
  void SetUp() override { folder_.copy(fs::path(KESTRIN_STORED_LOGS) / "1/killed"); }

  /// As a newer gateway does it: the version is in the file's header when anything else changes.
  void raiseVersion(const std::string& database) const {
    sqlite3* connection = nullptr;
    ASSERT_EQ(sqlite3_open(folder_.path(database).c_str(), &connection), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(connection,
                           "PRAGMA user_version=2; PRAGMA wal_checkpoint(TRUNCATE);"
                           "ALTER TABLE records ADD COLUMN what TEXT",
                           nullptr, nullptr, nullptr),
              SQLITE_OK)
        << sqlite3_errmsg(connection);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_close(connection);
  }
  void expectLeftAlone() {
    const auto before = folder_.content();
    ASSERT_GE(before.size(), 3U);
    std::string error;
    EXPECT_FALSE(Log::open(systemFiles(), folder_.options, error));
    EXPECT_THAT(error, HasSubstr("has a newer format than this program reads (1): a newer "
                                 "kestrin-gateway would be right"));
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_EQ(folder_.content(), before);
  }

  LogFolderTest folder_;
};

TEST_F(NewerLog, IsRefusedInOneLineAndNotAByteOfItChanges) {
  raiseVersion("current/records.sqlite");
  expectLeftAlone();
}

TEST_F(NewerLog, IsLeftAloneThoughItsClaimAndItsReserveAreUnknown) {
  raiseVersion("current/records.sqlite");
  std::ofstream(folder_.path("current/claim")) << "what a newer gateway writes there";
  std::ofstream(folder_.path("reserve")) << "of another length";
  fs::create_directory(folder_.path("another"));
  expectLeftAlone();
}

TEST_F(NewerLog, IsLeftAloneThoughAFailedSyncLeftItDoubtful) {
  raiseVersion("current/records.sqlite");
  fs::remove(folder_.path("current/claim"));
  expectLeftAlone();
}

TEST_F(NewerLog, IsLeftAloneBeforeItHasItsName) {
  raiseVersion("current/records.sqlite");
  fs::rename(folder_.path("current"), folder_.path("fresh"));
  expectLeftAlone();
}

TEST_F(NewerLog, IsNotReadInPartEither) {
  raiseVersion("current/records.sqlite");
  std::string error;
  EXPECT_FALSE(LogReader::open(systemFiles(), folder_.options.folder, error));
  EXPECT_THAT(error, HasSubstr("has a newer format than this program reads (1)"));
}

}  // namespace
}  // namespace kestrin::gateway
