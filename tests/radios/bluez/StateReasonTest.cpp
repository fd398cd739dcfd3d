#include "StateReason.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kestrin::bluez {
namespace {

using State = CBManagerState;

StateFacts facts(Availability availability, State state) {
  return {.availability = availability,
          .state = state,
          .adapter = "hci3",
          .wantedAdapter = std::nullopt,
          .busTrouble = "no such file"};
}

bool says(const StateFacts& facts, const std::string& words) {
  return stateReason(facts).find(words) != std::string::npos;
}

TEST(StateReason, APoweredOnRadioNeedsNone) {
  EXPECT_EQ(stateReason(facts(Availability::ready, State::poweredOn)), "");
}

TEST(StateReason, SaysWhatToDoAboutEachTrouble) {
  EXPECT_TRUE(says(facts(Availability::noBus, State::unsupported), "no such file"));
  EXPECT_TRUE(says(facts(Availability::noBus, State::unsupported), "systemctl start dbus"));
  EXPECT_TRUE(says(facts(Availability::noDaemon, State::resetting), "systemctl start bluetooth"));
  EXPECT_TRUE(says(facts(Availability::refused, State::unauthorized), "adduser USER bluetooth"));
  EXPECT_TRUE(
      says(facts(Availability::notAnswering, State::unsupported), "systemctl restart bluetooth"));
  EXPECT_TRUE(says(facts(Availability::ready, State::poweredOff), "hci3 is powered off"));
  EXPECT_TRUE(says(facts(Availability::ready, State::poweredOff), "bluetoothctl power on"));
  EXPECT_TRUE(says(facts(Availability::ready, State::unauthorized), "hci3 is refused"));
}

TEST(StateReason, NamesTheAdapterThatIsMissing) {
  StateFacts missing = facts(Availability::ready, State::unsupported);
  missing.adapter.clear();
  EXPECT_TRUE(says(missing, "there is no Bluetooth adapter: plug one in"));
  missing.wantedAdapter = "hci7";
  EXPECT_TRUE(says(missing, "there is no Bluetooth adapter hci7"));
}

TEST(StateReason, IsOneLineOfItsOwnForEachTrouble) {
  std::set<std::string> reasons;
  for (const auto availability :
       {Availability::unknown, Availability::noBus, Availability::noDaemon, Availability::refused,
        Availability::notAnswering, Availability::ready}) {
    const auto reason = stateReason(facts(availability, State::poweredOff));
    EXPECT_EQ(reason.find('\n'), std::string::npos);
    EXPECT_FALSE(reason.empty());
    reasons.insert(reason);
  }
  EXPECT_EQ(reasons.size(), 6U);
}

}  // namespace
}  // namespace kestrin::bluez
