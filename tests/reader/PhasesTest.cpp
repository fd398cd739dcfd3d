// The ways from one phase to another, and what each is for.
#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;
using Phases = std::vector<ReaderPhase>;

constexpr ReaderPhase kAll[] = {radioOff,  searching, connecting, linkingUp,
                                pluggedIn, lost,      away,       closed};

TEST_F(Phase, OfAReaderInRangeGoesFromSearchingToPluggedIn) {
  const auto reader = create();
  EXPECT_EQ(reader->phase(), searching);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{connecting, linkingUp, pluggedIn}));
  EXPECT_EQ(reader->name(), "KVR-0417");
  EXPECT_EQ(reader->identifier(), device_->identifier());
  EXPECT_TRUE(reader->hasLink());
  EXPECT_TRUE(heard_.troubles.empty());
  EXPECT_EQ(heard_.frames, std::vector<NSData>{simulated::readerInfoReply()});
}

TEST_F(Phase, ChangesNowhereInsideCreate) {
  const auto reader = create();
  EXPECT_TRUE(heard_.phases.empty());
  EXPECT_EQ(heard_.seen, 0U);
}

TEST_F(Phase, OfALostLinkComesBackToPluggedInByItself) {
  const auto reader = plugged();
  heard_.phases.clear();
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{lost, connecting, linkingUp, pluggedIn}));
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Phase, OfALinkThatIsLostWhileItComesUpIsLostToo) {
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{connecting, linkingUp, lost, connecting, linkingUp, pluggedIn}));
}

TEST_F(Phase, IsPluggedInNoSoonerThanTheNewLinkCanBeUsedWhenTheLastLinksReportIsLate) {
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  // The report of this link is due two seconds after its characteristics, and outlives it.
  runFor(milliseconds(1500));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  const Time began = now();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_GE(now() - began, seconds(2));
}

TEST_F(Phase, PausesGrowUpToAMinuteWhileLinksAreLostAndBeginAgainOncePluggedIn) {
  const auto reader = create({.reader = "KVR-0417", .plugInLimit = std::nullopt});
  std::vector<Time> pauses;
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(runUntil(*reader, linkingUp, seconds(120)));
    device_->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*reader, lost));
    const Time from = now();
    ASSERT_TRUE(runUntil(*reader, connecting, seconds(120)));
    pauses.push_back(now() - from);
  }
  EXPECT_EQ(pauses, (std::vector<Time>{milliseconds(0), milliseconds(500), seconds(1), seconds(2),
                                       seconds(4), seconds(8), seconds(16), seconds(32),
                                       seconds(60), seconds(60)}));
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  const Time from = now();
  ASSERT_TRUE(runUntil(*reader, connecting));
  EXPECT_EQ(now(), from);
}

TEST_F(Phase, IsClosedAfterTheFirstLossWhenNobodyWantsItBack) {
  const auto reader = plugged({.reader = "KVR-0417", .reconnect = false});
  heard_.phases.clear();
  device_->simulateLinkLoss();
  runFor(seconds(60));
  EXPECT_EQ(heard_.phases, (Phases{lost, closed}));
  EXPECT_EQ(heard_.trouble(), ReaderError::unplugged);
  EXPECT_EQ(heard_.troubles.back().text, "the link to 'KVR-0417' was lost");
  EXPECT_FALSE(device_->connected());
}

TEST_F(Phase, IsClosedWhenALinkGoesDownBeforeItCanBeUsedAndNobodyWantsItBack) {
  const auto reader = create({.reader = "KVR-0417", .reconnect = false});
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, closed));
  EXPECT_EQ(heard_.trouble(), ReaderError::unplugged);
  EXPECT_EQ(heard_.troubles.back().text,
            "the link to 'KVR-0417' went down before it could be used");
}

TEST_F(Phase, IsRadioOffWhileTheRadioIsAndSaysWhyOnce) {
  power(false);
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, radioOff));
  EXPECT_EQ(heard_.trouble(), ReaderError::radioOff);
  EXPECT_EQ(heard_.troubles.back().text, simulated_.radio().stateReason());
  runFor(seconds(5));
  EXPECT_EQ(heard_.troubles.size(), 1U);
  power(true);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{radioOff, searching, connecting, linkingUp, pluggedIn}));
}

TEST_F(Phase, SaysOfARadioThatIsSwitchedOffTwiceWhyTwice) {
  const auto reader = plugged();
  for (std::size_t times = 1; times <= 2; ++times) {
    power(false);
    ASSERT_TRUE(runUntil(*reader, radioOff));
    runFor(seconds(1));
    EXPECT_EQ(heard_.troubles.size(), times);
    power(true);
    ASSERT_TRUE(runUntil(*reader, pluggedIn));
  }
}

TEST_F(Phase, SaysTheSameOfARadioOnceThoughItsStateChanges) {
  Platform platform = simulated_.platform();
  platform.radio = std::make_shared<OneReason>(platform.radio, "look at the switch");
  const auto reader = Reader::create(platform, {}, heard_.handlers());
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  for (const auto state : {CBManagerState::poweredOff, CBManagerState::resetting}) {
    simulated_.radio().simulateState(state);
    runFor(seconds(1));
    EXPECT_EQ(reader->phase(), radioOff);
    EXPECT_EQ(heard_.troubles.size(), 1U);
  }
}

TEST_F(Phase, SaysNothingOfTheRadioToWhomItsSwitchingOffWasReasonToClose) {
  const auto reader = Reader::create(simulated_.platform(), {},
                                     {.onPhase =
                                          [](Reader& closing, ReaderPhase phase) {
                                            if (phase == radioOff) closing.close();
                                          },
                                      .onTrouble = heard_.handlers().onTrouble});
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  power(false);
  runFor(seconds(1));
  EXPECT_EQ(reader->phase(), closed);
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Phase, SaysOfARadioThatIsNotThereThatItIsUnusable) {
  simulated_.radio().simulateState(CBManagerState::unsupported);
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, radioOff));
  EXPECT_EQ(heard_.trouble(), ReaderError::radioUnusable);
  // What is the matter with it changes.
  power(false);
  runFor(seconds(1));
  EXPECT_EQ(heard_.trouble(), ReaderError::radioOff);
  EXPECT_EQ(heard_.troubles.size(), 2U);
}

TEST_F(Phase, OfAReaderWhoseRadioIsSwitchedOffComesBackWithTheRadio) {
  const auto reader = plugged();
  heard_.phases.clear();
  power(false);
  ASSERT_TRUE(runUntil(*reader, radioOff));
  runFor(seconds(100));
  EXPECT_FALSE(reader->hasLink());
  power(true);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases.back(), pluggedIn);
  EXPECT_EQ(heard_.trouble(), ReaderError::radioOff);
  EXPECT_EQ(heard_.troubles.size(), 1U);
}

TEST_F(Phase, OfAnAttemptWaitsOutARadioThatIsSwitchedOff) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, connecting));
  power(false);
  ASSERT_TRUE(runUntil(*reader, radioOff));
  EXPECT_TRUE(reader->hasLink());
  device_->simulateConnectionNeverCompleting(false);
  power(true);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{connecting, radioOff, connecting, linkingUp, pluggedIn}));
}

TEST_F(Phase, DoesNotGoOnFromALossWhileTheRadioIsOff) {
  const auto reader = create();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(runUntil(*reader, linkingUp));
    device_->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*reader, lost));
  }
  // A pause of a second runs.
  power(false);
  ASSERT_TRUE(runUntil(*reader, radioOff));
  runFor(seconds(10));
  EXPECT_EQ(reader->phase(), radioOff);
  power(true);
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Phase, IsClosedWhenTheRadioIsSwitchedOffAndNobodyWantsItBack) {
  const auto reader = plugged({.reader = "KVR-0417", .reconnect = false});
  heard_.phases.clear();
  power(false);
  runFor(seconds(1));
  power(true);
  runFor(seconds(10));
  EXPECT_EQ(heard_.phases, (Phases{lost, closed}));
  EXPECT_EQ(heard_.trouble(), ReaderError::unplugged);
  EXPECT_EQ(device_->connectionAttempts(), 1U);
}

TEST_F(Phase, IsAwayUntilSomebodyComesBack) {
  const auto reader = plugged();
  heard_.phases.clear();
  bool down = false;
  reader->leave([&] {
    down = true;
    EXPECT_FALSE(device_->connected());
  });
  EXPECT_EQ(reader->phase(), pluggedIn) << "it leaves in the next turn";
  ASSERT_TRUE(runUntil(*reader, away));
  EXPECT_FALSE(down);
  runFor(seconds(1));
  EXPECT_TRUE(down);
  down = false;
  reader->leave([&] { down = true; });
  runFor(Time::zero());
  EXPECT_TRUE(down) << "it is away already";
  runFor(seconds(60));
  EXPECT_FALSE(device_->connected());
  EXPECT_FALSE(reader->hasLink());
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{away, connecting, linkingUp, pluggedIn}));
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Phase, IsAwayFromTheBackgroundOn) {
  const auto reader = plugged();
  simulated_.platform().notificationCenter->postNotificationName_object(
      UIApplicationDidEnterBackgroundNotification, nullptr);
  ASSERT_TRUE(runUntil(*reader, away));
  runFor(seconds(10));
  EXPECT_FALSE(device_->connected());
}

TEST_F(Phase, ComesBackOnlyWhenTheOldLinkIsDownAndNotAtAllAfterAnotherDeparture) {
  const auto reader = plugged();
  reader->leave();
  reader->comeBack();
  reader->leave();
  runFor(seconds(30));
  EXPECT_EQ(reader->phase(), away);
  reader->comeBack();
  reader->leave();
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Phase, OfASearchThatWasLeftIsSearchingAgain) {
  const auto reader = create({.reader = "KVR-0099"});
  runFor(seconds(1));
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  simulated_.radio().addReader("KVR-0099", ReaderFamily::standard);
  runFor(seconds(5));
  EXPECT_EQ(reader->phase(), away);
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{away, searching, connecting, linkingUp, pluggedIn}));
}

TEST_F(Phase, OfALossThatWasLeftIsAway) {
  const auto reader = create();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(runUntil(*reader, linkingUp));
    device_->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*reader, lost));
  }
  reader->leave();
  runFor(seconds(60));
  EXPECT_EQ(reader->phase(), away);
}

TEST_F(Phase, ComesBackToARadioThatIsOff) {
  const auto reader = plugged();
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  power(false);
  runFor(seconds(1));
  EXPECT_EQ(reader->phase(), away);
  EXPECT_TRUE(heard_.troubles.empty());
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, radioOff));
  EXPECT_EQ(heard_.trouble(), ReaderError::radioOff);
  power(true);
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Phase, ComesBackToARadioThatIsOffWithNothingFoundYet) {
  const auto reader = create({.reader = "KVR-0099"});
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  power(false);
  runFor(seconds(1));
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, radioOff));
  simulated_.radio().addReader("KVR-0099", ReaderFamily::standard);
  power(true);
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Phase, ScansForNobodyWhileAwayEvenWhenTheRadioComesBack) {
  const auto reader = create({.reader = "KVR-0099"});
  runFor(seconds(1));
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  power(false);
  runFor(seconds(1));
  power(true);
  const std::size_t seen = heard_.seen;
  simulated_.radio().addReader("KVR-0100", ReaderFamily::standard);
  runFor(seconds(5));
  EXPECT_EQ(heard_.seen, seen);
}

TEST_F(Phase, AsksForNoScanOnceClosedEvenWhenTheRadioComesBack) {
  const auto requests = std::make_shared<Requests>();
  const auto recorded = recordedPlatform(simulated_.platform(), requests);
  const auto reader = Reader::create(
      recorded.platform, {.reader = "KVR-0099", .findLimit = seconds(1), .reconnect = false});
  ASSERT_TRUE(runUntil(*reader, closed));
  power(false);
  runFor(seconds(1));
  requests->words.clear();
  power(true);
  runFor(seconds(1));
  // A manager scans by itself whenever its radio is powered on.
  EXPECT_EQ(requests->words, "scan stopScan ");
}

TEST_F(Phase, OfAnAttemptThatWaitsForTheRadioEndsWithClose) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, connecting));
  power(false);
  ASSERT_TRUE(runUntil(*reader, radioOff));
  reader->close();
  EXPECT_EQ(reader->phase(), closed);
  device_->simulateConnectionNeverCompleting(false);
  power(true);
  runFor(seconds(10));
  EXPECT_FALSE(device_->connected());
}

TEST_F(Phase, SaysNothingOfItsLimitOnceClosed) {
  const auto reader = create({.reader = "none", .findLimit = seconds(1)});
  reader->close();
  runFor(seconds(5));
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(Phase, OfALossThatIsClosedInItsPauseStaysClosed) {
  const auto reader = create();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(runUntil(*reader, linkingUp));
    device_->simulateLinkLoss();
    ASSERT_TRUE(runUntil(*reader, lost));
  }
  const std::size_t attempts = device_->connectionAttempts();
  reader->close();
  runFor(seconds(60));
  EXPECT_EQ(reader->phase(), closed);
  EXPECT_EQ(device_->connectionAttempts(), attempts);
}

TEST_F(Phase, OfAReaderThatIsAwayIsClosedByClose) {
  const auto reader = plugged();
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  reader->close();
  EXPECT_EQ(reader->phase(), closed);
  reader->comeBack();
  runFor(seconds(10));
  EXPECT_EQ(reader->phase(), closed);
}

TEST_F(Phase, IsClosedFromCloseOnAndTheLinkIsDownWhenItsDoneIsCalled) {
  const auto reader = plugged();
  heard_.phases.clear();
  bool down = false;
  reader->close([&] {
    down = true;
    EXPECT_FALSE(device_->connected());
    EXPECT_FALSE(reader->hasLink());
  });
  EXPECT_EQ(reader->phase(), closed);
  EXPECT_FALSE(down);
  runFor(seconds(10));
  EXPECT_TRUE(down);
  EXPECT_TRUE(heard_.phases.empty()) << "who closes knows";
  // Nothing is left to leave or to come back to.
  reader->leave();
  reader->comeBack();
  bool again = false;
  reader->close([&] { again = true; });
  runFor(seconds(10));
  EXPECT_EQ(reader->phase(), closed);
  EXPECT_TRUE(again);
  EXPECT_FALSE(device_->connected());
}

TEST_F(Phase, OfAnAttemptThatIsClosedEndsWithTheAttempt) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = create();
  ASSERT_TRUE(runUntil(*reader, connecting));
  bool down = false;
  reader->close([&] { down = true; });
  runFor(seconds(1));
  EXPECT_TRUE(down);
  device_->simulateConnectionNeverCompleting(false);
  runFor(seconds(10));
  EXPECT_FALSE(device_->connected());
}

TEST_F(Phase, MayFollowAnotherAsTheTableSays) {
  const auto isInTable = [](ReaderPhase from, ReaderPhase to) {
    static constexpr std::pair<ReaderPhase, ReaderPhase> kWays[] = {
        {searching, connecting}, {connecting, linkingUp}, {linkingUp, pluggedIn},
        {connecting, lost},      {linkingUp, lost},       {pluggedIn, lost},
        {lost, connecting},      {radioOff, searching},   {radioOff, connecting},
        {radioOff, linkingUp},   {away, searching},       {away, connecting},
        {searching, radioOff},   {connecting, radioOff},  {linkingUp, radioOff},
        {pluggedIn, radioOff},   {lost, radioOff},        {away, radioOff},
        {radioOff, away},        {searching, away},       {connecting, away},
        {linkingUp, away},       {pluggedIn, away},       {lost, away},
        {radioOff, closed},      {searching, closed},     {connecting, closed},
        {linkingUp, closed},     {pluggedIn, closed},     {lost, closed},
        {away, closed}};
    return std::find(std::begin(kWays), std::end(kWays), std::pair{from, to}) != std::end(kWays);
  };
  for (const ReaderPhase from : kAll) {
    for (const ReaderPhase to : kAll) {
      EXPECT_EQ(mayFollow(from, to), isInTable(from, to)) << nameOf(from) << ' ' << nameOf(to);
    }
  }
}

TEST_F(Phase, HasANameEach) {
  std::vector<std::string_view> names;
  for (const ReaderPhase phase : kAll) names.push_back(nameOf(phase));
  EXPECT_EQ(names,
            (std::vector<std::string_view>{"radioOff", "searching", "connecting", "linkingUp",
                                           "pluggedIn", "lost", "away", "closed"}));
  EXPECT_EQ(nameOf(static_cast<ReaderPhase>(99)), "unknown");
}

TEST_F(Phase, NeedsARunLoop) {
  Platform platform = simulated_.platform();
  platform.mainRunLoop = std::weak_ptr<RunLoop>(std::make_shared<MainRunLoop>());
  NSError error;
  EXPECT_EQ(Reader::create(platform, {}, {}, &error), nullptr);
  EXPECT_EQ(static_cast<ReaderError>(error.code), ReaderError::noRunLoop);
  EXPECT_EQ(error.text, "the platform's run loop is gone; keep it as long as its readers");
  EXPECT_EQ(Reader::create(platform, {}), nullptr);
}

}  // namespace
}  // namespace kestrin::test
