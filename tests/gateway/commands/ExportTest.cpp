// Records as a table of commas, lines of JSON and a database.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"
#include "tools/gateway/commands/RecordRow.h"
#include "tools/gateway/commands/SqliteExport.h"
#include "tools/gateway/commands/TextExport.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

const LogIdentity kExportedLog(32, 'a');

Record frame() {
  Record record;
  record.number = 7;
  record.reader = "C0:00:00:00:00:01";
  record.name = "KVR,\"1\"\n\x1b";
  record.link = 3;
  record.wallMs = 1795352709123;
  record.monoMs = 5000;
  record.bytes = {0xBB, 0x01, 0xA2, 0x00, 0x01, 0x99, 0x7E, 0x00, 0x00};
  return record;
}

Record gap() {
  Record record;
  record.number = 8;
  record.kind = RecordKind::gap;
  record.gap = Gap{kExportedLog, 2, 5, GapReason::budget};
  return record;
}

class ExportTest : public testing::Test {
 protected:
  void writeBoth(RecordWriter& writer) {
    for (const Record& record : {frame(), gap()}) {
      EXPECT_EQ(writer.write(kExportedLog, record), std::nullopt);
    }
    EXPECT_EQ(writer.finish(), std::nullopt);
  }

  const TestFolder folder;
  const std::string path = folder.pathOf("out");
  std::string error;
};

TEST(CsvField, IsInQuotesWhereItHasToBe) {
  EXPECT_EQ(csvField("plain text"), "plain text");
  EXPECT_EQ(csvField("a,b"), "\"a,b\"");
  EXPECT_EQ(csvField("say \"a\""), "\"say \"\"a\"\"\"");
  EXPECT_EQ(csvField("two\nlines"), "\"two\nlines\"");
  EXPECT_EQ(csvField(""), "");
}

TEST_F(ExportTest, ATableOfCommasHasALineForEachRecord) {
  writeBoth(*makeCsvWriter(path, error));
  EXPECT_EQ(contentsOf(path),
            "log,n,kind,reader,name,link,at,mono,bytes,type,code,payload,gap_log,gap_from,gap_to,"
            "gap_reason\r\n" +
                kExportedLog +
                ",7,frame,C0:00:00:00:00:01,\"KVR,\"\"1\"\"\\x0a\\x1b\",3,"
                "2026-11-22T13:05:09.123Z,5000,bb01a20001997e0000,,,,,,,\r\n" +
                kExportedLog + ",8,gap,,,,,,,,,," + kExportedLog + ",2,5,budget\r\n");
}

TEST_F(ExportTest, LinesOfJsonAreWhatTheBrokerGets) {
  writeBoth(*makeJsonLinesWriter(path, error));
  EXPECT_EQ(contentsOf(path), payloadOf(frame(), kExportedLog, FrameFormat::json) + "\n" +
                                  payloadOf(gap(), kExportedLog, FrameFormat::json) + "\n");
}

TEST_F(ExportTest, ADatabaseHasARowForEachRecord) {
  writeBoth(*makeSqliteWriter(path, error));
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
  std::string rows;
  const auto add = [](void* text, int count, char** values, char**) {
    for (int i = 0; i < count; ++i) {
      *static_cast<std::string*>(text) += std::string(values[i] == nullptr ? "-" : values[i]) + "|";
    }
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(database,
                         "SELECT n, typeof(n), kind, name, link, typeof(mono), bytes, gap_from,"
                         " gap_reason FROM records ORDER BY n",
                         add, &rows, nullptr),
            SQLITE_OK);
  sqlite3_close(database);
  EXPECT_EQ(rows,
            "7|integer|frame|KVR,\"1\"\\x0a\\x1b|3|integer|bb01a20001997e0000|-|-|"
            "8|integer|gap|-|-|null|-|2|budget|");
}

TEST_F(ExportTest, AWholeFrameIsTakenApart) {
  Record record = frame();
  record.bytes = {0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37};
  const RecordRow row = rowOf(kExportedLog, record);
  EXPECT_EQ(row.type, 1);
  EXPECT_EQ(row.code, 3);
  EXPECT_EQ(row.payload, "b1");
}

TEST_F(ExportTest, AFileThatIsThereIsNotTouched) {
  folder.write("out", "mine");
  EXPECT_FALSE(makeCsvWriter(path, error));
  EXPECT_EQ(error.find(path), 0U) << error;
  EXPECT_FALSE(makeJsonLinesWriter(path, error));
  EXPECT_EQ(contentsOf(path), "mine");
}

TEST_F(ExportTest, AFolderThatIsNotThereIsSaid) {
  for (const auto make : {makeCsvWriter, makeJsonLinesWriter}) {
    const std::string missing = folder.pathOf("no/such/folder");
    EXPECT_FALSE(make(missing, error));
    EXPECT_EQ(error.find(missing), 0U) << error;
  }
  EXPECT_FALSE(makeSqliteWriter(folder.pathOf("no/such/folder"), error));
}

}  // namespace
}  // namespace kestrin::gateway
