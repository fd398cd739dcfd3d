// One virtual reader of a running kestrin-vreader: gives it orders through the named pipe and reads
// what happened to it from the lines that the program prints.
//
// Threads: one. Lifetime: ends nothing. Errors: an order that is not carried out fails the test.
#pragma once

#include <cstddef>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin::test {

class ReaderOrders {
 public:
  /// `pipe` is where orders go and `log` the file that the program's lines are in.
  ReaderOrders(std::string pipe, const std::string& log, std::string id);

  /// Gives an order about this reader and waits until it is carried out.
  void order(const std::string& verb, const std::string& arguments = {});
  /// Gives several at once, waits for all, and does not mind when they are refused.
  void tryAll(const std::vector<std::string>& orders);
  /// Whether a link is up, by the reader's own account.
  bool linked();
  /// Waits for the end of the link, if one is up.
  bool waitForNoLink();
  /// Waits until the kernel has given up every attempt to connect.
  bool waitForNoAttempt();
  /// Waits until the link that is up, if one is, carries attribute requests. Some kernels free the
  /// link's channel twice and fall over when a link ends before that.
  void waitForRequests();
  /// Every value written to the characteristic since this object was made.
  std::vector<NSData> writes(const CBUUID& characteristic);

 private:
  struct Write {
    std::string characteristic;
    NSData value;
  };

  void give(const std::string& lines) const;
  bool waitUntil(const std::function<bool()>& done);
  void readLog();
  void take(const std::string& line);

  const std::string pipe_;
  const std::string id_;
  std::ifstream log_;
  std::string partOfLine_;
  bool linked_ = false;
  bool asked_ = false;  // On the present link.
  bool attemptIsPending_ = false;
  std::size_t answers_ = 0;
  std::vector<std::string> refusals_;
  std::vector<Write> writes_;
};

}  // namespace kestrin::test
