// The edges of the platform's small parts: what lies just beside what they look for, and a system
// that has nothing to spare.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/NSLog.h"

namespace kestrin {
namespace {

TEST(NSLogConversions, AreNotFoundInATextWithoutThem) {
  for (const std::string_view text : {"", "powered on", "100%", "50 % of it"}) {
    std::string line;
    std::string_view format = text;
    EXPECT_EQ(detail::nslog::takeConversion(line, format), "") << text;
    EXPECT_EQ(format, text);
    EXPECT_EQ(line, "");
  }
}

TEST(StandardErrorLogSinkEdges, KeepWhatOnlyBeginsLikeAControlCharacter) {
  for (const char* text : {"\xC2"
                           "A",
                           "\xC2\xA0", "\xC3\x80", "\xC2"}) {
    EXPECT_EQ(StandardErrorLogSink::escaped(text), text);
  }
  EXPECT_EQ(StandardErrorLogSink::escaped("\xC2\x80"), "\\xc2\\x80");
  EXPECT_EQ(StandardErrorLogSink::escaped("\xC2\x9F"), "\\xc2\\x9f");
}

TEST(CBUUIDDigits, AreThoseOfHexadecimalAndNoneBesideThem) {
  for (const char* text : {"FFF/", "FFF:", "FFF@", "FFFG", "FFF`", "FFFg"}) {
    EXPECT_FALSE(CBUUID::UUIDWithString(text)) << text;
  }
  for (const char* text : {"FFF0", "FFF9", "FFFA", "FFFF", "FFFa", "FFFf"}) {
    EXPECT_TRUE(CBUUID::UUIDWithString(text)) << text;
  }
}

TEST(MainRunLoopDescriptor, IsNoneWhileTheSystemHasNoneLeftAndOneAfterwards) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  MainRunLoop loop;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int withoutAny = loop.fileDescriptor();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(withoutAny, -1);
  EXPECT_GE(loop.fileDescriptor(), 0);
}

}  // namespace
}  // namespace kestrin
