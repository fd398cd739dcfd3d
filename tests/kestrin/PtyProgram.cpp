#include "kestrin/PtyProgram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "kestrin/ProgramRun.h"

namespace kestrin::app::test {
namespace {

constexpr int kMinute = 60'000;
constexpr char kGoOn = 'c';

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (std::string& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& added) {
  std::vector<std::string> all = added;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    if (!text.starts_with("TERM=") && !text.starts_with("NO_COLOR=")) all.emplace_back(text);
  }
  bool hasTerm = false;
  for (const std::string& text : added) hasTerm = hasTerm || text.starts_with("TERM=");
  if (!hasTerm) all.emplace_back("TERM=xterm");
  return all;
}

}  // namespace

PtyProgram::PtyProgram(const std::vector<std::string>& arguments, const PtyOptions& options)
    : emulator_(options.columns, options.rows) {
  master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_GE(master_, 0) << "errno " << errno;
  EXPECT_EQ(::grantpt(master_), 0);
  EXPECT_EQ(::unlockpt(master_), 0);
  std::array<char, 64> terminal{};
  EXPECT_EQ(::ptsname_r(master_, terminal.data(), terminal.size()), 0);
  resize(options.columns, options.rows);
  before_ = modes();
  std::array<int, 2> news{};
  std::array<int, 2> orders{};
  EXPECT_EQ(::pipe2(news.data(), O_CLOEXEC), 0);
  EXPECT_EQ(::pipe2(orders.data(), O_CLOEXEC), 0);
  std::vector<std::string> command{kestrinPath()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment = environmentWith(options.environment);
  const auto commandPointers = pointersTo(command);
  const auto environmentPointers = pointersTo(environment);
  keeper_ = ::fork();
  if (keeper_ == 0) {
    news_ = news[1];
    orders_ = orders[0];
    ::close(orders[1]);
    keepJob(terminal.data(), commandPointers.data(), environmentPointers.data(),
            options.inForeground);
  }
  ::close(news[1]);
  ::close(orders[0]);
  news_ = news[0];
  orders_ = orders[1];
  EXPECT_EQ(::read(news_, &job_, sizeof job_), static_cast<ssize_t>(sizeof job_));
}

/// What a shell does for the job it runs in the foreground. After the fork, so system calls only.
void PtyProgram::keepJob(const std::string& terminal, char* const* arguments,
                         char* const* environment, bool inForeground) {
  // The terminal hangs up when the test has gone, which ends the job.
  ::close(master_);
  ::setsid();
  const int slave = ::open(terminal.c_str(), O_RDWR);
  ::ioctl(slave, TIOCSCTTY, 0);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(slave, standard);
  std::signal(SIGTTOU, SIG_IGN);
  const pid_t job = ::fork();
  if (job == 0) {
    ::setpgid(0, 0);
    if (inForeground) ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
    std::signal(SIGTTOU, SIG_DFL);
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    ::execve(arguments[0], arguments, environment);
    ::_exit(127);
  }
  [[maybe_unused]] auto written = ::write(news_, &job, sizeof job);
  while (true) {
    News told{};
    if (::waitpid(job, &told.status, WUNTRACED) < 0) continue;
    // The job's last words are out before the news of its end.
    if (WIFSTOPPED(told.status)) ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
    written = ::write(news_, &told, sizeof told);
    if (!WIFSTOPPED(told.status)) ::_exit(0);
    char order = 0;
    if (::read(orders_, &order, 1) != 1) ::_exit(1);
    ::tcsetpgrp(STDIN_FILENO, job);
    ::kill(-job, SIGCONT);
  }
}

PtyProgram::~PtyProgram() {
  if (ended_ < 0 && job_ > 0) ::kill(job_, SIGKILL);
  if (keeper_ > 0) {
    ::kill(keeper_, SIGKILL);
    ::waitpid(keeper_, nullptr, 0);
  }
  for (const int descriptor : {master_, news_, orders_}) ::close(descriptor);
}

bool PtyProgram::readSome() {
  std::array<pollfd, 2> sources{pollfd{master_, POLLIN, 0}, pollfd{news_, POLLIN, 0}};
  if (::poll(sources.data(), sources.size(), kMinute) <= 0) return false;
  if ((sources[0].revents & POLLIN) != 0) {
    std::array<char, 4096> buffer{};
    const ssize_t length = ::read(master_, buffer.data(), buffer.size());
    if (length > 0) emulator_.take({buffer.data(), static_cast<std::size_t>(length)});
    return true;  // The news come when everything that was written before is read.
  }
  if (sources[1].revents == 0) return true;
  News told{};
  if (::read(news_, &told, sizeof told) != static_cast<ssize_t>(sizeof told)) return false;
  stopped_ = WIFSTOPPED(told.status);
  if (WIFEXITED(told.status)) ended_ = WEXITSTATUS(told.status);
  if (WIFSIGNALED(told.status)) ended_ = 128 + WTERMSIG(told.status);
  return true;
}

bool PtyProgram::waitFor(const std::function<bool(const TerminalEmulator&)>& isThere) {
  while (!isThere(emulator_)) {
    if (ended_ >= 0 || stopped_ || !readSome()) return false;
  }
  return true;
}

void PtyProgram::type(const std::string& keys) const {
  EXPECT_EQ(::write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void PtyProgram::resize(std::size_t columns, std::size_t rows) {
  winsize window{};
  window.ws_col = static_cast<unsigned short>(columns);
  window.ws_row = static_cast<unsigned short>(rows);
  EXPECT_EQ(::ioctl(master_, TIOCSWINSZ, &window), 0);
  emulator_.resize(columns, rows);
}

void PtyProgram::signal(int number) const { EXPECT_EQ(::kill(job_, number), 0); }

bool PtyProgram::waitUntilStopped() {
  while (!stopped_) {
    if (ended_ >= 0 || !readSome()) return false;
  }
  return true;
}

void PtyProgram::goOn() {
  stopped_ = false;
  EXPECT_EQ(::write(orders_, &kGoOn, 1), 1);
}

int PtyProgram::finish() {
  while (ended_ < 0 && readSome()) {
  }
  return ended_;
}

termios PtyProgram::modes() const {
  termios modes{};
  EXPECT_EQ(::tcgetattr(master_, &modes), 0);
  return modes;
}

bool PtyProgram::isTerminalRight() const {
  const termios now = modes();
  return now.c_lflag == before_.c_lflag && now.c_iflag == before_.c_iflag &&
         now.c_oflag == before_.c_oflag &&
         std::memcmp(now.c_cc, before_.c_cc, sizeof now.c_cc) == 0 && !emulator_.isSecondScreen() &&
         emulator_.hasCursor() && emulator_.wraps();
}

}  // namespace kestrin::app::test
