// The assembler against its literal, byte-by-byte twin, over random streams. To repeat a failure
// run this test with `--gtest_random_seed=` and the number that it prints.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "AssemblerTest.h"
#include "StreamGenerator.h"
#include "support/LiteralAssembler.h"

namespace kestrin::test {
namespace {

constexpr std::uint32_t kStreams = 120'000;

/// How often each kind of event came up, so that a generator that misses a rule is noticed.
class Tally {
 public:
  void add(const Events& events) {
    for (const std::string& event : events) {
      ++counts_[event.substr(0, event.find_first_of("<="))];
      if (event.starts_with("FRAME") && event.size() > std::size_t{2} * 1029) ++longest_;
    }
  }
  void addKept(bool kept) { kept ? ++kept_ : ++emptied_; }
  void expectAtLeast(std::size_t each) const {
    for (const char* kind : {kMessageError, kLengthError, "[ERROR]parseFrmReader:ENDMARK abyte ",
                             "[Test] ", kCrcError, "[RX BLE] ", "FRAME "}) {
      const auto found = counts_.find(kind);
      EXPECT_GE(found == counts_.end() ? 0 : found->second, each) << kind;
    }
    EXPECT_GE(kept_, each) << "arrivals that bytes were kept after";
    EXPECT_GE(emptied_, each) << "arrivals that nothing was kept after";
    EXPECT_GE(longest_, each / 100) << "frames of the largest size";
  }

 private:
  std::map<std::string, std::size_t> counts_;
  std::size_t longest_ = 0;
  std::size_t kept_ = 0;
  std::size_t emptied_ = 0;
};

std::string told(const std::vector<Bytes>& arrivals) {
  std::ostringstream text;
  for (const Bytes& arrival : arrivals) text << "  " << descriptionOfBytes(arrival) << '\n';
  return text.str();
}

class AssemblerOracle : public AssemblerTest {
 protected:
  /// Whether the manager did what the twin did with every arrival.
  bool agrees(const std::vector<Bytes>& arrivals, Tally& tally) {
    LiteralAssembler literal;
    KestrinBleMgrTestPeer::_mutableReceivedData(*manager).reset();
    for (const Bytes& arrival : arrivals) {
      literal.readData(arrival);
      const Events expected = literal.take();
      EXPECT_EQ(arrive(arrival), expected);
      EXPECT_EQ(kept(), literal.kept());
      if (HasFailure()) return false;
      tally.add(expected);
      tally.addKept(!literal.kept().empty());
    }
    return true;
  }
};

TEST_F(AssemblerOracle, AgreesWithTheAssemblerOnRandomStreams) {
  const auto seed = static_cast<std::uint32_t>(GTEST_FLAG_GET(random_seed));
  Tally tally;
  for (std::uint32_t i = 0; i < kStreams; ++i) {
    const auto arrivals = StreamGenerator(seed * kStreams + i).arrivals();
    ASSERT_TRUE(agrees(arrivals, tally))
        << "--gtest_random_seed=" << seed << ", stream " << i << ", whose arrivals were:\n"
        << told(arrivals);
  }
  tally.expectAtLeast(10'000);
}

}  // namespace
}  // namespace kestrin::test
