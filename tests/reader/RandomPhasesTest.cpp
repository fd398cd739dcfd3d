// Whatever happens in whatever order: phases follow each other as the table says, every send and
// exchange ends exactly once, and a reader that is left alone is plugged in again.
//
// Repeatable: KESTRIN_SEED (1 if not given) and KESTRIN_SEQUENCES (60) settle everything.
#include <cstdlib>
#include <random>

#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;

std::uint32_t environmentNumber(const char* name, std::uint32_t usual) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): before there is any other thread.
  const char* const given = std::getenv(name);
  return given == nullptr ? usual : static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10));
}

class RandomPhases : public ReaderTest {
 protected:
  void playOne(std::mt19937& random) {
    const auto below = [&](std::uint32_t count) { return random() % count; };
    switch (below(14)) {
      case 12:
        // Somebody else, who takes what he hears first, this reader's device too.
        other_ =
            other_ ? nullptr
                   : Reader::create(simulated_.platform(), {.ambiguity = Ambiguity::takeFirst}, {});
        break;
      case 13:
        simulated_.platform().notificationCenter->postNotificationName_object(
            UIApplicationDidEnterBackgroundNotification, nullptr);
        break;
      case 0:
        device_->simulateLinkLoss();
        break;
      case 1:
        power(false);
        break;
      case 2:
      case 3:
        power(true);
        break;
      case 4:
        reader_->leave();
        break;
      case 5:
      case 6:
        reader_->comeBack();
        break;
      case 7:
        device_->simulateConnectionNeverCompleting(below(2) == 0);
        break;
      case 8:
        device_->simulateFailingConnections(below(3));
        break;
      case 9:
        if (below(2) == 0) {
          device_->simulateVanishing();
        } else {
          device_->simulateAppearing();
        }
        break;
      case 10:
        ++asked_;
        reader_->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(below(80))),
                      [this](const auto&) { ++ended_; });
        break;
      default:
        ++asked_;
        reader_->exchange(command_, milliseconds(below(2000)),
                          [this](const auto&, const auto&) { ++ended_; });
        break;
    }
    // Often at once, sometimes within a slice's pause, sometimes after everything has settled.
    const Time kSpans[] = {Time::zero(), milliseconds(30), milliseconds(700), seconds(6)};
    runFor(kSpans[below(4)]);
  }

  const std::shared_ptr<simulated::VirtualPeripheral> spare_ =
      simulated_.radio().addReader("TQM_HOLV-1", ReaderFamily::standard);
  std::unique_ptr<Reader> reader_;
  std::unique_ptr<Reader> other_;
  std::size_t asked_ = 0;
  std::size_t ended_ = 0;
};

TEST_F(RandomPhases, FollowTheTableAndEndPluggedIn) {
  const std::uint32_t first = environmentNumber("KESTRIN_SEED", 1);
  const std::uint32_t sequences = environmentNumber("KESTRIN_SEQUENCES", 60);
  for (std::uint32_t round = 0; round < sequences; ++round) {
    SCOPED_TRACE("KESTRIN_SEED=" + std::to_string(first + round) + " KESTRIN_SEQUENCES=1");
    std::mt19937 random(first + round);
    heard_ = {};
    const bool holds = random() % 4 != 0;
    reader_ = create({.reader = "KVR-0417",
                      .findLimit = seconds(20),
                      .plugInLimit = seconds(20),
                      .reconnect = holds});
    for (int step = 0; step < 60; ++step) playOne(random);
    power(true);
    device_->simulateAppearing();
    device_->simulateConnectionNeverCompleting(false);
    device_->simulateFailingConnections(0);
    other_.reset();
    runFor(seconds(1));
    reader_->comeBack();
    const bool ended = runUntil(*reader_, pluggedIn, seconds(300));
    EXPECT_TRUE(ended || (!holds && reader_->phase() == closed)) << nameOf(reader_->phase());
    runFor(seconds(10));
    EXPECT_EQ(ended_, asked_);
    if (round % 2 == 0) {
      bool down = false;
      reader_->close([&] { down = true; });
      runFor(seconds(5));
      EXPECT_TRUE(down);
    }
    reader_.reset();
    runFor(seconds(5));
    ASSERT_FALSE(device_->connected());
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace kestrin::test
