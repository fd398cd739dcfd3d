// The rows of the demo's timeline.
#include "tools/kestrin/commands/DemoTimeline.h"

#include <KestrinBLESDK/RcpFrame.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kestrin/Captured.h"
#include "support/RecordingLog.h"

namespace kestrin::app {
namespace {

std::size_t rowsWith(const std::string& text, const std::string& word) {
  std::size_t count = 0;
  for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++count;
  return count;
}

TEST(DemoTimeline, GivesEachOfTwoEqualFramesARowOfItsOwn) {
  test::Captured captured;
  const auto timeline = std::make_shared<DemoTimeline>(
      captured.console, std::make_shared<kestrin::test::RecordingLog>());
  const auto frame = buildRcpFrame(0x02, 0x22, {});
  timeline->dispatchRcpFrmReader(frame);
  timeline->dispatchRcpFrmReader(frame);
  EXPECT_EQ(timeline->received(), 2U);
  EXPECT_EQ(rowsWith(captured.output.text(), "frame  "), 2U) << captured.output.text();
}

TEST(DemoTimeline, LeavesOutARowThatOnlyRepeatsTheOneBefore) {
  test::Captured captured;
  const auto timeline = std::make_shared<DemoTimeline>(
      captured.console, std::make_shared<kestrin::test::RecordingLog>());
  timeline->scanBleStatus(1);
  timeline->scanBleStatus(1);
  EXPECT_EQ(rowsWith(captured.output.text(), "scanBleStatus 1"), 1U) << captured.output.text();
}

}  // namespace
}  // namespace kestrin::app
