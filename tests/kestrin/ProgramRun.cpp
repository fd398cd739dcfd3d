#include "kestrin/ProgramRun.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace kestrin::app::test {
namespace {

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  return ends;
}

/// A file that holds `text`, at its beginning; nobody else finds it.
int fileHolding(const std::string& text) {
  std::FILE* const file = std::tmpfile();
  EXPECT_NE(file, nullptr);
  const int descriptor = ::dup(::fileno(file));
  std::fclose(file);
  EXPECT_EQ(::write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  EXPECT_EQ(::lseek(descriptor, 0, SEEK_SET), 0);
  return descriptor;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (std::string& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

bool readFrom(int& end, std::string& text) {
  std::array<char, 4096> buffer{};
  const ssize_t length = ::read(end, buffer.data(), buffer.size());
  if (length > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(length));
    return true;
  }
  ::close(end);
  end = -1;
  return false;
}

}  // namespace

Program::Program(const std::string& path, const std::vector<std::string>& arguments,
                 const Options& options) {
  auto output = makePipe();
  auto errors = makePipe();
  const int input = fileHolding(options.input);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  if (options.outputFile.empty()) {
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, options.outputFile.c_str(), O_WRONLY,
                                     0);
  }
  posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  std::vector<std::string> command{path};
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
  environment.insert(environment.end(), options.environment.begin(), options.environment.end());
  if (options.unread) {
    ::close(output[0]);
    output[0] = -1;
  }
  EXPECT_EQ(::posix_spawn(&child_, path.c_str(), &actions, nullptr, pointers(command).data(),
                          pointers(environment).data()),
            0);
  posix_spawn_file_actions_destroy(&actions);
  for (const int ours : {input, output[1], errors[1]}) ::close(ours);
  outputEnd_ = output[0];
  errorsEnd_ = errors[0];
}

Program::~Program() {
  if (child_ > 0) {
    ::kill(child_, SIGKILL);
    finish();
  }
}

bool Program::readSome() {
  std::array<pollfd, 2> ends{pollfd{outputEnd_, POLLIN, 0}, pollfd{errorsEnd_, POLLIN, 0}};
  if (outputEnd_ < 0 && errorsEnd_ < 0) return false;
  if (::poll(ends.data(), ends.size(), -1) < 0) return errno == EINTR;
  if (ends[0].revents != 0) readFrom(outputEnd_, output_);
  if (ends[1].revents != 0) readFrom(errorsEnd_, errors_);
  return true;
}

bool Program::readUntil(const std::string& text) {
  while (output_.find(text) == std::string::npos) {
    if (outputEnd_ < 0 || !readSome()) return false;
  }
  return true;
}

void Program::signal(int number) const { EXPECT_EQ(::kill(child_, number), 0); }

int Program::finish() {
  while (readSome()) {
  }
  int status = 0;
  while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
  }
  child_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string kestrinPath() { return KESTRIN_PROGRAM; }

Outcome kestrin(const std::vector<std::string>& arguments, const ProgramOptions& options) {
  Program program(kestrinPath(), arguments, options);
  Outcome run;
  run.status = program.finish();
  run.output = program.output();
  run.errors = program.errors();
  return run;
}

}  // namespace kestrin::app::test
