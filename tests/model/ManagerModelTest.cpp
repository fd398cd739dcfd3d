// The manager under any order of calls and events: random histories, taken by real managers on a
// platform that records and by the model of what they must do. After each step both must have the
// same lines (requests, callbacks, log, delivery, in order and at the same virtual time), the same
// fields, and must have let go of the same central managers.
//
// Deterministic: KESTRIN_SEED (1 if not given) and KESTRIN_SEQUENCES (as many as a quick run has
// time for if not given) settle what is generated. A failure prints the seed, the shortest history
// that shows it, and a text for RC_PARAMS that repeats only that.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>

#include "model/ModelHistory.h"
#include "model/RealHistory.h"
#include "model/StepGenerator.h"

namespace kestrin::test {
namespace {

constexpr char kSequences[] = "1000";
constexpr char kLongest[] = "150";

std::string environment(const char* name, const std::string& otherwise) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): before there is any other thread.
  const char* value = std::getenv(name);
  return value != nullptr ? value : otherwise;
}

void configure() {
  const std::string parameters = "seed=" + environment("KESTRIN_SEED", "1") +
                                 " max_success=" + environment("KESTRIN_SEQUENCES", kSequences) +
                                 " max_size=" + kLongest;
  // What somebody set by hand is a history to repeat.
  // NOLINTNEXTLINE(concurrency-mt-unsafe): before there is any other thread.
  setenv("RC_PARAMS", parameters.c_str(), 0);
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "    " + line + '\n';
  return text;
}

std::string joined(const std::multiset<std::string>& lines) {
  return joined(std::vector<std::string>(lines.begin(), lines.end()));
}

/// How often each kind of line came up, so that a generator that misses a rule is noticed.
class Tally {
 public:
  void add(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
      for (auto& [part, count] : counts_) {
        if (line.find(part) != std::string::npos) ++count;
      }
    }
  }
  void expectAtLeast(std::size_t each) const {
    for (const auto& [part, count] : counts_) EXPECT_GE(count, each) << part;
  }

 private:
  std::map<std::string, std::size_t> counts_ = [] {
    std::map<std::string, std::size_t> counts;
    for (const char* part : {"scanBleStatus 0",
                             "scanBleStatus 1",
                             "scanningBleDeive",
                             "plugChangedStatus true",
                             "plugChangedStatus false",
                             "dispatchRcpFrmReader <",
                             "dispatchRcpFrmReader (absent)",
                             "cancelPeripheralConnection",
                             "stopScan",
                             "connectPeripheral \"P",
                             "connectPeripheral (absent)",
                             "setDelegate",
                             "discoverServices (absent)",
                             "discoverServices [",
                             "discoverCharacteristics (absent)",
                             "discoverCharacteristics [",
                             "readValue of 2A27",
                             "readValue of 2A29",
                             "setNotifyValue true for FFF1",
                             "setNotifyValue true for FFF2",
                             "setNotifyValue true for BA821001",
                             "setNotifyValue true for BA821002",
                             "writeValue <",
                             "writeValue (absent)",
                             "sleep 0.05",
                             "state is unknown",
                             "resetting",
                             "unsupported",
                             "unauthorized",
                             "powered off",
                             "start San",
                             "BLE Connected",
                             "BLE Disconnected",
                             "Error discovering services",
                             "Error discovering characteristics",
                             "searching : ",
                             "Found correct service",
                             "Found RX characteristic",
                             "Found TX characteristic",
                             "Found Hardware Revision",
                             "Found RX - did",
                             "Found TX - did",
                             "get Reader Info",
                             "No write property",
                             "[TX BLE] ",
                             "[RX BLE] ",
                             "parseFrmReader:MESSAGE",
                             "parseFrmReader:LENGTH2",
                             "parseFrmReader:ENDMARK",
                             "[Test] ",
                             "CRC_ERROR",
                             " [ERROR] Unlikely",
                             "\"[ERROR]: Unlikely",
                             "Name : Nova",
                             "Name : (null)",
                             "accessoryDidDisconnect on",
                             "manager#3"}) {
      counts[part] = 0;
    }
    return counts;
  }();
};

/// What the last step did differently; empty when nothing is.
std::string difference(RealHistory& real, ModelHistory& model, Tally& tally) {
  std::ostringstream text;
  const auto lines = real.takeLines();
  const auto expectedLines = model.takeLines();
  tally.add(expectedLines);
  if (lines != expectedLines) {
    text << "  it did\n" << joined(lines) << "  and should\n" << joined(expectedLines);
  }
  const auto released = real.takeReleased();
  const auto expectedReleased = model.takeReleased();
  if (released != expectedReleased) {
    text << "  it let go of\n" << joined(released) << "  and should\n" << joined(expectedReleased);
  }
  if (const auto fields = real.fields(), expected = model.fields(); fields != expected) {
    text << "  it was then\n" << fields << "\n  and should be\n" << expected << '\n';
  }
  return text.str();
}

TEST(ManagerModel, AgreesWithTheManagerAfterEveryStepOfAnyHistory) {
  configure();
  Tally tally;
  const bool held = rc::check("managers do what the model says", [&tally] {
    const Steps steps = *histories();
    RealHistory real;
    ModelHistory model;
    if (const auto begun = difference(real, model, tally); !begun.empty()) RC_FAIL(begun);
    for (const Step& step : steps) {
      real.take(step);
      model.take(step);
      if (const auto found = difference(real, model, tally); !found.empty()) {
        std::ostringstream text;
        text << "at the step ";
        showValue(step, text);
        RC_FAIL(text.str() + '\n' + found);
      }
    }
  });
  EXPECT_TRUE(held);
  if (held && environment("KESTRIN_SEQUENCES", "").empty()) tally.expectAtLeast(8);
}

}  // namespace
}  // namespace kestrin::test
