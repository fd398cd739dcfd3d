// Which reader a search takes, and what it says when it takes none.
#include <algorithm>
#include <cctype>

#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;

class Search : public ReaderTest {
 protected:
  std::shared_ptr<simulated::VirtualPeripheral> add(const char* name) {
    return simulated_.radio().addReader(name, ReaderFamily::standard);
  }
};

TEST_F(Search, TakesAReaderByAPartOfItsName) {
  EXPECT_EQ(plugged({.reader = "041"})->name(), "KVR-0417");
}

TEST_F(Search, TakesAReaderByItsIdentifierInAnyCaseAndAtOnce) {
  add("KVR-0418");
  std::string identifier = device_->identifier();
  for (char& c : identifier) c = static_cast<char>(std::tolower(c));
  const auto reader = create({.reader = identifier});
  ASSERT_TRUE(runUntil(*reader, connecting));
  EXPECT_EQ(reader->name(), "KVR-0417");
  EXPECT_LT(now(), milliseconds(300)) << "nothing else can be meant";
}

TEST_F(Search, KnowsEveryLetterOfAnIdentifierInBothCases) {
  std::shared_ptr<simulated::VirtualPeripheral> tenth;
  for (int i = 2; i <= 15; ++i) {
    const auto each = add("TQM_HOLV");
    if (i == 10) tenth = each;
  }
  ASSERT_EQ(tenth->identifier(), "C0:00:00:00:00:0A");
  const auto reader = create({.reader = "c0:00:00:00:00:0a"});
  ASSERT_TRUE(runUntil(*reader, connecting));
  EXPECT_EQ(reader->identifier(), tenth->identifier());
}

TEST_F(Search, PrefersAWholeNameToAPartOfOne) {
  add("KVR-04170");
  const auto reader = plugged({.reader = "KVR-0417"});
  EXPECT_EQ(reader->name(), "KVR-0417");
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Search, WaitsHalfASecondForOthersThatMayBeMeant) {
  const auto reader = create({.reader = "KVR"});
  ASSERT_TRUE(runUntil(*reader, connecting));
  EXPECT_GE(now(), milliseconds(500));
  EXPECT_LE(now(), milliseconds(650));
}

TEST_F(Search, TakesTheFirstAtOnceWhenAnyWillDo) {
  add("KVR-0418");
  const auto reader = create({.reader = "KVR", .ambiguity = Ambiguity::takeFirst});
  ASSERT_TRUE(runUntil(*reader, connecting));
  EXPECT_LT(now(), milliseconds(300));
}

TEST_F(Search, RefusesSeveralThatAreMeantAlikeAndNamesThem) {
  const auto other = add("KVR-0418");
  const auto reader = create({.reader = "KVR-041"});
  runFor(seconds(2));
  EXPECT_EQ(reader->phase(), searching);
  ASSERT_EQ(heard_.troubles.size(), 1U) << "once";
  EXPECT_EQ(heard_.trouble(), ReaderError::ambiguous);
  EXPECT_TRUE(heard_.troubles.back().text.starts_with("'KVR-041' fits several readers: "));
  EXPECT_TRUE(
      heard_.troubles.back().text.ends_with("; give the whole name of one, or its identifier"));
  for (const auto& each : {device_, other}) {
    EXPECT_NE(heard_.troubles.back().text.find(each->identifier()), std::string::npos);
  }
  auto candidates = reader->candidates();
  std::sort(candidates.begin(), candidates.end(),
            [](const SeenReader& a, const SeenReader& b) { return a.name < b.name; });
  EXPECT_EQ(candidates, (std::vector<SeenReader>{{"KVR-0417", device_->identifier()},
                                                 {"KVR-0418", other->identifier()}}));
  // One more is news.
  add("KVR-0419");
  runFor(seconds(2));
  EXPECT_EQ(heard_.troubles.size(), 2U);
  EXPECT_EQ(reader->candidates().size(), 3U);
}

TEST_F(Search, RefusesSeveralWhenNoNameWasGiven) {
  add("KVR-0418");
  const auto reader = create({});
  runFor(seconds(2));
  EXPECT_EQ(reader->phase(), searching);
  ASSERT_EQ(heard_.trouble(), ReaderError::ambiguous);
  EXPECT_TRUE(heard_.troubles.back().text.starts_with("several readers are in range: '"));
}

TEST_F(Search, TakesTheOneThatAPersonChooses) {
  const auto other = add("KVR-0418");
  const auto reader = create({});
  EXPECT_FALSE(reader->choose(other->identifier())) << "not seen yet";
  runFor(seconds(2));
  EXPECT_FALSE(reader->choose("C0:00:00:00:00:99"));
  EXPECT_TRUE(reader->choose(other->identifier()));
  EXPECT_EQ(reader->phase(), searching) << "in the next turn";
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(reader->name(), "KVR-0418");
  EXPECT_FALSE(reader->choose(device_->identifier())) << "one is taken already";
}

TEST_F(Search, ForgetsAChoiceWhenTheRadioGoesFirst) {
  add("KVR-0418");
  const auto reader = create({});
  runFor(seconds(2));
  EXPECT_TRUE(reader->choose(device_->identifier()));
  reader->close();
  runFor(seconds(2));
  EXPECT_EQ(device_->connectionAttempts(), 0U);
  EXPECT_FALSE(reader->choose(device_->identifier()));
}

TEST_F(Search, ReportsEveryReaderThatItSeesOnce) {
  const auto other = add("TQM_HOLV-1");
  const auto reader = create({.reader = "none of them"});
  runFor(seconds(1));
  EXPECT_EQ(heard_.seen, 2U);
  other->simulateName("TQM_HOLV-2");
  simulated_.radio().simulateAdvertisement(device_);
  runFor(seconds(1));
  EXPECT_EQ(heard_.seen, 2U);
  auto seen = reader->seen();
  std::sort(seen.begin(), seen.end(),
            [](const SeenReader& a, const SeenReader& b) { return a.name < b.name; });
  EXPECT_EQ(seen, (std::vector<SeenReader>{{"KVR-0417", device_->identifier()},
                                           {"TQM_HOLV-2", other->identifier()}}));
  EXPECT_TRUE(reader->candidates().empty());
}

TEST_F(Search, SaysAfterItsLimitWhatWasFoundInsteadAndGoesOn) {
  const auto reader = create({.reader = "KVR-0099", .findLimit = milliseconds(2500)});
  loop().runUntil(milliseconds(2500));
  ASSERT_EQ(heard_.troubles.size(), 1U);
  EXPECT_EQ(heard_.trouble(), ReaderError::notFound);
  EXPECT_EQ(heard_.troubles.back().domain, KestrinErrorDomain);
  EXPECT_EQ(
      heard_.troubles.back().text,
      "no reader whose name contains 'KVR-0099' was found within 2.5 s; in range: 'KVR-0417'");
  EXPECT_EQ(reader->phase(), searching);
  runFor(seconds(60));
  EXPECT_EQ(heard_.troubles.size(), 1U) << "once";
  add("KVR-0099");
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Search, SaysAfterItsLimitWhyTheRadioFindsNothing) {
  power(false);
  const auto reader = create({.findLimit = seconds(3)});
  runFor(seconds(4));
  EXPECT_EQ(heard_.trouble(), ReaderError::notFound);
  EXPECT_EQ(heard_.troubles.back().text,
            "no reader was found within 3 s; " + simulated_.radio().stateReason());
  EXPECT_EQ(reader->phase(), radioOff);
}

TEST_F(Search, EndsWithItsLimitWhenItIsToBeTriedOnce) {
  const auto reader = create({.reader = "KVR-0099", .findLimit = seconds(3), .reconnect = false});
  ASSERT_TRUE(runUntil(*reader, closed));
  EXPECT_EQ(now(), seconds(3));
  EXPECT_EQ(heard_.trouble(), ReaderError::notFound);
  add("KVR-0099");
  runFor(seconds(10));
  EXPECT_EQ(heard_.seen, 1U) << "nobody scans any more";
}

TEST_F(Search, HasNoLimitWhenNoneIsWanted) {
  const auto reader = create({.reader = "KVR-0099", .findLimit = std::nullopt});
  runFor(std::chrono::hours(100));
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Search, DoesNotCountTheTimeAwayAgainstItsLimit) {
  const auto reader = create({.reader = "KVR-0099", .findLimit = seconds(10)});
  runFor(seconds(6));
  reader->leave();
  runFor(seconds(100));
  EXPECT_TRUE(heard_.troubles.empty());
  reader->comeBack();
  runFor(milliseconds(3900));
  EXPECT_TRUE(heard_.troubles.empty());
  runFor(milliseconds(200));
  EXPECT_EQ(heard_.trouble(), ReaderError::notFound);
}

TEST_F(Search, KeepsTheNamesOfTheAirOnOneLine) {
  add("KVR-\n\x1f\x1b[2J\x7f\xc3\xa4\\");
  const auto reader = create({.reader = "KVR-0099", .findLimit = seconds(1)});
  runFor(seconds(2));
  EXPECT_NE(heard_.troubles.back().text.find("'KVR-\\x0a\\x1f\\x1b[2J\\x7f\\xc3\\xa4\\\\'"),
            std::string::npos)
      << heard_.troubles.back().text;
}

TEST_F(Search, CountsItsLimitForPluggingInOverAllLossesUntilItIsPluggedIn) {
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = seconds(5)});
  ASSERT_TRUE(runUntil(*reader, connecting));
  const Time limit = timeAfter(now(), seconds(5));
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(runUntil(*reader, linkingUp));
    device_->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*reader, lost));
  }
  ASSERT_LT(now(), limit);
  EXPECT_TRUE(heard_.troubles.empty());
  loop().runUntil(timeAfter(limit, milliseconds(1)), [] { return false; });
  EXPECT_EQ(heard_.trouble(), ReaderError::notPluggedIn);
}

TEST_F(Search, TellsAReaderThatIsNotPluggedInWithinItsLimitAndGoesOnTrying) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = seconds(5)});
  ASSERT_TRUE(runUntil(*reader, connecting));
  runFor(seconds(30));
  ASSERT_EQ(heard_.troubles.size(), 1U) << "once for an attempt";
  EXPECT_EQ(heard_.trouble(), ReaderError::notPluggedIn);
  EXPECT_EQ(heard_.troubles.back().text, "the reader 'KVR-0417' was not plugged in within 5 s");
  EXPECT_EQ(reader->phase(), connecting);
  device_->simulateConnectionNeverCompleting(false);
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Search, GivesALinkUpThatLeadsToNothingAndTriesAnother) {
  device_->simulateMissingService(*CBUUID::UUIDWithString("BA821000-3B5B-4654-85FE-E998B123ADEA"));
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = seconds(5)});
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  ASSERT_TRUE(runUntil(*reader, lost));
  EXPECT_EQ(heard_.trouble(), ReaderError::notPluggedIn);
  device_->simulateMissingService(*CBUUID::UUIDWithString("BA821000-3B5B-4654-85FE-E998B123ADEA"),
                                  false);
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Search, GivesALinkUpThatLeadsToNothingAlsoWhenTheLimitHasPassedBeforeIt) {
  device_->simulateMissingService(*CBUUID::UUIDWithString("BA821000-3B5B-4654-85FE-E998B123ADEA"));
  device_->simulateConnectionNeverCompleting();
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = seconds(5)});
  ASSERT_TRUE(runUntil(*reader, connecting));
  runFor(seconds(10));
  EXPECT_EQ(heard_.troubles.size(), 1U);
  device_->simulateConnectionNeverCompleting(false);
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  ASSERT_TRUE(runUntil(*reader, lost));
  EXPECT_EQ(heard_.troubles.size(), 2U);
}

TEST_F(Search, GivesOthersTheirTimeAgainWhenTheOneThatWasMeantHasGone) {
  const auto reader = create({.reader = "KVR"});
  runFor(milliseconds(200));
  auto other = Reader::create(simulated_.platform(), {.reader = device_->identifier()});
  runFor(seconds(3));
  ASSERT_EQ(reader->phase(), searching);
  add("KVR-0418");
  add("KVR-0419");
  runFor(seconds(3));
  EXPECT_EQ(reader->phase(), searching);
  EXPECT_EQ(heard_.trouble(), ReaderError::ambiguous);
}

TEST_F(Search, GivesOthersTheirTimeAgainBehindARadioThatWasOff) {
  const auto reader = create({.reader = "KVR"});
  runFor(milliseconds(200));
  power(false);
  runFor(seconds(3));
  add("KVR-0418");
  power(true);
  runFor(seconds(3));
  EXPECT_EQ(reader->phase(), searching);
  EXPECT_EQ(heard_.trouble(), ReaderError::ambiguous);
  // And says it again, since whoever showed it may have stopped.
  power(false);
  runFor(seconds(1));
  power(true);
  runFor(seconds(3));
  EXPECT_EQ(heard_.trouble(), ReaderError::ambiguous);
}

TEST_F(Search, EndsWithAReaderThatIsNotPluggedInWhenItIsToBeTriedOnce) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = seconds(5), .reconnect = false});
  ASSERT_TRUE(runUntil(*reader, closed));
  EXPECT_EQ(heard_.trouble(), ReaderError::notPluggedIn);
  device_->simulateConnectionNeverCompleting(false);
  runFor(seconds(10));
  EXPECT_FALSE(device_->connected());
}

TEST_F(Search, SaysThatTheRadioIsOffWhenThatKeepsAReaderFromBeingPluggedIn) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = seconds(5)});
  ASSERT_TRUE(runUntil(*reader, connecting));
  power(false);
  runFor(seconds(10));
  EXPECT_EQ(heard_.troubles.back().text, "the reader 'KVR-0417' was not plugged in within 5 s; " +
                                             simulated_.radio().stateReason());
}

TEST_F(Search, KeepsToItsReaderWhenTheRadioThatComesBackScansByItself) {
  const auto reader = plugged();
  const auto other = add("KVR-0099");
  power(false);
  runFor(seconds(1));
  power(true);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  runFor(seconds(5));
  EXPECT_EQ(heard_.seen, 1U) << "it does not scan while it has a reader";
  EXPECT_EQ(other->connectionAttempts(), 0U);
  std::optional<NSData> answered;
  reader->exchange(command_, seconds(1), [&](const auto& answer, const auto&) {
    if (answer) answered.emplace(answer->bytes);
  });
  runFor(seconds(1));
  EXPECT_EQ(answered, answer_);
}

}  // namespace
}  // namespace kestrin::test
