#include "gateway/support/MosquittoProcess.h"

#include "gateway/support/LoopbackSockets.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

namespace kestrin::gateway {
namespace {

constexpr std::chrono::seconds kStartLimit{30};
constexpr std::chrono::milliseconds kLookAgain{10};
// Another program may have taken the port meanwhile.
constexpr int kPortsTried = 5;

/// Not on the path of an ordinary user.
std::string program() {
  const std::string debian = "/usr/sbin/mosquitto";
  return std::filesystem::exists(debian) ? debian : "mosquitto";
}

}  // namespace

MosquittoProcess::MosquittoProcess() = default;

std::string MosquittoProcess::addUser(const std::string& user, const std::string& password) {
  std::string file = folder_.pathOf("passwords");
  if (!std::filesystem::exists(file)) folder_.write("passwords", "");
  const auto failure = failureOf({"mosquitto_passwd", "-b", file, user, password},
                                 folder_.pathOf("passwords.output"));
  return failure ? "no password file: " + *failure : file;
}

bool MosquittoProcess::listens() {
  const auto limit = std::chrono::steady_clock::now() + kStartLimit;
  while (process_.runs() && std::chrono::steady_clock::now() < limit) {
    if (connectTo(port_)) return true;
    std::this_thread::sleep_for(kLookAgain);
  }
  return false;
}

std::optional<std::string> MosquittoProcess::start() {
  const bool firstTime = port_ == 0;
  for (int tried = 0; tried < kPortsTried; ++tried) {
    if (firstTime) port_ = freePort();
    // Started by root it would become another user, who cannot read the test's files.
    const std::string file =
        folder_.write("mosquitto.conf", "user root\nlog_dest stderr\nlistener " +
                                            std::to_string(port_) + " 127.0.0.1\n" + lines_);
    if (process_.start({program(), "-c", file}, folder_.pathOf("output")) && listens()) {
      return std::nullopt;
    }
    process_.kill();
    if (!firstTime) break;
  }
  return "mosquitto does not start: " + output();
}

void MosquittoProcess::freeze() const { process_.signal(SIGSTOP); }

void MosquittoProcess::thaw() const { process_.signal(SIGCONT); }

}  // namespace kestrin::gateway
