#include "model/StepGenerator.h"

#include "model/Catalog.h"

namespace kestrin::test {
namespace {

/// How often each operation comes up, relative to the others.
constexpr std::array<unsigned, static_cast<std::size_t>(Op::count)> kWeights = {
    6,   // scanBLE
    3,   // stopSacnBLE
    6,   // connectBLE
    4,   // close
    6,   // send
    2,   // sendPower
    2,   // writeRawData
    5,   // readData
    2,   // setDelegate
    2,   // setRcpReceiverDelegate
    1,   // dropDelegate
    1,   // dropReceiver
    1,   // dropManager
    3,   // enterBackground
    2,   // ask
    3,   // newDelegate
    3,   // newReceiver
    3,   // newManager
    14,  // react
    4,   // rename
    6,   // showServices
    6,   // showCharacteristics
    5,   // setProperties
    6,   // didUpdateState
    10,  // didDiscoverPeripheral
    6,   // didConnect
    4,   // didDisconnect
    8,   // didDiscoverServices
    10,  // didDiscoverCharacteristics
    14,  // didUpdateValue
    8,   // didUpdateNotificationState
    1,   // peripheralManagerDidUpdateState
    1,   // isConnectedBLE
    14,  // run
};

class Drawer {
 public:
  explicit Drawer(const rc::Random& random) : random_(random) {}

  unsigned below(std::size_t limit) { return static_cast<unsigned>(random_.next() % limit); }
  /// One in `chance`.
  bool seldom(unsigned chance) { return below(chance) == 0; }
  unsigned manager() { return seldom(4) ? 1 : 0; }

  Step step() {
    static constexpr unsigned kTotal = [] {
      unsigned total = 0;
      for (const unsigned weight : kWeights) total += weight;
      return total;
    }();
    unsigned place = below(kTotal);
    std::size_t op = 0;
    while (place >= kWeights[op]) place -= kWeights[op++];
    return operands(static_cast<Op>(op));
  }

  /// From the scan to a reader whose characteristics are known, as a platform does it.
  void linkUp(Steps& steps) {
    const unsigned m = manager();
    const unsigned peripheral = below(kPeripherals);
    const bool standard = peripheral != kKVRPeripheral;
    const unsigned service = standard ? 0 : 1;
    const unsigned characteristics = standard ? 0x87U : 0x38U;
    const Steps all = {
        {Op::scanBLE, m, 0, 0, 0},
        {Op::didUpdateState, m, 5, 0, 0},
        {Op::didDiscoverPeripheral, m, peripheral, 0, 0},
        {Op::connectBLE, m, peripheral, 0, 0},
        {Op::didConnect, m, peripheral, 0, 0},
        {Op::showServices, m, peripheral, 1U << service | 4U, 1 + below(2)},
        {Op::didDiscoverServices, m, peripheral, 0, 0},
        {Op::showCharacteristics, m, service, characteristics, 1 + below(2)},
        {Op::didDiscoverCharacteristics, m, peripheral, service, 0},
    };
    // Sometimes the link does not come that far.
    const auto end = all.end() - (seldom(3) ? static_cast<std::ptrdiff_t>(below(7)) : 0);
    steps.insert(steps.end(), all.begin(), end);
  }

 private:
  Step operands(Op op) {
    Step step{op, manager(), below(64), below(64), below(64)};
    switch (op) {
      case Op::newDelegate:
      case Op::newReceiver:
        step.b = seldom(2) ? 3 : below(4);
        break;
      case Op::showServices:
      case Op::showCharacteristics:
        step.b = below(512);
        step.c = seldom(6) ? 0 : 1 + below(2);
        break;
      case Op::didUpdateState:
        step.a = seldom(2) ? below(8) : 5;
        step.b = seldom(5) ? 1 : 0;
        break;
      case Op::didDisconnect:
      case Op::didDiscoverServices:
        step.b = seldom(6) ? 1 : 0;
        break;
      case Op::didDiscoverCharacteristics:
        step.c = seldom(6) ? 1 : 0;
        break;
      case Op::setProperties:
        // Only those of TX decide anything.
        if (seldom(2)) step.a = seldom(2) ? kTxCharacteristic : kKVRTxCharacteristic;
        break;
      case Op::didUpdateValue:
        if (seldom(3)) step.a = kKVRPeripheral;
        if (seldom(6)) step.b = kManufacturerName;
        step.c = seldom(8) ? kNoValue : below(kValues.size() + 2);
        break;
      case Op::didUpdateNotificationState:
        step.c = seldom(8) ? kNoValue : below(kValues.size() + 2);
        break;
      default:
        break;
    }
    return step;
  }

  rc::Random random_;
};

rc::Seq<Step> plainer(const Step& step) {
  const auto with = [step](unsigned Step::*operand) {
    return rc::seq::map(rc::shrink::towards(step.*operand, 0U), [step, operand](unsigned value) {
      Step changed = step;
      changed.*operand = value;
      return changed;
    });
  };
  return rc::seq::concat(with(&Step::manager), with(&Step::a), with(&Step::b), with(&Step::c));
}

}  // namespace

rc::Gen<Steps> histories() {
  return {[](const rc::Random& random, int size) {
    Drawer drawer(random);
    Steps steps;
    const std::size_t length = 1 + drawer.below(static_cast<std::size_t>(size) + 1);
    if (drawer.seldom(2)) drawer.linkUp(steps);
    while (steps.size() < length) {
      if (drawer.seldom(15)) {
        drawer.linkUp(steps);
      } else {
        steps.push_back(drawer.step());
      }
    }
    return rc::shrinkable::shrinkRecur(std::move(steps), [](const Steps& longer) {
      return rc::seq::concat(rc::shrink::removeChunks(longer),
                             rc::shrink::eachElement(longer, plainer));
    });
  }};
}

}  // namespace kestrin::test
