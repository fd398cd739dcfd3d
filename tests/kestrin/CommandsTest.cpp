// `scan`, `monitor` and `send` on a simulated radio whose readers do what readers do at their
// worst. Everything runs in virtual time.
#include "tools/kestrin/commands/Commands.h"

#include <KestrinBLESDK/RcpFrame.h>
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <functional>
#include <string>

#include "kestrin/Captured.h"
#include "kestrin/TestEnvironment.h"
#include "tools/kestrin/text/Hex.h"

namespace kestrin::app {
namespace {

using simulated::ReaderFamily;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test::TestEnvironment;

/// What a monitor prints of the answer to the get-reader-info that each link-up sends.
std::string readerInfoLine() {
  return "FRAME " + lowerHex(simulated::readerInfoReply().span()) + "\n";
}

class Commands : public testing::Test {
 protected:
  std::shared_ptr<simulated::VirtualPeripheral> addReader(const std::string& name) {
    return environment_.radio().addReader(name, ReaderFamily::standard);
  }
  void after(Time delay, std::function<void()> what) {
    environment_.loop().arm(delay, std::move(what));
  }
  int scan(std::optional<double> duration) {
    return runScan({duration}, environment_, captured_.console);
  }
  int monitor(const std::string& name, std::optional<double> duration = std::nullopt) {
    return runMonitor({.name = name, .timeout = 30, .duration = duration}, environment_,
                      captured_.console);
  }
  int send(const std::string& name, const std::vector<std::string>& frames) {
    SendRequest request;
    request.name = name;
    EXPECT_TRUE(readFrames(frames, request, captured_.console));
    return runSend(request, environment_, captured_.console);
  }
  [[nodiscard]] std::string output() const { return captured_.output.text(); }
  [[nodiscard]] std::string errors() const { return captured_.errors.text(); }
  [[nodiscard]] Time now() const { return environment_.loop().now(); }

  TestEnvironment environment_{CBManagerState::poweredOn};
  test::Captured captured_;
};

using ScanCommand = Commands;
using MonitorCommand = Commands;
using SendCommand = Commands;

constexpr char kOff[] = "the simulated radio is switched off; simulate the state powered on";
constexpr char kGetInfo[] = "BB 00 03 00 01 B1 7E 65 97";

TEST_F(ScanCommand, PrintsReadersAndNoOtherDevices) {
  const auto reader = addReader("KVR-1");
  environment_.radio().addPeripheral("Speaker");
  environment_.radio().addPeripheral(std::nullopt);
  EXPECT_EQ(scan(3), kSuccess);
  EXPECT_EQ(output(), "KVR-1\t" + reader->identifier() + "\n");
  EXPECT_EQ(errors(), "kestrin: the radio is powered on\n");
  EXPECT_EQ(now(), seconds(3));
}

TEST_F(ScanCommand, EscapesNamesFromTheAir) {
  const auto reader = addReader("KVR\x1b[2J\n");
  EXPECT_EQ(scan(1), kSuccess);
  EXPECT_EQ(output(), "KVR\\x1b[2J\\x0a\t" + reader->identifier() + "\n");
}

TEST_F(ScanCommand, TellsEachChangeOfTheRadiosState) {
  after(seconds(1), [&] { environment_.radio().simulateState(CBManagerState::poweredOff); });
  after(seconds(2), [&] { environment_.radio().simulateState(CBManagerState::poweredOn); });
  after(seconds(3), [&] { addReader("KVR-late"); });
  EXPECT_EQ(scan(5), kSuccess);
  EXPECT_EQ(errors(), std::string("kestrin: the radio is powered on\nkestrin: ") + kOff +
                          "\nkestrin: the radio is powered on\n");
  EXPECT_EQ(output().substr(0, 9), "KVR-late\t");
}

TEST_F(ScanCommand, EndsAtOnceWithoutAUsableRadio) {
  environment_.radio().simulateState(CBManagerState::unsupported);
  EXPECT_EQ(scan(std::nullopt), kFailure);
  EXPECT_EQ(errors(),
            "kestrin: cannot scan: the simulated radio plays one that is not supported; simulate "
            "the state powered on\n");
  EXPECT_EQ(output(), "");
  EXPECT_LT(now(), seconds(1));
}

TEST_F(ScanCommand, EndsAtOnceWithoutPermission) {
  environment_.radio().simulateState(CBManagerState::unauthorized);
  EXPECT_EQ(scan(60), kFailure);
  EXPECT_LT(now(), seconds(1));
}

TEST_F(ScanCommand, FailsWhenTheRadioWasNeverOn) {
  environment_.radio().simulateState(CBManagerState::poweredOff);
  EXPECT_EQ(scan(2), kFailure);
  EXPECT_EQ(errors(), std::string("kestrin: ") + kOff + "\nkestrin: cannot scan: " + kOff + "\n");
  EXPECT_EQ(now(), seconds(2));
}

TEST_F(ScanCommand, GoesOnUntilInterrupted) {
  after(seconds(500), [&] { environment_.interrupt(); });
  EXPECT_EQ(scan(std::nullopt), kSuccess);
  EXPECT_EQ(now(), seconds(500));
}

TEST_F(MonitorCommand, PrintsPlugReportsAndFramesAndClosesWhenInterrupted) {
  const auto reader = addReader("KVR-1");
  after(seconds(10), [&] {
    reader->simulateNotification(simulated::readerCharacteristics(ReaderFamily::standard).rx,
                                 *buildRcpFrame(0x02, 0x22, {}));
  });
  after(seconds(20), [&] { environment_.interrupt(); });
  EXPECT_EQ(monitor("KVR"), kSuccess);
  const NSData report = *buildRcpFrame(0x02, 0x22, {});
  EXPECT_EQ(output(), "READER KVR-1 " + reader->identifier() + "\n" + readerInfoLine() +
                          "PLUGGED\nFRAME " + lowerHex(report.span()) + "\nUNPLUGGED\nUNPLUGGED\n");
  EXPECT_EQ(errors(), "");
  EXPECT_FALSE(reader->connected());
  EXPECT_LT(now(), seconds(21));
}

TEST_F(MonitorCommand, TakesTheOneReaderWhoseNameContainsTheWantedOne) {
  addReader("KVR-1");
  const auto wanted = addReader("my KVR-2 reader");
  addReader("kvr-2 KVR");
  EXPECT_EQ(monitor("KVR-2", 1), kSuccess);
  EXPECT_EQ(output().substr(0, output().find('\n')),
            "READER my KVR-2 reader " + wanted->identifier());
}

/// What is told of two readers that are both meant, in whichever order they were heard.
void expectBothListed(const std::string& errors, const std::string& begin, const std::string& one,
                      const std::string& other) {
  const std::string end = "; give the whole name of one, or its identifier\n";
  EXPECT_TRUE(errors == begin + one + ", " + other + end ||
              errors == begin + other + ", " + one + end)
      << errors;
}

TEST_F(MonitorCommand, ListsSeveralReadersThatAreMeantAndWorksNone) {
  const auto one = addReader("KVR-1\n");
  const auto other = addReader("KVR-2");
  addReader("TQM_HOLV-1");
  EXPECT_EQ(monitor("KVR"), kFailure);
  EXPECT_EQ(output(), "");
  expectBothListed(
      errors(), "kestrin: 'KVR' fits several readers: ", "'KVR-1\\x0a' (" + one->identifier() + ")",
      "'KVR-2' (" + other->identifier() + ")");
  EXPECT_EQ(one->connectionAttempts() + other->connectionAttempts(), 0U);
  EXPECT_LT(now(), seconds(2));
}

TEST_F(MonitorCommand, WithoutANameTakesTheOneReaderInRange) {
  const auto reader = addReader("KVR-1");
  EXPECT_EQ(monitor("", 1), kSuccess);
  EXPECT_EQ(output().substr(0, output().find('\n')), "READER KVR-1 " + reader->identifier());
}

TEST_F(MonitorCommand, WithoutANameListsTheReadersInRange) {
  const auto one = addReader("KVR-1");
  const auto other = addReader("TQM_HOLV-1");
  EXPECT_EQ(monitor(""), kFailure);
  expectBothListed(errors(),
                   "kestrin: several readers are in range: ", "'KVR-1' (" + one->identifier() + ")",
                   "'TQM_HOLV-1' (" + other->identifier() + ")");
}

TEST_F(MonitorCommand, WithoutANameAndWithNobodyInRangeSaysSo) {
  EXPECT_EQ(monitor(""), kFailure);
  EXPECT_EQ(errors(), "kestrin: no reader was found within 30 s; no reader at all is in range\n");
}

TEST_F(MonitorCommand, AWholeNameCountsForMoreThanAPartOfOne) {
  addReader("KVR-12");
  const auto wanted = addReader("KVR-1");
  EXPECT_EQ(monitor("KVR-1", 1), kSuccess);
  EXPECT_EQ(output().substr(0, output().find('\n')), "READER KVR-1 " + wanted->identifier());
}

TEST_F(MonitorCommand, AnIdentifierTellsReadersOfTheSameNameApart) {
  const auto one = addReader("KVR-1");
  const auto other = addReader("KVR-1");
  EXPECT_EQ(monitor("KVR-1"), kFailure);
  expectBothListed(errors(),
                   "kestrin: 'KVR-1' fits several readers: ", "'KVR-1' (" + one->identifier() + ")",
                   "'KVR-1' (" + other->identifier() + ")");
  std::string lower = other->identifier();
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  EXPECT_EQ(monitor(lower, 1), kSuccess);
  EXPECT_EQ(output().substr(0, output().find('\n')), "READER KVR-1 " + other->identifier());
  EXPECT_EQ(one->connectionAttempts(), 0U);
}

TEST_F(MonitorCommand, AReaderThatIsHeardALittleLaterIsMeantAsWell) {
  addReader("KVR-1");
  after(milliseconds(300), [&] { addReader("KVR-2"); });
  EXPECT_EQ(monitor("KVR"), kFailure);
  EXPECT_NE(errors().find("'KVR-2'"), std::string::npos) << errors();
}

TEST_F(MonitorCommand, IsNotHeldUpLongByTheSearchForOtherReaders) {
  addReader("KVR-1");
  EXPECT_EQ(monitor("KVR", 0), kSuccess);
  // The link-up itself takes more than two seconds.
  EXPECT_LT(now(), milliseconds(3200));
}

TEST_F(MonitorCommand, WaitsForAReaderThatComesLater) {
  after(seconds(25), [&] { addReader("KVR-late"); });
  EXPECT_EQ(monitor("late", 1), kSuccess);
  EXPECT_NE(output().find("PLUGGED\n"), std::string::npos);
}

TEST_F(MonitorCommand, GivesUpAndTellsWhatIsInRange) {
  addReader("KVR-1");
  addReader("KVR\n2");
  environment_.radio().addPeripheral("Speaker");
  EXPECT_EQ(monitor("KVR-9"), kFailure);
  EXPECT_EQ(now(), seconds(30));
  EXPECT_EQ(output(), "");
  const std::string begin =
      "kestrin: no reader whose name contains 'KVR-9' was found within 30 s; in range: ";
  EXPECT_TRUE(errors() == begin + "'KVR-1', 'KVR\\x0a2'\n" ||
              errors() == begin + "'KVR\\x0a2', 'KVR-1'\n")
      << errors();
}

TEST_F(MonitorCommand, GivesUpWithNobodyInRange) {
  EXPECT_EQ(monitor("KVR\t"), kFailure);
  EXPECT_EQ(errors(),
            "kestrin: no reader whose name contains 'KVR\\x09' was found within 30 s; no reader at "
            "all is in range\n");
}

TEST_F(MonitorCommand, SaysThatTheRadioIsOff) {
  environment_.radio().simulateState(CBManagerState::poweredOff);
  EXPECT_EQ(monitor("KVR"), kFailure);
  EXPECT_EQ(errors(), std::string("kestrin: ") + kOff +
                          "; waiting for it\nkestrin: no reader whose name contains 'KVR' was "
                          "found within 30 s; " +
                          kOff + "\n");
}

TEST_F(MonitorCommand, EndsAtOnceWithoutAUsableRadio) {
  environment_.radio().simulateState(CBManagerState::unsupported);
  EXPECT_EQ(monitor("KVR"), kFailure);
  EXPECT_EQ(errors(),
            "kestrin: cannot search for 'KVR': the simulated radio plays one that is not "
            "supported; simulate the state powered on\n");
  EXPECT_LT(now(), seconds(1));
}

TEST_F(MonitorCommand, ConnectsAgainWhenTheLinkIsLost) {
  const auto reader = addReader("KVR-1");
  after(seconds(10), [&] { reader->simulateLinkLoss(); });
  after(seconds(20), [&] { environment_.interrupt(); });
  EXPECT_EQ(monitor("KVR"), kSuccess);
  EXPECT_EQ(output(), "READER KVR-1 " + reader->identifier() + "\n" + readerInfoLine() +
                          "PLUGGED\nUNPLUGGED\n" + readerInfoLine() +
                          "PLUGGED\nUNPLUGGED\nUNPLUGGED\n");
}

TEST_F(MonitorCommand, ConnectsAgainWhenTheLinkIsLostBeforeTheReaderIsPluggedIn) {
  const auto reader = addReader("KVR-1");
  after(seconds(1), [&] { reader->simulateLinkLoss(); });
  EXPECT_EQ(monitor("KVR", 5), kSuccess);
  EXPECT_EQ(reader->connectionAttempts(), 2U);
  EXPECT_NE(output().find("\nPLUGGED\n"), std::string::npos) << output();
  EXPECT_FALSE(reader->connected());
}

TEST_F(MonitorCommand, IsInterruptedAtAnyTime) {
  const auto reader = addReader("KVR-1");
  after(seconds(1), [&] { environment_.interrupt(); });
  EXPECT_EQ(monitor("KVR"), kSuccess);
  EXPECT_FALSE(reader->connected());
  EXPECT_EQ(errors(), "");
  EXPECT_LT(now(), seconds(2));
}

TEST_F(MonitorCommand, IsInterruptedWhileItSearches) {
  after(seconds(1), [&] { environment_.interrupt(); });
  EXPECT_EQ(monitor("KVR"), kSuccess);
  EXPECT_EQ(output(), "");
  EXPECT_EQ(errors(), "");
}

TEST_F(MonitorCommand, IsInterruptedWhileAnAttemptToConnectIsPending) {
  const auto reader = addReader("KVR-1");
  reader->simulateConnectionNeverCompleting();
  after(seconds(5), [&] { environment_.interrupt(); });
  EXPECT_EQ(monitor("KVR"), kSuccess);
  // The attempt's end is reported, and waited for no longer than that takes.
  EXPECT_EQ(output(), "READER KVR-1 " + reader->identifier() + "\nUNPLUGGED\nUNPLUGGED\n");
  EXPECT_LT(now(), seconds(6));
}

TEST_F(MonitorCommand, GivesUpAReaderThatCanNotBeConnectedTo) {
  const auto reader = addReader("KVR-1");
  reader->simulateConnectionNeverCompleting();
  EXPECT_EQ(monitor("KVR"), kFailure);
  EXPECT_EQ(errors(), "kestrin: KVR-1: no link after 30 s\n");
}

TEST_F(MonitorCommand, GivesUpAReaderWithoutTheDataService) {
  const auto reader = addReader("KVR-1");
  reader->simulateMissingService(simulated::readerService(ReaderFamily::standard));
  EXPECT_EQ(monitor("KVR"), kFailure);
  EXPECT_EQ(errors(),
            "kestrin: KVR-1: the link is up, but the reader is not plugged in after 30 s; --log "
            "shows what was found on it\n");
  EXPECT_FALSE(reader->connected());
}

TEST_F(MonitorCommand, PrintsTheValuesOfAKvrReaderRaw) {
  const auto reader = environment_.radio().addReader("KVR-Q62T 1", ReaderFamily::kvrQ62T);
  after(seconds(5), [&] {
    const CBUUID rx = simulated::readerCharacteristics(ReaderFamily::kvrQ62T).rx;
    reader->simulateNotification(rx, NSData{0x01, 0x02});
    reader->simulateNotification(rx, NSData());
  });
  EXPECT_EQ(monitor("Q62T", 5), kSuccess);
  EXPECT_EQ(output(), "READER KVR-Q62T 1 " + reader->identifier() +
                          "\nPLUGGED\nFRAME 0102\nFRAME \nUNPLUGGED\nUNPLUGGED\n");
}

TEST_F(SendCommand, SendsEachFrameWhenPluggedInAndPrintsTheAnswers) {
  const auto reader = addReader("KVR-1");
  const std::vector<std::uint8_t> payload(37, 0x11);
  const NSData longFrame = *buildRcpFrame(0x00, 0x46, payload);
  const NSData answer = *buildRcpFrame(0x01, 0x46, payload);
  EXPECT_EQ(send("KVR", {upperHex(longFrame.span()), kGetInfo}), kSuccess);
  EXPECT_EQ(output(), "READER KVR-1 " + reader->identifier() + "\n" + readerInfoLine() +
                          "PLUGGED\nSENT " + lowerHex(longFrame.span()) +
                          "\nSENT bb00030001b17e6597\nFRAME " + lowerHex(answer.span()) + "\n" +
                          readerInfoLine() + "UNPLUGGED\nUNPLUGGED\n");
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(reader->writes().size(), 5U);  // Get-reader-info by itself, three slices, one frame.
  EXPECT_EQ(reader->writes()[3].value.length(), 5U);
  EXPECT_FALSE(reader->connected());
}

TEST_F(SendCommand, ListensForTwoSecondsAfterTheLastFrame) {
  const auto reader = addReader("KVR-1");
  EXPECT_EQ(send("KVR", {kGetInfo}), kSuccess);
  const Time written = reader->writes().back().at;
  EXPECT_GE(now() - written, milliseconds(1900));
  EXPECT_LE(now() - written, milliseconds(2200));
}

TEST_F(SendCommand, SendsWhatIsNoFrameWithAWarning) {
  const auto reader = addReader("KVR-1");
  EXPECT_EQ(send("KVR", {"BB 00 03 00 01 B1 7E 97 65", ""}), kSuccess);
  EXPECT_EQ(
      errors(),
      "kestrin: warning: FRAME 1 is not a whole frame and is sent as it is: its CRC is 97 65, "
      "right would be 65 97\n"
      "kestrin: warning: FRAME 2 is not a whole frame and is sent as it is: it is empty\n");
  ASSERT_EQ(reader->writes().size(), 3U);
  EXPECT_EQ(lowerHex(reader->writes()[1].value.span()), "bb00030001b17e9765");
  EXPECT_EQ(reader->writes()[2].value.length(), 0U);
}

TEST_F(SendCommand, FailsWhenTheReaderCanNotBeWritten) {
  const auto reader = addReader("KVR-1");
  reader->simulateProperties(simulated::readerCharacteristics(ReaderFamily::standard).tx,
                             CBCharacteristicPropertyRead);
  EXPECT_EQ(send("KVR", {kGetInfo, kGetInfo}), kFailure);
  EXPECT_EQ(errors(),
            "kestrin: KVR-1: frame 1 of 2 was refused: the reader's transmit characteristic is "
            "missing or cannot be written\n");
  EXPECT_EQ(output().find("SENT"), std::string::npos);
  EXPECT_FALSE(reader->connected());
}

TEST_F(SendCommand, FailsWhenTheLinkIsLostAfterTheLastFrame) {
  const auto reader = addReader("KVR-1");
  after(seconds(3), [&] { reader->simulateLinkLoss(); });
  EXPECT_EQ(send("KVR", {kGetInfo}), kFailure);
  EXPECT_EQ(errors(), "kestrin: KVR-1: the link was lost after the last frame was sent\n");
}

TEST_F(SendCommand, FailsWhenTheLinkIsLostBetweenFrames) {
  const auto reader = addReader("KVR-1");
  reader->setScript([&](const NSData& frame) {
    if (frame.bytes()[2] == 0x46) reader->simulateLinkLoss();
    return std::vector<NSData>();
  });
  const std::vector<std::uint8_t> payload(200, 0x11);
  const std::string frame = upperHex(buildRcpFrame(0x00, 0x46, payload)->span());
  EXPECT_EQ(send("KVR", {frame, frame, frame}), kFailure);
  EXPECT_EQ(errors(), "kestrin: KVR-1: the link was lost before frame 2 of 3 was sent\n");
}

TEST_F(SendCommand, FailsWhenInterruptedBeforeEverythingIsSent) {
  const auto reader = addReader("KVR-1");
  after(seconds(1), [&] { environment_.interrupt(); });
  EXPECT_EQ(send("KVR", {kGetInfo}), kFailure);
  EXPECT_EQ(errors(), "kestrin: interrupted before the first frame was sent\n");
  EXPECT_FALSE(reader->connected());
}

TEST_F(SendCommand, IsDoneWhenInterruptedAfterEverythingWasSent) {
  const auto reader = addReader("KVR-1");
  after(milliseconds(3000), [&] { environment_.interrupt(); });
  EXPECT_EQ(send("KVR", {kGetInfo}), kSuccess);
  EXPECT_EQ(errors(), "");
  EXPECT_LT(now(), milliseconds(3200));
  EXPECT_FALSE(reader->connected());
}

// No program can be started with an argument of that length, so the command is called itself.
TEST(FrameCommand, TakesTheLongestPayloadAndRefusesALongerOne) {
  const auto payloadOf = [](std::size_t bytes) {
    std::string hex;
    for (std::size_t i = 0; i < bytes; ++i) hex += "00";
    return hex;
  };
  test::Captured longest;
  EXPECT_EQ(runFrame({"00", "22", payloadOf(65535)}, longest.console), kSuccess);
  EXPECT_TRUE(longest.output.text().starts_with("BB 00 22 FF FF 00 "));
  test::Captured longer;
  EXPECT_EQ(runFrame({"00", "22", payloadOf(65536)}, longer.console), kWrongUsage);
  EXPECT_EQ(longer.output.text(), "");
  EXPECT_EQ(longer.errors.text(),
            "kestrin: PAYLOAD: a payload of 65536 bytes does not fit a frame; it may have at most "
            "65535\n");
}

}  // namespace
}  // namespace kestrin::app
