#include "radios/bluez_contract/ReaderOrders.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <thread>
#include <utility>

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kLimit = 30s;
constexpr auto kPollingPause = 5ms;

NSData bytesOf(const std::string& digits) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return NSData(bytes);
}

}  // namespace

ReaderOrders::ReaderOrders(std::string pipe, const std::string& log, std::string id)
    : pipe_(std::move(pipe)), id_(std::move(id)), log_(log) {
  EXPECT_TRUE(log_) << "there is no file " << log;
  readLog();
  writes_.clear();
}

void ReaderOrders::order(const std::string& verb, const std::string& arguments) {
  readLog();
  refusals_.clear();
  const std::size_t wanted = answers_ + 1;
  give(verb + " " + id_ + (arguments.empty() ? "" : " " + arguments) + "\n");
  EXPECT_TRUE(waitUntil([&] { return answers_ >= wanted; }))
      << "no answer to the order " << verb << " " << arguments;
  EXPECT_EQ(refusals_, std::vector<std::string>());
}

void ReaderOrders::tryAll(const std::vector<std::string>& orders) {
  readLog();
  const std::size_t wanted = answers_ + orders.size();
  std::string lines;
  for (const auto& order : orders) {
    const auto blank = order.find(' ');
    lines += order.substr(0, blank) + " " + id_;
    lines += (blank == std::string::npos ? "" : order.substr(blank)) + "\n";
  }
  give(lines);
  EXPECT_TRUE(waitUntil([&] { return answers_ >= wanted; }))
      << "not every one of " << orders.size() << " was answered";
}

bool ReaderOrders::linked() {
  readLog();
  return linked_;
}

bool ReaderOrders::waitForNoLink() {
  return waitUntil([this] { return !linked_; });
}

bool ReaderOrders::waitForNoAttempt() {
  return waitUntil([this] { return !attemptIsPending_; });
}

void ReaderOrders::waitForRequests() {
  EXPECT_TRUE(waitUntil([this] { return asked_ || !linked_; })) << "nothing is asked of the reader";
}

std::vector<NSData> ReaderOrders::writes(const CBUUID& characteristic) {
  readLog();
  std::vector<NSData> values;
  for (const auto& write : writes_) {
    if (write.characteristic == characteristic.UUIDString()) values.push_back(write.value);
  }
  return values;
}

void ReaderOrders::give(const std::string& lines) const {
  // Without a program that reads the pipe this fails instead of waiting for one.
  const int pipe = ::open(pipe_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(pipe, 0) << "kestrin-vreader does not read the pipe " << pipe_;
  for (std::size_t at = 0; at < lines.size();) {
    const ssize_t size = ::write(pipe, lines.data() + at, lines.size() - at);
    if (size > 0) at += static_cast<std::size_t>(size);
    if (size <= 0) std::this_thread::sleep_for(kPollingPause);
  }
  ::close(pipe);
}

bool ReaderOrders::waitUntil(const std::function<bool()>& done) {
  const auto end = std::chrono::steady_clock::now() + kLimit;
  for (readLog(); !done(); readLog()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kPollingPause);
  }
  return true;
}

void ReaderOrders::readLog() {
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

void ReaderOrders::take(const std::string& line) {
  std::istringstream words(line);
  std::string event;
  std::string subject;
  words >> event >> subject;
  if (event == "ORDER" || event == "ORDER-REFUSED") ++answers_;
  // The kernel listens for a device that it is to connect to with a passive scan.
  if (event == "SCAN") attemptIsPending_ = subject == "passive";
  if (event == "ORDER-REFUSED") refusals_.push_back(line);
  if (subject != id_) return;
  if (event == "CONNECTED") {
    linked_ = true;
    asked_ = false;
  }
  if (event == "MTU") asked_ = true;
  if (event == "DISCONNECTED") linked_ = false;
  if (event == "WRITE") {
    std::string characteristic;
    std::size_t length = 0;
    std::string digits;
    words >> characteristic >> length >> digits;
    writes_.push_back({characteristic, bytesOf(digits)});
  }
}

}  // namespace kestrin::test
