// How strong a reader was heard.
#include "tools/gateway/core/Hearing.h"

#include <gtest/gtest.h>

namespace kestrin::gateway::test {
namespace {

TEST(Hearing, RemembersTheLastSighting) {
  Hearing hearing;
  EXPECT_EQ(hearing.signalOf("A"), std::nullopt);
  hearing.heard("A", -70);
  hearing.heard("A", -60);
  hearing.heard("B", -50);
  EXPECT_EQ(hearing.signalOf("A"), -60);
  EXPECT_EQ(hearing.signalOf("B"), -50);
}

TEST(Hearing, DoesNotTakeWhatIsNotKnownForASignal) {
  Hearing hearing;
  hearing.heard("A", -70);
  hearing.heard("A", 127);
  hearing.heard("B", 127);
  EXPECT_EQ(hearing.signalOf("A"), -70);
  EXPECT_EQ(hearing.signalOf("B"), std::nullopt);
}

TEST(Hearing, ForgetsWhatItHasNotHeardForLongestOfTooMany) {
  Hearing hearing;
  for (std::size_t i = 0; i < Hearing::kMost; ++i) hearing.heard(std::to_string(i), -40);
  hearing.heard("0", -41);
  hearing.heard("one more", -42);
  EXPECT_EQ(hearing.signalOf("0"), -41);
  EXPECT_EQ(hearing.signalOf("1"), std::nullopt);
  EXPECT_EQ(hearing.signalOf("2"), -40);
}

}  // namespace
}  // namespace kestrin::gateway::test
