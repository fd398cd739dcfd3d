// Which reader a search takes, and what it says when it takes none.
#include <algorithm>
#include <cctype>

#include "reader/ForwardingRadio.h"
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
  std::string first = "'KVR-0417' (" + device_->identifier() + ")";
  std::string second = "'KVR-0418' (" + other->identifier() + ")";
  if (reader->candidates().front().name == "KVR-0418") std::swap(first, second);
  EXPECT_EQ(heard_.troubles.back().text, "'KVR-041' fits several readers: " + first + ", " +
                                             second +
                                             "; give the whole name of one, or its identifier");
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

TEST_F(Search, RefusesSeveralOfOneWholeName) {
  add("KVR-0417");
  const auto reader = create({.reader = "KVR-0417"});
  runFor(seconds(2));
  EXPECT_EQ(reader->phase(), searching);
  EXPECT_EQ(heard_.trouble(), ReaderError::ambiguous);
}

TEST_F(Search, RefusesSeveralHalfASecondAfterTheFirstWasSeen) {
  add("KVR-0418");
  std::optional<Time> first;
  std::optional<Time> refused;
  ReaderHandlers handlers;
  handlers.onSeen = [&](Reader&) {
    if (!first) first = now();
  };
  handlers.onTrouble = [&](Reader&, const NSError&) { refused = now(); };
  const auto reader = Reader::create(simulated_.platform(), {.reader = "KVR"}, handlers);
  runFor(seconds(2));
  ASSERT_TRUE(first && refused);
  EXPECT_EQ(*refused - *first, milliseconds(500));
}

TEST_F(Search, GivesOthersTheirTimeAgainOnceItIsBack) {
  add("KVR-0418");
  const auto reader = create({.reader = "KVR"});
  runFor(seconds(2));
  ASSERT_EQ(heard_.troubles.size(), 1U);
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, searching));
  runFor(milliseconds(400));
  EXPECT_EQ(heard_.troubles.size(), 1U);
  runFor(seconds(1));
  EXPECT_EQ(heard_.troubles.size(), 2U);
}

TEST_F(Search, RefusesWhatAnotherHasTakenBetweenChoiceAndTurn) {
  const auto other = add("KVR-0418");
  const auto slow = create({});
  const auto fast = Reader::create(simulated_.platform(), {});
  runFor(seconds(2));
  heard_.troubles.clear();
  ASSERT_TRUE(fast->choose(other->identifier()));
  ASSERT_TRUE(slow->choose(other->identifier()));
  runFor(seconds(2));
  EXPECT_EQ(fast->name(), "KVR-0418");
  EXPECT_EQ(slow->phase(), searching);
  ASSERT_FALSE(heard_.troubles.empty());
  EXPECT_EQ(static_cast<ReaderError>(heard_.troubles.front().code), ReaderError::held);
  EXPECT_EQ(heard_.troubles.front().text,
            "'KVR-0418' is held by another Reader of this program; drop that one first");
}

TEST_F(Search, SaysNothingWhenWhatWasHeldIsGone) {
  auto holder = Reader::create(simulated_.platform(), {.reader = "KVR-0417"});
  ASSERT_TRUE(runUntil(*holder, pluggedIn));
  const auto reader = create();
  runFor(seconds(1));
  ASSERT_EQ(heard_.trouble(), ReaderError::held);
  device_->simulateVanishing();
  holder.reset();
  add("KVR-0099");
  runFor(seconds(5));
  EXPECT_EQ(heard_.troubles.size(), 1U);
}

TEST_F(Search, TellsNoSightingOnceItIsClosed) {
  const auto log = std::make_shared<CallingLog>("DiscoverPeripheral");
  Platform platform = simulated_.platform();
  platform.log = log;
  const auto reader = Reader::create(platform, {}, heard_.handlers());
  log->call = [&] { reader->close(); };
  runFor(seconds(2));
  EXPECT_EQ(reader->phase(), closed);
  EXPECT_EQ(heard_.seen, 0U);
}

/// Remembers what was seen, and its central manager.
class StragglingDelegate final : public ForwardingDelegate {
 public:
  using Seen = std::vector<std::shared_ptr<CBPeripheral>>;

  StragglingDelegate(std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<Seen> seen)
      : ForwardingDelegate(std::move(delegate)), seen_(std::move(seen)) {}
  /// Whether anybody was there to report it to.
  bool report(const std::shared_ptr<CBPeripheral>& device) {
    const auto central = central_.lock();
    if (!central || !isHeard()) return false;
    ForwardingDelegate::centralManager_didDiscoverPeripheral_advertisementData_RSSI(central, device,
                                                                                    {}, -60);
    return true;
  }
  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    central_ = central;
    ForwardingDelegate::centralManagerDidUpdateState(central);
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const CBAdvertisementData& data, int RSSI) noexcept override {
    if (std::find(seen_->begin(), seen_->end(), device) == seen_->end()) seen_->push_back(device);
    ForwardingDelegate::centralManager_didDiscoverPeripheral_advertisementData_RSSI(central, device,
                                                                                    data, RSSI);
  }

 private:
  const std::shared_ptr<Seen> seen_;
  std::weak_ptr<CBCentralManager> central_;
};

/// Reports once more what was seen, though nobody scans: a sighting that was under way.
class Straggling final : public ForwardingRadio<StragglingDelegate> {
 public:
  using ForwardingRadio::ForwardingRadio;
  /// To every central manager that is there.
  void reportAgain(std::string_view name) {
    const auto seen = std::find_if(seen_->begin(), seen_->end(),
                                   [&](const auto& each) { return each->name() == name; });
    ASSERT_NE(seen, seen_->end()) << name;
    std::size_t reports = 0;
    for (const auto& each : delegates()) reports += each->report(*seen) ? 1U : 0U;
    ASSERT_GE(reports, 1U);
  }

 private:
  std::shared_ptr<StragglingDelegate> wrap(
      std::weak_ptr<CBCentralManagerDelegate> delegate) override {
    return std::make_shared<StragglingDelegate>(std::move(delegate), seen_);
  }

  const std::shared_ptr<StragglingDelegate::Seen> seen_ =
      std::make_shared<StragglingDelegate::Seen>();
};

class SearchWithStragglers : public Search {
 protected:
  SearchWithStragglers() {
    add("KVR-0418");
    Platform platform = simulated_.platform();
    radio_ = std::make_shared<Straggling>(platform.radio);
    platform.radio = radio_;
    recorded_ = recordedPlatform(platform, requests_);
  }
  std::shared_ptr<Straggling> radio_;
  const std::shared_ptr<Requests> requests_ = std::make_shared<Requests>();
  RecordedPlatform recorded_;
};

TEST_F(SearchWithStragglers, ClosesItsOwnReadersAttemptThoughAnotherWasSeenMeanwhile) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = Reader::create(recorded_.platform, {.reader = "KVR-0417"}, heard_.handlers());
  ASSERT_TRUE(runUntil(*reader, connecting));
  requests_->words.clear();
  radio_->reportAgain("KVR-0418");
  radio_->reportAgain("KVR-0417");
  EXPECT_EQ(requests_->words, "stopScan connect ") << "once more, for its own";
  reader->close();
  device_->simulateConnectionNeverCompleting(false);
  runFor(seconds(10));
  EXPECT_FALSE(device_->connected());
}

TEST_F(SearchWithStragglers, KeepsItsOwnReadersLinkThoughAnotherIsSeenMeanwhile) {
  const auto reader = Reader::create(recorded_.platform, {.reader = "KVR-0417"}, heard_.handlers());
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  radio_->reportAgain("KVR-0418");
  runFor(seconds(5));
  EXPECT_EQ(reader->phase(), pluggedIn);
  reader->close();
  runFor(seconds(5));
  EXPECT_FALSE(device_->connected());
}

TEST_F(SearchWithStragglers, AsksForNothingInItsPauseWhenAnotherIsSeen) {
  const auto reader = Reader::create(recorded_.platform, {.reader = "KVR-0417"}, heard_.handlers());
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(runUntil(*reader, linkingUp));
    device_->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*reader, lost));
  }
  requests_->words.clear();
  radio_->reportAgain("KVR-0418");
  radio_->reportAgain("KVR-0417");
  EXPECT_EQ(requests_->words, "");
}

TEST_F(Search, RefusesSeveralWhenNoNameWasGiven) {
  add("KVR-0418");
  const auto reader = create({});
  runFor(seconds(2));
  EXPECT_EQ(reader->phase(), searching);
  ASSERT_EQ(heard_.trouble(), ReaderError::ambiguous);
  EXPECT_TRUE(heard_.troubles.back().text.starts_with("several readers are in range: '"));
}

TEST_F(Search, RefusesTheSameOnceThoughItLooksAgain) {
  add("KVR-0418");
  add("TQM_HOLV-1");
  const auto reader = create({.reader = "KVR"});
  auto another = Reader::create(simulated_.platform(), {.reader = "TQM_HOLV-1"});
  ASSERT_TRUE(runUntil(*another, pluggedIn));
  ASSERT_EQ(heard_.troubles.size(), 1U);
  another.reset();  // A reader of this program that is given up may be the one that is meant.
  runFor(seconds(2));
  EXPECT_EQ(heard_.troubles.size(), 1U);
}

TEST_F(Search, TakesTheOneThatAPersonChooses) {
  const auto other = add("KVR-0418");
  add("KVR-0419");
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

TEST_F(Search, SaysAfterItsLimitAllThatWasFoundInstead) {
  add("KVR ~1");
  const auto reader = create({.reader = "KVR-0099", .findLimit = seconds(1000)});
  runFor(seconds(1001));
  ASSERT_EQ(heard_.troubles.size(), 1U);
  std::string first = "'KVR-0417'";
  std::string second = "'KVR ~1'";
  if (reader->seen().front().name == "KVR ~1") std::swap(first, second);
  EXPECT_EQ(heard_.troubles.back().text,
            "no reader whose name contains 'KVR-0099' was found within 1000 s; in range: " + first +
                ", " + second);
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
  runFor(seconds(5));
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
