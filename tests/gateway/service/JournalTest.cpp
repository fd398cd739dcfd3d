#include "tools/gateway/service/Journal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "gateway/support/TestEnvironment.h"
#include "gateway/support/TestFolder.h"

namespace kestrin::gateway {
namespace {

using testing::ElementsAre;

TEST(JournalTest, ALineHasItsTextItsWeightAndWhoSaysIt) {
  EXPECT_THAT(journalFields("the broker is there"),
              ElementsAre("MESSAGE=the broker is there", "PRIORITY=6",
                          "SYSLOG_IDENTIFIER=kestrin-gateway"));
}

TEST(JournalTest, ReaderNumberAndReasonAreFieldsOfTheirOwn) {
  Line line("the reader 'KVR-0417' is not in range", 48213);
  line.weight = Weight::warning;
  line.reader = "KVR-0417";
  line.reason = "reader";
  EXPECT_THAT(journalFields(line),
              ElementsAre("MESSAGE=the reader 'KVR-0417' is not in range", "PRIORITY=4",
                          "SYSLOG_IDENTIFIER=kestrin-gateway", "KESTRIN_READER=KVR-0417",
                          "KESTRIN_NUMBER=48213", "KESTRIN_REASON=reader"));
}

class JournalStreamTest : public testing::Test {
 protected:
  void SetUp() override {
    descriptor_ = ::open(folder_.write("stream", "").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(descriptor_, 0);
    ASSERT_EQ(::fstat(descriptor_, &state_), 0);
  }
  void TearDown() override {
    removeVariable("JOURNAL_STREAM");
    ::close(descriptor_);
  }
  static void setStream(dev_t device, ino_t number) {
    const std::string text = std::to_string(device) + ":" + std::to_string(number);
    setVariable("JOURNAL_STREAM", text);
  }

  const TestFolder folder_;
  int descriptor_ = -1;
  struct stat state_ {};
};

TEST_F(JournalStreamTest, WithoutTheVariableADescriptorIsNotTheJournals) {
  EXPECT_FALSE(isJournal(descriptor_));
}

TEST_F(JournalStreamTest, TheDescriptorThatTheVariableNamesIsTheJournals) {
  setStream(state_.st_dev, state_.st_ino);
  EXPECT_TRUE(isJournal(descriptor_));
}

TEST_F(JournalStreamTest, OneThatWasTurnedElsewhereSinceIsNot) {
  setStream(state_.st_dev, state_.st_ino + 1);
  EXPECT_FALSE(isJournal(descriptor_));
}

}  // namespace
}  // namespace kestrin::gateway
