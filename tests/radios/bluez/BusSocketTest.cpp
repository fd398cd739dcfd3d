// Whether a bus listens, before the bus library is asked.
#include "BusSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace kestrin::bluez {
namespace {

class BusSocket : public testing::Test {
 protected:
  void SetUp() override {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), std::begin(place.sun_path));
    EXPECT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
  }
  void TearDown() override {
    ::close(descriptor);
    std::remove(path.c_str());
  }

  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const std::string path =
      testing::TempDir() + "kestrin-socket-" + std::to_string(::getpid()) + ".test";
};

std::string nameOf(const std::optional<CallError>& error) { return error ? error->name : "none"; }

TEST_F(BusSocket, ThatListensIsNoError) {
  ASSERT_EQ(::listen(descriptor, 1), 0);
  EXPECT_EQ(nameOf(whyNoBusListens("unix:path=" + path)), "none");
}

TEST_F(BusSocket, ThatNobodyListensOnAnyMoreHasNoServer) {
  EXPECT_EQ(nameOf(whyNoBusListens("unix:path=" + path)), "org.freedesktop.DBus.Error.NoServer");
}

TEST_F(BusSocket, ThatIsNotThereIsNotFound) {
  EXPECT_EQ(nameOf(whyNoBusListens("unix:path=" + path + "-gone")),
            "org.freedesktop.DBus.Error.FileNotFound");
}

TEST_F(BusSocket, IsFoundByItsPathAlone) {
  EXPECT_EQ(nameOf(whyNoBusListens("unix:path=" + path + "-gone,guid=00")),
            "org.freedesktop.DBus.Error.FileNotFound");
  ASSERT_EQ(::listen(descriptor, 1), 0);
  EXPECT_EQ(nameOf(whyNoBusListens("unix:path=" + path + ",guid=00")), "none");
}

TEST_F(BusSocket, WithAPathThatNoSocketCanHaveIsAnError) {
  EXPECT_NE(nameOf(whyNoBusListens("unix:path=/" + std::string(200, 'a'))), "none");
}

TEST_F(BusSocket, OfAnotherKindOrOneOfSeveralIsLeftToTheBusLibrary) {
  for (const char* const address :
       {"tcp:host=localhost,port=1", "unix:abstract=nobody", "unix:path=/none;unix:path=/nowhere",
        "unix:path=/%6eone", ""}) {
    EXPECT_EQ(nameOf(whyNoBusListens(address)), "none") << address;
  }
}

}  // namespace
}  // namespace kestrin::bluez
