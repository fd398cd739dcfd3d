// Orders as text.
#include "tools/vreader/Orders.h"

#include "vreader/VirtualDeviceTest.h"

namespace kestrin::vreader {
namespace {

class OrdersTest : public VirtualDeviceTest {
 protected:
  /// Why an order is refused; "done" when it is carried out.
  std::string order(const std::string& line) {
    const auto outcome = orders.carryOut(line);
    EXPECT_EQ(outcome.done, outcome.reason.empty());
    return outcome.done ? "done" : outcome.reason;
  }

  Controller controller{runLoop, {}, [](const Bytes&) {}, [](const std::string&) {}};
  Orders orders{{standard, q62t, lamp}, controller};
};

TEST_F(OrdersTest, UnknownOrdersAndDevicesAreRefusedByName) {
  EXPECT_EQ(order(""), "there is no order \"\"");
  EXPECT_EQ(order("explode standard"), "there is no order \"explode\"");
  EXPECT_EQ(order("drop 7"), "there is no device \"7\"; there are standard, q62t, lamp");
  EXPECT_EQ(order("drop"), "there is no device \"\"; there are standard, q62t, lamp");
}

TEST_F(OrdersTest, DropTakesAReasonOrMeansATimeout) {
  EXPECT_EQ(order("drop standard"), "it has no link");
  connect(*standard);
  EXPECT_EQ(order("drop standard 0"), "a reason is a code from 0x01 to 0xff");
  EXPECT_EQ(order("drop standard 0x113"), "a reason is a code from 0x01 to 0xff");
  EXPECT_EQ(order("drop standard 0x13 now"), "\"now\" is more than drop takes");
  EXPECT_TRUE(link.drops.empty()) << "an order that is refused does nothing";
  EXPECT_EQ(order("  drop \t standard  "), "done");
  connect(*standard);
  EXPECT_EQ(order("drop standard 0x13"), "done");
  connect(*standard);
  EXPECT_EQ(order("drop standard 22\r"), "done");
  EXPECT_EQ(link.drops, (std::vector<std::uint8_t>{0x08, 0x13, 22}));
}

TEST_F(OrdersTest, SilentAndAdvertiseAreSwitches) {
  EXPECT_EQ(order("silent standard"), "say on, off, or after how many answers");
  EXPECT_EQ(order("silent standard 0"), "say on, off, or after how many answers");
  EXPECT_EQ(order("advertise standard yes"), "say on or off");
  EXPECT_EQ(order("advertise standard off"), "done");
  EXPECT_FALSE(standard->advertises());
  EXPECT_EQ(order("advertise standard on"), "done");
  EXPECT_TRUE(standard->advertises());
  connect(*standard);
  EXPECT_EQ(order("silent standard on"), "done");
  EXPECT_EQ(order("notify standard 01"), "it is silent");
  EXPECT_EQ(order("silent standard 7"), "done");
}

TEST_F(OrdersTest, VanishAndReturnTakeTheDeviceOutOfRangeAndBack) {
  EXPECT_EQ(order("vanish q62t"), "done");
  EXPECT_FALSE(q62t->advertises());
  EXPECT_EQ(order("return q62t"), "done");
  EXPECT_TRUE(q62t->advertises());
}

TEST_F(OrdersTest, ANewNameMayHoldBlanksOrBeAbsent) {
  EXPECT_EQ(order("rename lamp A lamp, still"), "done");
  EXPECT_TRUE(lamp->description().ends_with("\"A lamp, still\"")) << lamp->description();
  EXPECT_EQ(order("rename lamp"), "done");
  EXPECT_TRUE(lamp->description().ends_with("without a name")) << lamp->description();
}

TEST_F(OrdersTest, RefusalsAreSetAndTakenBackPerAccess) {
  EXPECT_EQ(order("refuse standard"), "say reads, writes or subscriptions");
  EXPECT_EQ(order("refuse standard writes"), "say an ATT error code from 0x01 to 0xff, or off");
  EXPECT_EQ(order("refuse standard writes 0"), "say an ATT error code from 0x01 to 0xff, or off");
  EXPECT_EQ(order("refuse standard writes 0x80"), "done");
  connect(*standard);
  write(*standard, Bytes{0x01});
  EXPECT_EQ(link.sent.back().substr(8), "80");
  EXPECT_EQ(order("refuse standard writes off"), "done");
  write(*standard, Bytes{0x01});
  EXPECT_EQ(link.sent.back(), "13");
}

TEST_F(OrdersTest, NotifyTakesHexadecimalOrNothing) {
  connect(*standard);
  subscribe(*standard);
  EXPECT_EQ(order("notify standard b"), "a value is pairs of hexadecimal digits");
  EXPECT_EQ(order("notify standard zz"), "a value is pairs of hexadecimal digits");
  EXPECT_EQ(order("notify standard BB01"), "done");
  EXPECT_EQ(order("notify standard"), "done");
  EXPECT_EQ(joinedNotifications(), "bb01");
  EXPECT_EQ(notifications(), 2U) << "an empty value is one";
}

TEST_F(OrdersTest, NotifyTxNotifiesWhereCommandsComeIfThatCan) {
  connect(*standard);
  subscribe(*standard);
  EXPECT_EQ(order("notify-tx standard bb"), "the host has not subscribed");
  connect(*q62t);
  const auto tx = handleOf(*q62t, simulated::readerCharacteristics(familyOf(*q62t)).tx);
  q62t->received(ByteWriter().u8(0x12).u16(tx + 1U).u16(1).bytes());
  EXPECT_EQ(order("notify-tx q62t b"), "a value is pairs of hexadecimal digits");
  EXPECT_EQ(order("notify-tx q62t bb01"), "done");
  EXPECT_EQ(link.sent.back(), hex(ByteWriter().u8(0x1B).u16(tx).u8(0xBB).u8(0x01).bytes()));
  EXPECT_EQ(order("notify-tx lamp bb"), "it is not a reader");
}

TEST_F(OrdersTest, ABurstsValuesMayGrow) {
  connect(*standard);
  subscribe(*standard);
  for (const char* wrong : {"3-", "-3", "5-3", "3-x", "3-5-7"}) {
    EXPECT_EQ(order("burst standard 9 " + std::string(wrong)),
              "say how many notifications and how long each is");
  }
  EXPECT_EQ(order("burst standard 9 1-21"),
            "a notification has room for 20 bytes on this link, not 21");
  EXPECT_EQ(order("burst standard 5 3-5 5"), "done");
  ASSERT_EQ(notifications(), 5U);
  std::vector<std::size_t> lengths;
  for (const auto& pdu : link.sent) lengths.push_back(pdu.size() / 2 - 3);
  EXPECT_EQ(lengths, (std::vector<std::size_t>{3, 4, 5, 3, 4}));
}

TEST_F(OrdersTest, GreetTakesACountOrOff) {
  for (const char* wrong : {"", "0", "1001", "many"}) {
    EXPECT_EQ(order("greet standard " + std::string(wrong)), "say how many, at most 1000, or off");
  }
  EXPECT_EQ(order("greet standard 2"), "done");
  connect(*standard);
  subscribe(*standard);
  runLoop->runFor(std::chrono::milliseconds(0));
  EXPECT_EQ(notifications(), 2U);
  EXPECT_EQ(link.sent.back().size(), 2 * (3 + 20));
  EXPECT_EQ(order("greet standard off"), "done");
}

TEST_F(OrdersTest, ABurstHasAnEnd) {
  connect(*standard);
  subscribe(*standard);
  EXPECT_EQ(order("burst standard 100001 20"), "a burst has at most 100000 notifications");
  EXPECT_EQ(order("burst standard 3000000000 20"), "a burst has at most 100000 notifications");
  EXPECT_EQ(order("burst standard 2000 20 1001"), "at most 1000 leave at a time");
  EXPECT_EQ(notifications(), 0U);
  EXPECT_EQ(order("burst standard 100000 20 1000"), "done");
  EXPECT_EQ(notifications(), 1000U);
}

TEST_F(OrdersTest, BurstTakesCountAndLengthAndMayTakeItsPace) {
  connect(*standard);
  subscribe(*standard);
  EXPECT_EQ(order("burst standard 3"), "say how many notifications and how long each is");
  EXPECT_EQ(order("burst standard 0 20"), "say how many notifications and how long each is");
  EXPECT_EQ(order("burst standard 3 20 0"), "at least 1 leaves at a time");
  EXPECT_EQ(order("burst standard 3 20 1 soon"), "the interval is a number of milliseconds");
  EXPECT_EQ(order("burst standard 3 20 1 100"), "done");
  runLoop->runFor(std::chrono::milliseconds(199));
  EXPECT_EQ(notifications(), 2U);
  runLoop->runFor(std::chrono::milliseconds(1));
  EXPECT_EQ(notifications(), 3U);
}

TEST_F(OrdersTest, HelpNamesEveryOrder) {
  for (const char* verb : {"drop", "silent", "vanish", "return", "rename", "advertise", "refuse",
                           "notify", "notify-tx", "burst", "greet"}) {
    EXPECT_NE(Orders::help().find("\n  " + std::string(verb) + " DEVICE"), std::string::npos)
        << verb;
  }
}

}  // namespace
}  // namespace kestrin::vreader
