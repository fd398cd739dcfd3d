// Named notifications.
#include "KestrinBLESDK/platform/NSNotificationCenter.h"

#include <gtest/gtest.h>

#include <functional>

namespace kestrin::test {
namespace {

/// Does what the test wants with each notification.
struct Observer {
  std::function<void(const std::shared_ptr<void>& sender)> told;
};
constexpr SEL kTold{"told", [](void* target, const std::shared_ptr<void>& object) noexcept {
                      static_cast<Observer*>(target)->told(object);
                    }};

class NotificationCenter : public ::testing::Test {
 protected:
  std::shared_ptr<Observer> observe(const std::string& who, std::string_view name,
                                    const std::shared_ptr<void>& sender = nullptr) {
    auto observer = std::make_shared<Observer>();
    observer->told = [this, who](const std::shared_ptr<void>&) { told.push_back(who); };
    center.addObserver_selector_name_object(observer, kTold, name, sender);
    return observer;
  }
  NSNotificationCenter center;
  std::vector<std::string> told;
};
using Names = std::vector<std::string>;

TEST_F(NotificationCenter, TellsEveryObserverOfTheNameInOrderOfRegistration) {
  const auto a = observe("a", "closing");
  const auto b = observe("b", "closing");
  const auto c = observe("c", "opening");
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, (Names{"a", "b"}));
}

TEST_F(NotificationCenter, TellsNobodyOfAnUnknownName) {
  const auto a = observe("a", "closing");
  center.postNotificationName_object("closin");
  center.postNotificationName_object("closing now");
  EXPECT_EQ(told, Names{});
}

TEST_F(NotificationCenter, KeepsNoObserver) {
  auto a = observe("a", "closing");
  const auto b = observe("b", "closing");
  const std::weak_ptr<Observer> alive = a;
  a.reset();
  EXPECT_TRUE(alive.expired());
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, Names{"b"});
}

TEST_F(NotificationCenter, TellsAnObserverOfOneSenderOfThatOneOnly) {
  const auto sender = std::make_shared<int>(1);
  const auto other = std::make_shared<int>(2);
  const auto choosy = observe("choosy", "closing", sender);
  const auto any = observe("any", "closing");
  center.postNotificationName_object("closing", other);
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, (Names{"any", "any"}));
  center.postNotificationName_object("closing", sender);
  EXPECT_EQ(told, (Names{"any", "any", "choosy", "any"}));
}

TEST_F(NotificationCenter, HandsTheSenderOver) {
  const auto sender = std::make_shared<int>(1);
  const auto a = observe("a", "closing");
  std::vector<std::shared_ptr<void>> senders;
  a->told = [&](const std::shared_ptr<void>& from) { senders.push_back(from); };
  center.postNotificationName_object("closing", sender);
  center.postNotificationName_object("closing");
  EXPECT_EQ(senders, (std::vector<std::shared_ptr<void>>{sender, nullptr}));
}

TEST_F(NotificationCenter, TellsAnObserverOncePerRegistration) {
  const auto a = observe("a", "closing");
  center.addObserver_selector_name_object(a, kTold, "closing", nullptr);
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, (Names{"a", "a"}));
}

TEST_F(NotificationCenter, MayBePostedToFromInsideAHandler) {
  const auto a = observe("a", "closing");
  const auto b = observe("b", "closed");
  const auto c = observe("c", "closing");
  a->told = [this](const std::shared_ptr<void>&) {
    told.emplace_back("a begins");
    center.postNotificationName_object("closed");
    told.emplace_back("a ends");
  };
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, (Names{"a begins", "b", "a ends", "c"}));
}

TEST_F(NotificationCenter, TellsWhoeverRegistersInsideAHandlerFromTheNextOneOn) {
  const auto a = observe("a", "closing");
  std::shared_ptr<Observer> late;
  a->told = [&](const std::shared_ptr<void>&) {
    told.emplace_back("a");
    if (!late) late = observe("late", "closing");
  };
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, Names{"a"});
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, (Names{"a", "a", "late"}));
}

TEST_F(NotificationCenter, KeepsAnObserverAliveWhileItIsBeingTold) {
  auto a = observe("a", "closing");
  a->told = [&](const std::shared_ptr<void>&) {
    a.reset();
    told.emplace_back("a");
  };
  // Copied, since the handler destroys what it is called through otherwise.
  center.postNotificationName_object("closing");
  center.postNotificationName_object("closing");
  EXPECT_EQ(told, Names{"a"});
}

TEST_F(NotificationCenter, RegistersNobodyWithoutAnObserverOrAnOperation) {
  const auto a = std::make_shared<Observer>();
  center.addObserver_selector_name_object(nullptr, kTold, "closing", nullptr);
  center.addObserver_selector_name_object(a, SEL{"none"}, "closing", nullptr);
  EXPECT_NO_FATAL_FAILURE(center.postNotificationName_object("closing"));
}

TEST_F(NotificationCenter, IsOneForTheProcess) {
  EXPECT_EQ(NSNotificationCenter::defaultCenter(), NSNotificationCenter::defaultCenter());
  ASSERT_NE(NSNotificationCenter::defaultCenter(), nullptr);
}

TEST_F(NotificationCenter, KnowsTheBackgroundNotificationByItsName) {
  EXPECT_EQ(UIApplicationDidEnterBackgroundNotification,
            "UIApplicationDidEnterBackgroundNotification");
}

}  // namespace
}  // namespace kestrin::test
