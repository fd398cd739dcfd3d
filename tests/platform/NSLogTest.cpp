// The log: how arguments are printed, who reads it, and what the default sink makes of a line.
#include "KestrinBLESDK/platform/NSLog.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/RecordingLog.h"

namespace kestrin::test {
namespace {

template <class... Arguments>
std::string logged(std::string_view format, const Arguments&... arguments) {
  RecordingLog log;
  NSLog(log, format, arguments...);
  const auto lines = log.lines();
  EXPECT_EQ(lines.size(), 1U);
  return lines.empty() ? "" : lines.front();
}

TEST(NSLogFormat, PrintsATextWithoutConversionsAsItIs) {
  EXPECT_EQ(logged("start San"), "start San");
  EXPECT_EQ(logged(""), "");
  EXPECT_EQ(logged(" CBManager is powered on"), " CBManager is powered on");
}

TEST(NSLogFormat, PrintsData) {
  EXPECT_EQ(logged("[RX BLE] %@", NSData{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97}),
            "[RX BLE] <bb000300 01b17e65 97>");
  EXPECT_EQ(logged("[Test] %@", NSMutableData(NSData{1, 2, 3, 4, 5}.span())),
            "[Test] <01020304 05>");
  EXPECT_EQ(logged("[TX BLE] %@", NSData()), "[TX BLE] <>");
}

TEST(NSLogFormat, PrintsAnAbsentObjectAsNull) {
  EXPECT_EQ(logged("[TX BLE] %@", std::optional<NSData>()), "[TX BLE] (null)");
  EXPECT_EQ(logged("DiscoverPeripheral  %@", std::optional<std::string>()),
            "DiscoverPeripheral  (null)");
}

TEST(NSLogFormat, PrintsAPresentOptionalAsItsValue) {
  EXPECT_EQ(logged("%@", std::optional<NSData>(NSData{1})), "<01>");
  EXPECT_EQ(logged("%@", std::optional<std::string>("KVR-1")), "KVR-1");
}

TEST(NSLogFormat, PrintsAUUIDByItsText) {
  EXPECT_EQ(logged("searching : %@", CBUUID(std::uint16_t{0xFFF0})), "searching : FFF0");
  EXPECT_EQ(logged("%@", *CBUUID::UUIDWithString("ba821000-3b5b-4654-85fe-e998b123adea")),
            "BA821000-3B5B-4654-85FE-E998B123ADEA");
}

TEST(NSLogFormat, PrintsAnErrorWithDomainCodeAndText) {
  EXPECT_EQ(
      logged("Error discovering services: %@", NSError{CBATTErrorDomain, 14, "Unlikely Error"}),
      "Error discovering services: Error Domain=CBATTErrorDomain Code=14 \"Unlikely Error\"");
}

TEST(NSLogFormat, PrintsSignedDecimals) {
  EXPECT_EQ(logged("%ld.", std::uint64_t{16}), "16.");
  EXPECT_EQ(logged("%ld", -42L), "-42");
  EXPECT_EQ(logged("isConnected %hhd", true), "isConnected 1");
  EXPECT_EQ(logged("isConnected %hhd", false), "isConnected 0");
}

TEST(NSLogFormat, PrintsTwoUpperCaseHexadecimalDigits) {
  EXPECT_EQ(logged("abyte = %02X", std::uint8_t{0xAB}), "abyte = AB");
  EXPECT_EQ(logged("abyte = %02X", std::uint8_t{0x0A}), "abyte = 0A");
  EXPECT_EQ(logged("abyte = %02X", std::uint8_t{0x00}), "abyte = 00");
  EXPECT_EQ(logged("abyte = %02X", std::uint8_t{0xFF}), "abyte = FF");
}

TEST(NSLogFormat, PrintsSeveralArgumentsInOrder) {
  EXPECT_EQ(logged("a %@ b %ld c %02X d", std::string("x"), 7L, std::uint8_t{8}), "a x b 7 c 08 d");
}

TEST(NSLogFormat, TakesNothingInAnArgumentForAConversion) {
  EXPECT_EQ(logged("name %@, code %ld", std::string("100%@ %ld"), 5L), "name 100%@ %ld, code 5");
}

TEST(NSLogFormat, ShortensNothingAndKeepsEveryByte) {
  const std::string wild("a\0b\n\x1B[31m\x80", 10);
  EXPECT_EQ(logged("%@", wild), wild);
  EXPECT_EQ(logged("%@", NSData(std::vector<std::uint8_t>(3000, 0xEE))).size(),
            2U + 6000 + 3000 / 4 - 1);
}

TEST(NSLogSinkChoice, FormatsNothingWhileNobodyListens) {
  struct DeafSink final : NSLogSink {
    [[nodiscard]] bool isListening() const noexcept override { return false; }
    void write(std::string_view) noexcept override { ADD_FAILURE() << "a line was written"; }
  };
  DeafSink deaf;
  // Formatting an absent value would throw, so this shows that it does not happen.
  struct Telltale {
    // NOLINTNEXTLINE(google-explicit-constructor): an argument becomes text by itself.
    operator std::string_view() const { throw std::logic_error("formatted"); }
  };
  EXPECT_NO_THROW(NSLog(deaf, "%@", Telltale{}));
  RecordingLog listening;
  EXPECT_THROW(NSLog(listening, "%@", Telltale{}), std::logic_error);
}

TEST(NSErrorDescription, IsDomainCodeAndText) {
  const NSError error{CBErrorDomain, -3, "The link is gone."};
  EXPECT_EQ(error.description(), "Error Domain=CBErrorDomain Code=-3 \"The link is gone.\"");
  EXPECT_EQ(error.localizedDescription(), "The link is gone.");
}

TEST(StandardErrorLogSinkText, EscapesControlCharacters) {
  EXPECT_EQ(StandardErrorLogSink::escaped("a\x1B[31mb\nc\td\x7F"), "a\\x1b[31mb\\x0ac\\x09d\\x7f");
  EXPECT_EQ(StandardErrorLogSink::escaped(std::string_view("\0\x1F", 2)), "\\x00\\x1f");
}

TEST(StandardErrorLogSinkText, EscapesTheControlCharactersAbove7F) {
  // U+009B begins a control sequence just as ESC [ does.
  EXPECT_EQ(StandardErrorLogSink::escaped("a\xC2\x9B"
                                          "31mb"),
            "a\\xc2\\x9b31mb");
  EXPECT_EQ(StandardErrorLogSink::escaped("\xC2\x80\xC2\x9F"), "\\xc2\\x80\\xc2\\x9f");
}

TEST(StandardErrorLogSinkText, EscapesABackslashSoThatNothingCanPassForAnEscape) {
  EXPECT_EQ(StandardErrorLogSink::escaped("\\x1b"), "\\\\x1b");
}

TEST(StandardErrorLogSinkText, KeepsEveryOtherCharacter) {
  const std::string text = " ~<bb000300>\"'%@ \xC3\xA9\xC2\xA0\xE2\x82\xAC";
  EXPECT_EQ(StandardErrorLogSink::escaped(text), text);
}

TEST(StandardErrorLogSinkText, GoesToStandardErrorAsOneLine) {
  StandardErrorLogSink sink;
  ::testing::internal::CaptureStderr();
  sink.write("first\nstill first");
  sink.write("second");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "first\\x0astill first\nsecond\n");
}

/// Puts the process back to what it was.
class DefaultSink : public ::testing::Test {
 protected:
  void TearDown() override { setDefaultLogSink(std::make_shared<StandardErrorLogSink>()); }
};

TEST_F(DefaultSink, IsStandardErrorUntilReplaced) {
  ::testing::internal::CaptureStderr();
  NSLog(*defaultLogSink(), "start San");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "start San\n");
}

TEST_F(DefaultSink, IsReplacedFromTheNextLineOnAlsoForWhoeverHasItAlready) {
  const auto known = defaultLogSink();
  const auto first = std::make_shared<RecordingLog>();
  const auto second = std::make_shared<RecordingLog>();
  setDefaultLogSink(first);
  NSLog(*known, "one");
  setDefaultLogSink(second);
  NSLog(*known, "two");
  EXPECT_EQ(first->lines(), std::vector<std::string>{"one"});
  EXPECT_EQ(second->lines(), std::vector<std::string>{"two"});
}

TEST_F(DefaultSink, IsSilencedByNone) {
  setDefaultLogSink(nullptr);
  EXPECT_FALSE(defaultLogSink()->isListening());
  ::testing::internal::CaptureStderr();
  NSLog(*defaultLogSink(), "nobody reads this");
  defaultLogSink()->write("nor this");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(DefaultSink, ListensWhenTheOneThatIsSetDoes) {
  const auto log = std::make_shared<RecordingLog>();
  setDefaultLogSink(log);
  EXPECT_TRUE(defaultLogSink()->isListening());
  log->setListening(false);
  EXPECT_FALSE(defaultLogSink()->isListening());
}

TEST_F(DefaultSink, LetsGoOfTheReplacedOneWithoutHoldingItsLock) {
  struct CallingBack final : NSLogSink {
    ~CallingBack() override { heard = defaultLogSink()->isListening(); }
    void write(std::string_view) noexcept override {}
    bool& heard;
    explicit CallingBack(bool& told) : heard(told) {}
  };
  bool heard = false;
  setDefaultLogSink(std::make_shared<CallingBack>(heard));
  setDefaultLogSink(std::make_shared<RecordingLog>());
  EXPECT_TRUE(heard);
}

TEST_F(DefaultSink, MayReplaceItselfFromInsideALine) {
  struct Replacing final : NSLogSink {
    void write(std::string_view) noexcept override { setDefaultLogSink(nullptr); }
  };
  setDefaultLogSink(std::make_shared<Replacing>());
  NSLog(*defaultLogSink(), "enough");
  EXPECT_FALSE(defaultLogSink()->isListening());
}

}  // namespace
}  // namespace kestrin::test
