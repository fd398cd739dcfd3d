#include "realstack/StressProbeReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace kestrin::stress {

Reader::Reader(std::string pipe, const std::string& log, std::string id)
    : pipe_(std::move(pipe)), id_(std::move(id)), log_(log) {
  if (!log_) throw std::runtime_error("there is no file " + log);
  readLog();
  given_ = answers_;
}

std::size_t Reader::order(const std::string& verb, const std::string& arguments) {
  const std::string line = verb + " " + id_ + (arguments.empty() ? "" : " " + arguments) + "\n";
  // Without a program that reads the pipe this fails instead of waiting for one.
  const int pipe = ::open(pipe_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const ssize_t written = ::write(pipe, line.data(), line.size());
  ::close(pipe);
  if (written != static_cast<ssize_t>(line.size())) {
    throw std::runtime_error("the virtual readers do not take orders from " + pipe_);
  }
  return ++given_;
}

bool Reader::answered(std::size_t orders) {
  readLog();
  return answers_ >= orders;
}

bool Reader::linked() {
  readLog();
  return linked_;
}

void Reader::readLog() {
  log_.clear();
  partOfLine_.append(std::istreambuf_iterator<char>(log_), {});
  std::size_t begin = 0;
  for (auto end = partOfLine_.find('\n'); end != std::string::npos;
       end = partOfLine_.find('\n', begin)) {
    take(partOfLine_.substr(begin, end - begin));
    begin = end + 1;
  }
  partOfLine_.erase(0, begin);
}

void Reader::take(const std::string& line) {
  std::istringstream words(line);
  std::string event;
  std::string subject;
  words >> event >> subject;
  if (event == "ORDER-REFUSED") throw std::runtime_error(line);
  if (event == "ORDER") ++answers_;
  if (subject != id_) return;
  if (event == "CONNECTED") linked_ = true;
  if (event == "DISCONNECTED") linked_ = false;
}

}  // namespace kestrin::stress
