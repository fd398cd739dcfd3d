// An application that writes `using namespace kestrin` still means what it wrote.
#include <gtest/gtest.h>

#include <cmath>

#include "KestrinBLESDK/KestrinBleMgr.h"

namespace application {
namespace {

TEST(UsingTheNamespace, LeavesTheNamesOfTheCLibraryAlone) {
  using namespace kestrin;
  EXPECT_EQ(log(1.0), 0.0);
  EXPECT_EQ(std::log(1.0), 0.0);
}

}  // namespace
}  // namespace application
