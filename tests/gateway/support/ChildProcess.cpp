#include "gateway/support/ChildProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>
#include <utility>

namespace kestrin::gateway {
namespace {

// Between fork and exec only what is safe in a program with threads.
[[noreturn]] void become(char* const* arguments, const char* outputFile, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t none;
  ::sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  const int output = ::open(outputFile, O_WRONLY | O_CREAT | O_APPEND, 0644);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  if (output >= 0 && ::getppid() == parent) ::execvp(arguments[0], arguments);
  ::_exit(127);
}

std::optional<int> exitStatusOf(int status) {
  return WIFEXITED(status) ? std::optional<int>(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace

ChildProcess::~ChildProcess() { kill(); }

bool ChildProcess::start(const std::vector<std::string>& command, const std::string& outputFile) {
  kill();
  std::vector<std::string> texts = command;
  std::vector<char*> arguments;
  arguments.reserve(texts.size() + 1);
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);
  const pid_t parent = ::getpid();
  id_ = ::fork();
  if (id_ == 0) become(arguments.data(), outputFile.c_str(), parent);
  return id_ > 0;
}

void ChildProcess::signal(int number) const {
  if (id_ > 0) ::kill(id_, number);
}

void ChildProcess::kill() {
  signal(SIGKILL);
  wait();
}

std::optional<int> ChildProcess::wait() {
  if (id_ <= 0) return std::nullopt;
  int status = 0;
  while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
  return exitStatusOf(status);
}

bool ChildProcess::runs() {
  int status = 0;
  if (id_ <= 0 || ::waitpid(id_, &status, WNOHANG) == 0) return id_ > 0;
  id_ = -1;
  return false;
}

std::optional<std::string> failureOf(const std::vector<std::string>& command,
                                     const std::string& outputFile) {
  ChildProcess process;
  if (process.start(command, outputFile) && process.wait() == 0) return std::nullopt;
  return command.front() + ": " + contentsOf(outputFile);
}

std::string contentsOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

}  // namespace kestrin::gateway
