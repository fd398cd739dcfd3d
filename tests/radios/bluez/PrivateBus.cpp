#include "radios/bluez/PrivateBus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace kestrin::bluez::test {
namespace {

std::string configuration(const std::string& folder, PrivateBus::Policy policy) {
  std::string text =
      "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
      " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
      "<busconfig><type>session</type><listen>unix:path=" +
      folder +
      "/bus</listen><auth>EXTERNAL</auth><policy context=\"default\">"
      "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
      "</policy>";
  if (policy == PrivateBus::Policy::daemonRefused) {
    text += "<policy context=\"mandatory\"><deny send_destination=\"org.bluez\"/></policy>";
  }
  return text + "</busconfig>\n";
}

}  // namespace

PrivateBus::PrivateBus(Policy policy) {
  std::array<char, 32> name{"/tmp/kestrin-bus-XXXXXX"};
  if (::mkdtemp(name.data()) == nullptr) {
    ADD_FAILURE() << "no folder for a bus in /tmp: " << std::generic_category().message(errno);
    return;
  }
  folder_ = name.data();
  std::ofstream(folder_ + "/bus.conf") << configuration(folder_, policy);
  start();
}

PrivateBus::~PrivateBus() {
  kill();
  std::error_code ignored;
  if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
}

void PrivateBus::start() {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  // It complains about limits that only root may raise; shown only when it does not start.
  const std::string words = folder_ + "/words";
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, words.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const std::string config = "--config-file=" + folder_ + "/bus.conf";
  std::array<std::string, 4> command{"dbus-daemon", config, "--nofork", "--print-address=1"};
  std::array<char*, 5> arguments{command[0].data(), command[1].data(), command[2].data(),
                                 command[3].data(), nullptr};
  const int error =
      ::posix_spawnp(&process_, command[0].c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::string line;
  char character = 0;
  while (error == 0 && ::read(ends[0], &character, 1) == 1 && character != '\n') line += character;
  ::close(ends[0]);
  if (error != 0) process_ = -1;
  EXPECT_FALSE(line.empty()) << "dbus-daemon does not start ("
                             << std::generic_category().message(error)
                             << "): install the Debian package dbus\n"
                             << std::ifstream(words).rdbuf();
  // Without the bus's own number, which is another one after a restart.
  address_ = line.substr(0, line.find(','));
}

void PrivateBus::kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
  process_ = -1;
}

void PrivateBus::restart() {
  kill();
  std::filesystem::remove(folder_ + "/bus");
  start();
}

}  // namespace kestrin::bluez::test
